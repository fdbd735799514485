#include "Operations.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>

#include <fmt/format.h>

#include "NodeSelfDoc.h"
#include "SupportRoutines.h"
#include "Table.h"
#include "ValueInput.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/ITypeRegistry.h"

namespace vx::vxctl {
namespace {

constexpr std::int32_t kLowestDownloadLevel = 2;

// Branches of the object tree.
constexpr const char* kBranch = "├─ ";
constexpr const char* kLastBranch = "└─ ";
constexpr const char* kTrunk = "│  ";
constexpr const char* kNoTrunk = "   ";

// The bits of the command status the family's controllers set, counted as the library's
// IOrvexCommandStatus::Status counts them.
struct CommandStatusBit {
    const char* name;  // for scripts
    const char* text;  // for people
    std::int32_t bit;
};
constexpr CommandStatusBit kCommandStatusBits[] = {
    {"accepted", "accepted", 0},          {"rejected", "rejected", 1},
    {"downloadOpen", "download open", 2}, {"checksumMismatch", "checksum mismatch", 3},
    {"restarting", "restarting", 4},
};

// The object status flags under the field names of the status type.
struct StatusFlag {
    const char* name;
    bool (IOrvexLonObjectStatus::*read)();
};
constexpr StatusFlag kStatusFlags[] = {
    {"invalid_id", &IOrvexLonObjectStatus::InvalidId},
    {"invalid_request", &IOrvexLonObjectStatus::InvalidRequest},
    {"disabled", &IOrvexLonObjectStatus::Disabled},
    {"out_of_limits", &IOrvexLonObjectStatus::OutOfLimits},
    {"open_circuit", &IOrvexLonObjectStatus::OpenCircuit},
    {"out_of_service", &IOrvexLonObjectStatus::OutOfService},
    {"mechanical_fault", &IOrvexLonObjectStatus::MechanicalFault},
    {"feedback_failure", &IOrvexLonObjectStatus::FeedbackFailure},
    {"over_range", &IOrvexLonObjectStatus::OverRange},
    {"under_range", &IOrvexLonObjectStatus::UnderRange},
    {"electrical_fault", &IOrvexLonObjectStatus::ElectricalFault},
    {"unable_to_measure", &IOrvexLonObjectStatus::UnableToMeasure},
    {"comm_failure", &IOrvexLonObjectStatus::CommFailure},
    {"fail_self_test", &IOrvexLonObjectStatus::FailSelfTest},
    {"self_test_in_progress", &IOrvexLonObjectStatus::SelfTestInProgress},
    {"locked_out", &IOrvexLonObjectStatus::LockedOut},
    {"manual_control", &IOrvexLonObjectStatus::ManualControl},
    {"in_alarm", &IOrvexLonObjectStatus::InAlarm},
    {"in_override", &IOrvexLonObjectStatus::InOverride},
    {"report_mask", &IOrvexLonObjectStatus::ReportMask},
    {"programming_mode", &IOrvexLonObjectStatus::ProgrammingMode},
    {"programming_fail", &IOrvexLonObjectStatus::ProgrammingFail},
    {"alarm_notify_disabled", &IOrvexLonObjectStatus::AlarmNotifyDisabled},
};

using Arguments = std::vector<std::int32_t>;

struct CommandEntry {
    FamilyCommand description;
    std::function<bool(IOrvexCommand&, const Arguments&)> send;
};

const std::vector<CommandEntry>& CommandTable() {
    static const std::vector<CommandEntry> table = {
        {{"send-all", "makes the controller send all its outputs", {}},
         [](IOrvexCommand& command, const Arguments&) { return command.SendAllScan(); }},
        {{"reset-timer", "sets one of the controller's timers", {"TIMER", "VALUE"}},
         [](IOrvexCommand& command, const Arguments& arguments) {
             return command.ResetTimer(arguments[0], arguments[1]);
         }},
        {{"keypress", "presses a key of the controller's keypad", {"CODE"}},
         [](IOrvexCommand& command, const Arguments& arguments) {
             return command.Keypress(arguments[0]);
         }},
        {{"disable-keypad", "locks the controller's keypad", {}},
         [](IOrvexCommand& command, const Arguments&) { return command.DisableKeypad(); }},
        {{"enable-keypad", "unlocks the controller's keypad", {}},
         [](IOrvexCommand& command, const Arguments&) { return command.EnableKeypad(); }},
        {{"clear-log", "clears the log of one object", {"OBJECT"}},
         [](IOrvexCommand& command, const Arguments& arguments) {
             return command.ClearLog(arguments[0]);
         }},
        {{"reset-memory", "restores the configuration the controller was delivered with", {"KIND"}},
         [](IOrvexCommand& command, const Arguments& arguments) {
             return command.ResetMemory(arguments[0]);
         }},
        {{"open-download", "opens a configuration download at level 2 or 3", {"LEVEL", "OBJECT"}},
         [](IOrvexCommand& command, const Arguments& arguments) {
             return command.OpenConfigDownload(arguments[0], arguments[1]);
         }},
        {{"close-download", "closes the configuration download of that level", {"LEVEL"}},
         [](IOrvexCommand& command, const Arguments& arguments) {
             return command.CloseConfigDownload(arguments[0]);
         }},
        {{"generic", "any command: its code and up to ten data bytes", {"CODE"}, true},
         [](IOrvexCommand& command, const Arguments& arguments) {
             std::vector<Variant> data(arguments.begin() + 1, arguments.end());
             return command.GenericCommand(arguments[0], Variant(VariantArray(0, data)));
         }},
    };
    return table;
}

// What each command's parameters may hold: the frame keeps a byte or a 16-bit word for each, and
// the library leaves a value that does not fit as 0 or raises overflow after clearing the frame.
struct ParameterRange {
    std::int32_t low;
    std::int32_t high;
};
constexpr ParameterRange kByte = {0, 255};
constexpr ParameterRange kWord = {0, 65535};
constexpr ParameterRange kDownloadLevel = {2, 3};
constexpr std::size_t kGenericDataBytes = 10;  // the frame's data bytes after the code

std::vector<ParameterRange> ParameterRanges(const std::string& command) {
    static const std::map<std::string, std::vector<ParameterRange>> ranges = {
        {"reset-timer", {kWord, kWord}},
        {"keypress", {kWord}},
        {"clear-log", {kByte}},
        {"reset-memory", {kByte}},
        {"open-download", {kDownloadLevel}},
        {"close-download", {kDownloadLevel}},
        {"generic", {kByte}},
    };
    const auto found = ranges.find(command);
    return found == ranges.end() ? std::vector<ParameterRange>{} : found->second;
}

// Refuses a parameter the command frame cannot carry as given, before anything is sent.
void CheckCommandArguments(const FamilyCommand& command,
                           const std::vector<std::int32_t>& arguments) {
    const auto ranges = ParameterRanges(command.name);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const bool isData = i >= command.parameters.size();
        const ParameterRange range = isData              ? kByte
                                     : i < ranges.size() ? ranges[i]
                                                         : ParameterRange{INT32_MIN, INT32_MAX};
        const std::string what =
            isData ? fmt::format("data byte {}", i - command.parameters.size() + 1)
                   : command.parameters[i];
        if (arguments[i] < range.low || arguments[i] > range.high) {
            throw UsageError(fmt::format("{}: {} is {}, outside {} to {}", command.name, what,
                                         arguments[i], range.low, range.high));
        }
    }
    if (command.takesData && arguments.size() > command.parameters.size() + kGenericDataBytes) {
        throw UsageError(fmt::format("{}: {} data bytes given; the command carries at most {}",
                                     command.name, arguments.size() - command.parameters.size(),
                                     kGenericDataBytes));
    }
}

}  // namespace

std::string Joined(const std::vector<std::string>& texts) {
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string CategoryName(std::int32_t category) {
    switch (category) {
        case kCategoryConfigItem:
            return "config item";
        case kCategoryConfigProperty:
            return "config property";
        case kCategoryInputNv:
            return "input";
        case kCategoryOutputNv:
            return "output";
        default:
            return fmt::format("category {}", category);
    }
}

std::int32_t ObjectOf(const CDeviceVariable& variable) {
    const auto object = variable.Object();
    return object ? object->ID() : -1;
}

std::string Named(const CDeviceVariable& variable) {
    return Utf8FromLatin1(variable.Name());
}

// The key the library imports a configuration value by.
std::string ConfigKey(const CDeviceVariable& variable) {
    return variable.Category() == kCategoryConfigItem
               ? variable.ItemName()
               : variable.Name() + "." + std::to_string(variable.NvIndex());
}

// Where the node keeps the variable, for people: its network-variable index or its item name.
std::string PlaceText(const CDeviceVariable& variable) {
    if (variable.Category() == kCategoryConfigItem) return "item " + variable.ItemName();
    return fmt::format("nv {}", variable.NvIndex());
}

// What the node's self-documentation says of an object; nothing for one it does not list.
const sim::FunctionalBlock* BlockOf(const std::vector<sim::FunctionalBlock>& blocks,
                                    std::int32_t id) {
    if (id < 0 || static_cast<std::size_t>(id) >= blocks.size()) return nullptr;
    return &blocks[static_cast<std::size_t>(id)];
}

// "profile 8502 sccVAV": the functional profile and block name the node lists for the object.
// The library reads only a list of bare numbers, so its profile code may be 0 where the node
// says more.
std::string BlockText(const sim::FunctionalBlock* block) {
    if (block == nullptr) return "not listed in the node's self-documentation";
    std::string text = block->profile ? fmt::format("profile {}", *block->profile) : "profile ?";
    if (!block->name.empty()) text += " " + Utf8FromLatin1(block->name);
    return text;
}

std::string ObjectTitle(const CDeviceObject& object, const sim::FunctionalBlock* block) {
    if (object.ID() < 0) return "node-wide items";
    std::string title = fmt::format("object {}", object.ID());
    if (object.ID() == 0) title += " (node object)";
    title += ": " + BlockText(block);
    if (const std::string label = object.ProfileName(); !label.empty()) title += ", " + label;
    return title;
}

Json BlockJson(const sim::FunctionalBlock* block) {
    if (block == nullptr) return {{"functionalProfile", nullptr}, {"blockName", nullptr}};
    return {{"functionalProfile", block->profile ? Json(*block->profile) : Json()},
            {"blockName", Utf8FromLatin1(block->name)}};
}

// The host's direction flag of each network variable, by index: the library calls a variable an
// input only when its self-documentation says "nvi", which a device interface file's do not.
std::map<std::int32_t, bool> HostOutputs(const Session& session) {
    std::map<std::int32_t, bool> outputs;
    const auto list = session.HostConnection()->NetworkVariables();
    if (!list) return outputs;
    for (const auto& item : list->Items()) {
        if (const auto record = std::dynamic_pointer_cast<INodeVariable>(item)) {
            outputs[record->Index()] = record->IsOutput();
        }
    }
    return outputs;
}

// Rows for the fields of a structure: `leading` cells, the field's branch under `stem`, its value.
void AddFieldRows(Table& table, const std::vector<std::string>& leading, const std::string& stem,
                  const std::vector<DecodedValue>& fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const bool last = i + 1 == fields.size();
        std::vector<std::string> row = leading;
        row.push_back(stem + (last ? kLastBranch : kBranch) + fields[i].field);
        row.push_back(fields[i].text);
        table.Row(std::move(row));
        AddFieldRows(table, leading, stem + (last ? kNoTrunk : kTrunk), fields[i].fields);
    }
}

Json StatusBitsJson(IOrvexCommandStatus& status) {
    Json json = {{"command", status.CmdType()}};
    for (const auto& bit : kCommandStatusBits) {
        json[bit.name] = status.Status(bit.bit);
    }
    return json;
}

// The node's answer to the last command; null when the node has no command status variable.
Json CommandStatusJson(CDevice& device) {
    if (!device.CommandChannel()->StatusVariable()) return nullptr;
    CommandStatusPtr status;
    device.Command()->UploadStatus(status);
    return StatusBitsJson(*status);
}

// One line for people; "" for a node without a command status variable.
std::string CommandStatusLine(const Json& status) {
    if (status.is_null()) return {};
    std::vector<std::string> set;
    for (const auto& bit : kCommandStatusBits) {
        if (status[bit.name].get<bool>()) set.emplace_back(bit.text);
    }
    return fmt::format("command status: command {}, {}\n", status["command"].get<int>(),
                       set.empty() ? std::string("no bits set") : Joined(set));
}

bool StatusBit(const Json& status, const char* name) {
    return !status.is_null() && status[name].get<bool>();
}

DecodedValue DecodeTarget(const VariablePath& target) {
    CDeviceVariable& variable = *target.variable;
    if (!variable.Typedef()) return Undecoded("no type, bytes " + RawHex(variable));
    if (target.entry) return DecodeEntry(target.element, *target.entry);
    return DecodeElement(target.element);
}

namespace {

// The value a command names, as JSON and text; `sent` says how a write went to the node.
Outcome ValueOutcome(const VariablePath& target, Json sent = nullptr) {
    CDeviceVariable& variable = *target.variable;
    const TypedefPtr type = target.element->Typedef();
    const DecodedValue decoded = DecodeTarget(target);

    Outcome outcome;
    outcome.json = {{"object", target.object},
                    {"name", Named(variable)},
                    {"field", target.field},
                    {"type", type ? Utf8FromLatin1(type->TypeName()) : ""},
                    {"units", type ? Utf8FromLatin1(type->Units()) : ""},
                    {"value", decoded.json},
                    {"raw", RawHex(variable, target.element, target.entry)}};
    if (target.entry) outcome.json["entry"] = *target.entry;
    if (!target.field.empty() || target.entry) outcome.json["variableRaw"] = RawHex(variable);
    if (!sent.is_null()) outcome.json["sent"] = sent;

    if (decoded.fields.empty()) {
        outcome.text = fmt::format("{} = {}\n", target.Shown(), decoded.text);
    } else {
        Table table;
        table.Line(fmt::format("{} ({}), object {}", target.Shown(),
                               type ? Utf8FromLatin1(type->TypeName()) : "", target.object));
        AddFieldRows(table, {}, "", decoded.fields);
        outcome.text = table.Text();
    }
    return outcome;
}

// How a written value went to the node, for scripts and for people.
Json SentJson(std::string how, std::int32_t level = 0) {
    Json sent = {{"how", std::move(how)}};
    if (level > 0) sent["level"] = level;
    return sent;
}

std::string SentText(const Json& sent) {
    const std::string how = sent["how"];
    if (how == "download") {
        return fmt::format("sent in a level-{} configuration download", sent["level"].get<int>());
    }
    if (how == "unchanged") return "unchanged: the node already holds this value";
    return "written to the node";
}

TypedefPtr RequestType() {
    auto type = CurrentTypeRegistry()->TypeByName("object_request_t");
    if (!type) throw ToolError("the type catalogue has no object_request_t");
    return type;
}

void RequireObjectRequests(CDevice& device) {
    if (!device.WellKnownVariable(kSlotObjectRequest) ||
        !device.WellKnownVariable(kSlotObjectStatus)) {
        throw ToolError(
            "the device has no object request and status variables (nviRequest, nvoStatus)");
    }
}

Json FlagsJson(IOrvexLonObjectStatus& status) {
    Json flags = Json::array();
    for (const auto& flag : kStatusFlags) {
        if ((status.*flag.read)()) flags.push_back(flag.name);
    }
    return flags;
}

std::string FlagsText(const Json& flags) {
    if (flags.empty()) return "normal";
    std::vector<std::string> names;
    for (const auto& flag : flags)
        names.push_back(flag.get<std::string>());
    return Joined(names);
}

Json ObjectStatusOf(CDevice& device, std::int32_t object, std::int32_t request) {
    device.DownloadRequest(object, request);
    const auto status = device.UploadStatus();
    return {{"id", object}, {"flags", FlagsJson(*status)}};
}

std::string MemberList(const IOrvexTypedef& type) {
    std::vector<std::string> names;
    for (const auto& [raw, member] : EnumMembers(type))
        names.push_back(Utf8FromLatin1(member));
    return Joined(names);
}

bool IsWholeNumber(std::string_view text) {
    std::int32_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

}  // namespace

std::string ParameterRangeText(const std::string& command, std::size_t parameter) {
    const auto ranges = ParameterRanges(command);
    if (parameter >= ranges.size()) return {};
    return fmt::format("{} to {}", ranges[parameter].low, ranges[parameter].high);
}

const std::vector<FamilyCommand>& FamilyCommands() {
    static const std::vector<FamilyCommand> commands = [] {
        std::vector<FamilyCommand> described;
        for (const auto& entry : CommandTable())
            described.push_back(entry.description);
        return described;
    }();
    return commands;
}

Outcome Info(Session& session) {
    CDevice& device = session.Device();
    const auto info = device.Info();
    Json objects = Json::array();
    std::vector<std::string> objectTexts;
    for (const auto& object : device.Objects().NewEnum()) {
        objects.push_back(object->ID());
        objectTexts.push_back(object->ID() < 0 ? "node-wide" : std::to_string(object->ID()));
    }
    // Every block the node lists, also those the library holds no object for (an object with no
    // variables).
    const auto blocks = sim::FunctionalBlocks(info->SelfDoc());
    Json described = Json::array();
    std::vector<std::string> blockTexts;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        Json entry = {{"object", i}};
        entry.update(BlockJson(&blocks[i]));
        described.push_back(std::move(entry));
    }
    // Runs of alike blocks (a counted entry) as one range: "1-64: profile 20008 webServer".
    for (std::size_t first = 0; first < blocks.size();) {
        std::size_t last = first;
        while (last + 1 < blocks.size() && blocks[last + 1].profile == blocks[first].profile &&
               blocks[last + 1].name == blocks[first].name) {
            ++last;
        }
        blockTexts.push_back(
            last == first ? fmt::format("{}: {}", first, BlockText(&blocks[first]))
                          : fmt::format("{}-{}: {}", first, last, BlockText(&blocks[first])));
        first = last + 1;
    }
    Outcome outcome;
    outcome.json = {{"device", session.DeviceName()},
                    {"revisionDescription", session.RevisionSource()},
                    {"neuronId", Utf8FromLatin1(info->NeuronID())},
                    {"programId", Utf8FromLatin1(info->ProgID())},
                    {"manufacturer", Utf8FromLatin1(info->MfgID())},
                    {"revision", Utf8FromLatin1(info->Revision())},
                    {"state", Utf8FromLatin1(info->State(false, true))},
                    {"name", Utf8FromLatin1(info->Name(std::string(kNameLocation)))},
                    {"selfDoc", Utf8FromLatin1(info->SelfDoc())},
                    {"objects", objects},
                    {"functionalBlocks", described}};
    const auto& json = outcome.json;
    outcome.text = Facts({
        {"device", fmt::format("{} ({})", json["device"].get<std::string>(), session.DeviceKind())},
        {"revision description", json["revisionDescription"]},
        {"Neuron ID", json["neuronId"]},
        {"program ID", json["programId"]},
        {"manufacturer", json["manufacturer"]},
        {"revision", json["revision"]},
        {"state", json["state"]},
        {"name", json["name"]},
        {"self-documentation", json["selfDoc"]},
        {"objects", Joined(objectTexts)},
        {"functional blocks", blockTexts.empty() ? std::string("none listed") : Joined(blockTexts)},
    });
    return outcome;
}

Outcome Objects(Session& session, bool withValues) {
    CDevice& device = session.Device();
    std::map<const CDeviceVariable*, ComError> failures;
    if (withValues) {
        session.Upload(session.Variables(), "uploading values",
                       [&](CDeviceVariable& variable, const ComError& error) {
                           failures.emplace(&variable, error);
                       });
    }

    const auto blocks = sim::FunctionalBlocks(device.Info()->SelfDoc());
    const auto outputs = HostOutputs(session);
    Json objects = Json::array();
    Table table;
    table.Line(fmt::format("device {}", Utf8FromLatin1(device.Info()->NeuronID())));
    const auto all = device.Objects().NewEnum();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const CDeviceObject& object = *all[i];
        const bool lastObject = i + 1 == all.size();
        const sim::FunctionalBlock* block = BlockOf(blocks, object.ID());
        table.Line((lastObject ? kLastBranch : kBranch) + ObjectTitle(object, block));
        const std::string stem = lastObject ? kNoTrunk : kTrunk;

        Json variables = Json::array();
        const auto held = object.Variables();
        for (std::size_t j = 0; j < held.size(); ++j) {
            CDeviceVariable& variable = *held[j];
            const bool lastVariable = j + 1 == held.size();
            Json entry = {{"name", Named(variable)},
                          {"category", variable.Category()},
                          {"configLevel", variable.ConfigLevel()}};
            // A configuration item is no network variable: it has its item key, no index.
            std::string kind = CategoryName(variable.Category());
            if (variable.Category() == kCategoryConfigItem) {
                entry["item"] = Utf8FromLatin1(variable.ItemName());
            } else {
                entry["nvIndex"] = variable.NvIndex();
                if (const auto output = outputs.find(variable.NvIndex()); output != outputs.end()) {
                    entry["direction"] = output->second ? "output" : "input";
                    if (variable.Category() != kCategoryConfigProperty) {
                        kind = output->second ? "output" : "input";
                    }
                }
            }
            std::vector<std::string> row = {
                stem + (lastVariable ? kLastBranch : kBranch) + Named(variable), kind,
                fmt::format("level {}", variable.ConfigLevel()), PlaceText(variable)};
            if (!withValues) {
                table.Row(std::move(row));
            } else {
                const auto failure = failures.find(&variable);
                const DecodedValue decoded = failure != failures.end()
                                                 ? Undecoded("(" + ErrorText(failure->second) + ")")
                                                 : DecodeVariable(variable);
                entry["value"] = decoded.json;
                row.push_back(decoded.text);
                table.Row(std::move(row));
                AddFieldRows(table, {}, stem + (lastVariable ? kNoTrunk : kTrunk), decoded.fields);
            }
            variables.push_back(std::move(entry));
        }
        Json entry = {{"id", object.ID()},
                      {"profile", object.Profile()},
                      {"profileName", Utf8FromLatin1(object.ProfileName())}};
        entry.update(BlockJson(object.ID() < 0 ? nullptr : block));
        entry["variables"] = std::move(variables);
        objects.push_back(std::move(entry));
    }
    Outcome outcome;
    outcome.json = {{"objects", std::move(objects)}};
    outcome.text = table.Text();
    return outcome;
}

Outcome Get(Session& session, std::string_view path, std::optional<std::int32_t> object) {
    const VariablePath target = session.Find(path, object);
    target.variable->Upload();
    return ValueOutcome(target);
}

Outcome Set(Session& session, std::string_view path, std::string_view value,
            std::optional<std::int32_t> object) {
    const VariablePath target = session.Find(path, object);
    CDeviceVariable& variable = *target.variable;
    // The node's value first, so that only the named part changes and a raw value has its length.
    variable.Upload();
    // Everything is checked before anything is written: a refused value changes nothing.
    std::vector<ElementWrite> writes;
    std::optional<std::vector<std::uint8_t>> rawBytes;
    if (!variable.Typedef()) {
        if (!target.field.empty() || target.entry) {
            throw ToolError(fmt::format("{} has no known type: it has no fields or entries",
                                        Utf8FromLatin1(variable.Name())));
        }
        rawBytes = RawBytesInput(value, RawHex(variable).size() / 2, target.Shown());
    } else if (target.entry) {
        writes.push_back({target.Shown(), target.element, *target.entry,
                          CheckValue(*target.element->Typedef(), value, target.Shown()),
                          std::nullopt});
    } else {
        writes = PlanWrites(target.element, value, target.Shown());
    }
    std::vector<std::string> notes;
    for (const auto& write : writes) {
        for (const auto& note : write.value.notes)
            notes.push_back(write.shown + ": " + note);
    }
    if (rawBytes) {
        variable.ValueBuffer()->SetBytes(ByteArray(0, *rawBytes));
    } else {
        ApplyWrites(writes);
    }

    Json sent;
    const std::int32_t category = variable.Category();
    if (category == kCategoryInputNv || category == kCategoryOutputNv) {
        variable.Download(0, true);
        sent = SentJson("write");
    } else if (!variable.IsModified()) {
        sent = SentJson("unchanged");
    } else if (const std::int32_t level = session.Device().ConfigModificationLevel();
               level >= kLowestDownloadLevel) {
        session.DownloadConfiguration(category, target.object);
        sent = SentJson("download", level);
        sent["commandStatus"] = CommandStatusJson(session.Device());
    } else {
        // Below the download levels a property is written on its own; an item already was, as
        // items are written when they change.
        if (category == kCategoryConfigProperty) variable.Download(0, true);
        sent = SentJson("write");
    }

    variable.Upload();  // what the node holds now
    Outcome outcome = ValueOutcome(target, sent);
    if (!notes.empty()) outcome.json["notes"] = notes;
    for (const auto& note : notes)
        outcome.text += "note: " + note + "\n";
    outcome.text += SentText(sent) + "\n";
    if (const Json status = sent.value("commandStatus", Json()); !status.is_null()) {
        outcome.text += CommandStatusLine(status);
        if (StatusBit(status, "checksumMismatch") && sent["level"] == kLowestDownloadLevel) {
            // Not a failure of this write: a level-2 download sends no checksum.
            outcome.text +=
                "the controller's configuration checksum no longer matches: a level-3 download "
                "(vxctl config download --level 3) sends a fresh one\n";
        } else if (StatusBit(status, "checksumMismatch")) {
            outcome.failure = "the controller reports a configuration checksum mismatch";
        }
    }
    return outcome;
}

Outcome Wink(Session& session) {
    Outcome outcome;
    const bool winked = session.Device().Wink();
    outcome.json = {{"winked", winked}};
    outcome.text = winked ? "the controller shows itself\n" : "";
    if (!winked) outcome.failure = "the controller could not be winked";
    return outcome;
}

Outcome Ping(Session& session) {
    Outcome outcome;
    const bool answers = session.Device().Ping();
    outcome.json = {{"answers", answers}};
    outcome.text = answers ? "the controller answers\n" : "";
    if (!answers) outcome.failure = "the controller does not answer";
    return outcome;
}

Outcome Name(Session& session, const std::string& location,
             const std::optional<std::string>& text) {
    CDevice& device = session.Device();
    const std::string where = Latin1FromUtf8(location);
    Outcome outcome;
    outcome.json = {{"location", location}};
    constexpr std::size_t kNameLength = 30;  // the node keeps 30 characters, blank-padded
    if (text) {
        const std::string latin1 = Latin1FromUtf8(*text);
        if (Utf8FromLatin1(latin1) != *text) {
            throw UsageError(
                fmt::format("the name '{}' has characters the controller cannot "
                            "hold (it takes Latin-1 characters)",
                            *text));
        }
        if (latin1.size() > kNameLength) {
            throw UsageError(
                fmt::format("the name has {} characters; the controller keeps at "
                            "most {}",
                            latin1.size(), kNameLength));
        }
    }
    if (text) {
        // Writing takes an address; other locations are offsets the file directory resolves.
        constexpr std::size_t kAddressDigits = 4;
        const std::string address =
            where.size() == kAddressDigits ? where : device.ResolveSCPTLocation(where);
        if (address.empty()) {
            throw ToolError(fmt::format(
                "location {} does not resolve through the controller's file directory", location));
        }
        device.Info()->SetName(address, Latin1FromUtf8(*text));
        outcome.json["address"] = address;
    }
    const std::string name = device.Info()->Name(where);
    outcome.json["name"] = Utf8FromLatin1(name);
    outcome.text = Utf8FromLatin1(name) + "\n";
    if (text) {
        if (name != TrimBlanks(Latin1FromUtf8(*text).substr(0, kNameLength))) {
            outcome.failure = "the name did not reach the controller";
        }
    }
    return outcome;
}

Outcome SendCommand(Session& session, const std::string& name, const Arguments& arguments) {
    const auto& table = CommandTable();
    const auto entry = std::find_if(table.begin(), table.end(), [&](const CommandEntry& candidate) {
        return candidate.description.name == name;
    });
    if (entry == table.end()) throw UsageError(fmt::format("'{}' is no family command", name));
    CheckCommandArguments(entry->description, arguments);

    CDevice& device = session.Device();
    const bool sent = entry->send(*device.Command(), arguments);
    Outcome outcome;
    outcome.json = {{"command", name}, {"arguments", arguments}, {"sent", sent}};
    if (!sent) {
        outcome.json["status"] = nullptr;
        outcome.failure =
            "the command was not sent: the controller has no command variable, or a parameter is "
            "outside the command's rules";
        return outcome;
    }
    const Json status = CommandStatusJson(device);
    outcome.json["status"] = status;
    outcome.text = fmt::format("{} sent\n{}", name, CommandStatusLine(status));
    if (StatusBit(status, "rejected")) outcome.failure = "the controller rejected the command";
    return outcome;
}

Outcome CommandStatus(Session& session) {
    CommandStatusPtr status;
    session.Device().Command()->UploadStatus(status);  // raises for a node without the variable
    Outcome outcome;
    outcome.json = StatusBitsJson(*status);
    outcome.text = CommandStatusLine(outcome.json);
    return outcome;
}

Outcome ObjectStatus(Session& session, std::optional<std::int32_t> object) {
    CDevice& device = session.Device();
    RequireObjectRequests(device);
    const auto update = EnumMemberNumber(*RequestType(), "RQ_UPDATE_STATUS");
    if (!update) throw ToolError("the type catalogue has no RQ_UPDATE_STATUS");

    constexpr std::int32_t kLargestObject = 65535;  // the request names it in 16 bits
    if (object && (*object < 0 || *object > kLargestObject)) {
        throw ArgumentError(
            "--object", std::to_string(*object),
            fmt::format("out of range; the valid range is 0 to {}", kLargestObject));
    }
    Json objects = Json::array();
    if (object) {
        objects.push_back(ObjectStatusOf(device, *object, *update));
    } else {
        for (const auto& held : device.Objects().NewEnum()) {
            if (held->ID() >= 0) objects.push_back(ObjectStatusOf(device, held->ID(), *update));
        }
    }
    Table table;
    for (const auto& entry : objects) {
        table.Row({fmt::format("object {}", entry["id"].get<int>()), FlagsText(entry["flags"])});
    }
    Outcome outcome;
    outcome.json = {{"objects", std::move(objects)}};
    outcome.text = table.Text();
    return outcome;
}

Outcome Request(Session& session, std::int32_t object, std::string_view request) {
    CDevice& device = session.Device();
    RequireObjectRequests(device);
    const TypedefPtr type = RequestType();
    constexpr std::int32_t kLargestObject = 65535;  // the request names it in 16 bits
    constexpr std::int32_t kLargestRequest = 255;   // and the request in one byte
    if (object < 0 || object > kLargestObject) {
        throw ArgumentError(
            "OBJECT", std::to_string(object),
            fmt::format("out of range; the valid range is 0 to {}", kLargestObject));
    }
    std::optional<std::int32_t> code = EnumMemberNumber(*type, Latin1FromUtf8(request));
    if (!code && IsWholeNumber(request)) {
        const long number = std::stol(std::string(request));
        if (number < 0 || number > kLargestRequest) {
            throw ArgumentError(
                "REQUEST", std::string(request),
                fmt::format("out of range; a request number is 0 to {}", kLargestRequest));
        }
        code = static_cast<std::int32_t>(number);
    }
    if (!code) {
        throw ArgumentError(std::string("REQUEST"), std::string(request),
                            fmt::format("no object request; requests: {}", MemberList(*type)));
    }

    device.DownloadRequest(object, *code);
    const auto status = device.UploadStatus();
    const std::string name = Utf8FromLatin1(type->EnumMemberName(*code));
    Outcome outcome;
    // The answer to RQ_REPORT_MASK is no status: its flags are those the object can report,
    // marked by report_mask.
    if (name == "RQ_REPORT_MASK" && status->ReportMask()) {
        Json supported = FlagsJson(*status);
        supported.erase(std::remove(supported.begin(), supported.end(), "report_mask"),
                        supported.end());
        outcome.json = {
            {"object", object}, {"request", name}, {"code", *code}, {"supported", supported}};
        outcome.text = fmt::format("object {}: {} ({}) sent\nreports: {}\n", object, name, *code,
                                   FlagsText(supported));
        return outcome;
    }
    outcome.json = {
        {"object", object}, {"request", name}, {"code", *code}, {"flags", FlagsJson(*status)}};
    outcome.text =
        fmt::format("object {}: {} ({}) sent\nstatus: {}\n", object,
                    name.empty() ? "request" : name, *code, FlagsText(outcome.json["flags"]));
    if (status->InvalidId()) {
        outcome.failure = fmt::format("the controller has no object {}", object);
    } else if (status->InvalidRequest()) {
        outcome.failure = fmt::format("object {} does not take request {}", object, *code);
    }
    return outcome;
}

}  // namespace vx::vxctl
