#pragma once

// Hexadecimal texts as hosts exchange bytes: two digits per byte.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vx {

inline int HexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The bytes of a text of hexadecimal digit pairs, either case; blanks between the digits are
// skipped when `blanks` is set. Nothing for any other character or an odd number of digits.
inline std::optional<std::vector<std::uint8_t>> ParseHex(std::string_view text,
                                                         bool blanks = false) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    int high = -1;
    for (const char c : text) {
        if (blanks && c == ' ') continue;
        const int digit = HexDigitValue(c);
        if (digit < 0) return std::nullopt;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    if (high >= 0) return std::nullopt;
    return bytes;
}

// Two upper-case digits per byte.
inline std::string ToHex(std::span<const std::uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

}  // namespace vx
