#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "CBuffer.h"
#include "CDataOffset.h"
#include "automation/ComError.h"
#include "automation/Variant.h"
#include "interfaces/IOrvexDataElement.h"
#include "interfaces/IOrvexElementdef.h"

namespace vx {

// One field of a variable's value seen through its type: reads and writes go straight to the
// variable's shared value buffer, so every element of a variable sees the same bytes. Integer
// fields are range-checked and clamped on write; engineering values follow the shared scaling
// rule.
class CDeviceVariableElement final : public IOrvexDataElement,
                                     public std::enable_shared_from_this<CDeviceVariableElement> {
public:
    // Binds the element once: its type, the shared buffer, the position of entry 0 and the number
    // of array entries (0 or less: no array). Elements must be owned by a shared_ptr.
    void InitElement(TypedefPtr typedef_, BufferPtr buffer, DataOffsetPtr offset,
                     std::int32_t elements);

    using IOrvexDataElement::SubElement;
    DataElementPtr SubElement(const VariantArray& subscripts) override;
    Variant Value(std::int32_t arrayIndex = 0) override;
    void SetValue(std::int32_t arrayIndex, const Variant& value) override;
    std::int32_t UnScaledValue(std::int32_t arrayIndex = 0) override;
    void SetUnScaledValue(std::int32_t arrayIndex, std::int32_t value) override;
    bool Undefined(std::int32_t arrayIndex = 0) override;
    TypedefPtr Typedef() const override { return m_typedef; }
    std::int32_t LBound() const override { return 0; }
    std::int32_t UBound() const override;

    // The last error SubElement swallowed during its most recent call, if any.
    const std::optional<ComError>& LastError() const noexcept { return m_lastError; }

    // Bound parts, for the creator of elements.
    const BufferPtr& Buffer() const noexcept { return m_buffer; }
    const DataOffsetPtr& Offset() const noexcept { return m_offset; }
    std::int32_t Elements() const noexcept { return m_elements; }

    // Raw and engineering limits of the field: the bit width's range intersected with the declared
    // minimum and maximum (integers), or the declared range (floats). The width's own range
    // (RawTypeMin, RawTypeMax) overflows where it leaves the Long range; the intersection never
    // does, as the declared limits are Longs.
    std::int32_t RawTypeMin() const;
    std::int32_t RawTypeMax() const;
    std::int32_t RawMin() const;
    std::int32_t RawMax() const;
    float ScaledMin() const;
    float ScaledMax() const;

private:
    // Whether entry `zeroBasedArrayIdx` can hold a value (the value is not looked at).
    bool CanStore(const Variant& value, std::int32_t zeroBasedArrayIdx) const;
    // The same for a type whose category the caller has just read.
    bool CanStore(std::int32_t category, std::int32_t zeroBasedArrayIdx) const noexcept {
        if (category == kCategoryStructure) return false;
        return m_elements < 1 || zeroBasedArrayIdx < m_elements;
    }
    // One navigation step of SubElement.
    static void ApplySubscript(const Variant& key, ElementdefPtr& currentDef,
                               TypedefPtr& currentType, DataOffsetPtr& currentOffset);
    // The bound type's facts and the buffer; unbound raises object not set (91).
    const CachedTypedef& Type() const {
        if (!m_typedef) RaiseNotBound();
        return m_facts;
    }
    CBuffer& Bytes() const {
        if (!m_buffer) RaiseNotBound();
        return *m_buffer;
    }
    [[noreturn]] static void RaiseNotBound();
    // The limits of an integer field (category 1), and those limits as engineering values: inline
    // once worked out, as every integer write clamps with them.
    std::int32_t IntegerRawMin() const {
        return m_limits.Has(Limits::kRawMin) ? m_limits.rawMin : LearnIntegerRawMin();
    }
    std::int32_t IntegerRawMax() const {
        return m_limits.Has(Limits::kRawMax) ? m_limits.rawMax : LearnIntegerRawMax();
    }
    float ScaledIntegerMin() const {
        return m_limits.Has(Limits::kScaledMin) ? m_limits.scaledMin : LearnScaledIntegerMin();
    }
    float ScaledIntegerMax() const {
        return m_limits.Has(Limits::kScaledMax) ? m_limits.scaledMax : LearnScaledIntegerMax();
    }
    // The bit width's range, exact.
    double WidthMin() const;
    double WidthMax() const;
    std::int32_t LearnIntegerRawMin() const;
    std::int32_t LearnIntegerRawMax() const;
    float LearnScaledIntegerMin() const;
    float LearnScaledIntegerMax() const;
    float Scaled(std::int32_t raw) const;
    // The entry the buffer is asked for: the index of an array field, 0 for any other field.
    std::int32_t Entry(std::int32_t arrayIndex) const noexcept {
        return m_elements < 1 ? 0 : arrayIndex;
    }

    // Limits worked out from the type's facts, kept once worked out (a limit whose working out
    // fails, say by overflow, is worked out again next time and fails the same way).
    struct Limits {
        enum Known : std::uint8_t {
            kRawMin = 1u << 0,
            kRawMax = 1u << 1,
            kScaledMin = 1u << 2,
            kScaledMax = 1u << 3,
        };
        bool Has(Known limit) const noexcept { return (known & limit) != 0; }
        std::uint8_t known = 0;
        std::int32_t rawMin = 0;
        std::int32_t rawMax = 0;
        float scaledMin = 0.0F;
        float scaledMax = 0.0F;
    };

    TypedefPtr m_typedef;
    // The facts of m_typedef, asked once each (docs/decisions.md: a type description does not
    // change once an element has used it); reset with every binding.
    CachedTypedef m_facts;
    mutable Limits m_limits;
    DataOffsetPtr m_offset;
    BufferPtr m_buffer;
    std::int32_t m_elements = 0;
    std::optional<ComError> m_lastError;
};

using DeviceVariableElementPtr = std::shared_ptr<CDeviceVariableElement>;

}  // namespace vx
