#pragma once

// Reads forward through received bytes: every read is checked against the end and leaves the
// position unchanged when it fails, so a short or malformed packet can never be read past.

#include <cstdint>
#include <span>
#include <string>

namespace vx::lon {

class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    bool Take(std::uint8_t& byte) {
        if (m_at >= m_bytes.size()) return false;
        byte = m_bytes[m_at++];
        return true;
    }
    bool Take(std::span<std::uint8_t> out) {
        if (m_bytes.size() - m_at < out.size()) return false;
        for (auto& byte : out)
            byte = m_bytes[m_at++];
        return true;
    }
    // Two bytes, most significant first.
    bool TakeWord(std::uint16_t& word) {
        if (m_bytes.size() - m_at < 2) return false;
        word = static_cast<std::uint16_t>(m_bytes[m_at] << 8 | m_bytes[m_at + 1]);
        m_at += 2;
        return true;
    }
    // A zero-terminated text; false when no zero follows before the end.
    bool TakeText(std::string& text) {
        for (std::size_t end = m_at; end < m_bytes.size(); ++end) {
            if (m_bytes[end] != 0) continue;
            text.assign(m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at),
                        m_bytes.begin() + static_cast<std::ptrdiff_t>(end));
            m_at = end + 1;
            return true;
        }
        return false;
    }
    std::span<const std::uint8_t> Rest() const { return m_bytes.subspan(m_at); }

private:
    std::span<const std::uint8_t> m_bytes;
    std::size_t m_at = 0;
};

}  // namespace vx::lon
