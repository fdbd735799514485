#include "SimulatedNode.h"

#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "Hex.h"
#include "SimErrors.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"

namespace vx::sim {

struct SimulatedNodeState {
    NodeDescription node;
    std::unordered_map<std::string, std::size_t> variableAt;
    std::unordered_map<std::string, std::size_t> configItemAt;
    bool answering = true;
    std::int32_t winks = 0;

    void RequireAnswer(const std::string& exchange) const {
        if (!answering) throw SimError(kSimErrNoAnswer, exchange + ": the node does not answer");
    }
};

namespace {

constexpr std::size_t kMaxValueBytes = 255;
constexpr std::int32_t kMaxIndex = 32767;

// Network-management and diagnostic message codes. A success response carries the request's low
// five bits with 0x20 set; a failure response the low five bits alone.
constexpr std::uint8_t kQueryStatus = 0x51;
constexpr std::uint8_t SuccessCode(std::uint8_t request) {
    return static_cast<std::uint8_t>((request & 0x1F) | 0x20);
}

// Fixed fields of the status block. Its node state is the node's own code, except that a
// configured node whose application is offline reports a code of its own.
constexpr std::uint8_t kStateSoftOffline = 0x0C;
constexpr std::uint8_t kResetPowerUp = 0x01;
constexpr std::uint8_t kFirmwareVersion = 0x10;
constexpr std::uint8_t kModelNumber = 0x00;

[[noreturn]] void Invalid(const std::string& what) {
    throw ComError(kErrInvalidProcedureCall, kSimSource, what);
}

void CheckLength(const std::string& name, const char* kind, std::size_t expected,
                 std::size_t given) {
    if (given != expected) {
        throw SimError(kSimErrWrongLength, name + ": a value of " + std::to_string(given) +
                                               " bytes for a " + kind + " of " +
                                               std::to_string(expected));
    }
}

// The bytes the library writes: a Byte array (any lower bound) of the item's length.
const std::vector<std::uint8_t>& BytesToWrite(const Variant& value, const std::string& name,
                                              const char* kind, std::size_t length) {
    const auto* bytes = value.Get<ByteArray>();
    if (!bytes) RaiseRuntimeError(kErrTypeMismatch, kSimSource);
    CheckLength(name, kind, length, bytes->Count());
    return bytes->Values();
}

Variant HostBytes(const std::vector<std::uint8_t>& value) {
    return Variant(ByteArray(0, value));
}

class NetworkVariableRecord final : public INodeVariable {
public:
    NetworkVariableRecord(std::shared_ptr<SimulatedNodeState> state, std::size_t at)
        : m_state(std::move(state)), m_at(at) {}

    std::string Name() const override { return Record().name; }
    std::int16_t Index() const override { return static_cast<std::int16_t>(Record().index); }
    std::string SelfDoc() const override { return Record().selfDoc; }
    std::int32_t TypeIndex() const override { return Record().typeIndex; }
    std::string SelfDocName() const override { return Record().selfDocName; }
    std::int32_t ByteLength() const override {
        return static_cast<std::int32_t>(Record().value.size());
    }
    bool IsOutput() const override { return Record().isOutput; }

    Variant ReadValue() override {
        m_state->RequireAnswer(Record().name);
        return HostBytes(Record().value);
    }

    void WriteValue(const Variant& bytes) override {
        VariableRecord& record = Record();
        const auto& value =
            BytesToWrite(bytes, record.name, "network variable", record.value.size());
        m_state->RequireAnswer(record.name);
        record.value = value;
    }

private:
    VariableRecord& Record() const { return m_state->node.variables[m_at]; }

    std::shared_ptr<SimulatedNodeState> m_state;
    std::size_t m_at;
};

class ConfigItemAccess final : public INodeVariableAccess {
public:
    ConfigItemAccess(std::shared_ptr<SimulatedNodeState> state, std::size_t at)
        : m_state(std::move(state)), m_at(at) {}

    std::string Layout() const override { return Record().layout; }
    std::string Name() const override { return Record().name; }

    Variant ReadValue() override {
        m_state->RequireAnswer(Record().name);
        return HostBytes(Record().value);
    }

    void WriteValue(Variant& bytes) override {
        ConfigItemRecord& record = Record();
        const auto& value =
            BytesToWrite(bytes, record.name, "configuration item", record.value.size());
        m_state->RequireAnswer(record.name);
        record.value = value;
    }

private:
    ConfigItemRecord& Record() const { return m_state->node.configItems[m_at]; }

    std::shared_ptr<SimulatedNodeState> m_state;
    std::size_t m_at;
};

class ItemList final : public INodeVariableList {
public:
    explicit ItemList(std::vector<ObjectPtr> items) : m_items(std::move(items)) {}

    std::int32_t Count() const override { return static_cast<std::int32_t>(m_items.size()); }
    std::vector<ObjectPtr> Items() const override { return m_items; }

private:
    std::vector<ObjectPtr> m_items;
};

struct Message {
    std::uint8_t code = 0;
    std::vector<std::uint8_t> data;
};

Message ParseRequest(const std::string& code, const std::string& data, std::int32_t length) {
    const auto codeBytes = ParseHex(code);
    if (!codeBytes || codeBytes->size() != 1) {
        throw SimError(kSimErrBadRequest, "request code \"" + code + "\" is not one byte");
    }
    auto dataBytes = ParseHex(data);
    if (!dataBytes) {
        throw SimError(kSimErrBadRequest, "request " + code + ": data is not hexadecimal");
    }
    // The length counts the code byte; data past it is not sent.
    if (length < 1 || static_cast<std::size_t>(length - 1) > dataBytes->size()) {
        throw SimError(kSimErrBadRequest, "request " + code + ": length " + std::to_string(length) +
                                              " does not fit its data");
    }
    dataBytes->resize(static_cast<std::size_t>(length - 1));
    return {codeBytes->front(), std::move(*dataBytes)};
}

// The node's status block: five 16-bit error counters, the reset cause, the node state, the
// firmware version, the last error logged and the chip's model number.
std::vector<std::uint8_t> StatusBlock(const NodeDescription& node) {
    const std::uint8_t state = node.nodeState == 4 && node.mode == 0
                                   ? kStateSoftOffline
                                   : static_cast<std::uint8_t>(node.nodeState & 0xFF);
    return {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, kResetPowerUp, state, kFirmwareVersion, 0, kModelNumber};
}

// What the node answers to one request; memory requests join here.
Message Respond(const SimulatedNodeState& state, const Message& request) {
    switch (request.code) {
        case kQueryStatus:
            return {SuccessCode(request.code), StatusBlock(state.node)};
        default:
            throw SimError(kSimErrFailureResponse,
                           "request " + ToHex(std::span(&request.code, 1)) +
                               ": the node answered with a failure response");
    }
}

std::size_t VariableAt(const SimulatedNodeState& state, const std::string& name) {
    const auto found = state.variableAt.find(name);
    if (found == state.variableAt.end()) {
        throw SimError(kSimErrUnknownName,
                       name + ": the node has no network variable of this name");
    }
    return found->second;
}

std::size_t ConfigItemAt(const SimulatedNodeState& state, const std::string& name) {
    const auto found = state.configItemAt.find(name);
    if (found == state.configItemAt.end()) {
        throw SimError(kSimErrUnknownName,
                       name + ": the node has no configuration item of this name");
    }
    return found->second;
}

}  // namespace

std::shared_ptr<SimulatedNode> SimulatedNode::Create(NodeDescription description) {
    auto state = std::make_shared<SimulatedNodeState>();
    state->node = std::move(description);
    std::unordered_set<std::int32_t> indexes;
    const auto& variables = state->node.variables;
    for (std::size_t i = 0; i < variables.size(); ++i) {
        const VariableRecord& variable = variables[i];
        if (!state->variableAt.emplace(variable.name, i).second) {
            Invalid("two network variables are named " + variable.name);
        }
        if (variable.index < 0 || variable.index > kMaxIndex) {
            Invalid(variable.name + ": index " + std::to_string(variable.index) +
                    " is outside 0..32767");
        }
        if (!indexes.insert(variable.index).second) {
            Invalid(variable.name + ": index " + std::to_string(variable.index) +
                    " is taken by another network variable");
        }
        if (variable.value.size() > kMaxValueBytes) {
            Invalid(variable.name + ": value longer than 255 bytes");
        }
    }
    const auto& items = state->node.configItems;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!state->configItemAt.emplace(items[i].name, i).second) {
            Invalid("two configuration items are named " + items[i].name);
        }
        if (items[i].value.size() > kMaxValueBytes) {
            Invalid(items[i].name + ": value longer than 255 bytes");
        }
    }
    return std::shared_ptr<SimulatedNode>(new SimulatedNode(std::move(state)));
}

SimulatedNode::SimulatedNode(std::shared_ptr<SimulatedNodeState> state)
    : m_state(std::move(state)) {
    std::vector<ObjectPtr> variables;
    variables.reserve(m_state->node.variables.size());
    for (std::size_t i = 0; i < m_state->node.variables.size(); ++i) {
        variables.push_back(std::make_shared<NetworkVariableRecord>(m_state, i));
    }
    m_variables = std::make_shared<ItemList>(std::move(variables));

    std::vector<ObjectPtr> items;
    items.reserve(m_state->node.configItems.size());
    for (std::size_t i = 0; i < m_state->node.configItems.size(); ++i) {
        items.push_back(std::make_shared<ConfigItemAccess>(m_state, i));
    }
    m_configItems = std::make_shared<ItemList>(std::move(items));
}

// ---- INodeConnection ---------------------------------------------------------------------------

NodeVariableListPtr SimulatedNode::ConfigurationProperties() {
    return m_configItems;
}

NodeVariableListPtr SimulatedNode::NetworkVariables() {
    return m_variables;
}

std::int32_t SimulatedNode::Mode() {
    return m_state->node.mode;
}

std::string SimulatedNode::NeuronIDText() {
    return m_state->node.neuronId;
}

std::string SimulatedNode::ProgramIDText() {
    return m_state->node.programId;
}

std::string SimulatedNode::SelfDocText() {
    return m_state->node.selfDoc;
}

std::int32_t SimulatedNode::NodeState() {
    return m_state->node.nodeState;
}

void SimulatedNode::Wink() {
    m_state->RequireAnswer("wink");
    ++m_state->winks;
}

bool SimulatedNode::SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) {
    const Message request = ParseRequest(code, data, length);
    m_state->RequireAnswer("request " + code);
    const Message response = Respond(*m_state, request);
    code = ToHex(std::span(&response.code, 1));
    data = ToHex(response.data);
    length = static_cast<std::int32_t>(response.data.size() + 1);
    return true;
}

// ---- Controls ----------------------------------------------------------------------------------

void SimulatedNode::SetNodeState(std::int32_t state) {
    m_state->node.nodeState = state;
}

void SimulatedNode::SetMode(std::int32_t mode) {
    m_state->node.mode = mode;
}

void SimulatedNode::SetAnswering(bool answering) {
    m_state->answering = answering;
}

bool SimulatedNode::Answering() const {
    return m_state->answering;
}

std::int32_t SimulatedNode::WinkCount() const {
    return m_state->winks;
}

const std::vector<std::uint8_t>& SimulatedNode::VariableValue(const std::string& name) const {
    return m_state->node.variables[VariableAt(*m_state, name)].value;
}

void SimulatedNode::SetVariableValue(const std::string& name, std::vector<std::uint8_t> value) {
    auto& held = m_state->node.variables[VariableAt(*m_state, name)].value;
    CheckLength(name, "network variable", held.size(), value.size());
    held = std::move(value);
}

const std::vector<std::uint8_t>& SimulatedNode::ConfigItemValue(const std::string& name) const {
    return m_state->node.configItems[ConfigItemAt(*m_state, name)].value;
}

void SimulatedNode::SetConfigItemValue(const std::string& name, std::vector<std::uint8_t> value) {
    auto& held = m_state->node.configItems[ConfigItemAt(*m_state, name)].value;
    CheckLength(name, "configuration item", held.size(), value.size());
    held = std::move(value);
}

const NodeDescription& SimulatedNode::Description() const {
    return m_state->node;
}

}  // namespace vx::sim
