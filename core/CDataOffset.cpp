#include "CDataOffset.h"

#include "automation/Conversions.h"
#include "automation/Overflow.h"

namespace vx {

std::uint8_t CDataOffset::BitOffset() const {
    if (m_bitOffset >= 0 && m_bitOffset <= 255) return static_cast<std::uint8_t>(m_bitOffset);
    return CByte(static_cast<double>(m_bitOffset));
}

void CDataOffset::Load(const IOrvexElementdef& def) {
    m_byteOffset = CByte(static_cast<double>(def.ByteOffset()));
    m_bitOffset = def.BitOffset();
}

void CDataOffset::Add(const IOrvexElementdef& def) {
    const std::int32_t bits = CheckedAdd(m_bitOffset, def.BitOffset());
    m_bitOffset = Mod(bits, 8);
    const double bytes = Int(bits / 8.0) + m_byteOffset + static_cast<double>(def.ByteOffset());
    m_byteOffset = CByte(bytes);
}

std::shared_ptr<CDataOffset> CDataOffset::CreateArrayOffset(const IOrvexTypedef& typedef_,
                                                            std::int32_t index) const {
    auto offset = std::make_shared<CDataOffset>();
    if (index >= 0) {
        const std::int32_t total = CheckedAdd(CheckedAdd(m_byteOffset * 8, m_bitOffset),
                                              CheckedMultiply(typedef_.BitSize(), index));
        offset->m_bitOffset = CByte(static_cast<double>(Mod(total, 8)));
        offset->m_byteOffset = CByte(Int(total / 8.0));
    } else {
        *offset = *this;
    }
    return offset;
}

}  // namespace vx
