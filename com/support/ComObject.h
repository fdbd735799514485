#pragma once

#include <ole2.h>
#include <windows.h>

#include <atomic>
#include <type_traits>

#include "Module.h"

namespace vx::com {

// The type description of a dual interface, from the module's own type library or one named by
// AlsoSearchTypeLibrary. Borrowed: the module keeps it for its lifetime. Raises HresultError.
ITypeInfo* TypeInfoFor(REFGUID iid);
// A registered type library whose descriptions TypeInfoFor also offers (the module's interfaces
// may come from another library).
void AlsoSearchTypeLibrary(REFGUID libid, WORD major, WORD minor);

// TypeInfoFor as an HRESULT, for the IDispatch members that may not throw.
HRESULT FindTypeInfoNoThrow(REFGUID iid, ITypeInfo** type) noexcept;

// IDispatch of one dual interface, answered from its type description.
template <typename Interface>
class DispatchPart : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        return Described([&](ITypeInfo* type) {
            type->AddRef();
            *info = type;
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                            DISPID* ids) override {
        return Described(
            [&](ITypeInfo* type) { return DispGetIDsOfNames(type, names, count, ids); });
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                                     UINT* badArgument) override {
        if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        return Described([&](ITypeInfo* type) {
            return type->Invoke(static_cast<Interface*>(this), member, flags, params, result,
                                exception, badArgument);
        });
    }

private:
    template <typename Use>
    static HRESULT Described(Use use) {
        ITypeInfo* type = nullptr;
        const HRESULT found = FindTypeInfoNoThrow(__uuidof(Interface), &type);
        return FAILED(found) ? found : use(type);
    }
};

// The interface that `Interface` extends, when clients may ask for that one by its own IID too
// (void: none beyond IDispatch). An object listing `Interface` answers for both with one pointer.
template <typename Interface>
struct ExtendedInterface {
    using Type = void;
};

template <typename Interface>
using ImplementationOf =
    std::conditional_t<std::is_base_of_v<IDispatch, Interface>, DispatchPart<Interface>, Interface>;

// A COM object of the module implementing `Interfaces` (the first is its identity and, when it
// is a dual interface, its IDispatch). It counts itself alive, holds its own reference count,
// and states that every one of its interfaces reports errors through the error object.
template <typename Primary, typename... Others>
class ComObject : public LiveObject,
                  public ImplementationOf<Primary>,
                  public ImplementationOf<Others>...,
                  public ISupportErrorInfo {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (IsEqualIID(iid, IID_IUnknown)) {
            *out = Identity();
        } else if (IsEqualIID(iid, IID_IDispatch) && std::is_base_of_v<IDispatch, Primary>) {
            *out = static_cast<Primary*>(this);
        } else if (IsEqualIID(iid, IID_ISupportErrorInfo)) {
            *out = static_cast<ISupportErrorInfo*>(this);
        } else if (!Find<Primary, Others...>(iid, out)) {
            *out = QueryMore(iid);
            if (!*out) return E_NOINTERFACE;
        }
        static_cast<IUnknown*>(*out)->AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override {
        void* found = nullptr;
        return Find<Primary, Others...>(iid, &found) ? S_OK : S_FALSE;
    }

    // The object's IUnknown: the same pointer whichever interface it is reached through.
    IUnknown* Identity() { return static_cast<Primary*>(this); }

protected:
    ComObject() = default;
    // Interfaces beyond the listed ones (an object that offers one only sometimes).
    virtual void* QueryMore(REFIID) { return nullptr; }

private:
    template <typename First, typename... Rest>
    bool Find(REFIID iid, void** out) {
        if (Answers<First>(iid)) {
            *out = static_cast<First*>(this);
            return true;
        }
        if constexpr (sizeof...(Rest) > 0) return Find<Rest...>(iid, out);
        return false;
    }
    template <typename Interface>
    static bool Answers(REFIID iid) {
        if (IsEqualIID(iid, __uuidof(Interface))) return true;
        using Base = typename ExtendedInterface<Interface>::Type;
        if constexpr (std::is_void_v<Base>) {
            return false;
        } else {
            return Answers<Base>(iid);
        }
    }

    std::atomic<ULONG> m_references{1};
};

}  // namespace vx::com
