#include "ConfigCommands.h"

#include <fmt/format.h>

#include "ConfigFile.h"
#include "SavedConfiguration.h"
#include "Table.h"

namespace vx::vxctl {
namespace {

constexpr std::int32_t kConfiguration = kCategoryConfigItem | kCategoryConfigProperty;
constexpr std::int32_t kLowestDownloadLevel = 2;

// Counts a value as changed without changing it, so that a download sends it: copying the value
// last exchanged with the node into the value buffer raises the buffer's Modified.
void MarkChanged(CDeviceVariable& variable) {
    variable.ValueBuffer()->CopyFrom(*variable.DeviceBuffer());
}

std::string ConfigurationTable(const std::vector<DeviceVariablePtr>& variables) {
    Table table;
    for (const auto& variable : variables) {
        const DecodedValue decoded = DecodeVariable(*variable);
        table.Row({fmt::format("object {}", ObjectOf(*variable)), Named(*variable),
                   fmt::format("level {}", variable->ConfigLevel()), decoded.text});
        AddFieldRows(table, {""}, "", decoded.fields);
    }
    return table.Text();
}

}  // namespace

Outcome ConfigUpload(Session& session) {
    const auto variables = session.ConfigurationVariables();
    session.Upload(variables, "uploading the configuration");
    Json uploaded = Json::array();
    for (const auto& variable : variables) {
        uploaded.push_back({{"object", ObjectOf(*variable)},
                            {"name", Named(*variable)},
                            {"configLevel", variable->ConfigLevel()},
                            {"value", DecodeVariable(*variable).json}});
    }
    Outcome outcome;
    outcome.json = {{"variables", std::move(uploaded)}};
    outcome.text = ConfigurationTable(variables);
    return outcome;
}

Outcome ConfigDownload(Session& session, std::int32_t level, std::optional<std::int32_t> object) {
    std::vector<DeviceVariablePtr> chosen;
    for (const auto& variable : session.ConfigurationVariables()) {
        if (object && ObjectOf(*variable) != *object) continue;
        const std::int32_t variableLevel = variable->ConfigLevel();
        if (variableLevel >= kLowestDownloadLevel && variableLevel <= level) {
            chosen.push_back(variable);
        }
    }
    Outcome outcome;
    Json names = Json::array();
    std::vector<std::string> texts;
    for (const auto& variable : chosen) {
        names.push_back(Named(*variable));
        texts.push_back(Named(*variable));
    }
    if (chosen.empty()) {
        outcome.json = {{"level", nullptr}, {"variables", names}, {"commandStatus", nullptr}};
        const std::string levels =
            level == kLowestDownloadLevel
                ? fmt::format("level {}", level)
                : fmt::format("levels {} to {}", kLowestDownloadLevel, level);
        outcome.failure = fmt::format("nothing to download: no configuration value of {}{}", levels,
                                      object ? fmt::format(" on object {}", *object) : "");
        return outcome;
    }

    CDevice& device = session.Device();
    session.Upload(chosen, "uploading the configuration");
    std::int32_t mask = 0;
    for (const auto& variable : chosen) {
        MarkChanged(*variable);
        mask |= variable->Category();
    }
    const std::int32_t reached = device.ConfigModificationLevel();
    session.DownloadConfiguration(mask, object);
    const Json status = CommandStatusJson(device);

    outcome.json = {{"level", reached}, {"variables", names}, {"commandStatus", status}};
    outcome.text = fmt::format("level-{} configuration download of {} values: {}\n{}", reached,
                               chosen.size(), Joined(texts), CommandStatusLine(status));
    if (StatusBit(status, "checksumMismatch")) {
        outcome.failure = "the controller reports a configuration checksum mismatch";
    }
    return outcome;
}

Outcome ConfigSave(Session& session, const std::string& path) {
    const auto variables = session.ConfigurationVariables();
    session.Upload(variables, "uploading the configuration");
    const auto info = session.Device().Info();
    SavedConfigurationFile saved{info->ProgID(), info->NeuronID(), info->Revision(), {}};
    for (const auto& variable : variables) {
        saved.values.emplace_back(ConfigKey(*variable),
                                  variable->ValueBuffer()->GetBytes().Values());
    }
    WriteConfigurationFile(path, saved);

    Outcome outcome;
    outcome.json = {{"file", path},
                    {"programId", Utf8FromLatin1(saved.programId)},
                    {"values", saved.values.size()}};
    outcome.text = fmt::format("saved {} configuration values of {} to {}\n", saved.values.size(),
                               Utf8FromLatin1(saved.programId), path);
    return outcome;
}

Outcome ConfigRestore(Session& session, const std::string& path) {
    const SavedConfigurationFile saved = ReadConfigurationFile(path);
    CDevice& device = session.Device();
    const std::string programId = device.Info()->ProgID();
    if (saved.programId != programId) {
        throw ToolError(fmt::format("{} was saved from program ID {}; this controller has {}", path,
                                    Utf8FromLatin1(saved.programId), Utf8FromLatin1(programId)));
    }

    const auto variables = session.ConfigurationVariables();
    session.Upload(variables, "uploading the configuration");
    auto source = std::make_shared<sim::SavedConfiguration>();
    for (const auto& [key, bytes] : saved.values)
        source->Set(key, bytes);
    Json changed = Json::array();
    for (const auto& variable : variables) {
        const auto found = source->Values().find(ConfigKey(*variable));
        if (found != source->Values().end() &&
            found->second != variable->ValueBuffer()->GetBytes().Values()) {
            changed.push_back(Utf8FromLatin1(ConfigKey(*variable)));
        }
    }

    // Properties into their buffers; items are written to the node as they change.
    device.SetConfig(source, kCategoryConfigProperty);
    device.SetConfig(source, kCategoryConfigItem);
    const std::int32_t level = device.ConfigModificationLevel();
    session.DownloadConfiguration(kConfiguration, std::nullopt);
    const Json status = CommandStatusJson(device);

    // Read back from the node: every saved value the device has must be there.
    session.Upload(variables, "checking the configuration");
    Json mismatches = Json::array();
    std::size_t checked = 0;
    for (const auto& variable : variables) {
        const auto found = source->Values().find(ConfigKey(*variable));
        if (found == source->Values().end()) continue;
        ++checked;
        if (found->second != variable->ValueBuffer()->GetBytes().Values()) {
            mismatches.push_back(Utf8FromLatin1(ConfigKey(*variable)));
        }
    }

    Outcome outcome;
    outcome.json = {{"file", path},       {"changed", changed},
                    {"level", level},     {"commandStatus", status},
                    {"checked", checked}, {"mismatches", mismatches}};
    std::vector<std::string> changedTexts;
    for (const auto& key : changed)
        changedTexts.push_back(key.get<std::string>());
    outcome.text = changed.empty()
                       ? "the controller already held the saved configuration\n"
                       : fmt::format("restored {} values at level {}: {}\n{}", changed.size(),
                                     level, Joined(changedTexts), CommandStatusLine(status));
    outcome.text += fmt::format("{} of {} saved values read back as saved\n",
                                checked - mismatches.size(), checked);
    if (!mismatches.empty()) {
        std::vector<std::string> keys;
        for (const auto& key : mismatches)
            keys.push_back(key.get<std::string>());
        outcome.failure =
            fmt::format("the controller does not hold the saved values of {}", Joined(keys));
    } else if (StatusBit(status, "checksumMismatch")) {
        outcome.failure = "the controller reports a configuration checksum mismatch";
    }
    return outcome;
}

}  // namespace vx::vxctl
