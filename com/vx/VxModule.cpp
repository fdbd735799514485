// Vx.dll: its registration and its one creatable class, VxDef.
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

}  // namespace

const ServerDescription& ModuleServer() {
    static const ServerDescription server{
        CLSID_VxDef,        L"Vx.VxDef", L"Vx: Orvex controllers on a LonWorks network",
        LIBID_VxInterfaces, 1,           0,
    };
    return server;
}

IUnknown* MakeModuleInstance() {
    return (new VxDefObject())->Identity();
}

}  // namespace vx::com
