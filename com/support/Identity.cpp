#include "Identity.h"

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
