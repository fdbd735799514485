#include "Identity.h"

#include "automation/ComError.h"

#include <mutex>
#include <unordered_map>

namespace vx::com::identity {
namespace {

struct Maps {
    std::mutex lock;
    std::unordered_map<const Object*, IUnknown*> byCore;
    std::unordered_map<IUnknown*, CoreHolder*> byWrapper;
};

Maps& TheMaps() {
    static auto* maps = new Maps;
    return *maps;
}

}  // namespace

void Enter(const Object* core, IUnknown* wrapper, CoreHolder* holder) {
    auto& maps = TheMaps();
    const std::lock_guard guard(maps.lock);
    maps.byCore[core] = wrapper;
    maps.byWrapper[wrapper] = holder;
}

void Leave(const Object* core, IUnknown* wrapper) {
    auto& maps = TheMaps();
    const std::lock_guard guard(maps.lock);
    const auto found = maps.byCore.find(core);
    if (found != maps.byCore.end() && found->second == wrapper) maps.byCore.erase(found);
    maps.byWrapper.erase(wrapper);
}

IUnknown* Find(const Object* core) {
    auto& maps = TheMaps();
    const std::lock_guard guard(maps.lock);
    const auto found = maps.byCore.find(core);
    if (found == maps.byCore.end()) return nullptr;
    found->second->AddRef();
    return found->second;
}

ObjectPtr CoreOf(IUnknown* identity) {
    auto& maps = TheMaps();
    const std::lock_guard guard(maps.lock);
    const auto found = maps.byWrapper.find(identity);
    return found == maps.byWrapper.end() ? nullptr : found->second->CoreObject();
}

}  // namespace vx::com::identity

namespace vx::com {

IDispatch* ExportThroughIdentity(const ObjectPtr& object, WrapNew wrap) {
    if (!object) return nullptr;
    ComPtr<IUnknown> identity;
    if (const auto* foreign = dynamic_cast<const ForeignObject*>(object.get())) {
        identity = ComPtr<IUnknown>(foreign->Unknown());
    } else {
        identity = ComPtr<IUnknown>::Adopt(identity::Find(object.get()));
        if (!identity) identity = ComPtr<IUnknown>::Adopt(wrap(object));
    }
    // An object the module cannot show to COM is no value a script could hold.
    const auto dispatch = identity.As<IDispatch>();
    if (!dispatch) RaiseRuntimeError(kErrTypeMismatch);
    return ComPtr<IDispatch>(dispatch).Detach();
}

ObjectPtr ImportThroughIdentity(IUnknown* object, AdaptHost adapt) {
    if (!object) return nullptr;
    ComPtr<IUnknown> identity;
    object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(identity.Put()));
    if (!identity) return std::make_shared<ForeignObject>(object);
    if (auto core = identity::CoreOf(identity.Get())) return core;
    if (adapt) {
        if (auto adapted = adapt(identity.Get())) return adapted;
    }
    return std::make_shared<ForeignObject>(identity.Get());
}

}  // namespace vx::com
