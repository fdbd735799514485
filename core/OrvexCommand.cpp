#include "OrvexCommand.h"

#include "CDevice.h"

namespace vx {

void OrvexCommand::InitCommand(const std::shared_ptr<CDevice>& device,
                               DeviceVariablePtr commandVariable, DeviceVariablePtr statusVariable,
                               DeviceVariablePtr crcProperty) {
    m_device = device;
    m_commandVariable = std::move(commandVariable);
    m_statusVariable = std::move(statusVariable);
    m_crcProperty = std::move(crcProperty);
}

void OrvexCommand::ReleaseCommand() {
    m_device.reset();
    m_commandVariable.reset();
    m_statusVariable.reset();
    m_crcProperty.reset();
}

}  // namespace vx
