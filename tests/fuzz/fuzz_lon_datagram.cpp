// Decodes arbitrary bytes as a LON/IP datagram. Decoding never reads past the bytes or throws; a
// rejected datagram names its error; and every field of the header, addresses and PDU header is
// kept, so whatever decodes encodes back to exactly the bytes it came from.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "Datagram.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    const vx::lon::DecodeResult decoded = vx::lon::Decode(bytes);
    if (!decoded) {
        if (decoded.error == vx::lon::DecodeError::kNone) std::abort();
        if (vx::lon::DecodeErrorText(decoded.error).empty()) std::abort();
        return 0;
    }
    if (decoded.error != vx::lon::DecodeError::kNone) std::abort();
    const auto encoded = vx::lon::Encode(*decoded.datagram);
    if (!encoded || !std::equal(encoded->begin(), encoded->end(), bytes.begin(), bytes.end())) {
        std::abort();
    }
    return 0;
}
