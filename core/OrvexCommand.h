#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "CDeviceVariable.h"
#include "interfaces/IOrvexCommand.h"

namespace vx {

class CDevice;

// The device's command channel: the command variable, the command status variable and the CRC
// configuration property of the node, found while the device connects (each may be missing).
// Every command clears the command variable's buffer, writes the frame into it byte by byte and
// downloads it; the node's answer is read separately with UploadStatus.
class OrvexCommand final : public IOrvexCommand {
public:
    // ---- IOrvexCommand -----------------------------------------------------------------------
    bool OpenConfigDownload(std::int32_t level, std::int32_t lonObjectID) override;
    bool CloseConfigDownload(std::int32_t level) override;
    bool SendAllScan() override;
    bool ResetTimer(std::int32_t timerID, std::int32_t timerValue) override;
    bool Keypress(std::int32_t code) override;
    bool DisableKeypad() override;
    bool EnableKeypad() override;
    bool ClearLog(std::int32_t lonObjectID) override;
    bool ResetMemory(std::int32_t reset) override;
    bool GenericCommand(std::int32_t cmdCode, const Variant& cmdData) override;
    void UploadStatus(CommandStatusPtr& status) override;

    // ---- Library-internal --------------------------------------------------------------------
    // Binds the device and the three variables (any may be nullptr), then uploads each variable
    // that is present so that its buffer holds the node's current value.
    void InitCommand(const std::shared_ptr<CDevice>& device, DeviceVariablePtr commandVariable,
                     DeviceVariablePtr statusVariable, DeviceVariablePtr crcProperty);
    // Teardown: drops the device and the variables.
    void ReleaseCommand();
    // The reset code of ResetMemory, from the device's Neuron ID n0..n5:
    // n0 XOR n5, n1 XOR n4, n2 XOR n3, (n0 + ... + n5) mod 256. Nothing when the Neuron ID is
    // not six byte fields.
    std::optional<std::array<std::uint8_t, 4>> BuildResetCode() const;

    const DeviceVariablePtr& CommandVariable() const noexcept { return m_commandVariable; }
    const DeviceVariablePtr& StatusVariable() const noexcept { return m_statusVariable; }
    const DeviceVariablePtr& CrcProperty() const noexcept { return m_crcProperty; }

private:
    // A command frame: the buffer is cleared, the code written at byte 0, then `parameters`
    // writes what follows; the frame is downloaded to the node.
    template <typename Parameters>
    bool Send(std::int32_t code, Parameters parameters);
    void SetByte(std::int32_t byteOffset, std::int32_t value);
    void SetWord(std::int32_t byteOffset, std::int32_t value);

    std::weak_ptr<CDevice> m_device;
    DeviceVariablePtr m_commandVariable;
    DeviceVariablePtr m_statusVariable;
    DeviceVariablePtr m_crcProperty;
};

using CommandPtr = std::shared_ptr<OrvexCommand>;

}  // namespace vx
