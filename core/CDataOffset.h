#pragma once

#include <cstdint>
#include <memory>

#include "automation/Conversions.h"
#include "automation/Overflow.h"
#include "interfaces/IOrvexElementdef.h"

namespace vx {

// Where a field starts in a value buffer: a byte and a bit (0 = least significant) in that byte.
class CDataOffset {
public:
    std::uint8_t ByteOffset() const noexcept { return m_byteOffset; }
    void SetByteOffset(std::uint8_t value) noexcept { m_byteOffset = value; }
    // Raises overflow when the held bit offset lies outside 0..255.
    std::uint8_t BitOffset() const {
        // Inline because every typed read and write asks; only a loaded bit offset can be wider.
        if (m_bitOffset >= 0 && m_bitOffset <= 255) return static_cast<std::uint8_t>(m_bitOffset);
        return WideBitOffset();
    }
    void SetBitOffset(std::uint8_t value) noexcept { m_bitOffset = value; }

    // Takes the definition's position.
    void Load(const IOrvexElementdef& def);
    // Moves by the definition's position; past byte 255 raises overflow.
    void Add(const IOrvexElementdef& def);
    // A new offset for entry `index` of an array of elements of `typedef_.BitSize()` bits; a
    // negative index gives a copy of this offset. This offset is unchanged.
    std::shared_ptr<CDataOffset> CreateArrayOffset(const IOrvexTypedef& typedef_,
                                                   std::int32_t index) const;
    // Entry `index` (0 or more) as CreateArrayOffset gives it, as a value. `type` is anything
    // with IOrvexTypedef's BitSize(): the codec passes its cached type facts, which spares the
    // hot paths an allocation and a question to the type.
    template <typename Type>
    CDataOffset ArrayEntry(const Type& type, std::int32_t index) const {
        CDataOffset entry;
        const std::int32_t total = CheckedAdd(CheckedAdd(m_byteOffset * 8, m_bitOffset),
                                              CheckedMultiply(type.BitSize(), index));
        entry.m_bitOffset = CByte(static_cast<double>(Mod(total, 8)));
        entry.m_byteOffset = CByte(Int(total / 8.0));
        return entry;
    }

private:
    std::uint8_t WideBitOffset() const;

    std::uint8_t m_byteOffset = 0;
    std::int32_t m_bitOffset = 0;
};

using DataOffsetPtr = std::shared_ptr<CDataOffset>;

}  // namespace vx
