#include "ConfigFile.h"

#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "Hex.h"
#include "Session.h"
#include "ValueText.h"

namespace vx::vxctl {
namespace {

constexpr int kFileVersion = 1;
// The longest value a node holds.
constexpr std::size_t kLongestValue = 255;

[[noreturn]] void Malformed(const std::string& path, const std::string& what) {
    throw ToolError(fmt::format("{}: not a saved configuration: {}", path, what));
}

std::string Text(const Json& file, const char* key, const std::string& path, bool required) {
    const auto found = file.find(key);
    if (found == file.end()) {
        if (required) Malformed(path, fmt::format("\"{}\" is missing", key));
        return {};
    }
    if (!found->is_string()) Malformed(path, fmt::format("\"{}\" is no text", key));
    return Latin1FromUtf8(found->get<std::string>());
}

}  // namespace

void WriteConfigurationFile(const std::string& path, const SavedConfigurationFile& saved) {
    Json values = Json::object();
    for (const auto& [key, bytes] : saved.values)
        values[Utf8FromLatin1(key)] = sim::ToHex(bytes);
    const Json file = {{"version", kFileVersion},
                       {"programId", Utf8FromLatin1(saved.programId)},
                       {"neuronId", Utf8FromLatin1(saved.neuronId)},
                       {"revision", Utf8FromLatin1(saved.revision)},
                       {"configuration", values}};
    std::ofstream stream(path, std::ios::binary);
    stream << file.dump(2) << "\n";
    stream.close();
    if (!stream) throw ToolError(fmt::format("{}: cannot be written", path));
}

SavedConfigurationFile ReadConfigurationFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw ToolError(fmt::format("{}: cannot be read", path));
    std::stringstream content;
    content << stream.rdbuf();

    Json file;
    try {
        file = Json::parse(content.str());
    } catch (const Json::parse_error& error) {
        Malformed(path, fmt::format("no JSON ({})", error.what()));
    }
    if (!file.is_object()) Malformed(path, "the file holds no JSON object");
    for (const auto& [key, value] : file.items()) {
        if (key != "version" && key != "programId" && key != "neuronId" && key != "revision" &&
            key != "configuration" && key != "comment") {
            Malformed(path, fmt::format("unknown key \"{}\"", key));
        }
    }
    if (file.contains("version") && file["version"] != kFileVersion) {
        Malformed(path, fmt::format("version {} is not known", file["version"].dump()));
    }

    SavedConfigurationFile saved;
    saved.programId = Text(file, "programId", path, true);
    saved.neuronId = Text(file, "neuronId", path, false);
    saved.revision = Text(file, "revision", path, false);
    const auto configuration = file.find("configuration");
    if (configuration == file.end() || !configuration->is_object()) {
        Malformed(path, "\"configuration\" is missing or no object");
    }
    for (const auto& [key, value] : configuration->items()) {
        const auto bytes =
            value.is_string() ? sim::ParseHex(value.get<std::string>(), true) : std::nullopt;
        if (!bytes || bytes->empty() || bytes->size() > kLongestValue) {
            Malformed(path, fmt::format("configuration \"{}\": the value is not 1 to {} bytes in "
                                        "hexadecimal",
                                        key, kLongestValue));
        }
        saved.values.emplace_back(Latin1FromUtf8(key), *bytes);
    }
    return saved;
}

}  // namespace vx::vxctl
