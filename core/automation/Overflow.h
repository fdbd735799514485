#pragma once

#include <cstdint>
#include <limits>

#include "automation/ComError.h"

namespace vx {

// 32-bit signed Long arithmetic as the platform does it: a result outside the range raises
// overflow (6) instead of wrapping.
inline std::int32_t CheckedLong(std::int64_t wide) {
    if (wide < std::numeric_limits<std::int32_t>::min() ||
        wide > std::numeric_limits<std::int32_t>::max()) {
        RaiseRuntimeError(kErrOverflow);
    }
    return static_cast<std::int32_t>(wide);
}

inline std::int32_t CheckedAdd(std::int32_t a, std::int32_t b) {
    return CheckedLong(static_cast<std::int64_t>(a) + b);
}

inline std::int32_t CheckedSubtract(std::int32_t a, std::int32_t b) {
    return CheckedLong(static_cast<std::int64_t>(a) - b);
}

inline std::int32_t CheckedMultiply(std::int32_t a, std::int32_t b) {
    return CheckedLong(static_cast<std::int64_t>(a) * b);
}

}  // namespace vx
