#include "automation/Conversions.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace vx {
namespace {

template <typename Int>
Int ToIntegral(double value) {
    if (std::isnan(value)) RaiseRuntimeError(kErrOverflow);
    const double rounded = RoundHalfEven(value);
    if (rounded < static_cast<double>(std::numeric_limits<Int>::min()) ||
        rounded > static_cast<double>(std::numeric_limits<Int>::max())) {
        RaiseRuntimeError(kErrOverflow);
    }
    return static_cast<Int>(rounded);
}

std::string_view Trim(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// "&H..." / "&O..." texts: digits of the radix only, with an optional trailing "&" for Long.
double RadixTextToNumber(std::string_view digits, int radix) {
    bool forceLong = false;
    if (!digits.empty() && digits.back() == '&') {
        forceLong = true;
        digits.remove_suffix(1);
    }
    if (digits.empty()) RaiseRuntimeError(kErrTypeMismatch);
    std::uint64_t magnitude = 0;
    for (char c : digits) {
        int digit = -1;
        if (c >= '0' && c <= '9') digit = c - '0';
        if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        if (digit < 0 || digit >= radix) RaiseRuntimeError(kErrTypeMismatch);
        magnitude = magnitude * static_cast<unsigned>(radix) + static_cast<unsigned>(digit);
        if (magnitude > 0xFFFFFFFFu) RaiseRuntimeError(kErrOverflow);
    }
    if (!forceLong && magnitude <= 0xFFFFu) {
        return static_cast<double>(
            static_cast<std::int16_t>(static_cast<std::uint16_t>(magnitude)));
    }
    return static_cast<double>(static_cast<std::int32_t>(static_cast<std::uint32_t>(magnitude)));
}

std::string FormatSignificant(double value, int digits) {
    if (value == 0.0) return "0";
    char text[64];
    std::snprintf(text, sizeof text, "%.*G", digits, value);
    return text;  // %G matches the platform's shape: 2.5, 1E+38, 1.5E-05
}

}  // namespace

double RoundHalfEven(double value) noexcept {
    if (std::fabs(value) < 0x1p52 && value != 0.0) {
        // Below 2^52 the integer part fits an int64_t and every step is exact; a zero keeps its
        // sign by taking the general path.
        const auto whole = static_cast<std::int64_t>(value);  // toward zero
        const std::int64_t floored = static_cast<double>(whole) > value ? whole - 1 : whole;
        const auto lower = static_cast<double>(floored);
        const double fraction = value - lower;
        if (fraction > 0.5) return lower + 1.0;
        if (fraction < 0.5) return lower;
        return (floored & 1) == 0 ? lower : lower + 1.0;
    }
    const double lower = std::floor(value);
    const double fraction = value - lower;
    if (fraction > 0.5) return lower + 1.0;
    if (fraction < 0.5) return lower;
    return std::fmod(lower, 2.0) == 0.0 ? lower : lower + 1.0;
}

std::int32_t CLng(double value) {
    return ToIntegral<std::int32_t>(value);
}
std::int16_t CInt(double value) {
    return ToIntegral<std::int16_t>(value);
}
std::uint8_t CByte(double value) {
    return ToIntegral<std::uint8_t>(value);
}

float CSng(double value) {
    if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max()) {
        RaiseRuntimeError(kErrOverflow);
    }
    return static_cast<float>(value);
}

double TextToNumber(std::string_view text) {
    text = Trim(text);
    if (text.size() >= 2 && text[0] == '&') {
        const char radix = static_cast<char>(std::toupper(static_cast<unsigned char>(text[1])));
        if (radix == 'H') return RadixTextToNumber(text.substr(2), 16);
        if (radix == 'O') return RadixTextToNumber(text.substr(2), 8);
        RaiseRuntimeError(kErrTypeMismatch);
    }
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    // from_chars accepts exactly sign, digits, point and exponent; nothing may be left over.
    double result = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
    if (text.empty() || error == std::errc::invalid_argument || end != text.data() + text.size()) {
        RaiseRuntimeError(kErrTypeMismatch);
    }
    if (error == std::errc::result_out_of_range) RaiseRuntimeError(kErrOverflow);
    return result;
}

double CDbl(const Variant& value) {
    switch (value.Type()) {
        case vbEmpty:
            return 0.0;
        case vbNull:
            RaiseRuntimeError(kErrInvalidUseOfNull);
        case vbInteger:
            return *value.Get<std::int16_t>();
        case vbLong:
            return *value.Get<std::int32_t>();
        case vbSingle:
            return *value.Get<float>();
        case vbDouble:
            return *value.Get<double>();
        case vbBoolean:
            return *value.Get<bool>() ? -1.0 : 0.0;
        case vbByte:
            return *value.Get<std::uint8_t>();
        case vbString:
            return TextToNumber(*value.Get<std::string>());
        default:
            RaiseRuntimeError(kErrTypeMismatch);
    }
}

std::int32_t CLng(const Variant& value) {
    return CLng(CDbl(value));
}
std::int16_t CInt(const Variant& value) {
    return CInt(CDbl(value));
}
std::uint8_t CByte(const Variant& value) {
    return CByte(CDbl(value));
}
float CSng(const Variant& value) {
    return CSng(CDbl(value));
}

bool CBool(const Variant& value) {
    if (const auto* text = value.Get<std::string>()) {
        const std::string_view trimmed = Trim(*text);
        if (EqualsNoCase(trimmed, "True")) return true;
        if (EqualsNoCase(trimmed, "False")) return false;
        return TextToNumber(trimmed) != 0.0;
    }
    if (const auto* flag = value.Get<bool>()) return *flag;
    return CDbl(value) != 0.0;
}

std::string CStr(const Variant& value) {
    switch (value.Type()) {
        case vbEmpty:
            return {};
        case vbNull:
            RaiseRuntimeError(kErrInvalidUseOfNull);
        case vbInteger:
            return std::to_string(*value.Get<std::int16_t>());
        case vbLong:
            return std::to_string(*value.Get<std::int32_t>());
        case vbByte:
            return std::to_string(*value.Get<std::uint8_t>());
        case vbSingle:
            return FormatSingle(*value.Get<float>());
        case vbDouble:
            return FormatDouble(*value.Get<double>());
        case vbBoolean:
            return *value.Get<bool>() ? "True" : "False";
        case vbString:
            return *value.Get<std::string>();
        default:
            RaiseRuntimeError(kErrTypeMismatch);
    }
}

double Int(double value) noexcept {
    return std::floor(value);
}
double Fix(double value) noexcept {
    return std::trunc(value);
}

std::int32_t Mod(std::int32_t dividend, std::int32_t divisor) {
    if (divisor == 0) RaiseRuntimeError(kErrDivisionByZero);
    if (divisor == -1) return 0;  // also keeps INT_MIN Mod -1 defined
    return dividend % divisor;    // C++ keeps the sign of the dividend, as the platform does
}

std::int32_t Mod(double dividend, double divisor) {
    return Mod(CLng(dividend), CLng(divisor));
}

std::string FormatSingle(float value) {
    return FormatSignificant(value, 7);
}
std::string FormatDouble(double value) {
    return FormatSignificant(value, 15);
}

std::string Hex(std::int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%X", static_cast<std::uint32_t>(value));
    return text;
}

}  // namespace vx
