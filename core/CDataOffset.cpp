#include "CDataOffset.h"

namespace vx {

std::uint8_t CDataOffset::WideBitOffset() const {
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
    if (index >= 0) return std::make_shared<CDataOffset>(ArrayEntry(typedef_, index));
    return std::make_shared<CDataOffset>(*this);
}

}  // namespace vx
