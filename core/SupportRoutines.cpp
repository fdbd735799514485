#include "SupportRoutines.h"

#include <cstdio>
#include <vector>

#include "automation/Clock.h"
#include "automation/Conversions.h"
#include "automation/Overflow.h"

namespace vx {

std::string BytesToHex(const ByteArray& bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(bytes.Count() * 2);
    for (const std::uint8_t byte : bytes.Values()) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0x0F];
    }
    return hex;
}

ByteArray HexToBytes(std::string_view hex) {
    std::string digits(hex);
    if (digits.size() % 2 != 0) digits.insert(digits.begin(), '0');
    auto bytes = ByteArray::WithBounds(1, static_cast<std::int32_t>(digits.size() / 2));
    for (std::int32_t i = 1; i <= bytes.UBound(); ++i) {
        const auto pair = digits.substr(static_cast<std::size_t>(2 * i - 2), 2);
        bytes(i) = CByte(TextToNumber("&H" + pair));
    }
    return bytes;
}

std::vector<std::string_view> SplitText(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    if (text.empty()) return pieces;
    for (;;) {
        const auto at = text.find(separator);
        pieces.push_back(text.substr(0, at));
        if (at == std::string_view::npos) return pieces;
        text.remove_prefix(at + 1);
    }
}

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

std::string FormatDashedHex(std::string_view text) {
    std::string dashed(text.substr(0, 2));
    for (std::size_t at = 2; at + 1 < text.size(); at += 2) {
        dashed += '-';
        dashed += text.substr(at, 2);
    }
    return dashed;
}

std::string BytesToText(const Variant& bytes) {
    const auto* array = bytes.Get<ByteArray>();
    if (array == nullptr) return {};
    std::string text;
    for (const std::uint8_t byte : array->Values()) {
        if (byte == 0) break;
        text += static_cast<char>(byte);
    }
    return text;
}

float RawToScaled(std::int32_t raw, std::int32_t factor, bool multiplies) {
    if (factor < 2) return static_cast<float>(raw);
    if (multiplies) return static_cast<float>(CheckedMultiply(raw, factor));
    return static_cast<float>(static_cast<double>(raw) / factor);
}

std::int32_t ScaledToRaw(float value, std::int32_t factor, bool multiplies) {
    if (factor <= 1) return CLng(static_cast<double>(value));
    if (multiplies) return CLng(static_cast<double>(value) / factor);
    return CLng(static_cast<double>(value) * factor);
}

std::shared_ptr<CDataOffset> NewOffset(std::int32_t byteOffset, std::int32_t bitOffset) {
    auto offset = std::make_shared<CDataOffset>();
    offset->SetByteOffset(CByte(static_cast<double>(byteOffset)));
    offset->SetBitOffset(CByte(static_cast<double>(bitOffset)));
    return offset;
}

void SplitFields(std::string_view text, std::string& first, std::string& second, std::string& third,
                 std::string& fourth) {
    const auto pieces = SplitText(text, '|');
    if (pieces.size() < 3) RaiseRuntimeError(kErrSubscriptOutOfRange);
    first = pieces[0];
    second = pieces[1];
    third = pieces[2];
    fourth = pieces.size() > 3 ? std::string(pieces[3]) : std::string();
}

float PIUnsignedTwoBytesToSingle(std::uint8_t highByte, std::uint8_t lowByte) {
    std::string text = "&H" + Hex(highByte);
    const std::string low = Hex(lowByte);
    if (low.size() == 1) text += '0';
    text += low;
    return CSng(TextToNumber(text));
}

std::string PIConvertBinaryToHexString(const Variant& byteStream) {
    const auto* array = byteStream.Get<ByteArray>();
    return array == nullptr ? std::string() : BytesToHex(*array);
}

void Sleep(std::uint32_t milliseconds) {
    CurrentClock().Sleep(milliseconds);
}

std::chrono::system_clock::time_point Now() {
    return CurrentClock().Now();
}

}  // namespace vx
