#include "SimulatedNode.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "Hex.h"
#include "NodeChecks.h"
#include "NodeState.h"
#include "SimErrors.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"

namespace vx::sim {
namespace {

constexpr std::size_t kMaxValueBytes = 255;
constexpr std::int32_t kMaxIndex = 32767;

// A success response carries the request's low five bits with 0x20 set.
constexpr std::uint8_t SuccessCode(std::uint8_t request) {
    return static_cast<std::uint8_t>((request & 0x1F) | 0x20);
}

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
        const std::string& name = Record().name;
        return HostBytes(m_state->Run("ReadValue", name, name, {},
                                      [this] { return m_state->ReadVariable(m_at); }));
    }

    void WriteValue(const Variant& bytes) override {
        const VariableRecord& record = Record();
        const auto& value =
            BytesToWrite(bytes, record.name, "network variable", record.value.size());
        m_state->Run("WriteValue", record.name, record.name, value, [&] {
            m_state->WriteVariable(m_at, value);
            return std::vector<std::uint8_t>();
        });
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
        const std::string& name = Record().name;
        return HostBytes(
            m_state->Run("ReadValue", name, name, {}, [this] { return Record().value; }));
    }

    void WriteValue(Variant& bytes) override {
        ConfigItemRecord& record = Record();
        const auto& value =
            BytesToWrite(bytes, record.name, "configuration item", record.value.size());
        m_state->Run("WriteValue", record.name, record.name, value, [&] {
            ++m_state->changes;
            record.value = value;
            return std::vector<std::uint8_t>();
        });
    }

private:
    ConfigItemRecord& Record() const { return m_state->node.configItems[m_at]; }

    std::shared_ptr<SimulatedNodeState> m_state;
    std::size_t m_at;
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

ObjectState& ObjectAt(SimulatedNodeState& state, std::int32_t object) {
    if (object < 0 || static_cast<std::size_t>(object) >= state.objects.size()) {
        throw SimError(kSimErrUnknownName, "the node has no object " + std::to_string(object));
    }
    return state.objects[static_cast<std::size_t>(object)];
}

void CheckFlags(std::uint32_t flags, std::uint32_t allowed) {
    if ((flags & ~allowed) != 0) Invalid("flags outside the object's set");
}

// The offset of a range of the memory image; raises 5 for one that leaves it.
std::ptrdiff_t MemoryRange(std::int64_t address, std::int64_t count) {
    if (address < 0 || count < 0 || address + count > static_cast<std::int64_t>(kMemorySize)) {
        Invalid("memory " + std::to_string(address) + " (" + std::to_string(count) +
                " bytes) is outside the image, 0..65535");
    }
    return static_cast<std::ptrdiff_t>(address);
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
    const std::string checksum = ChecksumProblem(state->node);
    for (const auto& problem : {MemoryProblem(state->node), ItemMemoryProblem(state->node),
                                checksum.empty() ? checksum : "checksum: " + checksum,
                                ResetPollsProblem(state->node.resetPolls)}) {
        if (!problem.empty()) Invalid(problem);
    }
    state->Prepare();
    return std::shared_ptr<SimulatedNode>(new SimulatedNode(std::move(state)));
}

SimulatedNode::SimulatedNode(std::shared_ptr<SimulatedNodeState> state)
    : m_state(std::move(state)) {
    std::vector<ObjectPtr> variables;
    variables.reserve(m_state->node.variables.size());
    for (std::size_t i = 0; i < m_state->node.variables.size(); ++i) {
        variables.push_back(std::make_shared<NetworkVariableRecord>(m_state, i));
    }
    m_variables = std::make_shared<FixedNodeVariableList>(std::move(variables));

    std::vector<ObjectPtr> items;
    items.reserve(m_state->node.configItems.size());
    for (std::size_t i = 0; i < m_state->node.configItems.size(); ++i) {
        items.push_back(std::make_shared<ConfigItemAccess>(m_state, i));
    }
    m_configItems = std::make_shared<FixedNodeVariableList>(std::move(items));
}

// ---- INodeConnection ---------------------------------------------------------------------------

NodeVariableListPtr SimulatedNode::ConfigurationProperties() {
    m_state->RaiseFault("ConfigurationProperties", "", "ConfigurationProperties");
    return m_configItems;
}

NodeVariableListPtr SimulatedNode::NetworkVariables() {
    m_state->RaiseFault("NetworkVariables", "", "NetworkVariables");
    return m_variables;
}

std::int32_t SimulatedNode::Mode() {
    m_state->RaiseFault("Mode", "", "Mode");
    return m_state->node.mode;
}

std::string SimulatedNode::NeuronIDText() {
    m_state->RaiseFault("NeuronIDText", "", "NeuronIDText");
    return m_state->node.neuronId;
}

std::string SimulatedNode::ProgramIDText() {
    m_state->RaiseFault("ProgramIDText", "", "ProgramIDText");
    return m_state->node.programId;
}

std::string SimulatedNode::SelfDocText() {
    m_state->RaiseFault("SelfDocText", "", "SelfDocText");
    return m_state->node.selfDoc;
}

std::int32_t SimulatedNode::NodeState() {
    m_state->RaiseFault("NodeState", "", "NodeState");
    return m_state->node.nodeState;
}

void SimulatedNode::Wink() {
    m_state->Run("Wink", "", "wink", {}, [this] {
        ++m_state->winks;
        return std::vector<std::uint8_t>();
    });
}

bool SimulatedNode::SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) {
    const Message request = ParseRequest(code, data, length);
    const std::string codeText = ToHex(std::span(&request.code, 1));
    const auto response = m_state->Run("SendNetworkMessage", codeText, "request " + codeText,
                                       request.data, [&] { return m_state->Respond(request); });
    const std::uint8_t responseCode = SuccessCode(request.code);
    code = ToHex(std::span(&responseCode, 1));
    data = ToHex(response);
    length = static_cast<std::int32_t>(response.size() + 1);
    return true;
}

// ---- Controls ----------------------------------------------------------------------------------

void SimulatedNode::SetNodeState(std::int32_t state) {
    ++m_state->changes;
    m_state->node.nodeState = state;
}

void SimulatedNode::SetMode(std::int32_t mode) {
    ++m_state->changes;
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

void SimulatedNode::SetLatency(std::uint32_t milliseconds) {
    m_state->latency = milliseconds;
}

void SimulatedNode::InjectFault(Fault fault) {
    static constexpr std::array<std::string_view, 3> kWithTarget = {"ReadValue", "WriteValue",
                                                                    "SendNetworkMessage"};
    static constexpr std::array<std::string_view, 8> kWithoutTarget = {"Wink",
                                                                       "NodeState",
                                                                       "Mode",
                                                                       "NeuronIDText",
                                                                       "ProgramIDText",
                                                                       "SelfDocText",
                                                                       "NetworkVariables",
                                                                       "ConfigurationProperties"};
    const auto listed = [&](const auto& list) {
        return std::find(list.begin(), list.end(), fault.operation) != list.end();
    };
    if (!listed(kWithTarget) && !listed(kWithoutTarget)) {
        Invalid("no fault can be injected into \"" + fault.operation + "\"");
    }
    if (!fault.target.empty() && !listed(kWithTarget)) {
        Invalid(fault.operation + " takes no target");
    }
    if (fault.count == 0 || fault.count < kFaultAlways) {
        Invalid("a fault counts 1 call or more, or kFaultAlways");
    }
    m_state->faults.push_back(std::move(fault));
}

void SimulatedNode::ClearFaults() {
    m_state->faults.clear();
}

const std::vector<Exchange>& SimulatedNode::Exchanges() const {
    return m_state->exchanges;
}

const std::vector<std::vector<std::uint8_t>>& SimulatedNode::CommandFrames() const {
    return m_state->commandFrames;
}

const std::vector<ObjectRequest>& SimulatedNode::ObjectRequests() const {
    return m_state->objectRequests;
}

void SimulatedNode::ClearRecord() {
    m_state->exchanges.clear();
    m_state->commandFrames.clear();
    m_state->objectRequests.clear();
}

void SimulatedNode::SetRecording(bool recording) {
    m_state->recording = recording;
}

const CommandChannel& SimulatedNode::Commands() const {
    return m_state->commands;
}

void SimulatedNode::SetResetPolls(std::int32_t polls) {
    if (const auto problem = ResetPollsProblem(polls); !problem.empty()) Invalid(problem);
    ++m_state->changes;
    m_state->node.resetPolls = polls;
}

std::vector<std::uint8_t> SimulatedNode::CoveredChecksum() const {
    return m_state->CoveredChecksum();
}

std::int32_t SimulatedNode::ObjectCount() const {
    return static_cast<std::int32_t>(m_state->objects.size());
}

std::uint32_t SimulatedNode::ObjectFlags(std::int32_t object) const {
    return ObjectAt(*m_state, object).flags;
}

void SimulatedNode::SetObjectFlags(std::int32_t object, std::uint32_t flags) {
    CheckFlags(flags, kObjHeldFlags);
    ObjectAt(*m_state, object).flags = flags;
    ++m_state->changes;
}

void SimulatedNode::SetObjectSupportedFlags(std::int32_t object, std::uint32_t flags) {
    CheckFlags(flags, kObjHeldFlags | kObjInvalidId | kObjInvalidRequest);
    ObjectAt(*m_state, object).supported = flags;
    ++m_state->changes;
}

const std::vector<std::uint8_t>& SimulatedNode::VariableValue(const std::string& name) const {
    return m_state->node.variables[VariableAt(*m_state, name)].value;
}

void SimulatedNode::SetVariableValue(const std::string& name, std::vector<std::uint8_t> value) {
    auto& held = m_state->node.variables[VariableAt(*m_state, name)].value;
    CheckLength(name, "network variable", held.size(), value.size());
    held = std::move(value);
    ++m_state->changes;
}

const std::vector<std::uint8_t>& SimulatedNode::ConfigItemValue(const std::string& name) const {
    return m_state->node.configItems[ConfigItemAt(*m_state, name)].value;
}

void SimulatedNode::SetConfigItemValue(const std::string& name, std::vector<std::uint8_t> value) {
    auto& held = m_state->node.configItems[ConfigItemAt(*m_state, name)].value;
    CheckLength(name, "configuration item", held.size(), value.size());
    held = std::move(value);
    ++m_state->changes;
}

std::vector<std::uint8_t> SimulatedNode::MemoryBytes(std::int32_t address,
                                                     std::int32_t count) const {
    const auto first = MemoryRange(address, count);
    return m_state->ReadMemory(static_cast<std::size_t>(first), static_cast<std::size_t>(count));
}

void SimulatedNode::SetMemoryBytes(std::int32_t address, const std::vector<std::uint8_t>& bytes) {
    const auto first = MemoryRange(address, static_cast<std::int64_t>(bytes.size()));
    m_state->WriteMemory(static_cast<std::size_t>(first), bytes);
}

const NodeDescription& SimulatedNode::Description() const {
    return m_state->node;
}

// ---- State files -------------------------------------------------------------------------------

std::uint64_t SimulatedNode::ChangeCount() const {
    return m_state->changes;
}

RunningState SimulatedNode::Running() const {
    const SimulatedNodeState& state = *m_state;
    RunningState running;
    running.commands = state.commands;
    running.lastCommand = state.lastCommand;
    running.lastResult = state.lastResult;
    running.alarmBeforeRestart = state.alarmBeforeRestart;
    for (const auto& object : state.objects) {
        running.objects.push_back({object.flags, object.supported});
    }
    for (const auto& [where, value] : state.factoryValues) {
        if (where.isItem) {
            running.factoryItems.emplace_back(state.node.configItems[where.at].name, value);
        } else {
            running.factoryVariables.emplace_back(state.node.variables[where.at].name, value);
        }
    }
    return running;
}

namespace {

// Where each factory value of `named` goes in the node's factory values; raises 5 for a name the
// node does not restore or a value of another length.
std::vector<std::size_t> FactoryPlaces(const SimulatedNodeState& state,
                                       const RunningState::NamedValues& named, bool items) {
    std::vector<std::size_t> places;
    for (const auto& [name, value] : named) {
        const auto& names = items ? state.configItemAt : state.variableAt;
        const auto found = names.find(name);
        const auto& factory = state.factoryValues;
        const auto place =
            found == names.end()
                ? factory.end()
                : std::find_if(factory.begin(), factory.end(), [&](const auto& entry) {
                      return entry.first.isItem == items && entry.first.at == found->second;
                  });
        if (place == factory.end()) {
            Invalid("factory value of " + name + ": a memory reset restores no value of this name");
        }
        if (place->second.size() != value.size()) {
            Invalid("factory value of " + name + ": " + std::to_string(value.size()) +
                    " bytes for a value of " + std::to_string(place->second.size()));
        }
        places.push_back(static_cast<std::size_t>(place - factory.begin()));
    }
    return places;
}

void CheckCommandChannel(const CommandChannel& commands, std::size_t objects, bool hasAlarm) {
    if (commands.downloadLevel != 0 && commands.downloadLevel != 2 && commands.downloadLevel != 3) {
        Invalid("download level " + std::to_string(commands.downloadLevel) +
                " is none of 0, 2 and 3");
    }
    if (commands.closes < 0 || commands.restarts < 0 || commands.sendAllScans < 0) {
        Invalid("the command channel's counts must not be negative");
    }
    if (commands.restarting && !hasAlarm) {
        Invalid("a restart in progress on a node without an alarm message");
    }
    if (commands.restarting ? commands.pollsLeft == 0 || commands.pollsLeft < -1
                            : commands.pollsLeft != 0) {
        Invalid("polls left " + std::to_string(commands.pollsLeft) +
                (commands.restarting ? " for a restart in progress (1 or more, or -1)"
                                     : " without a restart in progress (0)"));
    }
    for (const std::int32_t object : commands.clearedLogs) {
        if (object < 0 || static_cast<std::size_t>(object) >= objects) {
            Invalid("a cleared log of object " + std::to_string(object) +
                    ", which the node does not have");
        }
    }
    const auto isWord = [](std::int32_t number) { return number >= 0 && number <= 0xFFFF; };
    for (const auto& reset : commands.timerResets) {
        if (!isWord(reset.timer) || !isWord(reset.value)) Invalid("a timer reset outside 0..65535");
    }
    for (const std::int32_t key : commands.keypresses) {
        if (!isWord(key)) Invalid("a keypress outside 0..65535");
    }
}

}  // namespace

void SimulatedNode::SetRunning(const RunningState& running) {
    SimulatedNodeState& state = *m_state;
    CheckCommandChannel(running.commands, state.objects.size(), state.alarmAt.has_value());
    const std::size_t alarmSize =
        state.alarmAt ? state.node.variables[*state.alarmAt].value.size() : 0;
    if (!running.alarmBeforeRestart.empty() && running.alarmBeforeRestart.size() != alarmSize) {
        Invalid("the alarm message before the restart: " +
                std::to_string(running.alarmBeforeRestart.size()) + " bytes for a value of " +
                std::to_string(alarmSize));
    }
    if (running.commands.restarting && running.alarmBeforeRestart.empty()) {
        Invalid("a restart in progress without the alarm message it began with");
    }
    if (running.objects.size() != state.objects.size()) {
        Invalid(std::to_string(running.objects.size()) + " objects for a node of " +
                std::to_string(state.objects.size()));
    }
    for (const auto& object : running.objects) {
        CheckFlags(object.flags, kObjHeldFlags);
        CheckFlags(object.supported, kObjHeldFlags | kObjInvalidId | kObjInvalidRequest);
    }
    const auto variablePlaces = FactoryPlaces(state, running.factoryVariables, false);
    const auto itemPlaces = FactoryPlaces(state, running.factoryItems, true);

    state.commands = running.commands;
    state.lastCommand = running.lastCommand;
    state.lastResult = running.lastResult;
    state.alarmBeforeRestart = running.alarmBeforeRestart;
    for (std::size_t i = 0; i < running.objects.size(); ++i) {
        state.objects[i] = {running.objects[i].flags, running.objects[i].supported};
    }
    for (std::size_t i = 0; i < variablePlaces.size(); ++i) {
        state.factoryValues[variablePlaces[i]].second = running.factoryVariables[i].second;
    }
    for (std::size_t i = 0; i < itemPlaces.size(); ++i) {
        state.factoryValues[itemPlaces[i]].second = running.factoryItems[i].second;
    }
    ++state.changes;
}

}  // namespace vx::sim
