#include "NodeJson.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <unordered_map>

#include "Hex.h"
#include "JsonSupport.h"
#include "NodeChecks.h"
#include "XifReader.h"
#include "automation/ComError.h"

namespace vx::sim {
namespace {

using json::Json;
using json::Problem;

constexpr const char* kSource = "Vx.Sim.ReadNodeJson";
constexpr std::size_t kMaxValueBytes = 255;
constexpr std::int64_t kMaxIndex = 32767;

std::string Identifier(const Json& value, const char* key, std::size_t digits) {
    const std::string text = json::Text(value, key);
    const auto bytes = ParseHex(text);
    if (text.size() != digits || !bytes) {
        json::Fail(std::string(key) + " must be " + std::to_string(digits) + " hexadecimal digits");
    }
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

// A decimal number without sign or leading zeros, as the host writes item names.
bool IsPlainNumber(std::string_view text) {
    if (text.empty() || text.size() > 5 || (text.size() > 1 && text.front() == '0')) return false;
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsNumber(std::string_view text, std::int64_t low, std::int64_t high) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= low &&
           number <= high;
}

void CheckItemName(const std::string& name) {
    const auto dash = name.find('-');
    if (dash == std::string::npos || !IsPlainNumber(std::string_view(name).substr(0, dash)) ||
        !IsPlainNumber(std::string_view(name).substr(dash + 1))) {
        json::Fail("name must be the item's kind and index in decimal, joined by \"-\" (\"3-1\")");
    }
}

// "" or "object|type index|type name[|text]": the library reads the first two as numbers.
void CheckLayout(const std::string& layout) {
    if (layout.empty()) return;
    const auto first = layout.find('|');
    const auto second = first == std::string::npos ? first : layout.find('|', first + 1);
    if (second == std::string::npos ||
        !IsNumber(std::string_view(layout).substr(0, first), -1, kMaxIndex) ||
        !IsNumber(std::string_view(layout).substr(first + 1, second - first - 1), 0, 65535)) {
        json::Fail(
            "layout must be \"object|type index|type name[|text]\" with an object from -1 and a "
            "type index from 0");
    }
}

class Reader {
public:
    explicit Reader(std::string fileName) : m_fileName(std::move(fileName)) {}

    NodeDescription Read(std::string_view text) {
        const Json document = json::Parse(text, m_fileName, kSource);
        NodeDescription node;
        Entry([&] { ReadNode(document, node); });
        const auto& variables = document.at("variables");
        node.variables.reserve(variables.size());
        for (std::size_t i = 0; i < variables.size(); ++i) {
            m_path = "variables[" + std::to_string(i) + "]";
            Entry([&] { node.variables.push_back(ReadVariable(variables[i], i)); });
        }
        if (const auto* items = json::Member(document, "configItems")) {
            for (std::size_t i = 0; i < items->size(); ++i) {
                m_path = "configItems[" + std::to_string(i) + "]";
                Entry([&] { node.configItems.push_back(ReadConfigItem((*items)[i])); });
            }
        }
        if (const auto* blocks = json::Member(document, "memory")) {
            for (std::size_t i = 0; i < blocks->size(); ++i) {
                m_path = "memory[" + std::to_string(i) + "]";
                Entry([&] { node.memory.push_back(ReadMemoryBlock((*blocks)[i])); });
            }
            m_path = "memory";
            Entry([&] {
                if (const auto problem = MemoryProblem(node); !problem.empty()) json::Fail(problem);
            });
        }
        if (!node.configItems.empty()) {
            m_path = "configItems";
            Entry([&] {
                if (const auto problem = ItemMemoryProblem(node); !problem.empty()) {
                    json::Fail(problem);
                }
            });
        }
        if (const auto* checksum = json::Member(document, "checksum")) {
            m_path = "checksum";
            Entry([&] { ReadChecksum(*checksum, node); });
        }
        return node;
    }

private:
    // Runs the reading of the entry at m_path; its problems become the file's error naming it.
    template <typename Action>
    void Entry(Action action) {
        json::ReadEntry(kSource, m_fileName, m_path, action);
    }

    static void ReadNode(const Json& document, NodeDescription& node) {
        if (!document.is_object()) json::Fail("the file must hold one object");
        json::CheckKeys(
            document, {"version", "neuronId", "programId", "selfDoc", "nodeState", "mode",
                       "variables", "configItems", "memory", "checksum", "resetPolls", "running"});
        if (const auto* version = json::Member(document, "version")) {
            json::Integer(*version, "version", 1, 1);
        }
        node.neuronId = Identifier(json::Required(document, "neuronId"), "neuronId", 12);
        node.programId = Identifier(json::Required(document, "programId"), "programId", 16);
        node.selfDoc = json::Text(json::Required(document, "selfDoc"), "selfDoc");
        if (const auto* state = json::Member(document, "nodeState")) {
            node.nodeState = static_cast<std::int32_t>(json::Integer(*state, "nodeState", 0, 255));
        }
        if (const auto* mode = json::Member(document, "mode")) {
            node.mode = static_cast<std::int32_t>(json::Integer(*mode, "mode", 0, 255));
        }
        if (!json::Required(document, "variables").is_array()) {
            json::Fail("\"variables\" must be an array");
        }
        for (const char* key : {"configItems", "memory"}) {
            if (const auto* list = json::Member(document, key); list && !list->is_array()) {
                json::Fail(json::Quoted(key) + " must be an array");
            }
        }
        // A state file's running state (NodeSnapshot.h): the node's description ignores it.
        if (const auto* running = json::Member(document, "running");
            running && !running->is_object()) {
            json::Fail("\"running\" must be an object");
        }
        if (const auto* polls = json::Member(document, "resetPolls")) {
            node.resetPolls =
                static_cast<std::int32_t>(json::Integer(*polls, "resetPolls", -1, 2147483647));
        }
    }

    static MemoryBlock ReadMemoryBlock(const Json& entry) {
        if (!entry.is_object()) json::Fail("a memory block must be an object");
        json::CheckKeys(entry, {"address", "bytes"});
        MemoryBlock block;
        block.address = ReadAddress(json::Required(entry, "address"));
        block.bytes = json::Bytes(json::Required(entry, "bytes"), "bytes", 1,
                                  0x10000 - static_cast<std::size_t>(block.address));
        return block;
    }

    static std::int32_t ReadAddress(const Json& value) {
        const std::string address = json::Text(value, "address");
        const auto bytes = ParseHex(address);
        if (address.size() != 4 || !bytes) json::Fail("address must be 4 hexadecimal digits");
        return (*bytes)[0] << 8 | (*bytes)[1];
    }

    static void ReadChecksum(const Json& entry, NodeDescription& node) {
        if (!entry.is_object()) json::Fail("the checksum must be an object");
        json::CheckKeys(entry, {"item", "covers"});
        node.checksumItem = json::Name(json::Required(entry, "item"), "item");
        const Json& covers = json::Required(entry, "covers");
        if (!covers.is_array()) json::Fail("\"covers\" must be an array of names");
        for (const auto& name : covers) {
            node.checksumCovers.push_back(json::Name(name, "covers"));
        }
        if (const auto problem = ChecksumProblem(node); !problem.empty()) json::Fail(problem);
    }

    VariableRecord ReadVariable(const Json& entry, std::size_t position) {
        if (!entry.is_object()) json::Fail("a variable must be an object");
        VariableRecord variable;
        variable.name = json::Name(json::Required(entry, "name"), "name");
        m_path += " (" + variable.name + ")";
        json::CheckKeys(entry, {"name", "index", "selfDoc", "selfDocName", "typeIndex", "output",
                                "polled", "configClass", "arrayCount", "value"});
        if (const auto [at, added] = m_variableNames.emplace(variable.name, m_path); !added) {
            json::Fail("the name is taken by " + at->second);
        }
        variable.index = static_cast<std::int32_t>(position);
        if (const auto* index = json::Member(entry, "index")) {
            variable.index =
                static_cast<std::int32_t>(json::Integer(*index, "index", 0, kMaxIndex));
        }
        if (const auto [at, added] = m_indexes.emplace(variable.index, m_path); !added) {
            json::Fail("index " + std::to_string(variable.index) + " is taken by " + at->second);
        }
        if (const auto* text = json::Member(entry, "selfDoc")) {
            variable.selfDoc = json::Text(*text, "selfDoc");
        }
        if (const auto* text = json::Member(entry, "selfDocName")) {
            variable.selfDocName = json::Text(*text, "selfDocName");
        }
        if (const auto* type = json::Member(entry, "typeIndex")) {
            variable.typeIndex =
                static_cast<std::int32_t>(json::Integer(*type, "typeIndex", 0, 65535));
        }
        if (const auto* flag = json::Member(entry, "output")) {
            variable.isOutput = json::Boolean(*flag, "output");
        }
        if (const auto* flag = json::Member(entry, "polled")) {
            variable.polled = json::Boolean(*flag, "polled");
        }
        if (const auto* flag = json::Member(entry, "configClass")) {
            variable.isConfigClass = json::Boolean(*flag, "configClass");
        }
        if (const auto* count = json::Member(entry, "arrayCount")) {
            variable.arrayCount =
                static_cast<std::int32_t>(json::Integer(*count, "arrayCount", 0, 4096));
        }
        variable.value = json::Bytes(json::Required(entry, "value"), "value", 1, kMaxValueBytes);
        return variable;
    }

    ConfigItemRecord ReadConfigItem(const Json& entry) {
        if (!entry.is_object()) json::Fail("a configuration item must be an object");
        ConfigItemRecord item;
        item.name = json::Name(json::Required(entry, "name"), "name");
        m_path += " (" + item.name + ")";
        json::CheckKeys(entry, {"name", "layout", "value", "address"});
        CheckItemName(item.name);
        if (const auto [at, added] = m_itemNames.emplace(item.name, m_path); !added) {
            json::Fail("the name is taken by " + at->second);
        }
        if (const auto* layout = json::Member(entry, "layout")) {
            item.layout = json::Text(*layout, "layout");
            CheckLayout(item.layout);
        }
        item.value = json::Bytes(json::Required(entry, "value"), "value", 1, kMaxValueBytes);
        if (const auto* address = json::Member(entry, "address")) {
            item.address = ReadAddress(*address);
        }
        return item;
    }

    std::string m_fileName;
    std::string m_path;
    std::unordered_map<std::string, std::string> m_variableNames;  // name -> entry path
    std::unordered_map<std::int32_t, std::string> m_indexes;
    std::unordered_map<std::string, std::string> m_itemNames;
};

std::string LowerExtension(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

}  // namespace

NodeDescription ReadNodeJson(std::string_view text, const std::string& fileName) {
    return Reader(fileName).Read(text);
}

NodeDescription LoadNodeJson(const std::filesystem::path& path) {
    return ReadNodeJson(json::ReadFile(path, kSource), path.filename().string());
}

NodeDescription LoadNode(const std::filesystem::path& path) {
    const std::string extension = LowerExtension(path);
    if (extension == ".json") return LoadNodeJson(path);
    if (extension == ".xif") return LoadXif(path);
    throw ComError(kErrInvalidProcedureCall, "Vx.Sim.LoadNode",
                   path.string() +
                       ": neither a JSON node description (.json) nor a device "
                       "interface file (.xif)");
}

}  // namespace vx::sim
