#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CDataOffset.h"
#include "automation/Variant.h"

namespace vx {

// Two upper-case hexadecimal digits per byte, from the lower bound up; "" for no bytes.
std::string BytesToHex(const ByteArray& bytes);
// Hexadecimal text to bytes, 1-based; an odd-length text is read with a leading "0". A character
// that is no hexadecimal digit raises type mismatch (13); an empty text raises subscript (9).
ByteArray HexToBytes(std::string_view hex);
// "0102AB" -> "01-02-AB"; a text of odd length loses its last character.
std::string FormatDashedHex(std::string_view text);
// Characters of a byte array up to the first zero byte; "" for anything that is no byte array.
std::string BytesToText(const Variant& bytes);

// The shared scaling rule: factors below 2 mean no scaling; `multiplies` True means
// engineering = raw x factor, False engineering = raw / factor.
float RawToScaled(std::int32_t raw, std::int32_t factor, bool multiplies);
std::int32_t ScaledToRaw(float value, std::int32_t factor, bool multiplies);

// A new offset at (byte, bit); either outside 0..255 raises overflow (6).
std::shared_ptr<CDataOffset> NewOffset(std::int32_t byteOffset, std::int32_t bitOffset);

// The platform's Split: the pieces between the separators; a text without one is one piece, and
// an empty text has none.
std::vector<std::string_view> SplitText(std::string_view text, char separator);
// The platform's Trim: leading and trailing spaces removed (other blanks stay).
std::string_view TrimBlanks(std::string_view text);
// Splits "a|b|c[|d...]": the first three pieces, the fourth or "". Fewer than three pieces raise
// subscript out of range (9).
void SplitFields(std::string_view text, std::string& first, std::string& second, std::string& third,
                 std::string& fourth);

// "&H" + hex(high) + hex(low, two digits), read as the platform reads such a text.
float PIUnsignedTwoBytesToSingle(std::uint8_t highByte, std::uint8_t lowByte);
// BytesToHex of a Variant holding bytes; "" for anything else.
std::string PIConvertBinaryToHexString(const Variant& byteStream);

// Waiting and time through the installed clock.
void Sleep(std::uint32_t milliseconds);
std::chrono::system_clock::time_point Now();

}  // namespace vx
