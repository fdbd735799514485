#pragma once

#include <ole2.h>
#include <windows.h>

#include <memory>

#include "ComObject.h"
#include "ComPtr.h"
#include "automation/Variant.h"

namespace vx::com {

// What every wrapper of a library object offers its module: the object it wraps.
class CoreHolder {
public:
    virtual ObjectPtr CoreObject() const = 0;

protected:
    ~CoreHolder() = default;
};

// The module's wrappers by the library object they wrap, so that one object always crosses into
// COM as the same IUnknown, and an IUnknown of ours comes back as its object. Wrappers enter
// themselves on construction and leave on destruction.
namespace identity {
void Enter(const Object* core, IUnknown* wrapper, CoreHolder* holder);
void Leave(const Object* core, IUnknown* wrapper);
// The live wrapper of `core` with a new reference, or nullptr.
IUnknown* Find(const Object* core);
// The library object behind one of our wrappers (by its IUnknown); nullptr for anything else.
ObjectPtr CoreOf(IUnknown* identity);
}  // namespace identity

// A COM object that wraps one library object and keeps COM identity for it.
template <typename Core, typename... Interfaces>
class CoreWrapper : public ComObject<Interfaces...>, public CoreHolder {
public:
    ObjectPtr CoreObject() const override { return m_core; }

    explicit CoreWrapper(std::shared_ptr<Core> core) : m_core(std::move(core)) {
        identity::Enter(Key(), this->Identity(), this);
    }

protected:
    ~CoreWrapper() override { identity::Leave(Key(), this->Identity()); }

    const Object* Key() const { return static_cast<const Object*>(m_core.get()); }

    const std::shared_ptr<Core> m_core;
};

// A host object (from another module or another maker) that the library holds as an Object.
// Adapters of host interfaces derive from it, so the object crosses back as itself.
class ForeignObject : public virtual Object {
public:
    explicit ForeignObject(IUnknown* object) : m_object(object) {}
    IUnknown* Unknown() const { return m_object.Get(); }

private:
    ComPtr<IUnknown> m_object;
};

// A new wrapper of `Wrapper` for `object` when it is a `Core`, else nullptr; modules list these
// in the order their wrappers are tried.
template <typename Core, typename Wrapper>
IUnknown* WrapAs(const ObjectPtr& object) {
    auto core = std::dynamic_pointer_cast<Core>(object);
    return core ? (new Wrapper(std::move(core)))->Identity() : nullptr;
}

// The two module hooks of Variants.h, given how the module wraps its own objects and how it
// adapts host objects (nullptr: it keeps them opaque). Each object crosses as its one wrapper;
// a host object crosses back as itself.
using WrapNew = IUnknown* (*)(const ObjectPtr& object);
using AdaptHost = ObjectPtr (*)(IUnknown* identity);
IDispatch* ExportThroughIdentity(const ObjectPtr& object, WrapNew wrap);
ObjectPtr ImportThroughIdentity(IUnknown* object, AdaptHost adapt);

}  // namespace vx::com
