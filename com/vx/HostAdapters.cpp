// The host's COM objects (its node connection, the node's item records, a kept configuration)
// seen as the library's host interfaces. Only their COM interfaces are used, so any maker's
// objects work the same as the simulated controller's.
#include <ole2.h>
#include <windows.h>

#include "Errors.h"
#include "Identity.h"
#include "Text.h"
#include "Variants.h"
#include "VxInterfaces.h"
#include "Wrappers.h"
#include "interfaces/IHostConfigItems.h"
#include "interfaces/INodeConnection.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"
#include "interfaces/INodeVariableList.h"

namespace vx::com {
namespace {

// Frees a BSTR the host handed out, whatever happens next.
class BstrResult {
public:
    BstrResult() = default;
    explicit BstrResult(const std::string& text) : m_text(ToBstr(text)) {}
    BstrResult(const BstrResult&) = delete;
    BstrResult& operator=(const BstrResult&) = delete;
    ~BstrResult() { SysFreeString(m_text); }
    BSTR* operator&() { return &m_text; }
    BSTR Get() const { return m_text; }
    std::string Text() const { return FromBstr(m_text); }

private:
    BSTR m_text = nullptr;
};

template <typename Getter>
std::string TextFrom(Getter get) {
    BstrResult text;
    Check(get(&text));
    return text.Text();
}

template <typename Getter>
Variant VariantFrom(Getter get) {
    OwnedVariant value;
    Check(get(&value));
    return FromVariant(*value);
}

template <typename Interface>
class HostAdapter : public ForeignObject {
public:
    explicit HostAdapter(ComPtr<Interface> host)
        : ForeignObject(host.Get()), m_host(std::move(host)) {}

protected:
    Interface* Host() const { return m_host.Get(); }

private:
    ComPtr<Interface> m_host;
};

class NodeVariableListAdapter final : public HostAdapter<::INodeVariableList>,
                                      public vx::INodeVariableList {
public:
    using HostAdapter::HostAdapter;

    std::int32_t Count() const override {
        LONG count = 0;
        Check(Host()->get_Count(&count));
        return count;
    }
    std::vector<ObjectPtr> Items() const override {
        ComPtr<IUnknown> unknown;
        Check(Host()->get_NewEnum(unknown.Put()));
        const auto enumerator = unknown.As<IEnumVARIANT>();
        if (!enumerator) RaiseRuntimeError(kErrTypeMismatch);
        std::vector<ObjectPtr> items;
        for (;;) {
            OwnedVariant item;
            ULONG fetched = 0;
            const HRESULT result = enumerator->Next(1, &item, &fetched);
            Check(result);
            if (result != S_OK || fetched == 0) break;
            items.push_back(FromVariant(*item).AsObject());
        }
        return items;
    }
};

ObjectPtr ListFrom(HRESULT result, ::INodeVariableList* list) {
    auto owned = ComPtr<::INodeVariableList>::Adopt(list);
    Check(result);
    if (!owned) return nullptr;
    return ImportObject(owned.Get());
}

class NodeConnectionAdapter final : public HostAdapter<::INodeConnection>,
                                    public vx::INodeConnection {
public:
    using HostAdapter::HostAdapter;

    NodeVariableListPtr ConfigurationProperties() override {
        ::INodeVariableList* list = nullptr;
        const HRESULT result = Host()->get_ConfigurationProperties(&list);
        return std::dynamic_pointer_cast<vx::INodeVariableList>(ListFrom(result, list));
    }
    NodeVariableListPtr NetworkVariables() override {
        ::INodeVariableList* list = nullptr;
        const HRESULT result = Host()->get_NetworkVariables(&list);
        return std::dynamic_pointer_cast<vx::INodeVariableList>(ListFrom(result, list));
    }
    std::int32_t Mode() override {
        LONG mode = 0;
        Check(Host()->get_Mode(&mode));
        return mode;
    }
    std::string NeuronIDText() override {
        return TextFrom([&](BSTR* text) { return Host()->get_NeuronIDText(text); });
    }
    std::string ProgramIDText() override {
        return TextFrom([&](BSTR* text) { return Host()->get_ProgramIDText(text); });
    }
    std::string SelfDocText() override {
        return TextFrom([&](BSTR* text) { return Host()->get_SelfDocText(text); });
    }
    std::int32_t NodeState() override {
        LONG state = 0;
        Check(Host()->get_NodeState(&state));
        return state;
    }
    void Wink() override { Check(Host()->Wink()); }
    bool SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) override {
        BstrResult codeText(code);
        BstrResult dataText(data);
        LONG requestLength = length;
        VARIANT_BOOL succeeded = VARIANT_FALSE;
        const HRESULT result =
            Host()->SendNetworkMessage(&codeText, &dataText, &requestLength, &succeeded);
        Check(result);
        code = codeText.Text();
        data = dataText.Text();
        length = requestLength;
        return succeeded != VARIANT_FALSE;
    }
};

class NodeVariableAdapter final : public HostAdapter<::INodeVariable>, public vx::INodeVariable {
public:
    using HostAdapter::HostAdapter;

    std::string Name() const override {
        return TextFrom([&](BSTR* text) { return Host()->get_Name(text); });
    }
    std::int16_t Index() const override {
        short index = 0;
        Check(Host()->get_Index(&index));
        return index;
    }
    std::string SelfDoc() const override {
        return TextFrom([&](BSTR* text) { return Host()->get_SelfDoc(text); });
    }
    std::int32_t TypeIndex() const override {
        LONG index = 0;
        Check(Host()->get_TypeIndex(&index));
        return index;
    }
    std::string SelfDocName() const override {
        return TextFrom([&](BSTR* text) { return Host()->get_SelfDocName(text); });
    }
    std::int32_t ByteLength() const override {
        LONG length = 0;
        Check(Host()->get_ByteLength(&length));
        return length;
    }
    bool IsOutput() const override {
        VARIANT_BOOL output = VARIANT_FALSE;
        Check(Host()->get_IsOutput(&output));
        return output != VARIANT_FALSE;
    }
    Variant ReadValue() override {
        return VariantFrom([&](VARIANT* bytes) { return Host()->ReadValue(bytes); });
    }
    void WriteValue(const Variant& bytes) override {
        OwnedVariant value;
        ToVariant(bytes, &value);
        Check(Host()->WriteValue(*value));
    }
};

class NodeVariableAccessAdapter final : public HostAdapter<::INodeVariableAccess>,
                                        public vx::INodeVariableAccess {
public:
    using HostAdapter::HostAdapter;

    std::string Layout() const override {
        return TextFrom([&](BSTR* text) { return Host()->get_Layout(text); });
    }
    std::string Name() const override {
        return TextFrom([&](BSTR* text) { return Host()->get_Name(text); });
    }
    Variant ReadValue() override {
        return VariantFrom([&](VARIANT* bytes) { return Host()->ReadValue(bytes); });
    }
    void WriteValue(Variant& bytes) override {
        OwnedVariant value;
        ToVariant(bytes, &value);
        Check(Host()->WriteValue(&value));
    }
};

class HostConfigItemAdapter final : public HostAdapter<::IHostConfigItem>,
                                    public vx::IHostConfigItem {
public:
    using HostAdapter::HostAdapter;

    std::string Name() override {
        return TextFrom([&](BSTR* text) { return Host()->get_Name(text); });
    }
    std::int16_t Number() override {
        short number = 0;
        Check(Host()->get_Number(&number));
        return number;
    }
    Variant Value() override {
        return VariantFrom([&](VARIANT* bytes) { return Host()->get_Value(bytes); });
    }
};

class HostConfigItemsAdapter final : public HostAdapter<::IHostConfigItems>,
                                     public vx::IHostConfigItems {
public:
    using HostAdapter::HostAdapter;

    HostConfigItemPtr Item(const std::string& key) override {
        BstrResult keyText(key);
        ::IHostConfigItem* item = nullptr;
        const HRESULT result = Host()->get_Item(keyText.Get(), &item);
        auto owned = ComPtr<::IHostConfigItem>::Adopt(item);
        Check(result);
        if (!owned) return nullptr;
        return std::dynamic_pointer_cast<vx::IHostConfigItem>(ImportObject(owned.Get()));
    }
};

template <typename Interface, typename Adapter>
ObjectPtr AdaptAs(IUnknown* object) {
    ComPtr<Interface> host;
    object->QueryInterface(__uuidof(Interface), reinterpret_cast<void**>(host.Put()));
    if (!host) return nullptr;
    return std::make_shared<Adapter>(std::move(host));
}

}  // namespace

ObjectPtr AdaptHostObject(IUnknown* object) {
    using Adapt = ObjectPtr (*)(IUnknown*);
    for (const Adapt adapt : {
             &AdaptAs<::INodeConnection, NodeConnectionAdapter>,
             &AdaptAs<::INodeVariable, NodeVariableAdapter>,
             &AdaptAs<::INodeVariableAccess, NodeVariableAccessAdapter>,
             &AdaptAs<::INodeVariableList, NodeVariableListAdapter>,
             &AdaptAs<::IHostConfigItems, HostConfigItemsAdapter>,
             &AdaptAs<::IHostConfigItem, HostConfigItemAdapter>,
         }) {
        if (auto adapted = adapt(object)) return adapted;
    }
    return nullptr;
}

}  // namespace vx::com
