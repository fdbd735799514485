#include "CDevice.h"

#include "ErrorSupport.h"
#include "SupportRoutines.h"
#include "automation/ComError.h"
#include "automation/Conversions.h"
#include "interfaces/CommunicationCheck.h"
#include "interfaces/HostResources.h"

namespace vx {
namespace {

constexpr std::int32_t kStateNotCommunicating = -1;
constexpr std::int32_t kStateConfiguredOffline = 12;

std::string StateText(std::int32_t code) {
    switch (code) {
        case kStateNotCommunicating:
            return "Not Communicating";
        case 2:
            return "Unconfigured";
        case 3:
            return "Applicationless";
        case 4:
            return "Configured/Online";
        case 6:
            return "Hard Offline";
        case kStateConfiguredOffline:
            return "Configured/Offline";
        case 15:
            return "None";  // in the table, though no node state leads to it
        default:
            return "Unknown";
    }
}

}  // namespace

CDevice::CDevice()
    : m_command(std::make_shared<OrvexCommand>()), m_objects(std::make_shared<CDeviceObjects>()) {}

CDevice::~CDevice() = default;

DeviceInfoPtr CDevice::Info() {
    return shared_from_this();
}

// ---- Connection --------------------------------------------------------------------------------

void CDevice::Connect(const ObjectPtr& nodeNetworkConnection, const ObjectPtr& revisionInfo) {
    const std::string connectSource = source::Join(source::kDevice, source::kConnect);
    if (!nodeNetworkConnection) {
        m_connection.reset();
        RaiseLibraryError(LibraryErrorNumber(kIdUnsupportedConnection), connectSource);
    }
    auto connection = std::dynamic_pointer_cast<INodeConnection>(nodeNetworkConnection);
    if (!connection) RaiseRuntimeError(kErrTypeMismatch);
    m_connection = std::move(connection);
    // Variables read the revision while they are made (configuration items take their names
    // from it); an object that is no revision registry gives them none.
    m_revision = std::dynamic_pointer_cast<IOrvexDeviceRevision>(revisionInfo);

    const auto self = shared_from_this();
    m_objects = std::make_shared<CDeviceObjects>();
    m_objects->ParseSelfDoc(self);
    WellKnownVariables record;
    m_objects->BindNetworkVariables(record, self);
    m_objects->BindConfigItems(record, self);
    std::copy_n(record.begin(), m_wellKnown.size(), m_wellKnown.begin());

    if (!m_wellKnown[kSlotObjectRequest]) {
        RaiseLibraryError(LibraryErrorNumber(kIdMissingLonmarkVariable), connectSource,
                          {Variant(std::string("nviRequest"))});
    }
    if (!m_wellKnown[kSlotObjectStatus]) {
        RaiseLibraryError(LibraryErrorNumber(kIdMissingLonmarkVariable), connectSource,
                          {Variant(std::string("nvoStatus"))});
    }

    try {
        m_command->InitCommand(self, record[kSlotCommand], record[kSlotCommandStatus],
                               record[kSlotCrcProperty]);
    } catch (const ComError& error) {
        // Only the platform's run-time errors (positive numbers) stop the connect; every COM and
        // library error, a node without the command variable included, is accepted. The second
        // test can never decide anything, since that number is negative too; it documents intent.
        if (error.Number() > 0 && error.Number() != LibraryErrorNumber(kIdMissingCommandVariable)) {
            throw;
        }
    }

    m_advancedConfig = {};
    if (!revisionInfo) return;
    if (!m_revision) RaiseRuntimeError(kErrTypeMismatch);
    for (const auto& object : m_objects->NewEnum()) {
        object->ApplyRevision(*m_revision);
        CollectAdvancedConfig(*object, *m_revision);
    }
}

void CDevice::CollectAdvancedConfig(CDeviceObject& object, const IOrvexDeviceRevision& revision) {
    std::vector<DeviceVariablePtr> list;
    if (const auto identities = revision.AdvConfig(object.ID())) {
        for (const auto& identity : identities->NewEnum()) {
            if (!identity) RaiseRuntimeError(kErrObjectNotSet);
            const auto holder = m_objects->Item(identity->LonObject());
            if (!holder) RaiseRuntimeError(kErrObjectNotSet);
            auto variable = holder->VariableByName(identity->Name());
            if (variable && variable->Category() != 0) list.push_back(std::move(variable));
        }
    }
    if (!list.empty()) m_advancedConfig.Add(std::move(list), std::to_string(object.ID()));
}

void CDevice::Disconnect() {
    m_connection.reset();
    m_revision.reset();
    m_objects->ReleaseAll();
    m_objects = std::make_shared<CDeviceObjects>();
    m_command->ReleaseCommand();
    m_command = std::make_shared<OrvexCommand>();
    m_advancedConfig = {};
    m_wellKnown = {};
}

// ---- Objects -----------------------------------------------------------------------------------

LonObjectPtr CDevice::Object(std::int32_t objectID) {
    return m_objects->Item(objectID);
}

DeviceObjectPtr CDevice::ObjectByID(std::int32_t objectID) {
    return m_objects->Item(objectID);
}

LonObjectPtr CDevice::ProfileObject(std::int32_t profile) {
    for (const auto& object : m_objects->NewEnum()) {
        if (object->Profile() == profile) return object;
    }
    return nullptr;
}

std::vector<LonObjectPtr> CDevice::NewEnum() const {
    const auto objects = m_objects->NewEnum();
    return {objects.begin(), objects.end()};
}

const DeviceVariablePtr& CDevice::WellKnownVariable(WellKnownSlot slot) const {
    return m_wellKnown.at(slot);
}

void CDevice::Modified(const VariablePtr& variable) {
    if (!variable) RaiseRuntimeError(kErrObjectNotSet);
    m_modificationLevel = std::max(m_modificationLevel, variable->ConfigLevel());
}

// ---- State and identity ------------------------------------------------------------------------

std::int32_t CDevice::StateCode() {
    if (!CurrentCommunicationCheck()->IsCommunicating(m_connection)) return kStateNotCommunicating;
    const std::int32_t state = m_connection->NodeState();
    const std::int32_t mode = m_connection->Mode();
    switch (state) {
        case 2:
        case 3:
        case 6:
            return state;
        case 4:
            // A configured node is told apart by whether its application runs.
            if (mode == 0) return kStateConfiguredOffline;
            return mode == 1 ? 4 : 0;
        default:
            return 0;
    }
}

std::string CDevice::State(bool /*discovering*/, bool /*allowPing*/) {
    return StateText(StateCode());
}

std::string CDevice::ProgID() {
    if (!m_connection) return {};
    const std::string programId = m_connection->ProgramIDText();
    // Standard program IDs (formats 8 and 9) show as their digits; the first digit is compared
    // as a number, so a letter there is a type mismatch.
    const double format = TextToNumber(programId.substr(0, 1));
    if (format == 8 || format == 9) return programId;
    return BytesToText(Variant(HexToBytes(programId)));
}

std::string CDevice::SelfDoc() {
    if (!m_connection) return {};
    try {
        return m_connection->SelfDocText();
    } catch (const ComError&) {
        return {};
    }
}

std::string CDevice::Revision() {
    if (!m_connection) return {};
    const std::string selfDoc = SelfDoc();
    const std::string marker = CurrentHostResources()->RevisionText(kTextRevisionMarker);
    const auto at = selfDoc.find(marker);
    if (at == std::string::npos) return {};
    const auto start = at + kRevisionMarkerLength;
    return start < selfDoc.size() ? selfDoc.substr(start) : std::string();
}

std::string CDevice::MfgID() {
    if (!m_connection) return {};
    const std::string programId = m_connection->ProgramIDText();
    const std::string digits = programId.size() > 1 ? programId.substr(1, 5) : std::string();
    const std::int32_t manufacturer = CLng(Variant("&H0" + digits));
    if (manufacturer == kOrvexManufacturerId) {
        return CurrentHostResources()->Text(kTextFamilyManufacturer);
    }
    return std::to_string(manufacturer);
}

std::string CDevice::NeuronID() {
    if (!m_connection) RaiseRuntimeError(kErrObjectNotSet);
    return FormatDashedHex(m_connection->NeuronIDText());
}

float CDevice::PIUnsignedTwoBytesToSingle(std::uint8_t highByte, std::uint8_t lowByte) const {
    return vx::PIUnsignedTwoBytesToSingle(highByte, lowByte);
}

std::string CDevice::PIConvertBinaryToHexString(const Variant& byteStream) const {
    return vx::PIConvertBinaryToHexString(byteStream);
}

}  // namespace vx
