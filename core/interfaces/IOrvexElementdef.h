#pragma once

#include <cstdint>
#include <memory>

#include "interfaces/IOrvexTypedef.h"

namespace vx {

// Where a field sits in a value and what it is, members in interface order.
class IOrvexElementdef : public virtual Object {
public:
    virtual std::int32_t ArraySize() const = 0;  // entries of an array field; 0 if not an array
    virtual TypedefPtr Typedef() const = 0;
    virtual std::int32_t ByteOffset() const = 0;
    virtual std::int32_t BitOffset() const = 0;  // 0 is the least significant bit
};

using ElementdefPtr = std::shared_ptr<IOrvexElementdef>;

}  // namespace vx
