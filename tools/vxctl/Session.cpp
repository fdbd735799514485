#include "Session.h"

#include <charconv>
#include <set>

#include <fmt/format.h>

#include "DefaultController.h"
#include "Interrupt.h"
#include "RevisionJson.h"
#include "Suggest.h"
#include "SupportRoutines.h"
#include "ValueText.h"
#include "VxDef.h"
#include "automation/Collection.h"
#include "interfaces/INodeVariable.h"

namespace vx::vxctl {
namespace {

// The levels the command channel frames a download with; below them nothing frames it.
constexpr std::int32_t kFirstPhaseLevel = 2;
// Scales of the bars: the node settles for a second after a download opens and after it closes;
// the library gives up waiting for the application reset after about 90 seconds.
constexpr std::uint64_t kPhasePausesMs = 2000;
constexpr std::uint64_t kResetWaitLimitMs = 92000;
// The command status bit of an open configuration download.
constexpr std::int32_t kStatusDownloadOpen = 2;
// What the node's alarm message says while its application restarts.
constexpr const char* kAlarmMessage = "nvoAlarmMessage";
constexpr std::string_view kApplicationResetting = "0 Application Resetting";

std::string FieldList(const IOrvexTypedef& type) {
    return fmt::format("{}", fmt::join(type.FieldNames().Values(), ", "));
}

}  // namespace

std::string VariablePath::Shown() const {
    std::string shown = Utf8FromLatin1(variable->Name());
    if (!field.empty()) shown += "." + field;
    if (entry) shown += fmt::format("[{}]", *entry);
    return shown;
}

Session::Session(const DeviceChoice& choice, Progress& progress)
    : Session(OpenConnection(choice), choice.revision, progress) {}

Session::Session(Connection connection, const std::string& revision, Progress& progress)
    : m_progress(progress), m_connection(std::move(connection)) {
    const VxDef factory;
    DeviceRevisionIdentifyPtr known;
    if (revision == kNoRevision ||
        (revision.empty() && !IsDefaultControllersProgramId(m_connection.programId))) {
        m_revisionSource = std::string(kNoRevision);
    } else {
        known = factory.CreateDeviceRevision();
        if (revision.empty() || revision == kDefaultRevision) {
            sim::ApplyDefaultRevision(*known);
            m_revisionSource = "built-in";
        } else {
            sim::LoadRevisionJson(revision, *known);
            m_revisionSource = revision;
        }
    }

    m_device = std::dynamic_pointer_cast<CDevice>(factory.CreateDeviceManager());
    try {
        m_device->Connect(m_connection.node, known);
    } catch (const ComError& error) {
        if (!m_device->Connected()) throw;
        m_connectError = error;
        // The library's own error for a variable it cannot place names no variable: the binding
        // pass stops at the first one, which is then in no object.
        if (error.Number() == kErrSubscriptOutOfRange || error.Number() == kErrObjectNotSet) {
            m_connectStoppedAt = FirstUnboundVariable();
        }
    }
}

std::string Session::FirstUnboundVariable() const {
    std::set<std::int32_t> bound;
    for (const auto& variable : Variables()) {
        if (variable->Category() != kCategoryConfigItem) bound.insert(variable->NvIndex());
    }
    const auto list = m_connection.node->NetworkVariables();
    if (!list) return {};
    for (const auto& item : list->Items()) {
        const auto record = std::dynamic_pointer_cast<INodeVariable>(item);
        if (!record || bound.contains(record->Index())) continue;
        return fmt::format(
            "network variable {} (nv {}, self-documentation \"{}\"), which the "
            "library could not give an object",
            Utf8FromLatin1(record->Name()), record->Index(), Utf8FromLatin1(record->SelfDoc()));
    }
    return {};
}

Session::~Session() {
    m_device->Disconnect();
}

std::vector<DeviceVariablePtr> Session::Variables() const {
    std::vector<DeviceVariablePtr> variables;
    for (const auto& object : m_device->Objects().NewEnum()) {
        const auto held = object->Variables();
        variables.insert(variables.end(), held.begin(), held.end());
    }
    return variables;
}

std::vector<DeviceVariablePtr> Session::ConfigurationVariables() const {
    auto variables = Variables();
    std::erase_if(variables, [](const DeviceVariablePtr& variable) {
        return (variable->Category() & (kCategoryConfigItem | kCategoryConfigProperty)) == 0;
    });
    return variables;
}

VariablePath Session::Find(std::string_view path, std::optional<std::int32_t> object) const {
    std::string text = Latin1FromUtf8(path);
    VariablePath found;
    if (text.ends_with(']')) {
        const auto open = text.rfind('[');
        std::int32_t entry = 0;
        const char* first = text.data() + (open == std::string::npos ? 0 : open + 1);
        const char* last = text.data() + text.size() - 1;
        if (open == std::string::npos || std::from_chars(first, last, entry).ptr != last) {
            throw UsageError(
                fmt::format("'{}': an array entry is a whole number in brackets", path));
        }
        found.entry = entry;
        text.erase(open);
    }
    const auto point = text.find('.');
    const std::string name = text.substr(0, point);
    if (point != std::string::npos) found.field = Utf8FromLatin1(text.substr(point + 1));
    if (name.empty()) throw UsageError(fmt::format("'{}' names no variable", path));

    if (object) {
        const auto holder = m_device->ObjectByID(*object);
        if (!holder) throw ToolError(fmt::format("the device has no object {}", *object));
        found.variable =
            holder->VariableByName(name);  // an unknown name raises the library's error
    } else {
        std::vector<DeviceVariablePtr> matches;
        std::vector<std::int32_t> holders;
        for (const auto& candidate : Variables()) {
            if (FoldKey(candidate->Name()) != FoldKey(name)) continue;
            matches.push_back(candidate);
            holders.push_back(candidate->Object() ? candidate->Object()->ID() : -1);
        }
        if (matches.empty()) {
            std::vector<std::string> names;
            for (const auto& candidate : Variables())
                names.push_back(Utf8FromLatin1(candidate->Name()));
            throw ToolError(
                fmt::format("the device has no variable '{}'{}; vxctl objects lists them",
                            Utf8FromLatin1(name), DidYouMean(Utf8FromLatin1(name), names)));
        }
        if (matches.size() > 1) {
            throw UsageError(fmt::format("'{}' is on objects {}: choose one with --object",
                                         Utf8FromLatin1(name), fmt::join(holders, ", ")));
        }
        found.variable = matches.front();
    }
    found.object = found.variable->Object() ? found.variable->Object()->ID() : -1;
    found.element = found.variable->Element();

    if (!found.field.empty()) {
        // Checked step by step so that an unknown field is named: the element skips it silently.
        const std::string fieldPath = Latin1FromUtf8(found.field);
        TypedefPtr type = found.variable->Typedef();
        std::string reached = Utf8FromLatin1(found.variable->Name());
        std::size_t start = 0;
        for (;;) {
            const auto end = fieldPath.find('.', start);
            const std::string piece = fieldPath.substr(start, end - start);
            if (!type || type->TypeCategory() != kCategoryStructure) {
                throw ToolError(fmt::format("{} is no structure: it has no field '{}'", reached,
                                            Utf8FromLatin1(piece)));
            }
            ElementdefPtr field;
            try {
                field = type->FieldByName(piece);
            } catch (const ComError&) {
                // The type's own error says no more than "invalid procedure call".
            }
            if (!field) {
                const StringArray names = type->FieldNames();
                throw ToolError(fmt::format("{} ({}) has no field '{}'{}; its fields: {}", reached,
                                            type->TypeName(), Utf8FromLatin1(piece),
                                            DidYouMean(piece, names.Values()), FieldList(*type)));
            }
            type = field->Typedef();
            // Appended in two steps: g++ 12 at -O3 misreads the concatenation as an overlap.
            reached += '.';
            reached += Utf8FromLatin1(piece);
            if (end == std::string::npos) break;
            start = end + 1;
        }
        found.element = found.element->SubElement({Variant(fieldPath)});
    }
    if (found.entry) {
        const std::int32_t last = found.element->UBound();
        if (last < 0) throw ToolError(fmt::format("{} is no array", path));
        if (*found.entry < 0 || *found.entry > last) {
            throw ToolError(fmt::format("{}: the array has entries 0 to {}", path, last));
        }
    }
    return found;
}

void Session::Upload(const std::vector<DeviceVariablePtr>& variables, std::string label,
                     const std::function<void(CDeviceVariable&, const ComError&)>& failed) {
    ProgressScope shown(m_progress, std::move(label), variables.size());
    for (const auto& variable : variables) {
        ThrowIfInterrupted();  // over the network a long read has no waits that would see it
        try {
            variable->Upload();
        } catch (const ComError& error) {
            if (!failed) throw;
            failed(*variable, error);
        }
        shown.Advance();
    }
}

void Session::DownloadConfiguration(std::int32_t mask, std::optional<std::int32_t> object) {
    const std::int32_t level = m_device->ConfigModificationLevel();
    // Below the phase levels the items were written as they changed, and no restart follows.
    if (level < kFirstPhaseLevel) mask &= ~kCategoryConfigItem;
    if (mask == 0) return;
    const bool framed = level >= kFirstPhaseLevel;
    try {
        {
            WaitScope shown(m_progress, "downloading the configuration", kPhasePausesMs);
            m_device->Download(ChecksumObject(object), mask);
        }
        if (m_device->DeferredClose()) {
            WaitScope shown(m_progress, "waiting for the application reset", kResetWaitLimitMs);
            m_device->Upload(0);  // closes the download and waits for the restart; uploads nothing
            if (StillResetting()) m_resetUnfinished = true;
        }
    } catch (const ComError& error) {
        throw DownloadStopped(error, 0, level, !framed || ClosePhase(level));
    } catch (const Interrupted& stop) {
        AcknowledgeInterrupt();
        throw DownloadStopped(std::nullopt, stop.Signal(), level, !framed || ClosePhase(level));
    }
}

bool Session::ClosePhase(std::int32_t level) {
    const auto openOnNode = [this]() -> std::optional<bool> {
        if (!m_device->CommandChannel()->StatusVariable()) return std::nullopt;
        try {
            CommandStatusPtr status;
            m_device->Command()->UploadStatus(status);
            return status->Status(kStatusDownloadOpen);
        } catch (const ComError&) {
            return std::nullopt;
        }
    };
    try {
        if (openOnNode() == false) return true;
        m_device->Command()->CloseConfigDownload(level);
        return openOnNode() == false;
    } catch (const ComError&) {
        return false;
    } catch (const Interrupted&) {
        return false;  // a second signal: the technician wants out now
    }
}

bool Session::StillResetting() const {
    try {
        const auto nodeObject = m_device->ObjectByID(0);
        const auto alarm = nodeObject ? nodeObject->VariableByName(kAlarmMessage) : nullptr;
        if (!alarm) return false;
        alarm->Upload();
        return TrimBlanks(CStr(alarm->Value())) == kApplicationResetting;
    } catch (const ComError&) {
        return false;  // the wait said nothing else either
    }
}

DownloadStopped::DownloadStopped(std::optional<ComError> error, int signal, std::int32_t level,
                                 bool closed)
    : std::runtime_error(error ? ErrorText(*error) : "interrupted by " + SignalName(signal)),
      m_error(std::move(error)),
      m_signal(signal),
      m_level(level),
      m_closed(closed) {}

std::string DownloadStopped::PhaseText() const {
    if (m_closed) return "no configuration download is left open on the controller";
    return fmt::format(
        "the level-{0} configuration download may still be open on the controller: 'vxctl "
        "command close-download {0}' closes it",
        m_level);
}

std::int32_t Session::ChecksumObject(std::optional<std::int32_t> preferred) const {
    const auto hasList = [](const CDeviceObject& object) { return object.CrcList().Count() > 0; };
    if (preferred) {
        if (const auto object = m_device->ObjectByID(*preferred); object && hasList(*object)) {
            return *preferred;
        }
    }
    for (const auto& object : m_device->Objects().NewEnum()) {
        if (hasList(*object)) return object->ID();
    }
    return preferred.value_or(0);
}

}  // namespace vx::vxctl
