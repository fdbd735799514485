#include "CDevice.h"

#include "CDeviceObjectStatus.h"
#include "ErrorSupport.h"
#include "SupportRoutines.h"
#include "automation/ComError.h"
#include "automation/Conversions.h"
#include "interfaces/CommunicationCheck.h"
#include "interfaces/HostResources.h"
#include "interfaces/IHostConfigItems.h"
#include "interfaces/INodeVariable.h"

namespace vx {
namespace {

constexpr std::int32_t kStateNotCommunicating = -1;
constexpr std::int32_t kStateConfigured = 4;
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

std::int32_t StateCodeOf(std::int32_t state, std::int32_t mode) {
    switch (state) {
        case 2:
        case 3:
        case 6:
            return state;
        case kStateConfigured:
            // A configured node is told apart by whether its application runs.
            if (mode == 0) return kStateConfiguredOffline;
            return mode == 1 ? kStateConfigured : 0;
        default:
            return 0;
    }
}

// Network-management message codes and the memory layout of a name text.
constexpr const char* kReadMemory = "6D";
constexpr const char* kWriteMemory = "6E";
constexpr std::uint8_t kAbsoluteAddressing = 0;
constexpr std::uint8_t kWriteForm = 4;
constexpr std::size_t kNameLength = 30;
constexpr std::uint8_t kNameBytes = kNameLength + 1;  // the text and its zero byte
// Where a node's file directory keeps the address of its configuration-property area.
constexpr float kDirectoryEntryOffset = 10;
// A name operation gives up at the third failure within one call.
constexpr int kNameAttempts = 3;
// The level argument of a variable's download in the device's bulk operations.
constexpr std::int32_t kDownloadLevel = 127;
constexpr std::int32_t kMaskAdvancedConfig = 0x80;
// A node restarting its application after a configuration download says so in its alarm text.
constexpr const char* kApplicationResetting = "0 Application Resetting";
constexpr std::uint32_t kResetPollMs = 1000;
constexpr std::int64_t kResetWaitSeconds = 90;

// A host's raw value as bytes: an array of Byte as it is, an array of Variants entry by entry.
ByteArray ToByteArray(const Variant& value) {
    if (const auto* bytes = value.Get<ByteArray>()) return *bytes;
    const auto* variants = value.Get<VariantArray>();
    if (!variants) RaiseRuntimeError(kErrTypeMismatch);
    if (!variants->IsAllocated()) return {};
    std::vector<std::uint8_t> bytes;
    bytes.reserve(variants->Count());
    for (const Variant& entry : variants->Values()) {
        bytes.push_back(CByte(entry));
    }
    return ByteArray(variants->LBound(), std::move(bytes));
}

std::uint8_t AddressByte(std::string_view digits) {
    return CByte(Variant("&H" + std::string(digits)));
}

// The request bytes that address memory: absolute addressing, then the address's first two and
// last two digits as the high and low byte. Shorter texts split wrongly; nodes keep what the
// library reads above 0x1000, where addresses have four digits.
std::vector<std::uint8_t> AddressBytes(const std::string& address) {
    const std::string_view text(address);
    return {kAbsoluteAddressing, AddressByte(text.substr(0, 2)),
            AddressByte(text.substr(text.size() < 2 ? 0 : text.size() - 2))};
}

std::string RequestData(const std::vector<std::uint8_t>& bytes) {
    return PIConvertBinaryToHexString(Variant(ByteArray(0, bytes)));
}

// Runs `step` again after a failure, as long as the call has seen fewer than kNameAttempts
// failures in all; false once it has.
template <typename Step>
bool WithRetries(int& failures, Step step) {
    for (;;) {
        try {
            step();
            return true;
        } catch (const ComError&) {
            if (++failures >= kNameAttempts) return false;
        }
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
    // A host's check may call an unconnected device communicating; there is no node to ask.
    const auto connection = RequireConnection();
    const std::int32_t state = connection->NodeState();
    return StateCodeOf(state, connection->Mode());
}

std::string NodeStateText(std::int32_t nodeState, std::int32_t mode) {
    return StateText(StateCodeOf(nodeState, mode));
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

// ---- Network operations ------------------------------------------------------------------------

NodeConnectionPtr CDevice::RequireConnection() const {
    if (!m_connection) RaiseRuntimeError(kErrObjectNotSet);
    return m_connection;
}

bool CDevice::Ping() {
    return QueryStatus(*RequireConnection());
}

bool CDevice::Wink() {
    if (!m_connection) return false;
    try {
        m_connection->Wink();
        return true;
    } catch (const ComError&) {
        return false;
    }
}

std::optional<std::string> CDevice::ReadMemory(const std::string& address, std::uint8_t count) {
    const auto connection = RequireConnection();
    auto request = AddressBytes(address);
    request.push_back(count);
    std::string code = kReadMemory;
    std::string data = RequestData(request);
    std::int32_t length = 5;
    try {
        connection->SendNetworkMessage(code, data, length);
    } catch (const ComError&) {
        return std::nullopt;
    }
    return data;
}

std::string CDevice::ReadMemoryText(const std::string& address) {
    RequireConnection();  // a programming error, not a failed exchange
    try {
        const auto response = ReadMemory(address, kNameBytes);
        if (!response) return {};
        return BytesToText(Variant(HexToBytes(*response))).substr(0, kNameLength);
    } catch (const ComError&) {
        return {};
    }
}

bool CDevice::WriteMemoryText(const std::string& text, const std::string& address) {
    const auto connection = RequireConnection();
    std::string name = text.substr(0, kNameLength);
    name.resize(kNameLength, ' ');
    name.push_back('\0');

    auto request = AddressBytes(address);
    request.push_back(kNameBytes);
    request.push_back(kWriteForm);
    request.insert(request.end(), name.begin(), name.end());
    std::string code = kWriteMemory;
    std::string data = RequestData(request);
    std::int32_t length = 37;
    try {
        connection->SendNetworkMessage(code, data, length);
        return true;
    } catch (const ComError&) {
        return false;
    }
}

std::string CDevice::ResolveSCPTLocation(const std::string& location) {
    const auto connection = RequireConnection();
    try {
        return SearchFileDirectory(*connection, location);
    } catch (const ComError&) {
        // A variable list or a name the host cannot give fails the whole search.
        return {};
    }
}

std::string CDevice::SearchFileDirectory(INodeConnection& connection, const std::string& location) {
    std::string result;
    const auto list = connection.NetworkVariables();
    if (!list) return result;
    for (const auto& item : list->Items()) {
        auto* variable = dynamic_cast<INodeVariable*>(item.get());
        if (!variable) continue;
        const auto names = FoldKey(variable->Name()) + "|" + FoldKey(variable->SelfDocName());
        if (names.find("nvofiledirectory") == std::string::npos) continue;
        try {
            const Variant value = variable->ReadValue();
            const auto* bytes = value.Get<ByteArray>();
            if (!bytes) continue;
            const std::int32_t lower = bytes->LBound();
            const float directory =
                vx::PIUnsignedTwoBytesToSingle((*bytes)(lower + 1), (*bytes)(lower + 2));
            const auto entry = ReadMemory(Hex(CLng(directory + kDirectoryEntryOffset)), 2);
            if (!entry) continue;
            if (location == "00") {
                result = entry->substr(0, 4);
            } else {
                const auto entryBytes = HexToBytes(*entry);
                const float base = vx::PIUnsignedTwoBytesToSingle(entryBytes(1), entryBytes(2));
                result = Hex(CLng(base + static_cast<float>(CLng(Variant("&H" + location)))));
            }
        } catch (const ComError&) {
            // An unreadable directory leaves the result of the ones before.
        }
    }
    return result;
}

std::string CDevice::Name(const std::string& location) {
    if (!m_connection || !Ping()) return {};
    int failures = 0;
    std::string address = location;
    // Locations that are no four-digit address are offsets into the file directory's area;
    // they are hexadecimal, as the directory adds them.
    const bool resolved = WithRetries(failures, [&] {
        if (location.size() != 4 && CLng(Variant("&H" + location)) != 0) {
            address = ResolveSCPTLocation(location);
        }
    });
    if (!resolved) return {};
    std::string text;
    if (!WithRetries(failures, [&] { text = ReadNameText(address); })) return {};
    return std::string(TrimBlanks(text));
}

void CDevice::SetName(const std::string& location, const std::string& deviceName) {
    if (!m_connection || !Ping()) return;
    // The address is used as given: unlike the getter, the setter resolves no directory offset.
    int failures = 0;
    WithRetries(failures, [&] { WriteNameText(deviceName, location); });
}

// ---- Object requests and status ----------------------------------------------------------------

void CDevice::DownloadRequest(std::int32_t lonObject, std::int32_t objectRequest) {
    const auto& request = m_wellKnown[kSlotObjectRequest];
    if (!request) return;
    const auto& buffer = request->ValueBuffer();
    buffer->Clear();
    buffer->SetUInt16(*NewOffset(0, 0), lonObject);
    buffer->SetUInt8(*NewOffset(2, 0), CByte(static_cast<double>(objectRequest)));
    request->Download(kDownloadLevel, false);
}

LonObjectStatusPtr CDevice::UploadStatus() {
    auto record = std::make_shared<CDeviceObjectStatus>();
    if (const auto& status = m_wellKnown[kSlotObjectStatus]) {
        status->Upload();
        record->Init(status->ValueBuffer());
    }
    return record;
}

// ---- Configuration transfer
// ----------------------------------------------------------------------

void CDevice::Download(std::int32_t objectID, std::int32_t mask) {
    m_command->OpenConfigDownload(m_modificationLevel, objectID);

    std::vector<DeviceVariablePtr> chosen;
    if ((mask & kMaskAdvancedConfig) != 0) {
        chosen = m_advancedConfig.Item(std::string_view(std::to_string(objectID)));
    } else {
        for (const auto& object : m_objects->NewEnum()) {
            const auto variables = object->Variables();
            chosen.insert(chosen.end(), variables.begin(), variables.end());
        }
    }

    bool metConfigItem = false;
    for (const auto& variable : chosen) {
        const std::int32_t category = variable->Category();
        if ((category & mask) == 0 && mask != kMaskAdvancedConfig) continue;
        if (category == kCategoryConfigItem) {
            // The listeners write the configuration items themselves, inside this call.
            if (!metConfigItem) {
                metConfigItem = true;
                m_afterConfigDMDownload.Raise();
            }
            continue;
        }
        variable->Download(kDownloadLevel, false);
    }

    if (metConfigItem) {
        m_deferredClose = true;
    } else {
        m_command->CloseConfigDownload(m_modificationLevel);
    }
}

void CDevice::Upload(std::int32_t mask) {
    if (m_deferredClose) {
        m_command->CloseConfigDownload(m_modificationLevel);
        WaitForApplicationReset();
    }
    for (const auto& object : m_objects->NewEnum()) {
        for (const auto& variable : object->Variables()) {
            const std::int32_t category = variable->Category();
            if ((category & mask) == 0) continue;
            if (category == kCategoryConfigItem) {
                m_afterConfigDMUpload.Raise();  // once for every such variable
            } else {
                variable->Upload();
            }
        }
    }
}

bool CDevice::WaitForApplicationReset() {
    std::string text;
    try {
        const auto nodeObject = m_objects->Item(0);
        if (!nodeObject) RaiseRuntimeError(kErrObjectNotSet);
        const auto alarm = nodeObject->VariableByName("nvoAlarmMessage");
        const auto start = Now();
        for (;;) {
            alarm->Upload();
            text = CStr(alarm->Value());
            Sleep(kResetPollMs);
            const auto elapsed =
                std::chrono::duration_cast<std::chrono::seconds>(Now() - start).count();
            if (text != kApplicationResetting || elapsed > kResetWaitSeconds) break;
        }
    } catch (const ComError&) {
        // The wait ends with what was last read.
    }
    return text != kApplicationResetting;
}

// ---- Configuration import
// ------------------------------------------------------------------------

void CDevice::SetConfig(const ObjectPtr& configItems, std::int32_t varCat) {
    try {
        const auto source = std::dynamic_pointer_cast<IHostConfigItems>(configItems);
        const auto lookUp = [&](const std::string& key) {
            if (!source) RaiseRuntimeError(configItems ? kErrTypeMismatch : kErrObjectNotSet);
            return source->Item(key);
        };
        for (const auto& object : m_objects->NewEnum()) {
            for (const auto& variable : object->Variables()) {
                if (variable->Category() != varCat) continue;
                if (varCat == kCategoryConfigItem) {
                    const auto item = lookUp(variable->ItemName());
                    if (!item) RaiseRuntimeError(kErrObjectNotSet);  // a missing item ends the walk
                    variable->ValueBuffer()->SetBytes(ToByteArray(item->Value()));
                } else if (varCat == kCategoryConfigProperty) {
                    const auto item =
                        lookUp(variable->Name() + "." + std::to_string(variable->NvIndex()));
                    if (!item) continue;  // a property the source does not hold stays as it is
                    (void)item->Name();
                    (void)item->Number();
                    (void)item->Value();  // the source is read twice; the second read counts
                    variable->ValueBuffer()->SetBytes(ToByteArray(item->Value()));
                }
            }
        }
    } catch (const ComError&) {
        // The text keeps its marks: the error names neither variable nor object.
        RaiseLibraryError(LibraryErrorNumber(kIdVariableNotFound),
                          source::Join(source::kDevice, source::kSetConfig));
    }
}

}  // namespace vx
