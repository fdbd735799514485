#include "NodeState.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "Crc16.h"
#include "Hex.h"
#include "NodeSelfDoc.h"
#include "SimErrors.h"
#include "automation/Clock.h"

namespace vx::sim {
namespace {

// ---- Network-management requests --------------------------------------------------------------

constexpr std::uint8_t kQueryStatus = 0x51;
constexpr std::uint8_t kReadMemory = 0x6D;
constexpr std::uint8_t kWriteMemory = 0x6E;

// Memory requests: mode, address high and low, count; a write adds its form and the bytes.
constexpr std::uint8_t kAbsoluteAddressing = 0;
constexpr std::uint8_t kReadOnlyRelative = 1;
constexpr std::size_t kMemoryHeader = 4;
constexpr std::size_t kMaxMemoryCount = 64;

// The read-only data a node gives in mode 1: its identity, the rest of it zero here.
constexpr std::size_t kReadOnlySize = 32;
constexpr std::size_t kNeuronIdAt = 0;
constexpr std::size_t kProgramIdAt = 13;

// Fixed fields of the status block. Its node state is the node's own code, except that a
// configured node whose application is offline reports a code of its own.
constexpr std::uint8_t kStateSoftOffline = 0x0C;
constexpr std::uint8_t kResetPowerUp = 0x01;
constexpr std::uint8_t kFirmwareVersion = 0x10;
constexpr std::uint8_t kModelNumber = 0x00;

// ---- The command channel ------------------------------------------------------------------------

enum CommandCode : std::uint8_t {
    kOpenConfigDownload = 3,
    kCloseConfigDownload = 4,
    kSendAllScan = 5,
    kResetTimer = 6,
    kKeypress = 7,
    kDisableKeypad = 8,
    kEnableKeypad = 9,
    kClearLog = 10,
    kResetMemory = 12,
};

// The parameter bytes a command takes after its code; -1 for a code the application does not
// know. Every byte after them must be 0.
int ParameterCount(std::uint8_t code) {
    switch (code) {
        case kOpenConfigDownload:
            return 2;
        case kCloseConfigDownload:
        case kClearLog:
            return 1;
        case kSendAllScan:
        case kDisableKeypad:
        case kEnableKeypad:
            return 0;
        case kResetTimer:
            return 4;
        case kKeypress:
            return 2;
        case kResetMemory:
            return 5;
        default:
            return -1;
    }
}

// The opening command's second parameter.
constexpr std::uint8_t kOpenStart = 1;

std::int32_t Word(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    return bytes[at] << 8 | bytes[at + 1];
}

constexpr std::string_view kResettingText = "0 Application Resetting";

// A text as a value of `size` bytes, zero-padded (and cut when the value is shorter).
std::vector<std::uint8_t> TextValue(std::string_view text, std::size_t size) {
    std::vector<std::uint8_t> value(size, 0);
    std::copy_n(text.begin(), std::min(text.size(), size), value.begin());
    return value;
}

// ---- Object requests -------------------------------------------------------------------------

enum ObjectRequestCode : std::uint8_t {
    kRqNormal = 0,
    kRqDisabled = 1,
    kRqUpdateStatus = 2,
    kRqSelfTest = 3,
    kRqReportMask = 5,
    kRqOverride = 6,
    kRqEnable = 7,
    kRqRemoveOverride = 8,
    kRqClearStatus = 9,
    kRqClearAlarm = 10,
    kRqAlarmNotifyEnabled = 11,
    kRqAlarmNotifyDisabled = 12,
    kRqManualControl = 13,
    kRqRemoteControl = 14,
};

// What a status clear leaves: the modes the object was put in, and its alarm, which has a request
// of its own.
constexpr std::uint32_t kObjModes = kObjDisabled | kObjManualControl | kObjInOverride |
                                    kObjProgrammingMode | kObjAlarmNotifyDisabled | kObjInAlarm;

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

}  // namespace

// ---- Preparing --------------------------------------------------------------------------------

void SimulatedNodeState::Prepare() {
    const auto& variables = node.variables;
    for (std::size_t i = 0; i < variables.size(); ++i) {
        const VariableRecord& variable = variables[i];
        if (!commandAt && StartsWith(variable.selfDoc, "@0#3001")) commandAt = i;
        if (!commandStatusAt && StartsWith(variable.selfDoc, "@0#3002")) commandStatusAt = i;
        if (!alarmAt && variable.name == "nvoAlarmMessage") alarmAt = i;
        if (StartsWith(variable.selfDoc, "&") || StartsWith(variable.name, "nci")) {
            factoryValues.emplace_back(ValueAt{false, i}, variable.value);
        }
    }
    // The node object's request and status: by type, else by name; of their type's length.
    const auto findObjectVariable = [&](std::int32_t typeIndex, const char* name,
                                        std::size_t size) -> std::optional<std::size_t> {
        std::optional<std::size_t> found;
        for (std::size_t i = 0; i < variables.size() && !found; ++i) {
            if (variables[i].typeIndex == typeIndex) found = i;
        }
        if (!found) {
            if (const auto byName = variableAt.find(name); byName != variableAt.end()) {
                found = byName->second;
            }
        }
        if (found && variables[*found].value.size() != size) found.reset();
        return found;
    };
    requestAt = findObjectVariable(92, "nviRequest", 3);
    objectStatusAt = findObjectVariable(93, "nvoStatus", 6);

    for (std::size_t i = 0; i < node.configItems.size(); ++i) {
        factoryValues.emplace_back(ValueAt{true, i}, node.configItems[i].value);
        if (node.configItems[i].address >= 0) itemsInMemory.push_back(i);
    }
    std::sort(itemsInMemory.begin(), itemsInMemory.end(), [&](std::size_t a, std::size_t b) {
        return node.configItems[a].address < node.configItems[b].address;
    });
    if (!node.checksumItem.empty()) {
        checksumAt = Find(node.checksumItem);
        for (const auto& name : node.checksumCovers) {
            coveredAt.push_back(*Find(name));
        }
    }
    // One object per block the self-documentation lists, a counted entry ("4[2Lamp") giving
    // several.
    objects.assign(FunctionalBlocks(node.selfDoc).size(), ObjectState{});
    for (const auto& block : node.memory) {
        std::copy(block.bytes.begin(), block.bytes.end(),
                  memory.begin() + static_cast<std::ptrdiff_t>(block.address));
    }
}

std::vector<std::uint8_t>& SimulatedNodeState::Value(ValueAt where) {
    return where.isItem ? node.configItems[where.at].value : node.variables[where.at].value;
}

const std::vector<std::uint8_t>& SimulatedNodeState::Value(ValueAt where) const {
    return where.isItem ? node.configItems[where.at].value : node.variables[where.at].value;
}

std::optional<ValueAt> SimulatedNodeState::Find(const std::string& name) const {
    if (const auto item = configItemAt.find(name); item != configItemAt.end()) {
        return ValueAt{true, item->second};
    }
    if (const auto variable = variableAt.find(name); variable != variableAt.end()) {
        return ValueAt{false, variable->second};
    }
    return std::nullopt;
}

// ---- Exchanges and faults
// ------------------------------------------------------------------------

std::vector<std::uint8_t> SimulatedNodeState::Run(
    const char* operation, const std::string& target, const std::string& subject,
    std::vector<std::uint8_t> request, const std::function<std::vector<std::uint8_t>()>& answer) {
    if (latency > 0) CurrentClock().Sleep(latency);
    Exchange exchange{operation, target, std::move(request), {}, 0};
    try {
        if (!answering) throw SimError(kSimErrNoAnswer, subject + ": the node does not answer");
        RaiseFault(operation, target, subject);
        exchange.response = answer();
    } catch (const ComError& error) {
        exchange.outcome = error.Number();
        if (recording) exchanges.push_back(std::move(exchange));
        throw;
    }
    if (recording) exchanges.push_back(exchange);
    return std::move(exchange.response);
}

void SimulatedNodeState::RaiseFault(const char* operation, const std::string& target,
                                    const std::string& subject) {
    const auto found = std::find_if(faults.begin(), faults.end(), [&](const Fault& fault) {
        return fault.operation == operation && (fault.target.empty() || fault.target == target);
    });
    if (found == faults.end()) return;
    const Fault fault = *found;
    if (found->count != kFaultAlways && --found->count == 0) faults.erase(found);
    switch (fault.kind) {
        case FaultKind::kNoAnswer:
            throw SimError(kSimErrNoAnswer, subject + ": the node does not answer");
        case FaultKind::kFailureResponse:
            throw SimError(kSimErrFailureResponse,
                           subject + ": the node answered with a failure response");
        case FaultKind::kHostError:
            throw SimError(fault.number, fault.description);
    }
}

// ---- Values -----------------------------------------------------------------------------------

std::vector<std::uint8_t> SimulatedNodeState::ReadVariable(std::size_t at) {
    std::vector<std::uint8_t> value = node.variables[at].value;
    // Each read of the alarm message during a restart is one poll of it.
    if (at == alarmAt && commands.restarting && commands.pollsLeft > 0 &&
        --commands.pollsLeft >= 0) {
        ++changes;
        if (commands.pollsLeft == 0) FinishRestart();
    }
    return value;
}

void SimulatedNodeState::WriteVariable(std::size_t at, const std::vector<std::uint8_t>& value) {
    ++changes;
    node.variables[at].value = value;
    if (at == commandAt) ReceiveCommand(value);
    if (at == requestAt) ReceiveObjectRequest(value);
}

// ---- Memory and status requests -----------------------------------------------------------------

std::vector<std::uint8_t> SimulatedNodeState::Respond(const Message& request) {
    const auto fail = [&]() -> std::vector<std::uint8_t> {
        throw SimError(kSimErrFailureResponse, "request " + ToHex(std::span(&request.code, 1)) +
                                                   ": the node answered with a failure response");
    };
    const auto& data = request.data;
    switch (request.code) {
        case kQueryStatus: {
            // Five 16-bit error counters, the reset cause, the node state, the firmware version,
            // the last error logged and the chip's model number.
            const std::uint8_t state = node.nodeState == 4 && node.mode == 0
                                           ? kStateSoftOffline
                                           : static_cast<std::uint8_t>(node.nodeState & 0xFF);
            return {0, 0,           0, 0, 0, 0, 0, 0, 0, 0, kResetPowerUp, state, kFirmwareVersion,
                    0, kModelNumber};
        }
        case kReadMemory:
        case kWriteMemory: {
            if (data.size() < kMemoryHeader) return fail();
            const std::uint8_t mode = data[0];
            const auto address = static_cast<std::size_t>(Word(data, 1));
            const std::size_t count = data[3];
            if (count == 0 || count > kMaxMemoryCount) return fail();
            if (request.code == kReadMemory) {
                if (data.size() != kMemoryHeader) return fail();
                if (mode == kAbsoluteAddressing && address + count <= kMemorySize) {
                    return ReadMemory(address, count);
                }
                if (mode == kReadOnlyRelative && address + count <= kReadOnlySize) {
                    const auto readOnly = ReadOnlyData();
                    const auto first = readOnly.begin() + static_cast<std::ptrdiff_t>(address);
                    return {first, first + static_cast<std::ptrdiff_t>(count)};
                }
                return fail();
            }
            // The form byte (what the node does after the write) follows the header.
            if (mode != kAbsoluteAddressing || address + count > kMemorySize ||
                data.size() != kMemoryHeader + 1 + count) {
                return fail();
            }
            WriteMemory(address, std::span(data).subspan(kMemoryHeader + 1));
            return {};
        }
        default:
            return fail();
    }
}

std::vector<std::uint8_t> SimulatedNodeState::ReadMemory(std::size_t address,
                                                         std::size_t count) const {
    const auto first = memory.begin() + static_cast<std::ptrdiff_t>(address);
    std::vector<std::uint8_t> bytes(first, first + static_cast<std::ptrdiff_t>(count));
    const std::size_t end = address + count;
    for (const std::size_t at : itemsInMemory) {
        const auto& item = node.configItems[at];
        const auto itemFirst = static_cast<std::size_t>(item.address);
        const std::size_t itemEnd = itemFirst + item.value.size();
        if (itemFirst >= end) break;
        for (std::size_t i = std::max(address, itemFirst); i < std::min(end, itemEnd); ++i) {
            bytes[i - address] = item.value[i - itemFirst];
        }
    }
    return bytes;
}

void SimulatedNodeState::WriteMemory(std::size_t address, std::span<const std::uint8_t> bytes) {
    ++changes;
    std::copy(bytes.begin(), bytes.end(), memory.begin() + static_cast<std::ptrdiff_t>(address));
    // The bytes of an item go to its value; the image under it stays 0, as it was made.
    const std::size_t end = address + bytes.size();
    for (const std::size_t at : itemsInMemory) {
        auto& item = node.configItems[at];
        const auto itemFirst = static_cast<std::size_t>(item.address);
        const std::size_t itemEnd = itemFirst + item.value.size();
        if (itemFirst >= end) break;
        for (std::size_t i = std::max(address, itemFirst); i < std::min(end, itemEnd); ++i) {
            item.value[i - itemFirst] = bytes[i - address];
            memory[i] = 0;
        }
    }
}

std::vector<std::uint8_t> SimulatedNodeState::ReadOnlyData() const {
    std::vector<std::uint8_t> data(kReadOnlySize, 0);
    const auto place = [&](const std::string& hex, std::size_t at, std::size_t size) {
        if (const auto bytes = ParseHex(hex); bytes && bytes->size() == size) {
            std::copy(bytes->begin(), bytes->end(), data.begin() + static_cast<std::ptrdiff_t>(at));
        }
    };
    place(node.neuronId, kNeuronIdAt, 6);
    place(node.programId, kProgramIdAt, 8);
    return data;
}

// ---- The command channel ------------------------------------------------------------------------

void SimulatedNodeState::ReceiveCommand(const std::vector<std::uint8_t>& frame) {
    if (recording) commandFrames.push_back(frame);
    lastCommand = frame.empty() ? 0 : frame[0];
    lastResult = ActOnCommand(frame) ? kCommandAccepted : kCommandRejected;
    PublishCommandStatus();
}

bool SimulatedNodeState::ActOnCommand(const std::vector<std::uint8_t>& frame) {
    if (frame.empty()) return false;
    const std::uint8_t code = frame[0];
    const int parameters = ParameterCount(code);
    if (parameters < 0 || frame.size() < 1 + static_cast<std::size_t>(parameters)) return false;
    if (std::any_of(frame.begin() + 1 + parameters, frame.end(),
                    [](std::uint8_t byte) { return byte != 0; })) {
        return false;
    }
    switch (code) {
        case kOpenConfigDownload:
            if ((frame[1] != 2 && frame[1] != 3) || frame[2] != kOpenStart) return false;
            commands.downloadLevel = frame[1];
            return true;
        case kCloseConfigDownload: {
            if (commands.downloadLevel == 0 || frame[1] != commands.downloadLevel) return false;
            commands.downloadLevel = 0;
            ++commands.closes;
            commands.checksumMismatch = checksumAt && Value(*checksumAt) != CoveredChecksum();
            RestartApplication();
            return true;
        }
        case kSendAllScan:
            ++commands.sendAllScans;
            return true;
        case kResetTimer:
            commands.timerResets.push_back({Word(frame, 1), Word(frame, 3)});
            return true;
        case kKeypress:
            commands.keypresses.push_back(Word(frame, 1));
            return true;
        case kDisableKeypad:
        case kEnableKeypad:
            commands.keypadEnabled = code == kEnableKeypad;
            return true;
        case kClearLog:
            if (static_cast<std::size_t>(frame[1]) >= objects.size()) return false;
            commands.clearedLogs.push_back(frame[1]);
            return true;
        case kResetMemory:
            if (!ResetCodeMatches({frame.begin() + 2, frame.begin() + 6})) return false;
            RestoreFactoryValues();
            RestartApplication();
            return true;
        default:
            return false;
    }
}

// The reset code of a node with Neuron ID bytes n0..n5: n0 ^ n5, n1 ^ n4, n2 ^ n3 and the sum of
// the six bytes modulo 256.
bool SimulatedNodeState::ResetCodeMatches(const std::vector<std::uint8_t>& code) const {
    const auto id = ParseHex(node.neuronId);
    if (!id || id->size() != 6) return false;
    const auto& n = *id;
    std::uint32_t sum = 0;
    for (const std::uint8_t byte : n)
        sum += byte;
    const std::vector<std::uint8_t> expected = {
        static_cast<std::uint8_t>(n[0] ^ n[5]), static_cast<std::uint8_t>(n[1] ^ n[4]),
        static_cast<std::uint8_t>(n[2] ^ n[3]), static_cast<std::uint8_t>(sum & 0xFF)};
    return code == expected;
}

void SimulatedNodeState::RestoreFactoryValues() {
    for (const auto& [where, value] : factoryValues) {
        Value(where) = value;
    }
}

// The application restarts: an open configuration download ends, and the alarm message reports
// the restart for the next polls.
void SimulatedNodeState::RestartApplication() {
    ++commands.restarts;
    commands.downloadLevel = 0;
    if (!alarmAt || node.resetPolls == 0) {
        if (commands.restarting) FinishRestart();
        return;
    }
    auto& alarm = node.variables[*alarmAt].value;
    if (!commands.restarting) alarmBeforeRestart = alarm;
    alarm = TextValue(kResettingText, alarm.size());
    commands.restarting = true;
    commands.pollsLeft = node.resetPolls;
}

void SimulatedNodeState::FinishRestart() {
    commands.restarting = false;
    commands.pollsLeft = 0;
    node.variables[*alarmAt].value = alarmBeforeRestart;
    PublishCommandStatus();
}

// The command status: the code of the command it refers to, the status bits, the open download's
// level and a zero byte; a shorter variable takes what fits.
void SimulatedNodeState::PublishCommandStatus() {
    if (!commandStatusAt) return;
    std::uint8_t bits = lastResult;
    if (commands.downloadLevel != 0) bits |= kCommandDownloadOpen;
    if (commands.checksumMismatch) bits |= kCommandChecksumMismatch;
    if (commands.restarting) bits |= kCommandResetting;
    const std::vector<std::uint8_t> status = {lastCommand, bits,
                                              static_cast<std::uint8_t>(commands.downloadLevel), 0};
    auto& value = node.variables[*commandStatusAt].value;
    std::fill(value.begin(), value.end(), 0);
    std::copy_n(status.begin(), std::min(status.size(), value.size()), value.begin());
}

std::vector<std::uint8_t> SimulatedNodeState::CoveredChecksum() const {
    if (!checksumAt) return {};
    Crc16X25 crc;
    for (const ValueAt where : coveredAt) {
        crc.Add(Value(where));
    }
    const auto bytes = crc.StoredBytes();
    return {bytes.begin(), bytes.end()};
}

// ---- Object requests -------------------------------------------------------------------------

void SimulatedNodeState::ReceiveObjectRequest(const std::vector<std::uint8_t>& frame) {
    const std::int32_t object = Word(frame, 0);
    const std::uint8_t request = frame[2];
    if (recording) objectRequests.push_back({object, request});
    const std::uint32_t flags = static_cast<std::size_t>(object) < objects.size()
                                    ? AnswerObjectRequest(static_cast<std::size_t>(object), request)
                                    : kObjInvalidId;
    if (!objectStatusAt) return;
    node.variables[*objectStatusAt].value = {frame[0],
                                             frame[1],
                                             static_cast<std::uint8_t>(flags >> 16),
                                             static_cast<std::uint8_t>(flags >> 8),
                                             static_cast<std::uint8_t>(flags & 0xFE),
                                             0};
}

// Acts on the request and gives the flags to report. A request to the node object acts on every
// object.
std::uint32_t SimulatedNodeState::AnswerObjectRequest(std::size_t object, std::uint8_t request) {
    const auto change = [&](std::uint32_t set, std::uint32_t clear) {
        const std::size_t last = object == 0 ? objects.size() : object + 1;
        for (std::size_t i = object; i < last; ++i) {
            objects[i].flags = (objects[i].flags & ~clear) | set;
        }
    };
    switch (request) {
        case kRqNormal:
            change(0, kObjDisabled | kObjInOverride | kObjManualControl);
            break;
        case kRqDisabled:
            change(kObjDisabled, 0);
            break;
        case kRqUpdateStatus:
        case kRqSelfTest:  // the self-test ends at once; its result is the held fail flag
            break;
        case kRqReportMask:
            return Supported(object) | kObjReportMask;
        case kRqOverride:
            change(kObjInOverride, 0);
            break;
        case kRqEnable:
            change(0, kObjDisabled);
            break;
        case kRqRemoveOverride:
            change(0, kObjInOverride);
            break;
        case kRqClearStatus:
            change(0, kObjHeldFlags & ~kObjModes);
            break;
        case kRqClearAlarm:
            change(0, kObjInAlarm);
            break;
        case kRqAlarmNotifyEnabled:
            change(0, kObjAlarmNotifyDisabled);
            break;
        case kRqAlarmNotifyDisabled:
            change(kObjAlarmNotifyDisabled, 0);
            break;
        case kRqManualControl:
            change(kObjManualControl, 0);
            break;
        case kRqRemoteControl:
            change(0, kObjManualControl);
            break;
        default:
            return Reported(object) | kObjInvalidRequest;
    }
    return Reported(object);
}

// The node object reports what any object reports.
std::uint32_t SimulatedNodeState::Reported(std::size_t object) const {
    if (object != 0) return objects[object].flags;
    std::uint32_t flags = 0;
    for (const auto& state : objects)
        flags |= state.flags;
    return flags;
}

std::uint32_t SimulatedNodeState::Supported(std::size_t object) const {
    if (object != 0) return objects[object].supported;
    std::uint32_t flags = 0;
    for (const auto& state : objects)
        flags |= state.supported;
    return flags;
}

}  // namespace vx::sim
