// What the cases share: owning wrappers for interface pointers, BSTRs and VARIANTs, the
// default controller connected as a host connects it, and late-bound calls.
#pragma once

#include <windows.h>

#include <ole2.h>

#include <initializer_list>
#include <string>
#include <utility>

#include "VxInterfaces.h"
#include "VxSim.h"

namespace client {

// Owns one reference to an interface.
template <typename T>
class Ptr {
public:
    Ptr() = default;
    Ptr(const Ptr& other) : m_raw(other.m_raw) {
        if (m_raw) m_raw->AddRef();
    }
    Ptr(Ptr&& other) noexcept : m_raw(std::exchange(other.m_raw, nullptr)) {}
    Ptr& operator=(Ptr other) noexcept {
        std::swap(m_raw, other.m_raw);
        return *this;
    }
    ~Ptr() { Reset(); }

    T* Get() const { return m_raw; }
    T* operator->() const { return m_raw; }
    explicit operator bool() const { return m_raw != nullptr; }
    // The slot for an out parameter; what was held is released first.
    T** Put() {
        Reset();
        return &m_raw;
    }
    void** PutVoid() { return reinterpret_cast<void**>(Put()); }
    void Reset() {
        if (m_raw) std::exchange(m_raw, nullptr)->Release();
    }
    // QueryInterface; empty when the object does not offer the interface.
    template <typename U>
    Ptr<U> As(REFIID iid) const {
        Ptr<U> other;
        if (m_raw) m_raw->QueryInterface(iid, other.PutVoid());
        return other;
    }

private:
    T* m_raw = nullptr;
};

class Bstr {
public:
    Bstr() = default;
    explicit Bstr(const wchar_t* text) : m_text(SysAllocString(text)) {}
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    ~Bstr() { SysFreeString(m_text); }

    BSTR Get() const { return m_text; }
    BSTR* Put() {
        SysFreeString(std::exchange(m_text, nullptr));
        return &m_text;
    }
    std::wstring Text() const { return m_text ? std::wstring(m_text) : std::wstring(); }

private:
    BSTR m_text = nullptr;
};

class Var {
public:
    Var() { VariantInit(&m_value); }
    Var(const Var&) = delete;
    Var& operator=(const Var&) = delete;
    ~Var() { VariantClear(&m_value); }

    VARIANT* Get() { return &m_value; }
    const VARIANT& operator*() const { return m_value; }
    const VARIANT* operator->() const { return &m_value; }
    VARIANT* Put() {
        VariantClear(&m_value);
        return &m_value;
    }

private:
    VARIANT m_value;
};

// QueryInterface on a borrowed pointer.
template <typename U, typename T>
Ptr<U> Query(T* object, REFIID iid) {
    Ptr<U> other;
    if (object) object->QueryInterface(iid, other.PutVoid());
    return other;
}

// The object's identity, for comparing; the reference taken to ask is given back at once.
IUnknown* IdentityOf(IUnknown* object);

// A factory, a simulated node holding the default controller, the node's revision, and a
// device connected to the node.
struct Controller {
    Ptr<_VxDef> factory;
    Ptr<IVxSimNode> node;
    Ptr<IOrvexDeviceRevisionIdentify> revision;
    Ptr<IOrvexDevice> device;
};
// Stops the case (REQUIRE) when a step fails.
Controller ConnectDefault();

Ptr<IOrvexLonObject> ObjectOf(IOrvexDevice* device, LONG id);
Ptr<IOrvexVariable> VariableOf(IOrvexLonObject* object, const wchar_t* name);
Ptr<IOrvexVariable> VariableOf(IOrvexDevice* device, LONG objectID, const wchar_t* name);
// The bytes a node holds for a variable or item, as upper-case hexadecimal ("" on failure).
std::wstring NodeValue(IVxSimNode* node, const wchar_t* name);

// ---- Late binding --------------------------------------------------------------------------

// The DISPID of a member by name; DISPID_UNKNOWN when the name is refused.
DISPID DispIdOf(IDispatch* object, const wchar_t* name);

// One IDispatch::Invoke with the arguments in their natural order (they are passed reversed,
// as Invoke wants them); a property put passes its value last, as the named DISPID_PROPERTYPUT.
// The arguments are borrowed, not cleared.
HRESULT Invoke(IDispatch* object, const wchar_t* name, WORD flags,
               std::initializer_list<VARIANT> arguments, VARIANT* result,
               EXCEPINFO* exception = nullptr);

VARIANT LongArg(LONG value);
VARIANT DoubleArg(double value);
VARIANT TextArg(BSTR value);          // borrowed
VARIANT ObjectArg(IDispatch* value);  // borrowed

}  // namespace client
