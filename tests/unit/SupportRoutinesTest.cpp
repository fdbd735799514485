#include "SupportRoutines.h"

#include <gtest/gtest.h>

#include <memory>
#include <string_view>
#include <vector>

#include "automation/Clock.h"
#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

TEST(HexTexts, BytesToHexPadsEveryByteToTwoUpperCaseDigits) {
    EXPECT_EQ(BytesToHex(ByteArray(0, {0, 15, 16, 255})), "000F10FF");
    EXPECT_EQ(BytesToHex(ByteArray(5, {0xAB})), "AB");
    EXPECT_EQ(BytesToHex(ByteArray()), "");
    EXPECT_EQ(PIConvertBinaryToHexString(Variant(ByteArray(1, {1, 0xA0}))), "01A0");
    EXPECT_EQ(PIConvertBinaryToHexString(Variant("not bytes")), "");
}

TEST(HexTexts, HexToBytesIsOneBasedAndPadsOddTexts) {
    const ByteArray bytes = HexToBytes("ABC");
    EXPECT_EQ(bytes, ByteArray(1, {10, 188}));
    EXPECT_EQ(HexToBytes("00ff10"), ByteArray(1, {0, 255, 16}));
    EXPECT_EQ(BytesToHex(HexToBytes("0123456789ABCDEF")), "0123456789ABCDEF");
    EXPECT_COM_ERROR(HexToBytes("0G"), kErrTypeMismatch);
    EXPECT_COM_ERROR(HexToBytes("- 1"), kErrTypeMismatch);
    EXPECT_COM_ERROR(HexToBytes(""), kErrSubscriptOutOfRange);
}

TEST(HexTexts, DashedForm) {
    EXPECT_EQ(FormatDashedHex("04A2C7150100"), "04-A2-C7-15-01-00");
    EXPECT_EQ(FormatDashedHex("ABCDE"), "AB-CD");  // odd length loses its last character
    EXPECT_EQ(FormatDashedHex("A"), "A");
    EXPECT_EQ(FormatDashedHex(""), "");
}

TEST(BytesToText, StopsAtTheFirstZeroAndNeverRaises) {
    EXPECT_EQ(BytesToText(Variant(ByteArray(0, {65, 66, 0, 67}))), "AB");
    EXPECT_EQ(BytesToText(Variant(ByteArray(1, {0xE9, 0x41}))),
              "\xE9"
              "A");  // ANSI one to one
    EXPECT_EQ(BytesToText(Variant(ByteArray())), "");
    EXPECT_EQ(BytesToText(Variant(3)), "");
}

TEST(Scaling, RawToScaledAndBack) {
    EXPECT_EQ(RawToScaled(25, 10, false), 2.5f);
    EXPECT_EQ(RawToScaled(25, 10, true), 250.0f);
    EXPECT_EQ(RawToScaled(25, 1, false), 25.0f);
    EXPECT_EQ(RawToScaled(25, 0, true), 25.0f);
    EXPECT_EQ(RawToScaled(25, -5, false), 25.0f);
    EXPECT_EQ(RawToScaled(2345, 100, false), 23.45f);  // rounded from the double quotient
    EXPECT_COM_ERROR(RawToScaled(1 << 30, 4, true), kErrOverflow);

    EXPECT_EQ(ScaledToRaw(2.5f, 10, false), 25);
    EXPECT_EQ(ScaledToRaw(0.25f, 10, true), 0);  // 0.025 rounds to 0
    EXPECT_EQ(ScaledToRaw(2.5f, 1, true), 2);    // no scaling, ties to even
    EXPECT_EQ(ScaledToRaw(3.5f, 0, false), 4);
    EXPECT_EQ(ScaledToRaw(23.45f, 100, false), 2345);
    EXPECT_COM_ERROR(ScaledToRaw(3e9f, 1, false), kErrOverflow);
}

TEST(SplitText, PiecesBetweenSeparatorsAndNoneForAnEmptyText) {
    using Pieces = std::vector<std::string_view>;
    EXPECT_EQ(SplitText("a,b", ','), (Pieces{"a", "b"}));
    EXPECT_EQ(SplitText("a", ','), (Pieces{"a"}));
    EXPECT_EQ(SplitText(",", ','), (Pieces{"", ""}));
    EXPECT_TRUE(SplitText("", ',').empty());
}

TEST(SplitFields, ThreeOrFourPieces) {
    std::string a, b, c, d = "stale";
    SplitFields("x|y|z", a, b, c, d);
    EXPECT_EQ(a + b + c, "xyz");
    EXPECT_EQ(d, "");
    SplitFields("1||3|4|5", a, b, c, d);
    EXPECT_EQ(b, "");
    EXPECT_EQ(d, "4");
    EXPECT_COM_ERROR(SplitFields("x|y", a, b, c, d), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(SplitFields("", a, b, c, d), kErrSubscriptOutOfRange);
}

TEST(TwoBytesToSingle, BuildsAHexTextFromBothBytes) {
    EXPECT_EQ(PIUnsignedTwoBytesToSingle(1, 2), 258.0f);
    EXPECT_EQ(PIUnsignedTwoBytesToSingle(0, 0), 0.0f);
    EXPECT_EQ(PIUnsignedTwoBytesToSingle(0x12, 0xAB), 4779.0f);
    EXPECT_EQ(PIUnsignedTwoBytesToSingle(0x7F, 0xFF), 32767.0f);
    EXPECT_EQ(PIUnsignedTwoBytesToSingle(0x80, 0x00), -32768.0f);  // read as a signed Integer
}

TEST(NewOffset, LoadsBothFieldsAndRefusesValuesOutsideAByte) {
    const auto offset = NewOffset(255, 7);
    EXPECT_EQ(offset->ByteOffset(), 255);
    EXPECT_EQ(offset->BitOffset(), 7);
    EXPECT_COM_ERROR(NewOffset(256, 0), kErrOverflow);
    EXPECT_COM_ERROR(NewOffset(-1, 0), kErrOverflow);
    EXPECT_COM_ERROR(NewOffset(0, 256), kErrOverflow);
}

TEST(Waiting, GoesThroughTheInstalledClock) {
    auto clock = std::make_shared<VirtualClock>();
    const ScopedClock installed(clock);
    const auto start = Now();
    Sleep(90000);
    Sleep(1000);
    EXPECT_EQ(clock->SleptMilliseconds(), 91000u);
    EXPECT_EQ(clock->SleepCalls(), 2u);
    EXPECT_EQ(Now() - start, std::chrono::milliseconds(91000));
}

}  // namespace
}  // namespace vx
