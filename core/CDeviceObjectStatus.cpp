#include "CDeviceObjectStatus.h"

#include "SupportRoutines.h"

namespace vx {

bool CDeviceObjectStatus::Flag(std::int32_t byteOffset, std::int32_t bitOffset) {
    if (!m_buffer) return false;
    return m_buffer->GetBits(*NewOffset(byteOffset, bitOffset), 1) == 1;
}

std::int32_t CDeviceObjectStatus::ObjectID() {
    if (!m_buffer) return 0;
    return m_buffer->GetUInt16(*NewOffset(0, 0));
}

}  // namespace vx
