// The servers may be unloaded exactly when no object of theirs is held any more: a server that
// answers too early is unloaded under its objects, one that never answers leaks.
#include <windows.h>

#include <ole2.h>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

namespace cases {
namespace {

using CanUnloadNow = HRESULT(STDAPICALLTYPE*)();

// The server's own DllCanUnloadNow; COM has the DLL loaded by the time this is asked.
CanUnloadNow CanUnloadOf(const wchar_t* module) {
    const HMODULE loaded = GetModuleHandleW(module);
    if (!loaded) return nullptr;
    // Through the generic function pointer type, which converts to any other without warning.
    return reinterpret_cast<CanUnloadNow>(
        reinterpret_cast<void (*)()>(GetProcAddress(loaded, "DllCanUnloadNow")));
}

}  // namespace

void Unload() {
    const CanUnloadNow vx = CanUnloadOf(L"Vx.dll");
    const CanUnloadNow sim = CanUnloadOf(L"VxSim.dll");
    REQUIRE(vx && sim);
    {
        auto made = client::ConnectDefault();
        CHECK_HR(vx(), S_FALSE);
        CHECK_HR(sim(), S_FALSE);
        // The device holds the node's connection and records, and so keeps VxSim in use.
        made.node.Reset();
        made.factory.Reset();
        made.revision.Reset();
        CHECK_HR(vx(), S_FALSE);
        CHECK_HR(sim(), S_FALSE);
    }
    // Every object of this case and of the cases before is released now.
    CHECK_HR(vx(), S_OK);
    CHECK_HR(sim(), S_OK);
}

}  // namespace cases
