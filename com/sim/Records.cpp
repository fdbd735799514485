// The simulated node's records as the host's COM objects: its two item lists, the records of its
// network variables and configuration items, and a saved configuration with its items. Each
// wrapper is a thin call into the record; the same record always crosses as the same object.
#include <windows.h>

#include <ole2.h>

#include <vector>

#include "Records.h"

#include "EnumVariant.h"
#include "Export.h"
#include "Identity.h"
#include "Text.h"
#include "VxInterfaces.h"
#include "interfaces/IHostConfigItems.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"
#include "interfaces/INodeVariableList.h"

namespace vx::com {
namespace {

class VariableListWrapper final : public CoreWrapper<vx::INodeVariableList, ::INodeVariableList> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_Count(LONG* count) override {
        return Guard([&] { Out(count) = m_core->Count(); });
    }
    HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** enumerator) override {
        return Guard([&] {
            const auto items = m_core->Items();
            Out(enumerator) = EnumVariant::Create(std::vector<Variant>(items.begin(), items.end()));
        });
    }
};

class NodeVariableWrapper final : public CoreWrapper<vx::INodeVariable, ::INodeVariable> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_Name(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->Name()); });
    }
    HRESULT STDMETHODCALLTYPE get_Index(short* index) override {
        return Guard([&] { Out(index) = m_core->Index(); });
    }
    HRESULT STDMETHODCALLTYPE get_SelfDoc(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_core->SelfDoc()); });
    }
    HRESULT STDMETHODCALLTYPE get_TypeIndex(LONG* index) override {
        return Guard([&] { Out(index) = m_core->TypeIndex(); });
    }
    HRESULT STDMETHODCALLTYPE get_SelfDocName(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->SelfDocName()); });
    }
    HRESULT STDMETHODCALLTYPE get_ByteLength(LONG* length) override {
        return Guard([&] { Out(length) = m_core->ByteLength(); });
    }
    HRESULT STDMETHODCALLTYPE get_IsOutput(VARIANT_BOOL* output) override {
        return Guard([&] { Out(output) = ToVariantBool(m_core->IsOutput()); });
    }
    HRESULT STDMETHODCALLTYPE ReadValue(VARIANT* bytes) override {
        return Guard([&] { ToVariant(m_core->ReadValue(), &Out(bytes)); });
    }
    HRESULT STDMETHODCALLTYPE WriteValue(VARIANT bytes) override {
        return Guard([&] { m_core->WriteValue(FromVariant(bytes)); });
    }
};

class NodeVariableAccessWrapper final
    : public CoreWrapper<vx::INodeVariableAccess, ::INodeVariableAccess> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_Layout(BSTR* layout) override {
        return Guard([&] { Out(layout) = ToBstr(m_core->Layout()); });
    }
    HRESULT STDMETHODCALLTYPE Reserved1() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE get_Name(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->Name()); });
    }
    HRESULT STDMETHODCALLTYPE Reserved3() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved4() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE ReadValue(VARIANT* bytes) override {
        return Guard([&] { ToVariant(m_core->ReadValue(), &Out(bytes)); });
    }
    // The argument is by reference only because the host's member declares it so; the value
    // written is not handed back.
    HRESULT STDMETHODCALLTYPE WriteValue(VARIANT* bytes) override {
        return Guard([&] {
            Variant value = FromVariant(Out(bytes));
            m_core->WriteValue(value);
        });
    }
};

class ConfigItemsWrapper final : public CoreWrapper<vx::IHostConfigItems, ::IHostConfigItems> {
public:
    using CoreWrapper::CoreWrapper;

    // A key the configuration does not hold gives Nothing, not an error.
    HRESULT STDMETHODCALLTYPE get_Item(BSTR key, ::IHostConfigItem** item) override {
        return Guard([&] { Out(item) = Export<::IHostConfigItem>(m_core->Item(FromBstr(key))); });
    }
};

class ConfigItemWrapper final : public CoreWrapper<vx::IHostConfigItem, ::IHostConfigItem> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_Name(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->Name()); });
    }
    HRESULT STDMETHODCALLTYPE get_Number(short* number) override {
        return Guard([&] { Out(number) = m_core->Number(); });
    }
    HRESULT STDMETHODCALLTYPE Reserved2() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved3() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE get_Value(VARIANT* bytes) override {
        return Guard([&] { ToVariant(m_core->Value(), &Out(bytes)); });
    }
};

// A new wrapper for a record that has none yet (one reference); nullptr for anything else.
IUnknown* NewWrapper(const ObjectPtr& object) {
    using Make = IUnknown* (*)(const ObjectPtr&);
    for (const Make make : {
             &WrapAs<vx::INodeVariableList, VariableListWrapper>,
             &WrapAs<vx::INodeVariable, NodeVariableWrapper>,
             &WrapAs<vx::INodeVariableAccess, NodeVariableAccessWrapper>,
             &WrapAs<vx::IHostConfigItems, ConfigItemsWrapper>,
             &WrapAs<vx::IHostConfigItem, ConfigItemWrapper>,
         }) {
        if (IUnknown* wrapper = make(object)) return wrapper;
    }
    return nullptr;
}

}  // namespace

HRESULT ReservedPlace() {
    return Guard([] { throw HresultError(E_NOTIMPL); });
}

IDispatch* ExportObject(const ObjectPtr& object) {
    return ExportThroughIdentity(object, &NewWrapper);
}

ObjectPtr ImportObject(IUnknown* object) {
    return ImportThroughIdentity(object, nullptr);
}

}  // namespace vx::com
