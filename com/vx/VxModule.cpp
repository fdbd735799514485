// The entry points of Vx.dll and its one creatable class, VxDef.
#include <ole2.h>
#include <windows.h>

#include <mutex>

#include "ComObject.h"
#include "Errors.h"
#include "Module.h"
#include "Server.h"
#include "TypeRegistry.h"
#include "VxDef.h"
#include "VxInterfaces.h"
#include "Wrappers.h"

namespace vx::com {
namespace {

class VxDefObject final : public ComObject<::_VxDef> {
public:
    VxDefObject() {
        // Values decode out of the box: the standard type catalogue serves every device.
        static std::once_flag installed;
        std::call_once(installed, [] { UseStandardTypes(); });
    }

    HRESULT STDMETHODCALLTYPE CreateDeviceManager(::IOrvexDevice** device) override {
        return Guard(
            [&] { Out(device) = Export<::IOrvexDevice>(m_factory.CreateDeviceManager()); });
    }
    HRESULT STDMETHODCALLTYPE
    CreateDeviceRevision(::IOrvexDeviceRevisionIdentify** revision) override {
        return Guard([&] {
            Out(revision) =
                Export<::IOrvexDeviceRevisionIdentify>(m_factory.CreateDeviceRevision());
        });
    }

private:
    vx::VxDef m_factory;
};

IUnknown* MakeVxDef() {
    return (new VxDefObject())->Identity();
}

const ServerDescription kServer{
    CLSID_VxDef,        L"Vx.VxDef", L"Vx: Orvex controllers on a LonWorks network",
    LIBID_VxInterfaces, 1,           0,
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
    return vx::com::GetClassObject(clsid, iid, out, CLSID_VxDef, &vx::com::MakeVxDef);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return vx::com::ModuleInUse() ? S_FALSE : S_OK;
}

HRESULT STDAPICALLTYPE DllRegisterServer() {
    return vx::com::RegisterServer(vx::com::kServer);
}

HRESULT STDAPICALLTYPE DllUnregisterServer() {
    return vx::com::UnregisterServer(vx::com::kServer);
}

}  // extern "C"
