#pragma once

#include <cstdint>
#include <memory>

#include "automation/Variant.h"

namespace vx {

// The node's answer to a device command, as last uploaded. Members in interface order.
class IOrvexCommandStatus : public virtual Object {
public:
    // The code of the command the status refers to; 0 when there is no status value.
    virtual std::int32_t CmdType() = 0;
    // Bit `statusType` (0..255), counted from the least significant bit of byte 1; False when
    // there is no status value.
    virtual bool Status(std::int32_t statusType) = 0;
};

using CommandStatusPtr = std::shared_ptr<IOrvexCommandStatus>;

}  // namespace vx
