#include "automation/Conversions.h"

#include <gtest/gtest.h>

#include <limits>

#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

TEST(Conversions, RoundingToIntegersIsHalfToEven) {
    EXPECT_EQ(CLng(2.5), 2);
    EXPECT_EQ(CLng(3.5), 4);
    EXPECT_EQ(CLng(-2.5), -2);
    EXPECT_EQ(CLng(-3.5), -4);
    EXPECT_EQ(CLng(0.5), 0);
    EXPECT_EQ(CLng(1.5), 2);
    EXPECT_EQ(CLng(2.4999), 2);
    EXPECT_EQ(CLng(-0.5000001), -1);
    EXPECT_EQ(CInt(Variant(6.5)), 6);
    EXPECT_EQ(CByte(Variant(254.5)), 254);
}

TEST(Conversions, OverflowAtTheEdgesOfLongIntegerAndByte) {
    EXPECT_EQ(CLng(2147483647.0), 2147483647);
    EXPECT_EQ(CLng(-2147483648.0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(CLng(2147483647.4), 2147483647);
    EXPECT_COM_ERROR(CLng(2147483647.5), kErrOverflow);  // rounds up to 2^31
    EXPECT_COM_ERROR(CLng(-2147483649.0), kErrOverflow);
    EXPECT_COM_ERROR(CLng(std::numeric_limits<double>::quiet_NaN()), kErrOverflow);

    EXPECT_EQ(CInt(32767.0), 32767);
    EXPECT_EQ(CInt(-32768.0), -32768);
    EXPECT_EQ(CInt(-32768.5), -32768);  // ties to even stay inside
    EXPECT_COM_ERROR(CInt(32767.5), kErrOverflow);
    EXPECT_COM_ERROR(CInt(-32769.0), kErrOverflow);

    EXPECT_EQ(CByte(255.0), 255);
    EXPECT_EQ(CByte(-0.5), 0);
    EXPECT_COM_ERROR(CByte(256.0), kErrOverflow);
    EXPECT_COM_ERROR(CByte(-1.0), kErrOverflow);
    EXPECT_COM_ERROR(CByte(Variant(true)), kErrOverflow);  // True is -1

    EXPECT_COM_ERROR(CSng(1e39), kErrOverflow);
}

TEST(Conversions, HexadecimalTextsFollowThePlatformsWidths) {
    EXPECT_EQ(TextToNumber("&H0"), 0);
    EXPECT_EQ(TextToNumber("&HFF"), 255);
    EXPECT_EQ(TextToNumber("&hff"), 255);
    EXPECT_EQ(TextToNumber("&H102"), 258);
    EXPECT_EQ(TextToNumber("&H7FFF"), 32767);
    EXPECT_EQ(TextToNumber("&H8000"), -32768);  // four digits read as a signed Integer
    EXPECT_EQ(TextToNumber("&HFFFF"), -1);
    EXPECT_EQ(TextToNumber("&HFFFF&"), 65535);  // the Long suffix
    EXPECT_EQ(TextToNumber("&H10000"), 65536);
    EXPECT_EQ(TextToNumber("&HFFFFFFFF"), -1);
    EXPECT_EQ(TextToNumber("&O17"), 15);
    EXPECT_EQ(TextToNumber(" &H1A "), 26);
    EXPECT_COM_ERROR(TextToNumber("&H100000000"), kErrOverflow);
    EXPECT_COM_ERROR(TextToNumber("&H"), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("&HZZ"), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("&H1G"), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("&O8"), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("&X1"), kErrTypeMismatch);
}

TEST(Conversions, DecimalTexts) {
    EXPECT_EQ(TextToNumber("42"), 42);
    EXPECT_EQ(TextToNumber(" -2.5 "), -2.5);
    EXPECT_EQ(TextToNumber("+7"), 7);
    EXPECT_EQ(TextToNumber("1e3"), 1000);
    EXPECT_EQ(CLng(Variant("2.5")), 2);
    EXPECT_COM_ERROR(TextToNumber(""), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("   "), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("12abc"), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("abc"), kErrTypeMismatch);
    EXPECT_COM_ERROR(TextToNumber("1e999"), kErrOverflow);
}

TEST(Conversions, VariantsToNumbersTextsAndBooleans) {
    EXPECT_EQ(CLng(Variant()), 0);
    EXPECT_EQ(CDbl(Variant(true)), -1.0);
    EXPECT_COM_ERROR(CLng(Variant::Null()), kErrInvalidUseOfNull);
    EXPECT_COM_ERROR(CStr(Variant::Null()), kErrInvalidUseOfNull);
    EXPECT_COM_ERROR(CLng(Variant(ByteArray(0, {1}))), kErrTypeMismatch);

    EXPECT_TRUE(CBool(Variant("true")));
    EXPECT_FALSE(CBool(Variant(" False ")));
    EXPECT_TRUE(CBool(Variant("-3")));
    EXPECT_FALSE(CBool(Variant(0.0)));
    EXPECT_COM_ERROR(CBool(Variant("maybe")), kErrTypeMismatch);

    EXPECT_EQ(CStr(Variant()), "");
    EXPECT_EQ(CStr(Variant(true)), "True");
    EXPECT_EQ(CStr(Variant(std::int16_t{-5})), "-5");
    EXPECT_EQ(CStr(Variant(std::uint8_t{200})), "200");
    EXPECT_EQ(CStr(Variant(2.5f)), "2.5");
    EXPECT_EQ(CStr(Variant(0.1f)), "0.1");  // 7 digits hide the Single's binary noise
    EXPECT_EQ(CStr(Variant(1e38f)), "1E+38");
    EXPECT_EQ(CStr(Variant(0.00001)), "1E-05");
    EXPECT_EQ(CStr(Variant(-0.0)), "0");
    EXPECT_EQ(CStr(Variant(123456789.0)), "123456789");
}

TEST(Conversions, IntFloorsFixTruncatesModKeepsTheDividendsSign) {
    EXPECT_EQ(Int(2.7), 2);
    EXPECT_EQ(Int(-2.5), -3);
    EXPECT_EQ(Int(-0.1), -1);
    EXPECT_EQ(Fix(-2.5), -2);

    EXPECT_EQ(Mod(7, 3), 1);
    EXPECT_EQ(Mod(-7, 3), -1);
    EXPECT_EQ(Mod(7, -3), 1);
    EXPECT_EQ(Mod(-7, -3), -1);
    EXPECT_EQ(Mod(std::numeric_limits<std::int32_t>::min(), -1), 0);
    EXPECT_EQ(Mod(7.5, 3.0), 2);  // 7.5 rounds to 8 first
    EXPECT_COM_ERROR(Mod(1, 0), kErrDivisionByZero);
    EXPECT_COM_ERROR(Mod(1.0, 0.4), kErrDivisionByZero);  // 0.4 rounds to 0
}

}  // namespace
}  // namespace vx
