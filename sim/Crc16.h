#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace vx::sim {

// CRC-16/X-25, the checksum the family's controllers keep over their configuration: polynomial
// 0x1021 processed least significant bit first (0x8408), register starting at 0xFFFF, the result
// complemented. Stored low byte first.
class Crc16X25 {
public:
    void Add(std::span<const std::uint8_t> bytes) {
        for (const std::uint8_t byte : bytes) {
            m_register ^= byte;
            for (int bit = 0; bit < 8; ++bit) {
                m_register = (m_register & 1) != 0
                                 ? static_cast<std::uint16_t>((m_register >> 1) ^ kPolynomial)
                                 : static_cast<std::uint16_t>(m_register >> 1);
            }
        }
    }
    std::uint16_t Value() const { return static_cast<std::uint16_t>(m_register ^ 0xFFFF); }
    // As the node stores it: low byte first.
    std::array<std::uint8_t, 2> StoredBytes() const {
        const std::uint16_t value = Value();
        return {static_cast<std::uint8_t>(value & 0xFF), static_cast<std::uint8_t>(value >> 8)};
    }

private:
    static constexpr std::uint16_t kPolynomial = 0x8408;
    std::uint16_t m_register = 0xFFFF;
};

}  // namespace vx::sim
