// The C++ COM client: drives Vx.dll and VxSim.dll through COM as a host program would, early and
// late bound, and prints "N passed, M failed" last.
#include <windows.h>

#include <ole2.h>

// Defines the GUIDs of both generated headers, once for the whole program.
#include <initguid.h>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        check::Record(false, __FILE__, __LINE__, "CoInitializeEx failed");
        return check::Finish();
    }
    check::RunCase("early-bound calls", cases::EarlyBound);
    check::RunCase("the device's own conversions", cases::DeviceConversions);
    check::RunCase("late-bound calls and error information", cases::LateBound);
    check::RunCase("device events", cases::Events);
    check::RunCase("COM identity", cases::Identity);
    check::RunCase("byte arrays and sub-elements", cases::ByteArrays);
    check::RunCase("names in the type libraries", cases::TypeLibraryNames);
    // Last: it needs every object of the cases before it released.
    check::RunCase("unloading the servers", cases::Unload);
    const int exitCode = check::Finish();
    CoUninitialize();
    return exitCode;
}
