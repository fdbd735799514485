// The bit and byte field codec of CBuffer. Expected bytes are worked out by hand from the field
// layout: bits counted from the least significant bit of each byte, bytes in increasing order,
// multi-byte values most significant byte first.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "CBuffer.h"
#include "SupportRoutines.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/FakeTypes.h"
#include "resources/StringTable.h"

namespace vx {
namespace {

using test::FakeTypedef;

constexpr std::int32_t kLoadFailed = LibraryErrorNumber(kIdBufferLoadFailed);

ByteArray Bytes(std::vector<std::uint8_t> values) {
    return ByteArray(0, std::move(values));
}

// A loaded buffer that counts its Modified events.
struct Loaded {
    explicit Loaded(std::vector<std::uint8_t> values)
        : token(buffer.Modified().Subscribe([this] { ++modified; })) {
        buffer.SetBytes(Bytes(std::move(values)));
    }
    std::vector<std::uint8_t> Content() { return buffer.GetBytes().Values(); }

    CBuffer buffer;
    int modified = 0;
    Event<>::Subscription token;
};

using ByteVector = std::vector<std::uint8_t>;

TEST(Codec, ByteRoutinesAtTheirEdges) {
    EXPECT_EQ(CBuffer::ShiftByte(0xB4, 2), 0xD0);  // 2D0 cut to 8 bits
    EXPECT_EQ(CBuffer::ShiftByte(0xB4, -2), 0x2D);
    EXPECT_EQ(CBuffer::ShiftByte(0xFF, 8), 0x00);
    EXPECT_EQ(CBuffer::LowMask(0), 0x00);
    EXPECT_EQ(CBuffer::LowMask(12), 0xFF);
    EXPECT_EQ(CBuffer::HighMask(3), 0xF8);
    EXPECT_EQ(CBuffer::RestMask(3), 0x1F);
    EXPECT_EQ(CBuffer::RestMask(11), 0x00);
    EXPECT_EQ(CBuffer::TopMask(3), 0xE0);
    EXPECT_EQ(CBuffer::DropTop(0xB4, 3), 0x14);
    EXPECT_EQ(CBuffer::KeepTop(0xB4, 3), 0xA0);
    // Masks that do not fit a byte.
    EXPECT_EQ(CBuffer::LowMask(-1), 0x00);
    EXPECT_COM_ERROR(CBuffer::LowMask(-2), kErrOverflow);
    EXPECT_COM_ERROR(CBuffer::RestMask(-1), kErrOverflow);
}

TEST(Codec, ExtractBitsWorkedExamples) {
    Loaded bytes({0xB4, 0x3C});
    EXPECT_EQ(bytes.buffer.ExtractBits(0, 1, 2, 4), Bytes({0x05}));
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(0, 2), 3), 5);
    EXPECT_EQ(bytes.buffer.ExtractBits(0, 2, 4, 3), Bytes({0xCB, 0x00}));
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(0, 4), 8), 51968) << "trailing byte is summed";

    Loaded single({0x5A});
    EXPECT_EQ(single.buffer.ExtractBits(0, 1, 0, 7), Bytes({0x5A}));
    EXPECT_EQ(single.buffer.ExtractBits(0, 1, 3, 7), Bytes({0x0B}));
    EXPECT_EQ(single.buffer.ExtractBits(0, 1, 0, 3), Bytes({0x0A}));
}

TEST(Codec, ExtractBitsRangeRules) {
    Loaded bytes({0x12, 0x34});
    // One byte past the end is cut at the end, and the end mask applies to the cut byte.
    EXPECT_EQ(bytes.buffer.ExtractBits(1, 2, 0, 7), Bytes({0x34}));
    EXPECT_EQ(bytes.buffer.ExtractBits(1, 2, 0, 3), Bytes({0x04}));
    EXPECT_EQ(bytes.buffer.ExtractBits(0, 3, 4, 3), Bytes({0x41, 0x00}));
    // Invalid ranges give one 0 byte.
    EXPECT_EQ(bytes.buffer.ExtractBits(1, 3, 0, 7), Bytes({0})) << "two bytes past the end";
    EXPECT_EQ(bytes.buffer.ExtractBits(2, 1, 0, 7), Bytes({0}));
    EXPECT_EQ(bytes.buffer.ExtractBits(0, -1, 0, 7), Bytes({0}));
    EXPECT_EQ(bytes.buffer.ExtractBits(0, 1, -1, 7), Bytes({0}));
    EXPECT_EQ(bytes.buffer.ExtractBits(0, 1, 0, 8), Bytes({0}));
    // Index and arithmetic failures are reported as the load failure.
    EXPECT_COM_ERROR(bytes.buffer.ExtractBits(0, 0, 0, 7), kLoadFailed);
    EXPECT_COM_ERROR(bytes.buffer.ExtractBits(-1, 2, 0, 7), kLoadFailed);
    EXPECT_COM_ERROR(bytes.buffer.ExtractBits(0, 1, 0, -3), kLoadFailed);
    EXPECT_COM_ERROR(bytes.buffer.ExtractBits(1, 2147483647, 0, 7), kLoadFailed);
    EXPECT_EQ(bytes.modified, 0);
}

TEST(Codec, MergeBitsKeepsEverythingOutsideTheField) {
    Loaded bits({0xFF});
    bits.buffer.MergeBits(Bytes({0x05}), 0, 1, 2, 4);
    EXPECT_EQ(bits.Content(), ByteVector({0xF7}));
    EXPECT_EQ(bits.modified, 1);
    bits.buffer.MergeBits(Bytes({0x05}), 0, 1, 2, 4);
    EXPECT_EQ(bits.modified, 1) << "writing the bytes already there is no change";

    // Four bytes at bit offset 3: each source byte's bits 0-4 land at bits 3-7, its bits 5-7 at
    // bits 0-2 of the next byte.
    Loaded zeros({0, 0, 0, 0, 0});
    zeros.buffer.MergeBits(Bytes({0x12, 0x34, 0x56, 0x78}), 0, 5, 3, 2);
    EXPECT_EQ(zeros.Content(), ByteVector({0x90, 0xA0, 0xB1, 0xC2, 0x03}));
    EXPECT_EQ(zeros.modified, 1) << "one event for the whole field";
    Loaded ones({0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    ones.buffer.MergeBits(Bytes({0x12, 0x34, 0x56, 0x78}), 0, 5, 3, 2);
    EXPECT_EQ(ones.Content(), ByteVector({0x97, 0xA0, 0xB1, 0xC2, 0xFB}));
}

TEST(Codec, MergeBitsRangeRules) {
    Loaded bytes({0x11, 0x22});
    bytes.buffer.MergeBits(Bytes({0xAA, 0xBB}), 1, 2, 0, 7);  // ends past the last byte
    bytes.buffer.MergeBits(Bytes({0xAA}), 2, 1, 0, 7);
    EXPECT_EQ(bytes.Content(), ByteVector({0x11, 0x22}));
    EXPECT_EQ(bytes.modified, 0);
    bytes.buffer.MergeBits(Bytes({0xAA}), -1, 0, 0, 7);  // an empty run before the first byte
    // A source shorter than the run leaves the rest of the run as it was.
    bytes.buffer.MergeBits(Bytes({0xAA}), 0, 2, 0, 7);
    EXPECT_EQ(bytes.Content(), ByteVector({0xAA, 0x22}));
    // A source with more bytes than the field covers writes its next byte too when the field is a
    // whole number of bytes long: the writer sizes the source to the field.
    Loaded spill({0, 0});
    spill.buffer.MergeBits(Bytes({0xAB}), 0, 2, 4, 3);
    EXPECT_EQ(spill.Content(), ByteVector({0xB0, 0x0A}));
    spill.buffer.MergeBits(Bytes({0xAB, 0xCD}), 0, 2, 4, 3);
    EXPECT_EQ(spill.Content(), ByteVector({0xB0, 0xDA}));
    // Failures inside the write are reported as the load failure.
    EXPECT_COM_ERROR(bytes.buffer.MergeBits(ByteArray(), 0, 1, 0, 7), kLoadFailed);
    EXPECT_COM_ERROR(bytes.buffer.MergeBits(Bytes({1}), -1, 2, 0, 7), kLoadFailed);
    EXPECT_COM_ERROR(bytes.buffer.MergeBits(Bytes({1}), 0, 1, -2, 7), kLoadFailed);
    EXPECT_EQ(bytes.Content(), ByteVector({0xAA, 0x22}));
}

// Every bit offset and width over random buffers: the field reads back as written, nothing else
// changes, and Modified comes exactly when a byte changed.
TEST(Codec, MergeThenExtractRoundTripsEveryOffsetAndWidth) {
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> byte(0, 255);
    for (std::int32_t shift = 0; shift < 8; ++shift) {
        for (std::int32_t width = 1; width <= 32; ++width) {
            for (int round = 0; round < 8; ++round) {
                const std::int32_t byteCount = (shift + width - 1) / 8 + 1;
                const std::int32_t endBit = (shift + width - 1) % 8;
                const std::int32_t size = byteCount + 2;
                const std::int32_t at = round % 3;
                ByteVector before(static_cast<std::size_t>(size));
                for (auto& b : before)
                    b = static_cast<std::uint8_t>(byte(random));
                // Half the rounds write the field's present bits, so that nothing changes.
                ByteVector source(static_cast<std::size_t>((width - 1) / 8 + 1));
                for (auto& b : source)
                    b = static_cast<std::uint8_t>(byte(random));
                auto bitOf = [](const ByteVector& v, std::int32_t n) {
                    return (v[static_cast<std::size_t>(n / 8)] >> (n % 8)) & 1;
                };
                if (round % 2 == 1) {
                    std::fill(source.begin(), source.end(), 0);
                    for (std::int32_t k = 0; k < width; ++k) {
                        if (bitOf(before, (at * 8) + shift + k) != 0) {
                            source[static_cast<std::size_t>(k / 8)] |=
                                static_cast<std::uint8_t>(1 << (k % 8));
                        }
                    }
                }
                // The reference: field bit k is source bit k, at stream bit at*8 + shift + k.
                ByteVector expected = before;
                for (std::int32_t k = 0; k < width; ++k) {
                    const std::int32_t n = (at * 8) + shift + k;
                    auto& target = expected[static_cast<std::size_t>(n / 8)];
                    target = static_cast<std::uint8_t>((target & ~(1 << (n % 8))) |
                                                       (bitOf(source, k) << (n % 8)));
                }
                Loaded field(before);
                field.buffer.MergeBits(Bytes(source), at, byteCount, shift, endBit);
                SCOPED_TRACE(::testing::Message()
                             << "shift " << shift << " width " << width << " round " << round);
                ASSERT_EQ(field.Content(), expected);
                ASSERT_EQ(field.modified, expected != before ? 1 : 0);

                // Read back: the field's bits, first 8 bits in the first byte, then 0 bytes.
                ByteVector readBack(static_cast<std::size_t>(byteCount), 0);
                for (std::int32_t k = 0; k < width; ++k) {
                    readBack[static_cast<std::size_t>(k / 8)] |=
                        static_cast<std::uint8_t>(bitOf(source, k) << (k % 8));
                }
                ASSERT_EQ(field.buffer.ExtractBits(at, byteCount, shift, endBit).Values(),
                          readBack);
            }
        }
    }
}

TEST(Codec, EightBitFields) {
    Loaded bytes({0xAB, 0xCD});
    EXPECT_EQ(bytes.buffer.GetUInt8(*NewOffset(0, 0)), 0xAB);
    EXPECT_EQ(bytes.buffer.GetUInt8(*NewOffset(0, 4)), 0xDA);
    EXPECT_EQ(bytes.buffer.GetInt8(*NewOffset(0, 0)), -85);
    EXPECT_EQ(bytes.buffer.GetInt8(*NewOffset(0, 4)), -38);
    EXPECT_EQ(bytes.buffer.GetInt8(*NewOffset(1, 1)), 0)
        << "cut run: only bit 0 of CD, shifted out";

    Loaded zeros({0, 0});
    zeros.buffer.SetUInt8(*NewOffset(0, 4), 0x5E);
    EXPECT_EQ(zeros.Content(), ByteVector({0xE0, 0x05}));
    Loaded ones({0xFF, 0xFF});
    ones.buffer.SetUInt8(*NewOffset(0, 4), 0x5E);
    EXPECT_EQ(ones.Content(), ByteVector({0xEF, 0xF5}));
    ones.buffer.SetUInt8(*NewOffset(1, 0), 0x00);
    EXPECT_EQ(ones.Content(), ByteVector({0xEF, 0x00}));

    Loaded signedBytes({0, 0});
    signedBytes.buffer.SetInt8(*NewOffset(0, 0), -1);
    signedBytes.buffer.SetInt8(*NewOffset(1, 0), -128);
    EXPECT_EQ(signedBytes.Content(), ByteVector({0xFF, 0x80}));
    signedBytes.buffer.SetInt8(*NewOffset(0, 4), 127);
    EXPECT_EQ(signedBytes.Content(), ByteVector({0xFF, 0x87}));
    EXPECT_EQ(signedBytes.modified, 3);
    signedBytes.buffer.SetInt8(*NewOffset(0, 0), 128);
    signedBytes.buffer.SetInt8(*NewOffset(0, 0), -129);
    EXPECT_EQ(signedBytes.Content(), ByteVector({0xFF, 0x87}));
    EXPECT_EQ(signedBytes.modified, 3) << "out of range: nothing written, nothing raised";
}

TEST(Codec, SixteenBitFields) {
    Loaded bytes({0x12, 0x34, 0x56});
    EXPECT_EQ(bytes.buffer.GetUInt16(*NewOffset(0, 0)), 0x1234);
    EXPECT_EQ(bytes.buffer.GetUInt16(*NewOffset(0, 4)), 0x4163);
    EXPECT_EQ(bytes.buffer.GetUInt16(*NewOffset(2, 0)), 0x5600) << "run cut to one byte";
    Loaded negative({0xFF, 0xFE, 0x0F});
    EXPECT_EQ(negative.buffer.GetInt16(*NewOffset(0, 0)), -2);
    Loaded shifted({0xF0, 0xFF, 0x0F});
    EXPECT_EQ(shifted.buffer.GetInt16(*NewOffset(0, 4)), -1);
    EXPECT_EQ(shifted.buffer.GetUInt16(*NewOffset(0, 4)), 65535);

    Loaded zeros({0, 0, 0});
    zeros.buffer.SetUInt16(*NewOffset(1, 0), 0x1234);
    EXPECT_EQ(zeros.Content(), ByteVector({0x00, 0x12, 0x34}));
    zeros.buffer.SetUInt16(*NewOffset(0, 4), 0x1234);
    EXPECT_EQ(zeros.Content(), ByteVector({0x20, 0x41, 0x33}))
        << "bits 4-7 of byte 2 keep the 3 of the first write";
    zeros.buffer.SetInt16(*NewOffset(0, 0), -2);
    EXPECT_EQ(zeros.Content(), ByteVector({0xFF, 0xFE, 0x33}));
    zeros.buffer.SetInt16(*NewOffset(0, 4), -32768);
    EXPECT_EQ(zeros.Content(), ByteVector({0x0F, 0x08, 0x30}));
    EXPECT_EQ(zeros.modified, 4);

    for (const std::int32_t rejected : {65536, -1}) {
        zeros.buffer.SetUInt16(*NewOffset(0, 0), rejected);
    }
    zeros.buffer.SetInt16(*NewOffset(0, 0), 32768);
    zeros.buffer.SetInt16(*NewOffset(0, 0), -32769);
    EXPECT_EQ(zeros.Content(), ByteVector({0x0F, 0x08, 0x30}));
    EXPECT_EQ(zeros.modified, 4);
}

TEST(Codec, BitFields) {
    Loaded bytes({0xAB, 0xCD});
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(0, 0), 12), 0xAB0D) << "last 4 bits as low byte";
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(1, 7), 1), 1);
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(0, 0), 0), 0);
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(1, 0), 16), 0xCD) << "run cut at the end";
    EXPECT_EQ(bytes.buffer.GetBits(*NewOffset(2, 0), 8), 0) << "no run: one 0 byte";
    Loaded straddling({0xC0, 0x03});
    EXPECT_EQ(straddling.buffer.GetBits(*NewOffset(0, 6), 4), 0x0F00);
    Loaded wide({0x80, 0, 0, 0});
    EXPECT_COM_ERROR(wide.buffer.GetBits(*NewOffset(0, 0), 32), kErrOverflow);
    Loaded positive({0x7F, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(positive.buffer.GetBits(*NewOffset(0, 0), 32), 2147483647);

    Loaded zeros({0, 0});
    zeros.buffer.SetBits(*NewOffset(0, 0), 12, 0xABC);
    EXPECT_EQ(zeros.Content(), ByteVector({0x0A, 0x0C}));
    Loaded ones({0xFF, 0xFF});
    ones.buffer.SetBits(*NewOffset(0, 0), 12, 0xABC);
    EXPECT_EQ(ones.Content(), ByteVector({0x0A, 0xFC}));
    Loaded three({0xFF});
    three.buffer.SetBits(*NewOffset(0, 2), 3, 5);
    EXPECT_EQ(three.Content(), ByteVector({0xF7}));
    Loaded cut({0x00});
    cut.buffer.SetBits(*NewOffset(0, 2), 3, 9);  // 1001: the bit above the width is dropped
    EXPECT_EQ(cut.Content(), ByteVector({0x04}));
    cut.buffer.SetBits(*NewOffset(0, 0), 3, -1);
    cut.buffer.SetBits(*NewOffset(0, 0), 0, 1);
    EXPECT_EQ(cut.Content(), ByteVector({0x04}));
    EXPECT_EQ(cut.modified, 1);
    Loaded straddle({0x00, 0x00});
    straddle.buffer.SetBits(*NewOffset(0, 6), 4, 0x0F);  // one source byte over two buffer bytes
    EXPECT_EQ(straddle.Content(), ByteVector({0xC0, 0x03}));
}

TEST(Codec, SingleFields) {
    Loaded bytes({0x3F, 0xC0, 0x00, 0x00, 0x00});
    EXPECT_EQ(bytes.buffer.GetSingle(*NewOffset(0, 0)), 1.5F);
    EXPECT_EQ(bytes.buffer.GetSingle(*NewOffset(0, 4)), 0.0F);
    EXPECT_EQ(bytes.buffer.GetSingle(*NewOffset(2, 0)), 0.0F) << "only 3 bytes left";

    Loaded zeros({0, 0, 0, 0, 0});
    zeros.buffer.SetSingle(*NewOffset(0, 0), -2.0F);
    EXPECT_EQ(zeros.Content(), ByteVector({0xC0, 0x00, 0x00, 0x00, 0x00}));
    zeros.buffer.SetSingle(*NewOffset(0, 4), 1.5F);
    EXPECT_EQ(zeros.Content(), ByteVector({0xF0, 0x03, 0x0C, 0x00, 0x00}));
}

TEST(Codec, AsciiFields) {
    Loaded bytes({0x41, 0x42, 0x00, 0x43});
    EXPECT_EQ(bytes.buffer.GetAscii(0, 4), "AB");
    EXPECT_EQ(bytes.buffer.GetAscii(0, 1), "A");
    EXPECT_EQ(bytes.buffer.GetAscii(3, 1), "C");
    EXPECT_EQ(bytes.buffer.GetAscii(3, 2), "C") << "run cut at the end";
    EXPECT_EQ(bytes.buffer.GetAscii(0, 0), "");

    Loaded three({0xFF, 0xFF, 0xFF});
    three.buffer.SetAscii(0, 3, "ABC");
    EXPECT_EQ(three.Content(), ByteVector({0x41, 0x42, 0x00}));
    Loaded five({0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    five.buffer.SetAscii(0, 5, "ABC");
    EXPECT_EQ(five.Content(), ByteVector({0x41, 0x42, 0x43, 0x00, 0x00}));
    five.buffer.SetAscii(1, 3, "XYZW");
    EXPECT_EQ(five.Content(), ByteVector({0x41, 0x58, 0x59, 0x00, 0x00}));
    five.buffer.SetAscii(3, 3, "Q");  // past the end: nothing
    five.buffer.SetAscii(0, 0, "Q");
    EXPECT_EQ(five.Content(), ByteVector({0x41, 0x58, 0x59, 0x00, 0x00}));
}

TEST(Codec, IntegersByTypeDescription) {
    FakeTypedef type;
    Loaded bytes({0xFF, 0xFE, 0xAB});
    const auto start = NewOffset(0, 0);
    type.bits = 16;
    type.isSigned = true;
    EXPECT_EQ(bytes.buffer.ReadInteger(type, *start), -2);
    EXPECT_EQ(bytes.buffer.GetLong(type, start, 0), -2);
    type.isSigned = false;
    EXPECT_EQ(bytes.buffer.ReadInteger(type, *start), 65534);
    type.bits = 8;
    EXPECT_EQ(bytes.buffer.GetLong(type, start, 2), 0xAB) << "array entry 2";
    type.isSigned = true;
    EXPECT_EQ(bytes.buffer.GetLong(type, start, 2), -85);
    type.bits = 12;
    EXPECT_EQ(bytes.buffer.ReadInteger(type, *start), 0) << "signed of another size";
    type.isSigned = false;
    EXPECT_EQ(bytes.buffer.ReadInteger(type, *NewOffset(1, 4)), 0xBF0A);
    type.category = kCategoryFloat;
    EXPECT_EQ(bytes.buffer.GetLong(type, start, 0), 0);

    Loaded target({0, 0, 0});
    type.category = kCategoryInteger;
    type.bits = 8;
    target.buffer.SetLong(type, start, 1, 0x7E);
    EXPECT_COM_ERROR(target.buffer.SetLong(type, start, 0, 256), kErrOverflow);
    EXPECT_COM_ERROR(target.buffer.SetLong(type, start, 0, -1), kErrOverflow);
    type.isSigned = true;
    target.buffer.SetLong(type, start, 2, -2);
    type.bits = 4;
    target.buffer.SetLong(type, start, 0, 3);  // signed of another size: not written
    type.isSigned = false;
    target.buffer.SetLong(type, start, 1, 0xA);  // entry 1 of 4-bit entries: bits 4-7
    type.category = kCategoryBoolean;
    target.buffer.SetLong(type, start, 0, 1);  // not an integer: not written
    EXPECT_EQ(target.Content(), ByteVector({0xA0, 0x7E, 0xFE}));
    type.category = kCategoryInteger;
    type.bits = 16;
    target.buffer.SetLong(type, start, 0, 0x0102);
    EXPECT_EQ(target.Content(), ByteVector({0x01, 0x02, 0xFE}));
}

TEST(Codec, LongResultsWithAMultiplyingFactorAreTheRawNumber) {
    // Result type -2 keeps a number that needs no division as a Long: the raw number, unscaled.
    FakeTypedef type;
    type.resultType = kResultTypeLong;
    type.multiplies = true;
    type.factor = 10;
    const auto start = NewOffset(0, 0);
    Loaded byte({0x0A});
    EXPECT_EQ(byte.buffer.GetValue(type, start, 0), Variant(10));

    type.bits = 16;
    type.maximum = 65535;
    type.factor = 65536;
    Loaded word({0xFF, 0xFF});
    EXPECT_EQ(word.buffer.GetValue(type, start, 0), Variant(65535)) << "no product, no overflow";
    type.isSigned = true;
    EXPECT_EQ(word.buffer.GetValue(type, start, 0), Variant(-1));

    // Dividing factors still scale, and give a Single.
    type.multiplies = false;
    type.factor = 2;
    EXPECT_EQ(word.buffer.GetValue(type, start, 0), Variant(-0.5F));
}

TEST(Codec, EngineeringValues) {
    FakeTypedef type;
    const auto start = NewOffset(0, 0);
    Loaded bytes({123, 0, 0, 0});
    EXPECT_EQ(bytes.buffer.GetValue(type, start, 0).Type(), vbSingle);
    EXPECT_EQ(bytes.buffer.GetValue(type, start, 0), Variant(123.0F));
    type.resultType = kResultTypeLong;
    EXPECT_EQ(bytes.buffer.GetValue(type, start, 0), Variant(123));
    type.factor = 10;
    EXPECT_EQ(bytes.buffer.GetValue(type, start, 0), Variant(12.3F)) << "division gives Single";
    type.multiplies = true;
    type.factor = 5;
    EXPECT_EQ(bytes.buffer.GetValue(type, start, 0), Variant(123)) << "a Long result is raw";
    type.resultType = 0;
    EXPECT_EQ(bytes.buffer.GetValue(type, start, 0), Variant(615.0F));

    // Writing goes through the inverse scaling, rounding halves to even.
    bytes.buffer.SetValue(type, start, 0, Variant(52.0));  // 52 / 5 = 10.4
    EXPECT_EQ(bytes.Content()[0], 10);
    type.multiplies = false;
    type.factor = 10;
    bytes.buffer.SetValue(type, start, 0, Variant(12.25));
    EXPECT_EQ(bytes.Content()[0], 122);
    bytes.buffer.SetValue(type, start, 0, Variant("4.5"));
    EXPECT_EQ(bytes.Content()[0], 45);
    EXPECT_COM_ERROR(bytes.buffer.SetValue(type, start, 0, Variant(30.0)), kErrOverflow)
        << "300 is no Byte";
    EXPECT_COM_ERROR(bytes.buffer.SetValue(type, start, 0, Variant("x")), kErrTypeMismatch);

    FakeTypedef real;
    real.category = kCategoryFloat;
    real.bits = 32;
    bytes.buffer.SetValue(real, start, 0, Variant(-2));
    EXPECT_EQ(bytes.Content(), ByteVector({0xC0, 0, 0, 0}));
    EXPECT_EQ(bytes.buffer.GetValue(real, start, 0), Variant(-2.0F));

    FakeTypedef flag;
    flag.category = kCategoryBoolean;
    flag.bits = 1;
    const auto bit5 = NewOffset(1, 5);
    bytes.buffer.SetValue(flag, bit5, 0, Variant(true));
    EXPECT_EQ(bytes.Content()[1], 0x20);
    EXPECT_EQ(bytes.buffer.GetValue(flag, bit5, 0), Variant(true));
    EXPECT_EQ(bytes.buffer.GetValue(flag, bit5, 1), Variant(false)) << "entry 1 is bit 6";
    bytes.buffer.SetValue(flag, bit5, 0, Variant(0));
    EXPECT_EQ(bytes.Content()[1], 0x00);

    FakeTypedef text;
    text.category = kCategoryAscii;
    text.bits = 24;
    text.textLength = 3;
    bytes.buffer.SetValue(text, NewOffset(1, 0), 0, Variant("Hi"));
    EXPECT_EQ(bytes.Content(), ByteVector({0xC0, 'H', 'i', 0}));
    EXPECT_EQ(bytes.buffer.GetValue(text, start, 0), Variant(std::string("\xC0Hi")));

    FakeTypedef structure;
    structure.category = kCategoryStructure;
    EXPECT_TRUE(bytes.buffer.GetValue(structure, start, 0).IsEmpty());
    bytes.buffer.SetValue(structure, start, 0, Variant(1));
    EXPECT_EQ(bytes.Content(), ByteVector({0xC0, 'H', 'i', 0}));
}

}  // namespace
}  // namespace vx
