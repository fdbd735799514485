#include "Server.h"

#include <ole2.h>
#include <olectl.h>
#include <windows.h>

#include <string>

#include "ComObject.h"
#include "ComPtr.h"

namespace vx::com {
namespace {

class ClassFactory final : public ComObject<IClassFactory> {
public:
    explicit ClassFactory(MakeInstance make) : m_make(make) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        IUnknown* instance = nullptr;
        try {
            instance = m_make();
        } catch (...) {
            return E_OUTOFMEMORY;
        }
        const HRESULT result = instance->QueryInterface(iid, out);
        instance->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        LockModule(lock != FALSE);
        return S_OK;
    }

private:
    MakeInstance m_make;
};

std::wstring GuidText(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

bool SetValue(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& value) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) !=
        ERROR_SUCCESS) {
        return false;
    }
    const auto bytes = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
    const LONG written =
        RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()), bytes);
    RegCloseKey(key);
    return written == ERROR_SUCCESS;
}

void DeleteTree(const std::wstring& path) {
    RegDeleteTreeW(HKEY_CLASSES_ROOT, path.c_str());
    RegDeleteKeyW(HKEY_CLASSES_ROOT, path.c_str());
}

}  // namespace

HRESULT GetClassObject(REFCLSID asked, REFIID iid, void** out, REFCLSID creatable,
                       MakeInstance make) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(asked, creatable)) return CLASS_E_CLASSNOTAVAILABLE;
    auto* factory = new (std::nothrow) ClassFactory(make);
    if (!factory) return E_OUTOFMEMORY;
    const HRESULT result = factory->QueryInterface(iid, out);
    factory->Release();
    return result;
}

HRESULT RegisterServer(const ServerDescription& server) {
    const std::wstring path = ModulePath();
    ComPtr<ITypeLib> library;
    const HRESULT loaded = LoadTypeLibEx(path.c_str(), REGKIND_REGISTER, library.Put());
    if (FAILED(loaded)) return loaded;

    const std::wstring clsid = GuidText(server.clsid);
    const std::wstring classKey = L"CLSID\\" + clsid;
    const std::wstring version =
        std::to_wstring(server.libraryMajor) + L"." + std::to_wstring(server.libraryMinor);
    const bool written =
        SetValue(HKEY_CLASSES_ROOT, classKey, nullptr, server.description) &&
        SetValue(HKEY_CLASSES_ROOT, classKey + L"\\InprocServer32", nullptr, path) &&
        SetValue(HKEY_CLASSES_ROOT, classKey + L"\\InprocServer32", L"ThreadingModel",
                 L"Apartment") &&
        SetValue(HKEY_CLASSES_ROOT, classKey + L"\\ProgID", nullptr, server.progId) &&
        SetValue(HKEY_CLASSES_ROOT, classKey + L"\\TypeLib", nullptr, GuidText(server.libid)) &&
        SetValue(HKEY_CLASSES_ROOT, classKey + L"\\Version", nullptr, version) &&
        SetValue(HKEY_CLASSES_ROOT, server.progId, nullptr, server.description) &&
        SetValue(HKEY_CLASSES_ROOT, std::wstring(server.progId) + L"\\CLSID", nullptr, clsid);
    if (!written) {
        UnregisterServer(server);
        return SELFREG_E_CLASS;
    }
    return S_OK;
}

HRESULT UnregisterServer(const ServerDescription& server) {
    DeleteTree(L"CLSID\\" + GuidText(server.clsid));
    DeleteTree(server.progId);
    const SYSKIND platform = sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32;
    const HRESULT removed = UnRegisterTypeLib(server.libid, server.libraryMajor,
                                              server.libraryMinor, LOCALE_NEUTRAL, platform);
    // A library that is already gone is what unregistering wants.
    if (FAILED(removed) && removed != TYPE_E_REGISTRYACCESS && removed != TYPE_E_CANTLOADLIBRARY) {
        return removed;
    }
    return S_OK;
}

}  // namespace vx::com
