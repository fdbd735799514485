#include "NodeSnapshot.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <span>
#include <system_error>

#include "Hex.h"
#include "JsonSupport.h"
#include "NodeJson.h"
#include "automation/ComError.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vx::sim {
namespace {

using json::Json;

constexpr const char* kSaveSource = "Vx.Sim.SaveNodeState";
constexpr const char* kLoadSource = "Vx.Sim.LoadNodeState";
constexpr const char* kWriteSource = "Vx.Sim.WriteFile";
constexpr std::size_t kImageSize = 0x10000;
// Zero runs shorter than this stay inside a block: fewer, longer blocks read better.
constexpr std::size_t kMinZeroGap = 16;
constexpr std::int64_t kMaxCount = 2147483647;

std::string AddressText(std::size_t address) {
    const std::array<std::uint8_t, 2> bytes = {static_cast<std::uint8_t>(address >> 8),
                                               static_cast<std::uint8_t>(address & 0xFF)};
    return ToHex(bytes);
}

// ---- Saving -------------------------------------------------------------------------------------

Json VariableJson(const VariableRecord& variable) {
    Json entry = {{"name", variable.name}, {"index", variable.index}};
    if (!variable.selfDoc.empty()) entry["selfDoc"] = variable.selfDoc;
    if (!variable.selfDocName.empty()) entry["selfDocName"] = variable.selfDocName;
    if (variable.typeIndex != 0) entry["typeIndex"] = variable.typeIndex;
    if (variable.isOutput) entry["output"] = true;
    if (variable.polled) entry["polled"] = true;
    if (variable.isConfigClass) entry["configClass"] = true;
    if (variable.arrayCount != 0) entry["arrayCount"] = variable.arrayCount;
    entry["value"] = ToHex(variable.value);
    return entry;
}

Json ConfigItemJson(const ConfigItemRecord& item) {
    Json entry = {{"name", item.name}};
    if (!item.layout.empty()) entry["layout"] = item.layout;
    if (item.address >= 0) entry["address"] = AddressText(static_cast<std::size_t>(item.address));
    entry["value"] = ToHex(item.value);
    return entry;
}

// The image as blocks of its non-zero runs, the items' bytes left out (they are the items'). A
// block never spans an item, which the node file would take for an overlap.
Json MemoryJson(const SimulatedNode& node) {
    const auto image = node.MemoryBytes(0, static_cast<std::int32_t>(kImageSize));
    std::vector<bool> inItem(kImageSize, false);
    for (const auto& item : node.Description().configItems) {
        if (item.address < 0) continue;
        const auto first = static_cast<std::size_t>(item.address);
        std::fill_n(inItem.begin() + static_cast<std::ptrdiff_t>(first), item.value.size(), true);
    }
    const auto isData = [&](std::size_t at) { return !inItem[at] && image[at] != 0; };
    Json blocks = Json::array();
    std::size_t at = 0;
    for (;;) {
        while (at < kImageSize && !isData(at))
            ++at;
        if (at == kImageSize) break;
        const std::size_t first = at;
        std::size_t end = at + 1;  // past the last non-zero byte
        for (std::size_t i = end; i < kImageSize && !inItem[i] && i - end < kMinZeroGap; ++i) {
            if (image[i] != 0) end = i + 1;
        }
        blocks.push_back({{"address", AddressText(first)},
                          {"bytes", ToHex(std::span(image).subspan(first, end - first))}});
        at = end;
    }
    return blocks;
}

Json NamedValuesJson(const RunningState::NamedValues& values) {
    Json object = Json::object();
    for (const auto& [name, value] : values) {
        object[name] = ToHex(value);
    }
    return object;
}

Json RunningJson(const RunningState& running) {
    const CommandChannel& commands = running.commands;
    Json timerResets = Json::array();
    for (const auto& reset : commands.timerResets) {
        timerResets.push_back({{"timer", reset.timer}, {"value", reset.value}});
    }
    Json objects = Json::array();
    for (const auto& object : running.objects) {
        objects.push_back({{"flags", object.flags}, {"supported", object.supported}});
    }
    return {{"commands",
             {{"downloadLevel", commands.downloadLevel},
              {"closes", commands.closes},
              {"checksumMismatch", commands.checksumMismatch},
              {"restarts", commands.restarts},
              {"restarting", commands.restarting},
              {"pollsLeft", commands.pollsLeft},
              {"keypadEnabled", commands.keypadEnabled},
              {"sendAllScans", commands.sendAllScans},
              {"timerResets", timerResets},
              {"keypresses", commands.keypresses},
              {"clearedLogs", commands.clearedLogs}}},
            {"lastCommand", running.lastCommand},
            {"lastResult", running.lastResult},
            {"alarmBeforeRestart", ToHex(running.alarmBeforeRestart)},
            {"objects", objects},
            {"factory",
             {{"variables", NamedValuesJson(running.factoryVariables)},
              {"configItems", NamedValuesJson(running.factoryItems)}}}};
}

// ---- Loading ------------------------------------------------------------------------------------

std::int32_t Count(const Json& object, const char* key, std::int32_t held, std::int64_t low = 0) {
    const auto* value = json::Member(object, key);
    return value ? static_cast<std::int32_t>(json::Integer(*value, key, low, kMaxCount)) : held;
}

bool Flag(const Json& object, const char* key, bool held) {
    const auto* value = json::Member(object, key);
    return value ? json::Boolean(*value, key) : held;
}

const Json* Array(const Json& object, const char* key) {
    const auto* value = json::Member(object, key);
    if (value && !value->is_array()) json::Fail(json::Quoted(key) + " must be an array");
    return value;
}

const Json* Object(const Json& object, const char* key) {
    const auto* value = json::Member(object, key);
    if (value && !value->is_object()) json::Fail(json::Quoted(key) + " must be an object");
    return value;
}

std::vector<std::int32_t> Words(const Json& list, const char* key) {
    std::vector<std::int32_t> words;
    for (const auto& word : list) {
        words.push_back(static_cast<std::int32_t>(json::Integer(word, key, 0, 0xFFFF)));
    }
    return words;
}

void ReadCommands(const Json& entry, CommandChannel& commands) {
    json::CheckKeys(entry, {"downloadLevel", "closes", "checksumMismatch", "restarts", "restarting",
                            "pollsLeft", "keypadEnabled", "sendAllScans", "timerResets",
                            "keypresses", "clearedLogs"});
    commands.downloadLevel = Count(entry, "downloadLevel", commands.downloadLevel);
    commands.closes = Count(entry, "closes", commands.closes);
    commands.checksumMismatch = Flag(entry, "checksumMismatch", commands.checksumMismatch);
    commands.restarts = Count(entry, "restarts", commands.restarts);
    commands.restarting = Flag(entry, "restarting", commands.restarting);
    commands.pollsLeft = Count(entry, "pollsLeft", commands.pollsLeft, -1);
    commands.keypadEnabled = Flag(entry, "keypadEnabled", commands.keypadEnabled);
    commands.sendAllScans = Count(entry, "sendAllScans", commands.sendAllScans);
    if (const auto* resets = Array(entry, "timerResets")) {
        commands.timerResets.clear();
        for (const auto& reset : *resets) {
            if (!reset.is_object()) json::Fail("a timer reset must be an object");
            json::CheckKeys(reset, {"timer", "value"});
            commands.timerResets.push_back(
                {static_cast<std::int32_t>(
                     json::Integer(json::Required(reset, "timer"), "timer", 0, 0xFFFF)),
                 static_cast<std::int32_t>(
                     json::Integer(json::Required(reset, "value"), "value", 0, 0xFFFF))});
        }
    }
    if (const auto* keys = Array(entry, "keypresses"))
        commands.keypresses = Words(*keys, "keypresses");
    if (const auto* logs = Array(entry, "clearedLogs")) {
        commands.clearedLogs = Words(*logs, "clearedLogs");
    }
}

// Factory values of the file replace the node's one by one; the rest keep theirs.
void ReadFactoryValues(const Json& entry, RunningState::NamedValues& held) {
    for (const auto& member : entry.items()) {
        const std::string& name = member.key();
        const auto found = std::find_if(held.begin(), held.end(),
                                        [&](const auto& named) { return named.first == name; });
        if (found == held.end()) {
            json::Fail("factory value of " + name +
                       ": a memory reset restores no value of this name");
        }
        found->second = json::Bytes(member.value(), name.c_str(), 1, 255);
    }
}

// What the file says of the running state, over the node's own.
void ReadRunning(const Json& entry, RunningState& running) {
    json::CheckKeys(entry, {"commands", "lastCommand", "lastResult", "alarmBeforeRestart",
                            "objects", "factory"});
    if (const auto* commands = Object(entry, "commands")) ReadCommands(*commands, running.commands);
    if (const auto* code = json::Member(entry, "lastCommand")) {
        running.lastCommand =
            static_cast<std::uint8_t>(json::Integer(*code, "lastCommand", 0, 255));
    }
    if (const auto* result = json::Member(entry, "lastResult")) {
        running.lastResult =
            static_cast<std::uint8_t>(json::Integer(*result, "lastResult", 0, 255));
    }
    if (const auto* alarm = json::Member(entry, "alarmBeforeRestart")) {
        running.alarmBeforeRestart = json::Bytes(*alarm, "alarmBeforeRestart", 0, 255);
    }
    if (const auto* objects = Array(entry, "objects")) {
        running.objects.clear();
        for (const auto& object : *objects) {
            if (!object.is_object()) json::Fail("an object's flags must be an object");
            json::CheckKeys(object, {"flags", "supported"});
            RunningState::Object flags;
            flags.flags = static_cast<std::uint32_t>(
                json::Integer(json::Required(object, "flags"), "flags", 0, 0xFFFFFF));
            flags.supported = static_cast<std::uint32_t>(
                json::Integer(json::Required(object, "supported"), "supported", 0, 0xFFFFFF));
            running.objects.push_back(flags);
        }
    }
    if (const auto* factory = Object(entry, "factory")) {
        json::CheckKeys(*factory, {"variables", "configItems"});
        if (const auto* variables = Object(*factory, "variables")) {
            ReadFactoryValues(*variables, running.factoryVariables);
        }
        if (const auto* items = Object(*factory, "configItems")) {
            ReadFactoryValues(*items, running.factoryItems);
        }
    }
}

// ---- Writing files ------------------------------------------------------------------------------

[[noreturn]] void WriteFailed(const std::string& path, const std::string& reason) {
    throw ComError(kErrInvalidProcedureCall, kWriteSource,
                   path + ": cannot be written (" + reason + ")");
}

std::string ErrnoText() {
    return std::generic_category().message(errno);
}

#ifdef _WIN32
int OpenForWriting(const std::string& path) {
    return ::_open(path.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, _S_IREAD | _S_IWRITE);
}
int WriteSome(int file, const char* bytes, std::size_t count) {
    return ::_write(file, bytes, static_cast<unsigned>(std::min<std::size_t>(count, 1U << 30)));
}
int FlushToDisk(int file) {
    return ::_commit(file);
}
int Close(int file) {
    return ::_close(file);
}
void FlushFolder(const std::filesystem::path&) {}  // the system keeps a rename durable itself
#else
int OpenForWriting(const std::string& path) {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}
ssize_t WriteSome(int file, const char* bytes, std::size_t count) {
    return ::write(file, bytes, count);
}
int FlushToDisk(int file) {
    return ::fsync(file);
}
int Close(int file) {
    return ::close(file);
}
// The rename itself reaches the disk with the folder: without this, a power cut may bring the old
// file back.
void FlushFolder(const std::filesystem::path& folder) {
    const int handle = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_CLOEXEC);
    if (handle < 0) return;
    ::fsync(handle);
    ::close(handle);
}
#endif

// Takes the temporary file away (closing it first unless `file` is -1) and raises the failure.
[[noreturn]] void AbandonTemporary(int file, const std::string& temporary, const std::string& path,
                                   const std::string& reason) {
    if (file >= 0) Close(file);
    std::remove(temporary.c_str());
    WriteFailed(path, reason);
}

}  // namespace

std::string SaveNodeState(const SimulatedNode& node) {
    const NodeDescription& description = node.Description();
    Json document = {{"version", 1},
                     {"neuronId", description.neuronId},
                     {"programId", description.programId},
                     {"selfDoc", description.selfDoc},
                     {"nodeState", description.nodeState},
                     {"mode", description.mode}};
    Json variables = Json::array();
    for (const auto& variable : description.variables) {
        variables.push_back(VariableJson(variable));
    }
    document["variables"] = std::move(variables);
    Json items = Json::array();
    for (const auto& item : description.configItems) {
        items.push_back(ConfigItemJson(item));
    }
    document["configItems"] = std::move(items);
    document["memory"] = MemoryJson(node);
    if (!description.checksumItem.empty()) {
        document["checksum"] = {{"item", description.checksumItem},
                                {"covers", description.checksumCovers}};
    }
    document["resetPolls"] = description.resetPolls;
    document["running"] = RunningJson(node.Running());
    try {
        return document.dump(2) + "\n";
    } catch (const Json::exception& error) {
        // A file holds UTF-8 text; a text of another code page cannot be saved as it is.
        throw ComError(kErrInvalidProcedureCall, kSaveSource,
                       "a text of the node is no UTF-8 text (" + std::string(error.what()) + ")");
    }
}

SimulatedNodePtr LoadNodeState(std::string_view text, const std::string& fileName) {
    auto node = SimulatedNode::Create(ReadNodeJson(text, fileName));
    const Json document = json::Parse(text, fileName, kLoadSource);
    if (const auto* entry = json::Member(document, "running")) {
        RunningState running = node->Running();
        json::ReadEntry(kLoadSource, fileName, "running", [&] { ReadRunning(*entry, running); });
        try {
            node->SetRunning(running);
        } catch (const ComError& error) {
            json::Raise(kLoadSource, fileName, "running", error.Description());
        }
    }
    return node;
}

void WriteFileAtomically(const std::string& path, std::string_view text) {
    const std::string temporary = path + ".tmp";
    const int file = OpenForWriting(temporary);
    if (file < 0) WriteFailed(path, temporary + ": " + ErrnoText());
    for (std::size_t written = 0; written < text.size();) {
        const auto count = WriteSome(file, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) AbandonTemporary(file, temporary, path, ErrnoText());
        written += static_cast<std::size_t>(count);
    }
    if (FlushToDisk(file) != 0) AbandonTemporary(file, temporary, path, ErrnoText());
    if (Close(file) != 0) AbandonTemporary(-1, temporary, path, ErrnoText());
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    if (error) AbandonTemporary(-1, temporary, path, error.message());
    FlushFolder(std::filesystem::path(path).parent_path());
}

}  // namespace vx::sim
