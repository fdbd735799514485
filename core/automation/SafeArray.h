#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

#include "automation/ComError.h"

namespace vx {

// A one-dimensional automation array: elements plus a lower bound, or unallocated. The bounds
// travel with the array, so a 1-based array stays 1-based wherever it is copied to.
template <typename T>
class SafeArray {
public:
    SafeArray() = default;  // unallocated

    // Allocated with bounds lower .. lower + values.size() - 1.
    SafeArray(std::int32_t lower, std::vector<T> values)
        : m_lower(lower), m_values(std::move(values)), m_allocated(true) {}
    SafeArray(std::int32_t lower, std::initializer_list<T> values)
        : SafeArray(lower, std::vector<T>(values)) {}

    // ReDim lower To upper: an upper bound below the lower bound is the platform's subscript error.
    static SafeArray WithBounds(std::int32_t lower, std::int32_t upper, const T& fill = T{}) {
        if (upper < lower) RaiseRuntimeError(kErrSubscriptOutOfRange);
        const auto count = static_cast<std::size_t>(static_cast<std::int64_t>(upper) - lower + 1);
        return SafeArray(lower, std::vector<T>(count, fill));
    }

    bool IsAllocated() const noexcept { return m_allocated; }

    std::int32_t LBound() const {
        if (!m_allocated) RaiseRuntimeError(kErrSubscriptOutOfRange);
        return m_lower;
    }
    std::int32_t UBound() const {
        if (!m_allocated) RaiseRuntimeError(kErrSubscriptOutOfRange);
        return static_cast<std::int32_t>(m_lower + static_cast<std::int64_t>(m_values.size()) - 1);
    }
    // Number of elements; 0 when unallocated.
    std::size_t Count() const noexcept { return m_values.size(); }

    // Element access by automation index (bounds-checked, error 9 outside).
    T& operator()(std::int32_t index) { return m_values[Position(index)]; }
    const T& operator()(std::int32_t index) const { return m_values[Position(index)]; }

    // The elements from the lower bound upward.
    const std::vector<T>& Values() const noexcept { return m_values; }
    std::vector<T>& Values() noexcept { return m_values; }

    bool operator==(const SafeArray& other) const = default;

private:
    std::size_t Position(std::int32_t index) const {
        const std::int64_t offset = static_cast<std::int64_t>(index) - m_lower;
        if (!m_allocated || offset < 0 || offset >= static_cast<std::int64_t>(m_values.size())) {
            RaiseRuntimeError(kErrSubscriptOutOfRange);
        }
        return static_cast<std::size_t>(offset);
    }

    std::int32_t m_lower = 0;
    std::vector<T> m_values;
    bool m_allocated = false;
};

using ByteArray = SafeArray<std::uint8_t>;

}  // namespace vx
