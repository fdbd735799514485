#include "ConfigFile.h"

#include <algorithm>
#include <deque>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <unordered_set>

#include <fmt/format.h>

#include "Hex.h"
#include "ToolErrors.h"

namespace vx::vxctl {
namespace {

// Read as std::map-keyed JSON: an ordered object looks each key up linearly, which makes a large
// file quadratic. The file's order is the device's anyway, which a restore walks itself.
using ReadJson = nlohmann::json;

constexpr int kFileVersion = 2;
constexpr int kFirstVersion = 1;
// The longest value a node holds.
constexpr std::size_t kLongestValue = 255;

[[noreturn]] void Malformed(const std::string& path, const std::string& what) {
    throw FileRefusedError(fmt::format("{}: not a saved configuration: {}", path, what));
}

std::string Text(const ReadJson& object, const char* key, const std::string& where,
                 const std::string& path, bool required) {
    const auto found = object.find(key);
    if (found == object.end()) {
        if (required) Malformed(path, fmt::format("{}\"{}\" is missing", where, key));
        return {};
    }
    if (!found->is_string()) Malformed(path, fmt::format("{}\"{}\" is no text", where, key));
    return Latin1FromUtf8(found->get<std::string>());
}

void OnlyKeys(const ReadJson& object, std::initializer_list<std::string_view> known,
              const std::string& where, const std::string& path) {
    for (const auto& [key, value] : object.items()) {
        if (key == "comment") continue;
        if (std::find(known.begin(), known.end(), key) == known.end()) {
            Malformed(path, fmt::format("{}unknown key \"{}\"", where, key));
        }
    }
}

std::vector<std::uint8_t> Raw(const ReadJson& value, const std::string& where,
                              const std::string& path) {
    const auto bytes =
        value.is_string() ? sim::ParseHex(value.get<std::string>(), true) : std::nullopt;
    if (!bytes || bytes->empty() || bytes->size() > kLongestValue) {
        Malformed(path, fmt::format("{}the value is not 1 to {} bytes in hexadecimal", where,
                                    kLongestValue));
    }
    return *bytes;
}

}  // namespace

void WriteConfigurationFile(const std::string& path, const SavedConfigurationFile& saved) {
    Json values = Json::array();
    for (const auto& value : saved.values) {
        Json entry = {{"key", Utf8FromLatin1(value.key)},
                      {"object", value.object},
                      {"name", Utf8FromLatin1(value.name)},
                      {"type", Utf8FromLatin1(value.type)}};
        if (!value.value.is_null()) entry["value"] = value.value;
        entry["raw"] = sim::ToHex(value.raw);
        values.push_back(std::move(entry));
    }
    const Json file = {{"version", kFileVersion},
                       {"device", Utf8FromLatin1(saved.deviceName)},
                       {"programId", Utf8FromLatin1(saved.programId)},
                       {"neuronId", Utf8FromLatin1(saved.neuronId)},
                       {"revision", Utf8FromLatin1(saved.revision)},
                       {"values", std::move(values)}};
    std::ofstream stream(path, std::ios::binary);
    stream << file.dump(2) << "\n";
    stream.close();
    if (!stream) throw ToolError(fmt::format("{}: cannot be written", path));
}

SavedConfigurationFile ReadConfigurationFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw FileRefusedError(fmt::format("{}: cannot be read", path));
    std::stringstream content;
    content << stream.rdbuf();
    if (stream.bad()) throw FileRefusedError(fmt::format("{}: cannot be read", path));
    return ParseConfigurationFile(content.str(), path);
}

SavedConfigurationFile ParseConfigurationFile(const std::string& text, const std::string& path) {
    // The values are taken out as the parser meets them and left out of the parsed document, so
    // that a large file never stands in memory twice.
    SavedConfigurationFile saved;
    std::unordered_set<std::string_view> keys;  // into saved.values, which never moves them
    std::unordered_set<std::string> topKeys;
    std::string top;        // the top-level key being parsed
    std::string itemKey;    // the configuration key being parsed (version 1)
    bool inValues = false;  // in the "values" array
    bool inItems = false;   // in the "configuration" object
    std::size_t index = 0;  // of the next entry of "values"
    std::deque<SavedValue> values;
    const auto add = [&](SavedValue value, const std::string& where) {
        if (value.key.empty()) Malformed(path, where + "the key is empty");
        if (keys.contains(value.key)) {
            Malformed(path,
                      fmt::format("{}key \"{}\" is given twice", where, Utf8FromLatin1(value.key)));
        }
        values.push_back(std::move(value));
        keys.insert(values.back().key);
    };
    const auto entryOfValues = [&](const ReadJson& entry) {
        const std::string where = fmt::format("values[{}]: ", index++);
        if (!entry.is_object()) Malformed(path, where + "no JSON object");
        OnlyKeys(entry, {"key", "object", "name", "type", "value", "raw"}, where, path);
        SavedValue value;
        value.key = Text(entry, "key", where, path, true);
        const auto raw = entry.find("raw");
        if (!value.key.empty() && raw == entry.end()) {
            Malformed(path, where + "\"raw\" is missing");
        }
        if (raw != entry.end()) value.raw = Raw(*raw, where, path);
        if (const auto object = entry.find("object"); object != entry.end()) {
            if (!object->is_number_integer()) Malformed(path, where + "\"object\" is no number");
            value.object = object->get<std::int32_t>();
        }
        value.name = Text(entry, "name", where, path, false);
        value.type = Text(entry, "type", where, path, false);
        add(std::move(value), where);
    };
    const ReadJson::parser_callback_t take = [&](int depth, ReadJson::parse_event_t event,
                                                 ReadJson& parsed) {
        using Event = ReadJson::parse_event_t;
        if (depth == 1 && event == Event::key) {
            top = parsed.get<std::string>();
            if (!topKeys.insert(top).second) {
                Malformed(path, fmt::format("\"{}\" is given twice", top));
            }
        } else if (depth == 1 && (event == Event::array_start || event == Event::object_start)) {
            inValues = top == "values" && event == Event::array_start;
            inItems = top == "configuration" && event == Event::object_start;
        } else if (depth == 1 && (event == Event::array_end || event == Event::object_end)) {
            inValues = inItems = false;
        } else if (depth == 2 && inItems && event == Event::key) {
            itemKey = parsed.get<std::string>();
        } else if (depth == 2 && (event == Event::value || event == Event::object_end ||
                                  event == Event::array_end)) {
            if (inValues) {
                entryOfValues(parsed);
                return false;
            }
            if (inItems) {
                const std::string where = fmt::format("configuration \"{}\": ", itemKey);
                SavedValue value;
                value.key = Latin1FromUtf8(itemKey);
                value.raw = Raw(parsed, where, path);
                add(std::move(value), where);
                return false;
            }
        }
        return true;
    };

    ReadJson file;
    try {
        file = ReadJson::parse(text, take);
    } catch (const ReadJson::exception& error) {
        Malformed(path, fmt::format("no JSON ({})", error.what()));
    }
    if (!file.is_object()) Malformed(path, "the file holds no JSON object");

    saved.version = kFirstVersion;
    if (const auto version = file.find("version"); version != file.end()) {
        if (*version != kFirstVersion && *version != kFileVersion) {
            Malformed(path, fmt::format("version {} is not known (1 and 2 are)", version->dump()));
        }
        saved.version = version->get<std::int32_t>();
    }
    saved.programId = Text(file, "programId", "", path, true);
    saved.neuronId = Text(file, "neuronId", "", path, false);
    saved.revision = Text(file, "revision", "", path, false);
    if (saved.version == kFirstVersion) {
        OnlyKeys(file, {"version", "programId", "neuronId", "revision", "configuration"}, "", path);
        const auto configuration = file.find("configuration");
        if (configuration == file.end() || !configuration->is_object()) {
            Malformed(path, "\"configuration\" is missing or no object");
        }
    } else {
        OnlyKeys(file, {"version", "device", "programId", "neuronId", "revision", "values"}, "",
                 path);
        saved.deviceName = Text(file, "device", "", path, false);
        const auto list = file.find("values");
        if (list == file.end() || !list->is_array()) {
            Malformed(path, "\"values\" is missing or no array");
        }
    }
    saved.values.reserve(values.size());
    std::move(values.begin(), values.end(), std::back_inserter(saved.values));
    return saved;
}

}  // namespace vx::vxctl
