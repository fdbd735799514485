#include "ConfigCommands.h"

#include <fmt/format.h>

#include <array>
#include <unordered_map>
#include <unordered_set>

#include "CDeviceVariableElement.h"
#include "ConfigFile.h"
#include "Hex.h"
#include "Interrupt.h"
#include "SupportRoutines.h"
#include "Table.h"
#include "Vxctl.h"

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

// A decoded value as a saved file shows it: the text with units, or for a structure its fields
// by name. Scripts that want numbers have the raw bytes next to it.
Json Shown(const DecodedValue& decoded) {
    if (decoded.fields.empty()) return ValueWithUnits(decoded);
    Json fields = Json::object();
    for (const auto& field : decoded.fields)
        fields[field.field] = Shown(field);
    return fields;
}

// The file's bytes decoded with the variable's type, on a buffer of their own: loading them into
// the variable's buffer would write a configuration item to the node.
DecodedValue DecodeBytes(CDeviceVariable& variable, const std::vector<std::uint8_t>& bytes) {
    const TypedefPtr type = variable.Typedef();
    if (!type) return Undecoded("no type, bytes " + sim::ToHex(bytes));
    auto buffer = std::make_shared<CBuffer>();
    buffer->SetBytes(ByteArray(0, bytes));
    auto element = std::make_shared<CDeviceVariableElement>();
    element->InitElement(type, buffer, NewOffset(0, 0), 0);
    try {
        return DecodeElement(element);
    } catch (const ComError& error) {
        return Undecoded("(" + ErrorText(error) + ")");
    }
}

// Each shown part of a value ("occupied_cool", or "" for a value with no fields) with its text.
void Flatten(const DecodedValue& decoded, const std::string& stem,
             std::vector<std::pair<std::string, std::string>>& parts) {
    if (decoded.fields.empty()) {
        parts.emplace_back(stem, decoded.text);
        return;
    }
    for (const auto& field : decoded.fields)
        Flatten(field, stem.empty() ? field.field : stem + "." + field.field, parts);
}

void RequireSameModel(Session& session, const SavedConfigurationFile& saved,
                      const std::string& path) {
    const std::string programId = session.Device().Info()->ProgID();
    if (saved.programId != programId) {
        throw FileRefusedError(
            fmt::format("{} was saved from program ID {}; this controller has {}", path,
                        Utf8FromLatin1(saved.programId), Utf8FromLatin1(programId)));
    }
}

struct ComparedValue {
    DeviceVariablePtr variable;
    const SavedValue* saved = nullptr;
    std::vector<std::uint8_t> held;  // what the node holds
    bool differs = false;
};

// A file against the controller's configuration, in one pass over each.
struct Comparison {
    std::vector<ComparedValue> values;  // the file's values the device has, in device order
    std::vector<std::string> unknown;   // keys of the file the device does not have
    std::vector<std::string> absent;    // keys of the device the file does not hold
    std::vector<std::string> problems;  // values that cannot be restored, said for people
};

Comparison Compare(const std::vector<DeviceVariablePtr>& variables,
                   const SavedConfigurationFile& saved) {
    std::unordered_map<std::string, const SavedValue*> byKey;
    byKey.reserve(saved.values.size());
    for (const auto& value : saved.values)
        byKey.emplace(value.key, &value);

    Comparison compared;
    std::unordered_set<const SavedValue*> used;
    used.reserve(variables.size());
    for (const auto& variable : variables) {
        const std::string key = ConfigKey(*variable);
        const auto found = byKey.find(key);
        if (found == byKey.end()) {
            compared.absent.push_back(key);
            continue;
        }
        used.insert(found->second);
        ComparedValue value{variable, found->second, variable->ValueBuffer()->GetBytes().Values()};
        const TypedefPtr type = variable->Typedef();
        const std::string typeName = type ? type->TypeName() : "";
        if (value.saved->raw.size() != value.held.size()) {
            compared.problems.push_back(
                fmt::format("{} is {} bytes long on the controller, {} in "
                            "the file",
                            Utf8FromLatin1(key), value.held.size(), value.saved->raw.size()));
        } else if (!value.saved->type.empty() && value.saved->type != typeName) {
            compared.problems.push_back(fmt::format(
                "{} is of type {} on the controller, {} in the file", Utf8FromLatin1(key),
                typeName.empty() ? "(none)" : Utf8FromLatin1(typeName),
                Utf8FromLatin1(value.saved->type)));
        }
        value.differs = value.saved->raw != value.held;
        compared.values.push_back(std::move(value));
    }
    for (const auto& value : saved.values) {
        if (!used.contains(&value)) compared.unknown.push_back(value.key);
    }
    return compared;
}

Json Utf8Keys(const std::vector<std::string>& keys) {
    Json list = Json::array();
    for (const auto& key : keys)
        list.push_back(Utf8FromLatin1(key));
    return list;
}

std::vector<std::string> Joinable(const Json& keys) {
    std::vector<std::string> texts;
    for (const auto& key : keys)
        texts.push_back(key.get<std::string>());
    return texts;
}

std::string JoinedKeys(const Json& keys) {
    return Joined(Joinable(keys));
}

std::string KeyLine(const std::string& label, const Json& keys) {
    if (keys.empty()) return {};
    return fmt::format("{}: {}\n", label, JoinedKeys(keys));
}

// The parts of a differing value whose text differs; every part when the texts agree but the
// bytes do not (a difference below the shown precision).
std::vector<std::array<std::string, 3>> DifferingParts(const ComparedValue& value) {
    std::vector<std::pair<std::string, std::string>> held;
    std::vector<std::pair<std::string, std::string>> saved;
    Flatten(DecodeBytes(*value.variable, value.held), "", held);
    Flatten(DecodeBytes(*value.variable, value.saved->raw), "", saved);
    std::vector<std::array<std::string, 3>> parts;
    for (std::size_t i = 0; i < held.size() && i < saved.size(); ++i) {
        if (held[i].second != saved[i].second) {
            parts.push_back({held[i].first, held[i].second, saved[i].second});
        }
    }
    if (parts.empty()) parts.push_back({"", sim::ToHex(value.held), sim::ToHex(value.saved->raw)});
    return parts;
}

Json DifferencesJson(const Comparison& compared) {
    Json differences = Json::array();
    for (const auto& value : compared.values) {
        if (!value.differs) continue;
        Json fields = Json::array();
        for (const auto& [field, held, saved] : DifferingParts(value)) {
            fields.push_back({{"field", field}, {"controller", held}, {"file", saved}});
        }
        differences.push_back({{"key", Utf8FromLatin1(value.saved->key)},
                               {"object", ObjectOf(*value.variable)},
                               {"name", Named(*value.variable)},
                               {"fields", std::move(fields)},
                               {"controllerRaw", sim::ToHex(value.held)},
                               {"fileRaw", sim::ToHex(value.saved->raw)}});
    }
    return differences;
}

// One row per differing part: the value, the field, what `heldLabel` and `savedLabel` hold.
std::string DifferencesText(const Comparison& compared, const std::string& heldLabel,
                            const std::string& savedLabel) {
    Table table;
    bool any = false;
    for (const auto& value : compared.values) {
        if (!value.differs) continue;
        if (!any) table.Row({"value", "field", heldLabel, savedLabel});
        any = true;
        for (const auto& [field, held, saved] : DifferingParts(value)) {
            table.Row({fmt::format("{} (object {})", Utf8FromLatin1(value.saved->key),
                                   ObjectOf(*value.variable)),
                       field.empty() ? "-" : field, held, saved});
        }
    }
    return any ? table.Text() : std::string();
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
    SavedConfigurationFile saved;
    saved.deviceName = std::string(TrimBlanks(info->Name(std::string(kNameLocation))));
    saved.programId = info->ProgID();
    saved.neuronId = info->NeuronID();
    saved.revision = info->Revision();
    saved.values.reserve(variables.size());
    for (const auto& variable : variables) {
        const TypedefPtr type = variable->Typedef();
        SavedValue value;
        value.key = ConfigKey(*variable);
        value.raw = variable->ValueBuffer()->GetBytes().Values();
        value.object = ObjectOf(*variable);
        value.name = variable->Name();
        value.type = type ? type->TypeName() : "";
        value.value = type ? Shown(DecodeVariable(*variable)) : Json(nullptr);
        saved.values.push_back(std::move(value));
    }
    WriteConfigurationFile(path, saved);

    Outcome outcome;
    outcome.json = {{"file", path},
                    {"device", Utf8FromLatin1(saved.deviceName)},
                    {"programId", Utf8FromLatin1(saved.programId)},
                    {"values", saved.values.size()}};
    outcome.text =
        fmt::format("saved {} configuration values of {} ({}) to {}\n", saved.values.size(),
                    Utf8FromLatin1(saved.deviceName), Utf8FromLatin1(saved.programId), path);
    return outcome;
}

Outcome ConfigDiff(Session& session, const std::string& path) {
    const SavedConfigurationFile saved = ReadConfigurationFile(path);
    RequireSameModel(session, saved, path);
    const auto variables = session.ConfigurationVariables();
    session.Upload(variables, "uploading the configuration");
    const Comparison compared = Compare(variables, saved);

    Outcome outcome;
    outcome.json = {{"file", path}};
    outcome.json["differences"] = DifferencesJson(compared);
    outcome.json["onlyInFile"] = Utf8Keys(compared.unknown);
    outcome.json["onlyOnController"] = Utf8Keys(compared.absent);
    outcome.json["unfit"] = compared.problems;
    outcome.text = DifferencesText(compared, "controller", "file");
    if (outcome.text.empty()) outcome.text = "the controller holds the file's configuration\n";
    if (!compared.unknown.empty()) {
        outcome.text += fmt::format("only in the file (the controller has no such value): {}\n",
                                    JoinedKeys(Utf8Keys(compared.unknown)));
    }
    if (!compared.absent.empty()) {
        outcome.text += fmt::format("only on the controller (not in the file): {}\n",
                                    JoinedKeys(Utf8Keys(compared.absent)));
    }
    for (const auto& problem : compared.problems)
        outcome.text += problem + "\n";
    return outcome;
}

Outcome ConfigRestore(Session& session, const std::string& path, RestoreOptions options) {
    const SavedConfigurationFile saved = ReadConfigurationFile(path);
    RequireSameModel(session, saved, path);
    CDevice& device = session.Device();
    const auto variables = session.ConfigurationVariables();
    session.Upload(variables, "uploading the configuration");
    Comparison compared = Compare(variables, saved);
    // Everything is checked before anything is sent.
    if (!compared.problems.empty()) {
        throw FileRefusedError(fmt::format("{} does not fit this controller, nothing was sent: {}",
                                           path, Joined(compared.problems)));
    }
    if (!compared.unknown.empty() && !options.skipUnknown) {
        throw FileRefusedError(
            fmt::format("{} holds {} values this controller does not have, nothing was sent: {} "
                        "(--skip-unknown restores the others)",
                        path, compared.unknown.size(), JoinedKeys(Utf8Keys(compared.unknown))));
    }

    std::vector<const ComparedValue*> changed;
    for (const auto& value : compared.values) {
        if (value.differs) changed.push_back(&value);
    }
    Json changedKeys = Json::array();
    for (const auto* value : changed)
        changedKeys.push_back(Utf8FromLatin1(value->saved->key));

    Outcome outcome;
    outcome.json = {{"file", path}, {"dryRun", options.dryRun}, {"changed", changedKeys}};
    outcome.json["skipped"] = Utf8Keys(compared.unknown);
    outcome.json["notInFile"] = Utf8Keys(compared.absent);
    std::string notes;
    if (!compared.unknown.empty()) {
        notes += fmt::format("skipped {} values this controller does not have: {}\n",
                             compared.unknown.size(), JoinedKeys(Utf8Keys(compared.unknown)));
    }
    if (!compared.absent.empty()) {
        notes += fmt::format(
            "{} values of the controller are not in the file and stay as they "
            "are: {}\n",
            compared.absent.size(), JoinedKeys(Utf8Keys(compared.absent)));
    }

    if (options.dryRun) {
        outcome.json["differences"] = DifferencesJson(compared);
        outcome.text = changed.empty()
                           ? "the controller already holds the saved configuration\n"
                           : fmt::format("a restore would change {} values:\n{}", changed.size(),
                                         DifferencesText(compared, "now", "restored"));
        outcome.text += notes + "nothing was sent (--dry-run)\n";
        return outcome;
    }
    if (changed.empty()) {
        outcome.json.update(
            {{"level", nullptr}, {"commandStatus", nullptr}, {"checked", compared.values.size()}});
        outcome.json["mismatches"] = Json::array();
        outcome.text = "the controller already held the saved configuration\n" + notes;
        return outcome;
    }

    // Properties go to their buffers and reach the node in the download; items are written to
    // the node as they change, so they are counted one by one.
    enum class Sent { kNot, kAcknowledged, kFailed };
    std::vector<Sent> sent(compared.values.size(), Sent::kNot);  // by position in compared
    const auto at = [&](const ComparedValue* value) {
        return static_cast<std::size_t>(value - compared.values.data());
    };
    std::optional<ComError> error;
    int signal = 0;
    bool phaseClosed = true;
    const std::int32_t levelBefore = device.ConfigModificationLevel();
    std::int32_t level = levelBefore;
    try {
        for (const auto* value : changed) {
            if (value->variable->Category() != kCategoryConfigItem) {
                value->variable->ValueBuffer()->SetBytes(ByteArray(0, value->saved->raw));
            }
        }
        for (std::size_t i = 0; i < changed.size(); ++i) {
            if (changed[i]->variable->Category() != kCategoryConfigItem) continue;
            ThrowIfInterrupted();
            sent[at(changed[i])] = Sent::kFailed;
            changed[i]->variable->ValueBuffer()->SetBytes(ByteArray(0, changed[i]->saved->raw));
            sent[at(changed[i])] = Sent::kAcknowledged;
        }
        ThrowIfInterrupted();
        level = device.ConfigModificationLevel();
        session.DownloadConfiguration(kConfiguration, std::nullopt);
    } catch (const ComError& raised) {
        error = raised;
    } catch (const Interrupted& stop) {
        AcknowledgeInterrupt();
        signal = stop.Signal();
    } catch (const DownloadStopped& stopped) {
        error = stopped.Error();
        signal = stopped.Signal();
        phaseClosed = stopped.PhaseClosed();
    }
    const bool stoppedPartWay = error || signal != 0;
    if (stoppedPartWay) {
        // A property reached the node when the download made its device buffer the value sent.
        for (std::size_t i = 0; i < changed.size(); ++i) {
            CDeviceVariable& variable = *changed[i]->variable;
            if (variable.Category() != kCategoryConfigItem &&
                variable.DeviceBuffer()->GetBytes().Values() == changed[i]->saved->raw) {
                sent[at(changed[i])] = Sent::kAcknowledged;
            }
        }
    }
    const Json status = stoppedPartWay ? Json(nullptr) : CommandStatusJson(device);

    // Read back from the node: every saved value must be there. After a stop only the changed
    // ones are read, and what cannot be read back is judged by whether its write was acknowledged.
    std::vector<const ComparedValue*> checked = changed;
    if (!stoppedPartWay) {
        checked.clear();
        for (const auto& value : compared.values)
            checked.push_back(&value);
    }
    std::vector<std::optional<bool>> arrived(checked.size());
    {
        ProgressScope shown(session.Reporter(), "checking the configuration", checked.size());
        for (std::size_t i = 0; i < checked.size(); ++i) {
            if (InterruptPending()) break;  // a second signal: no more reading
            try {
                checked[i]->variable->Upload();
                arrived[i] = checked[i]->variable->ValueBuffer()->GetBytes().Values() ==
                             checked[i]->saved->raw;
            } catch (const ComError&) {
                if (!stoppedPartWay) throw;
            }
            shown.Advance();
        }
    }
    Json reached = Json::array();
    Json missing = Json::array();
    Json unknown = Json::array();
    for (std::size_t i = 0; i < checked.size(); ++i) {
        const std::string key = Utf8FromLatin1(checked[i]->saved->key);
        const Sent acknowledged = sent[at(checked[i])];
        const bool known = arrived[i].has_value() || acknowledged != Sent::kFailed;
        const bool there = arrived[i].value_or(acknowledged == Sent::kAcknowledged);
        (!known ? unknown : there ? reached : missing).push_back(key);
    }

    outcome.json.update({{"level", level}, {"commandStatus", status}});
    if (stoppedPartWay) {
        outcome.json["arrived"] = reached;
        outcome.json["notArrived"] = missing;
        outcome.json["unknown"] = unknown;
        outcome.json["downloadClosed"] = phaseClosed;
        if (error) outcome.json["error"] = ErrorJson(*error);
        if (signal != 0) outcome.json["interrupted"] = SignalName(signal);
        const DownloadStopped phase(error, signal, level, phaseClosed);
        outcome.text = fmt::format(
            "the restore stopped part-way: {} of {} changed values reached the controller\n",
            reached.size(), changed.size());
        outcome.text += KeyLine("reached the controller", reached);
        outcome.text += KeyLine("did not reach it", missing);
        outcome.text += KeyLine("written, but whether they arrived cannot be told", unknown);
        outcome.text += phase.PhaseText() + "\n" + notes;
        outcome.failure = fmt::format("the restore of {} stopped part-way: {}", path, phase.what());
        outcome.failureCode = signal != 0 ? kExitInterrupted : kExitStoppedPartWay;
        return outcome;
    }

    outcome.json["checked"] = checked.size();
    outcome.json["mismatches"] = missing;
    std::vector<std::string> changedTexts;
    for (const auto& key : changedKeys)
        changedTexts.push_back(key.get<std::string>());
    outcome.text = fmt::format("restored {} values at level {}: {}\n{}", changed.size(), level,
                               Joined(changedTexts), CommandStatusLine(status));
    outcome.text +=
        fmt::format("{} of {} saved values read back as saved\n", reached.size(), checked.size());
    outcome.text += notes;
    if (!missing.empty()) {
        std::vector<std::string> keys;
        for (const auto& key : missing)
            keys.push_back(key.get<std::string>());
        outcome.failure =
            fmt::format("the controller does not hold the saved values of {}", Joined(keys));
        outcome.failureCode = kExitNotDone;
    } else if (StatusBit(status, "checksumMismatch")) {
        outcome.failure = "the controller reports a configuration checksum mismatch";
        outcome.failureCode = kExitNotDone;
    }
    return outcome;
}

}  // namespace vx::vxctl
