// The entry points of VxSim.dll and its one creatable class, Node.
#include <windows.h>

#include <ole2.h>

#include "Module.h"
#include "NodeObject.h"
#include "Server.h"
#include "VxSim.h"

namespace vx::com {
namespace {

const ServerDescription kServer{
    CLSID_Node, L"VxSim.Node", L"VxSim: a simulated Orvex controller", LIBID_VxSim, 1, 0,
};

}  // namespace
}  // namespace vx::com

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        vx::com::SetModuleHandle(instance);
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    return vx::com::GetClassObject(clsid, iid, out, CLSID_Node, &vx::com::MakeNode);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return vx::com::ModuleInUse() ? S_FALSE : S_OK;
}

// The node's type library refers to Vx.dll's, so Vx.dll is registered first.
HRESULT STDAPICALLTYPE DllRegisterServer() {
    return vx::com::RegisterServer(vx::com::kServer);
}

HRESULT STDAPICALLTYPE DllUnregisterServer() {
    return vx::com::UnregisterServer(vx::com::kServer);
}

}  // extern "C"
