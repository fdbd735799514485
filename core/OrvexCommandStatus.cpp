#include "OrvexCommandStatus.h"

#include "SupportRoutines.h"

namespace vx {

std::int32_t OrvexCommandStatus::CmdType() {
    if (!m_buffer) return 0;
    return m_buffer->GetUInt8(*NewOffset(0, 0));
}

bool OrvexCommandStatus::Status(std::int32_t statusType) {
    if (!m_buffer) return false;
    return m_buffer->GetBits(*NewOffset(1, statusType), 1) == 1;
}

}  // namespace vx
