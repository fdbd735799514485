#include "OrvexCommand.h"

#include "CDevice.h"
#include "ErrorSupport.h"
#include "OrvexCommandStatus.h"
#include "SupportRoutines.h"
#include "automation/Conversions.h"

namespace vx {
namespace {

constexpr std::int32_t kCodeOpenConfigDownload = 3;
constexpr std::int32_t kCodeCloseConfigDownload = 4;
constexpr std::int32_t kCodeSendAllScan = 5;
constexpr std::int32_t kCodeResetTimer = 6;
constexpr std::int32_t kCodeKeypress = 7;
constexpr std::int32_t kCodeDisableKeypad = 8;
constexpr std::int32_t kCodeEnableKeypad = 9;
constexpr std::int32_t kCodeClearLog = 10;
constexpr std::int32_t kCodeResetMemory = 12;
// Download arguments of a command: every level, and written whether modified or not.
constexpr std::int32_t kEveryLevel = 2147483647;
// The node takes a configuration phase this long to settle after it opens or closes.
constexpr std::uint32_t kPhasePauseMs = 1000;
constexpr std::int32_t kGenericDataBytes = 10;

bool IsPhaseLevel(std::int32_t level) {
    return level == 2 || level == 3;
}

void DownloadForced(CDeviceVariable& variable) {
    variable.Download(kEveryLevel, true);
}

}  // namespace

void OrvexCommand::InitCommand(const std::shared_ptr<CDevice>& device,
                               DeviceVariablePtr commandVariable, DeviceVariablePtr statusVariable,
                               DeviceVariablePtr crcProperty) {
    m_device = device;
    m_commandVariable = std::move(commandVariable);
    m_statusVariable = std::move(statusVariable);
    m_crcProperty = std::move(crcProperty);
    for (const auto* variable : {&m_commandVariable, &m_statusVariable, &m_crcProperty}) {
        if (*variable) (*variable)->Upload();
    }
}

void OrvexCommand::ReleaseCommand() {
    m_device.reset();
    m_commandVariable.reset();
    m_statusVariable.reset();
    m_crcProperty.reset();
}

// ---- Frames ------------------------------------------------------------------------------------

void OrvexCommand::SetByte(std::int32_t byteOffset, std::int32_t value) {
    m_commandVariable->ValueBuffer()->SetUInt8(*NewOffset(byteOffset, 0),
                                               CByte(static_cast<double>(value)));
}

void OrvexCommand::SetWord(std::int32_t byteOffset, std::int32_t value) {
    m_commandVariable->ValueBuffer()->SetUInt16(*NewOffset(byteOffset, 0), value);
}

template <typename Parameters>
bool OrvexCommand::Send(std::int32_t code, Parameters parameters) {
    if (!m_commandVariable) return false;
    m_commandVariable->ValueBuffer()->Clear();
    SetByte(0, code);
    parameters();
    DownloadForced(*m_commandVariable);
    return true;
}

bool OrvexCommand::OpenConfigDownload(std::int32_t level, std::int32_t lonObjectID) {
    if (!m_commandVariable || !IsPhaseLevel(level)) return false;
    Send(kCodeOpenConfigDownload, [&] {
        SetByte(1, level);
        SetByte(2, 1);
    });
    if (level == 3) {
        if (!m_crcProperty) {
            RaiseLibraryError(LibraryErrorNumber(kIdMissingCrcProperty),
                              source::Join(source::kCommand, source::kOpenConfigDownload));
        }
        const auto device = m_device.lock();
        const auto object = device ? device->ObjectByID(lonObjectID) : nullptr;
        if (!object) RaiseRuntimeError(kErrObjectNotSet);
        m_crcProperty->ValueBuffer()->SetBytes(object->ComputeCrc());
        DownloadForced(*m_crcProperty);
    }
    Sleep(kPhasePauseMs);
    return true;
}

bool OrvexCommand::CloseConfigDownload(std::int32_t level) {
    if (!IsPhaseLevel(level)) return false;
    const bool sent = Send(kCodeCloseConfigDownload, [&] { SetByte(1, level); });
    Sleep(kPhasePauseMs);  // also without a command variable
    return sent;
}

bool OrvexCommand::SendAllScan() {
    return Send(kCodeSendAllScan, [] {});
}

bool OrvexCommand::ResetTimer(std::int32_t timerID, std::int32_t timerValue) {
    return Send(kCodeResetTimer, [&] {
        SetWord(1, timerID);
        SetWord(3, timerValue);
    });
}

bool OrvexCommand::Keypress(std::int32_t code) {
    return Send(kCodeKeypress, [&] { SetWord(1, code); });
}

bool OrvexCommand::DisableKeypad() {
    return Send(kCodeDisableKeypad, [] {});
}

bool OrvexCommand::EnableKeypad() {
    return Send(kCodeEnableKeypad, [] {});
}

bool OrvexCommand::ClearLog(std::int32_t lonObjectID) {
    return Send(kCodeClearLog, [&] { SetByte(1, lonObjectID); });
}

std::optional<std::array<std::uint8_t, 4>> OrvexCommand::BuildResetCode() const {
    const auto device = m_device.lock();
    if (!device) return std::nullopt;
    const std::string neuronId = device->NeuronID();
    const auto fields = SplitText(neuronId, '-');
    if (fields.size() != 6) return std::nullopt;
    std::array<std::uint8_t, 6> n{};
    for (std::size_t i = 0; i < n.size(); ++i) {
        n[i] = CByte(Variant("&H" + std::string(fields[i])));
    }
    const auto sum = static_cast<std::uint8_t>(n[0] + n[1] + n[2] + n[3] + n[4] + n[5]);
    return std::array<std::uint8_t, 4>{static_cast<std::uint8_t>(n[0] ^ n[5]),
                                       static_cast<std::uint8_t>(n[1] ^ n[4]),
                                       static_cast<std::uint8_t>(n[2] ^ n[3]), sum};
}

bool OrvexCommand::ResetMemory(std::int32_t reset) {
    if (!m_commandVariable) return false;
    m_commandVariable->ValueBuffer()->Clear();
    const auto code = BuildResetCode();
    if (!code) return false;  // the cleared buffer is not sent
    return Send(kCodeResetMemory, [&] {
        SetByte(1, reset);
        for (std::size_t i = 0; i < code->size(); ++i) {
            SetByte(static_cast<std::int32_t>(2 + i), (*code)[i]);
        }
    });
}

bool OrvexCommand::GenericCommand(std::int32_t cmdCode, const Variant& cmdData) {
    return Send(cmdCode, [&] {
        // Exactly ten data bytes go out: entries past the tenth are ignored, missing ones are 0.
        // Scripting hosts pass arrays of Variant, so those are taken entry by entry as Bytes.
        const auto* bytes = cmdData.Get<ByteArray>();
        const auto* variants = cmdData.Get<VariantArray>();
        if (!bytes && !variants) RaiseRuntimeError(kErrTypeMismatch);
        const std::int64_t lower = bytes ? bytes->LBound() : variants->LBound();
        const std::int64_t upper = bytes ? bytes->UBound() : variants->UBound();
        for (std::int16_t i = 0; i < kGenericDataBytes; ++i) {
            const std::int64_t index = lower + i;
            std::int32_t value = 0;
            if (index <= upper) {
                const auto at = static_cast<std::int32_t>(index);
                value = bytes ? (*bytes)(at) : CByte((*variants)(at));
            }
            SetByte(i + 1, value);
        }
    });
}

void OrvexCommand::UploadStatus(CommandStatusPtr& status) {
    auto record = std::make_shared<OrvexCommandStatus>();
    status = record;
    if (!m_statusVariable) {
        RaiseLibraryError(LibraryErrorNumber(kIdMissingCommandStatusVariable),
                          source::Join(source::kCommand, source::kUploadStatus));
    }
    m_statusVariable->Upload();
    record->Init(m_statusVariable->ValueBuffer());
}

}  // namespace vx
