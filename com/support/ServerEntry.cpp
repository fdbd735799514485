// The entry points of an in-process server module; see ModuleServer in Server.h.
#include <windows.h>

#include <ole2.h>

#include "Module.h"
#include "Server.h"

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        vx::com::SetModuleHandle(instance);
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    return vx::com::GetClassObject(clsid, iid, out, vx::com::ModuleServer().clsid,
                                   &vx::com::MakeModuleInstance);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return vx::com::ModuleInUse() ? S_FALSE : S_OK;
}

HRESULT STDAPICALLTYPE DllRegisterServer() {
    return vx::com::RegisterServer(vx::com::ModuleServer());
}

HRESULT STDAPICALLTYPE DllUnregisterServer() {
    return vx::com::UnregisterServer(vx::com::ModuleServer());
}

}  // extern "C"
