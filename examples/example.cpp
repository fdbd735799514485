// A first look at the library without hardware: decodes a Neuron ID and a two-byte address the way
// a service tool shows them, and shows how a library error reaches the caller.
#include <cstdio>

#include "ErrorSupport.h"
#include "SupportRoutines.h"

int main() {
    const vx::ByteArray neuronId = vx::HexToBytes("04A2C7150100");
    std::printf("Neuron ID        %s\n", vx::FormatDashedHex(vx::BytesToHex(neuronId)).c_str());
    std::printf("Address 0x0102   %g\n", static_cast<double>(vx::PIUnsignedTwoBytesToSingle(1, 2)));
    std::printf("Scaled 2345/100  %g\n", static_cast<double>(vx::RawToScaled(2345, 100, false)));
    try {
        vx::RaiseLibraryError(vx::LibraryErrorNumber(vx::kIdMissingLonmarkVariable),
                              vx::source::Join(vx::source::kDevice, vx::source::kConnect),
                              {"nvoStatus"});
    } catch (const vx::ComError& error) {
        std::printf("Error %d from %s: %s\n", error.Number(), error.Source().c_str(),
                    error.Description().c_str());
    }
    return 0;
}
