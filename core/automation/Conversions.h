#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "automation/Variant.h"

namespace vx {

// Conversions with the platform's rules: rounding to integers is to nearest with ties to even,
// results outside the target type raise overflow (6), texts that are no number raise type
// mismatch (13), Null raises invalid use of Null (94). Boolean True is -1 as a number.

// Rounds to the nearest integer, ties to the even neighbour (2.5 -> 2, 3.5 -> 4, -2.5 -> -2).
double RoundHalfEven(double value) noexcept;

std::int32_t CLng(double value);
std::int16_t CInt(double value);
std::uint8_t CByte(double value);
float CSng(double value);

std::int32_t CLng(const Variant& value);
std::int16_t CInt(const Variant& value);
std::uint8_t CByte(const Variant& value);
float CSng(const Variant& value);
double CDbl(const Variant& value);
bool CBool(const Variant& value);
std::string CStr(const Variant& value);

// Text to number as the platform reads it: optional blanks, sign, digits, decimal point and
// exponent, or a "&H" (hexadecimal) or "&O" (octal) text. Hexadecimal and octal texts of up to
// 16 bits are read as a signed Integer (&HFFFF is -1), longer ones up to 32 bits as a signed Long;
// a trailing "&" forces Long (&HFFFF& is 65535).
double TextToNumber(std::string_view text);

// Int: the largest integer not above the value (Int(-2.5) is -3).
double Int(double value) noexcept;
// Fix: the integer part, toward zero.
double Fix(double value) noexcept;
// a Mod b: the remainder with the sign of the dividend; b = 0 raises division by zero (11).
std::int32_t Mod(std::int32_t dividend, std::int32_t divisor);
// Mod on non-integers: both operands are first rounded to Long, as the platform does.
std::int32_t Mod(double dividend, double divisor);

// Platform formatting of numbers as text (CStr): 7 significant digits for Single, 15 for Double.
std::string FormatSingle(float value);
std::string FormatDouble(double value);

// Hexadecimal digits of a number without padding, upper case (the platform's Hex).
std::string Hex(std::int32_t value);

}  // namespace vx
