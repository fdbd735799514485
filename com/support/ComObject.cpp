#include "ComObject.h"

#include <ole2.h>
#include <windows.h>

#include <mutex>
#include <utility>
#include <vector>

#include "ComPtr.h"
#include "Errors.h"

namespace vx::com {
namespace {

struct LibraryKey {
    GUID libid;
    WORD major;
    WORD minor;
};

struct Libraries {
    std::mutex lock;
    bool ownLoaded = false;
    ComPtr<ITypeLib> own;
    std::vector<LibraryKey> others;
    std::vector<ComPtr<ITypeLib>> othersLoaded;
    std::vector<std::pair<GUID, ComPtr<ITypeInfo>>> found;
};

// Never destroyed: releasing type libraries while the DLL detaches would call into a runtime
// that may already be gone.
Libraries& TheLibraries() {
    static auto* libraries = new Libraries;
    return *libraries;
}

ComPtr<ITypeInfo> Search(ITypeLib* library, REFGUID iid) {
    ComPtr<ITypeInfo> info;
    if (library) library->GetTypeInfoOfGuid(iid, info.Put());
    return info;
}

}  // namespace

void AlsoSearchTypeLibrary(REFGUID libid, WORD major, WORD minor) {
    auto& libraries = TheLibraries();
    const std::lock_guard guard(libraries.lock);
    libraries.others.push_back({libid, major, minor});
}

HRESULT FindTypeInfoNoThrow(REFGUID iid, ITypeInfo** type) noexcept {
    try {
        *type = TypeInfoFor(iid);
        return S_OK;
    } catch (const HresultError& error) {
        return error.Result();
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

ITypeInfo* TypeInfoFor(REFGUID iid) {
    auto& libraries = TheLibraries();
    const std::lock_guard guard(libraries.lock);
    for (const auto& [known, info] : libraries.found) {
        if (IsEqualGUID(known, iid)) return info.Get();
    }
    if (!libraries.ownLoaded) {
        libraries.ownLoaded = true;
        const std::wstring path = ModulePath();
        LoadTypeLibEx(path.c_str(), REGKIND_NONE, libraries.own.Put());
    }
    ComPtr<ITypeInfo> info = Search(libraries.own.Get(), iid);
    for (std::size_t i = 0; !info && i < libraries.others.size(); ++i) {
        if (libraries.othersLoaded.size() <= i) {
            const auto& key = libraries.others[i];
            ComPtr<ITypeLib> other;
            LoadRegTypeLib(key.libid, key.major, key.minor, LOCALE_NEUTRAL, other.Put());
            libraries.othersLoaded.push_back(other);
        }
        info = Search(libraries.othersLoaded[i].Get(), iid);
    }
    if (!info) throw HresultError(TYPE_E_ELEMENTNOTFOUND);
    libraries.found.emplace_back(iid, info);
    return info.Get();
}

}  // namespace vx::com
