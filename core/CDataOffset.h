#pragma once

#include <cstdint>
#include <memory>

#include "interfaces/IOrvexElementdef.h"

namespace vx {

// Where a field starts in a value buffer: a byte and a bit (0 = least significant) in that byte.
class CDataOffset {
public:
    std::uint8_t ByteOffset() const noexcept { return m_byteOffset; }
    void SetByteOffset(std::uint8_t value) noexcept { m_byteOffset = value; }
    // Raises overflow when the held bit offset lies outside 0..255.
    std::uint8_t BitOffset() const;
    void SetBitOffset(std::uint8_t value) noexcept { m_bitOffset = value; }

    // Takes the definition's position.
    void Load(const IOrvexElementdef& def);
    // Moves by the definition's position; past byte 255 raises overflow.
    void Add(const IOrvexElementdef& def);
    // A new offset for entry `index` of an array of elements of `typedef_.BitSize()` bits; a
    // negative index gives a copy of this offset. This offset is unchanged.
    std::shared_ptr<CDataOffset> CreateArrayOffset(const IOrvexTypedef& typedef_,
                                                   std::int32_t index) const;

private:
    std::uint8_t m_byteOffset = 0;
    std::int32_t m_bitOffset = 0;
};

using DataOffsetPtr = std::shared_ptr<CDataOffset>;

}  // namespace vx
