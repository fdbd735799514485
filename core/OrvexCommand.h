#pragma once

#include <memory>

#include "CDeviceVariable.h"

namespace vx {

class CDevice;

// The device's command channel: the command variable, the command status variable and the CRC
// configuration property of the node, found while the device connects. Each may be missing.
class OrvexCommand final {
public:
    // Binds the device and the three variables (any may be nullptr).
    void InitCommand(const std::shared_ptr<CDevice>& device, DeviceVariablePtr commandVariable,
                     DeviceVariablePtr statusVariable, DeviceVariablePtr crcProperty);
    // Teardown: drops the device and the variables.
    void ReleaseCommand();

    const DeviceVariablePtr& CommandVariable() const noexcept { return m_commandVariable; }
    const DeviceVariablePtr& StatusVariable() const noexcept { return m_statusVariable; }
    const DeviceVariablePtr& CrcProperty() const noexcept { return m_crcProperty; }

private:
    std::weak_ptr<CDevice> m_device;
    DeviceVariablePtr m_commandVariable;
    DeviceVariablePtr m_statusVariable;
    DeviceVariablePtr m_crcProperty;
};

using CommandPtr = std::shared_ptr<OrvexCommand>;

}  // namespace vx
