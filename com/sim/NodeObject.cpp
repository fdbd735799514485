// VxSim.Node: a simulated controller that is at the same time the host's connection to it. A
// script loads a node, hands this object to a device as its connection, and looks inside the
// node through the controls.
#include "NodeObject.h"

#include <windows.h>

#include <ole2.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ComObject.h"
#include "DefaultController.h"
#include "Export.h"
#include "NodeJson.h"
#include "Records.h"
#include "RevisionJson.h"
#include "SavedConfiguration.h"
#include "SimErrors.h"
#include "SimulatedNode.h"
#include "SupportRoutines.h"
#include "Text.h"
#include "VxSim.h"
#include "interfaces/IOrvexDeviceRevisionIdentify.h"

namespace vx::com {
namespace {

constexpr const char* kSource = "VxSim.Node";

// Paths stay wide: the file system takes them as given, whatever the ANSI code page holds.
std::filesystem::path PathOf(BSTR text) {
    return text ? std::filesystem::path(std::wstring(text, SysStringLen(text)))
                : std::filesystem::path();
}

// An optional path argument: empty when left out, Empty or "". Converted as text (not through
// FromVariant) so that it stays wide.
std::filesystem::path OptionalPath(const VARIANT& argument) {
    if (FromVariant(argument).IsEmpty()) return {};
    OwnedVariant text;
    if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(&argument), 0, VT_BSTR))) {
        RaiseRuntimeError(kErrTypeMismatch, kSource);
    }
    return PathOf(V_BSTR(&text));
}

// Allocates before freeing, so a failure leaves the caller's text in place.
void ReplaceText(BSTR& slot, const std::string& text) {
    BSTR replacement = ToBstr(text);
    SysFreeString(slot);
    slot = replacement;
}

// The host's revision registry (Vx.dll's, or any other maker's) filled through its COM interface.
class RevisionRegistry final : public vx::IOrvexDeviceRevisionIdentify {
public:
    explicit RevisionRegistry(ComPtr<::IOrvexDeviceRevisionIdentify> host)
        : m_host(std::move(host)) {}

    // Registering a revision never reads the registry back.
    DeviceRevisionPtr Info() override { throw HresultError(E_NOTIMPL); }
    void IdentifyOrvexCRCalculation(std::int32_t objectID, const Variant& list) override {
        Pass(list, [&](const VARIANT& value) {
            return m_host->IdentifyOrvexCRCalculation(objectID, value);
        });
    }
    void IdentifyOrvexConfig(std::int32_t objectID, std::int32_t level,
                             const Variant& names) override {
        Pass(names, [&](const VARIANT& value) {
            return m_host->IdentifyOrvexConfig(objectID, level, value);
        });
    }
    void IdentifyFileType2Config(std::int32_t scope, const Variant& list) override {
        Pass(list,
             [&](const VARIANT& value) { return m_host->IdentifyFileType2Config(scope, value); });
    }
    void IdentifyAdvConfig(std::int32_t objectID, const Variant& list) override {
        Pass(list,
             [&](const VARIANT& value) { return m_host->IdentifyAdvConfig(objectID, value); });
    }

private:
    // The registry's own errors (a malformed list, an unknown object) reach the script as raised.
    template <typename Call>
    static void Pass(const Variant& list, Call call) {
        OwnedVariant value;
        ToVariant(list, &value);
        Check(call(*value));
    }

    ComPtr<::IOrvexDeviceRevisionIdentify> m_host;
};

class SimNodeObject final : public ComObject<::IVxSimNode, ::INodeConnection> {
public:
    // ---- IVxSimNode ----------------------------------------------------------------------------
    HRESULT STDMETHODCALLTYPE Load(BSTR path) override {
        return Guard([&] { Replace(sim::LoadNode(PathOf(path))); });
    }
    HRESULT STDMETHODCALLTYPE LoadDefault() override {
        return Guard([&] { Replace(sim::DefaultController()); });
    }
    HRESULT STDMETHODCALLTYPE get_Responding(VARIANT_BOOL* responding) override {
        return Guard([&] { Out(responding) = ToVariantBool(Loaded().Answering()); });
    }
    HRESULT STDMETHODCALLTYPE put_Responding(VARIANT_BOOL responding) override {
        return Guard([&] { Loaded().SetAnswering(responding != VARIANT_FALSE); });
    }
    // NodeState and Mode have one signature in both interfaces, so each is one member here: the
    // connection's, which an injected fault reaches whichever interface it is read through.
    HRESULT STDMETHODCALLTYPE get_NodeState(LONG* state) override {
        return Guard([&] { Out(state) = Loaded().NodeState(); });
    }
    HRESULT STDMETHODCALLTYPE put_NodeState(LONG state) override {
        return Guard([&] { Loaded().SetNodeState(state); });
    }
    HRESULT STDMETHODCALLTYPE get_Mode(LONG* mode) override {
        return Guard([&] { Out(mode) = Loaded().Mode(); });
    }
    HRESULT STDMETHODCALLTYPE put_Mode(LONG mode) override {
        return Guard([&] { Loaded().SetMode(mode); });
    }
    HRESULT STDMETHODCALLTYPE get_Value(BSTR name, BSTR* hex) override {
        return Guard([&] {
            const std::string item = FromBstr(name);
            const sim::SimulatedNode& node = Loaded();
            const auto& bytes =
                IsVariable(item) ? node.VariableValue(item) : node.ConfigItemValue(item);
            Out(hex) = ToBstr(BytesToHex(ByteArray(0, bytes)));
        });
    }
    HRESULT STDMETHODCALLTYPE put_Value(BSTR name, BSTR hex) override {
        return Guard([&] {
            const std::string item = FromBstr(name);
            sim::SimulatedNode& node = Loaded();
            ByteArray bytes = HexToBytes(FromBstr(hex));
            if (IsVariable(item)) {
                node.SetVariableValue(item, std::move(bytes.Values()));
            } else {
                node.SetConfigItemValue(item, std::move(bytes.Values()));
            }
        });
    }
    HRESULT STDMETHODCALLTYPE get_WinkCount(LONG* count) override {
        return Guard([&] { Out(count) = Loaded().WinkCount(); });
    }
    HRESULT STDMETHODCALLTYPE get_LastCommand(BSTR* frame) override {
        return Guard([&] {
            const auto& frames = Loaded().CommandFrames();
            Out(frame) =
                ToBstr(frames.empty() ? std::string() : BytesToHex(ByteArray(0, frames.back())));
        });
    }
    HRESULT STDMETHODCALLTYPE FailNext(BSTR operation, LONG count, LONG number) override {
        return Guard([&] {
            sim::SimulatedNode& node = Loaded();
            const std::string text = FromBstr(operation);
            const auto colon = text.find(':');
            sim::Fault fault;
            fault.operation = text.substr(0, colon);
            if (colon != std::string::npos) fault.target = text.substr(colon + 1);
            fault.count = count == -1 ? sim::kFaultAlways : count;
            if (number == 0) {
                fault.kind = sim::FaultKind::kNoAnswer;
            } else if (number == sim::kSimErrFailureResponse) {
                fault.kind = sim::FaultKind::kFailureResponse;
            } else {
                fault.kind = sim::FaultKind::kHostError;
                fault.number = number;
                fault.description = "Simulated host error";
            }
            node.InjectFault(std::move(fault));
        });
    }
    HRESULT STDMETHODCALLTYPE LoadRevision(IDispatch* revision, VARIANT path) override {
        return Guard([&] {
            Loaded();  // like every control, only once a node is loaded
            if (!revision) RaiseRuntimeError(kErrObjectNotSet, kSource);
            auto host = ComPtr<IDispatch>(revision).As<::IOrvexDeviceRevisionIdentify>();
            if (!host) RaiseRuntimeError(kErrTypeMismatch, kSource);
            RevisionRegistry registry(std::move(host));
            const std::filesystem::path file = OptionalPath(path);
            if (file.empty()) {
                sim::ApplyDefaultRevision(registry);
            } else {
                sim::LoadRevisionJson(file, registry);
            }
        });
    }
    HRESULT STDMETHODCALLTYPE SaveConfiguration(::IHostConfigItems** configuration) override {
        return Guard([&] {
            Out(configuration) =
                Export<::IHostConfigItems>(sim::SavedConfiguration::Save(Loaded()));
        });
    }

    // ---- INodeConnection
    // -------------------------------------------------------------------------
    HRESULT STDMETHODCALLTYPE Reserved0() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved1() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE get_ConfigurationProperties(::INodeVariableList** items) override {
        return Guard(
            [&] { Out(items) = Export<::INodeVariableList>(Loaded().ConfigurationProperties()); });
    }
    HRESULT STDMETHODCALLTYPE get_NetworkVariables(::INodeVariableList** items) override {
        return Guard(
            [&] { Out(items) = Export<::INodeVariableList>(Loaded().NetworkVariables()); });
    }
    HRESULT STDMETHODCALLTYPE Reserved4() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved5() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved7() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE get_NeuronIDText(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(Loaded().NeuronIDText()); });
    }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE get_ProgramIDText(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(Loaded().ProgramIDText()); });
    }
    HRESULT STDMETHODCALLTYPE get_SelfDocText(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(Loaded().SelfDocText()); });
    }
    HRESULT STDMETHODCALLTYPE Reserved13() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved14() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved15() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved16() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved17() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved18() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved19() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Reserved20() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE Wink() override {
        return Guard([&] { Loaded().Wink(); });
    }
    HRESULT STDMETHODCALLTYPE Reserved22() override { return ReservedPlace(); }
    HRESULT STDMETHODCALLTYPE SendNetworkMessage(BSTR* code, BSTR* data, LONG* length,
                                                 VARIANT_BOOL* succeeded) override {
        return Guard([&] {
            BSTR& codeSlot = Out(code);
            BSTR& dataSlot = Out(data);
            LONG& lengthSlot = Out(length);
            VARIANT_BOOL& succeededSlot = Out(succeeded);
            std::string codeText = FromBstr(codeSlot);
            std::string dataText = FromBstr(dataSlot);
            std::int32_t messageLength = lengthSlot;
            const bool sent = Loaded().SendNetworkMessage(codeText, dataText, messageLength);
            ReplaceText(codeSlot, codeText);
            ReplaceText(dataSlot, dataText);
            lengthSlot = messageLength;
            succeededSlot = ToVariantBool(sent);
        });
    }

private:
    sim::SimulatedNode& Loaded() const {
        if (!m_node) {
            throw ComError(kErrObjectNotSet, kSource,
                           RuntimeErrorText(kErrObjectNotSet) +
                               ": no node is loaded; call Load or LoadDefault first");
        }
        return *m_node;
    }
    // Records a library still holds keep the old node's values; the lists and records handed
    // out from now on are the new node's.
    void Replace(sim::NodeDescription description) {
        m_node = sim::SimulatedNode::Create(std::move(description));
    }
    // A network variable by that name, else a configuration item ("3-2"); a name that is
    // neither raises the node's unknown-name error.
    bool IsVariable(const std::string& name) const {
        const auto& description = Loaded().Description();
        const auto named = [&](const auto& record) { return record.name == name; };
        if (std::ranges::any_of(description.variables, named)) return true;
        if (std::ranges::any_of(description.configItems, named)) return false;
        throw sim::SimError(sim::kSimErrUnknownName,
                            name +
                                ": the node has no network variable or configuration item "
                                "of this name");
    }

    sim::SimulatedNodePtr m_node;
};

}  // namespace

IUnknown* MakeNode() {
    // The connection and its records are described in Vx.dll's registered type library.
    static std::once_flag searched;
    std::call_once(searched, [] { AlsoSearchTypeLibrary(LIBID_VxInterfaces, 1, 0); });
    return (new SimNodeObject())->Identity();
}

}  // namespace vx::com
