#pragma once

#include <cstdint>

#include "CBuffer.h"
#include "interfaces/IOrvexCommandStatus.h"

namespace vx {

// A command status read from the status variable's live value buffer.
class OrvexCommandStatus final : public IOrvexCommandStatus {
public:
    void Init(BufferPtr buffer) { m_buffer = std::move(buffer); }

    std::int32_t CmdType() override;
    bool Status(std::int32_t statusType) override;

private:
    BufferPtr m_buffer;
};

}  // namespace vx
