#include "CDataOffset.h"

#include <gtest/gtest.h>

#include <memory>

#include "CVarElementBase.h"
#include "SupportRoutines.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/FakeTypes.h"

namespace vx {
namespace {

using test::FakeElementdef;
using test::FakeTypedef;

FakeTypedef TypeOfBits(std::int32_t bits) {
    FakeTypedef type;
    type.bits = bits;
    return type;
}

TEST(CDataOffset, AddCarriesBitsIntoBytes) {
    auto offset = NewOffset(0, 7);
    offset->Add(FakeElementdef(0, 3));
    EXPECT_EQ(offset->ByteOffset(), 1);
    EXPECT_EQ(offset->BitOffset(), 2);

    offset->Add(FakeElementdef(4, 0));
    EXPECT_EQ(offset->ByteOffset(), 5);
    EXPECT_EQ(offset->BitOffset(), 2);

    offset->Add(FakeElementdef(0, 13));  // 15 bits: one byte and seven bits
    EXPECT_EQ(offset->ByteOffset(), 6);
    EXPECT_EQ(offset->BitOffset(), 7);
}

TEST(CDataOffset, AddPastByte255Overflows) {
    auto offset = NewOffset(250, 4);
    offset->Add(FakeElementdef(5, 3));
    EXPECT_EQ(offset->ByteOffset(), 255);
    EXPECT_EQ(offset->BitOffset(), 7);
    EXPECT_COM_ERROR(offset->Add(FakeElementdef(0, 1)), kErrOverflow);
    EXPECT_COM_ERROR(NewOffset(200, 0)->Add(FakeElementdef(56, 0)), kErrOverflow);
}

TEST(CDataOffset, LoadTakesTheDefinitionsPosition) {
    CDataOffset offset;
    offset.Load(FakeElementdef(12, 5));
    EXPECT_EQ(offset.ByteOffset(), 12);
    EXPECT_EQ(offset.BitOffset(), 5);
    EXPECT_COM_ERROR(offset.Load(FakeElementdef(300, 0)), kErrOverflow);
}

TEST(CDataOffset, CreateArrayOffset) {
    const auto base = NewOffset(3, 4);
    const auto twelve = TypeOfBits(12);

    const auto second = base->CreateArrayOffset(twelve, 2);  // 24 + 4 + 24 = 52 bits
    EXPECT_EQ(second->ByteOffset(), 6);
    EXPECT_EQ(second->BitOffset(), 4);
    EXPECT_EQ(base->ByteOffset(), 3);  // the base is unchanged
    EXPECT_EQ(base->BitOffset(), 4);

    const auto zero = base->CreateArrayOffset(twelve, 0);
    EXPECT_EQ(zero->ByteOffset(), 3);
    EXPECT_EQ(zero->BitOffset(), 4);
    EXPECT_NE(zero, base);  // always a new object

    const auto negative = base->CreateArrayOffset(twelve, -3);
    EXPECT_EQ(negative->ByteOffset(), 3);
    EXPECT_EQ(negative->BitOffset(), 4);

    const auto bytes = base->CreateArrayOffset(TypeOfBits(8), 5);
    EXPECT_EQ(bytes->ByteOffset(), 8);
    EXPECT_EQ(bytes->BitOffset(), 4);
}

TEST(CDataOffset, CreateArrayOffsetNeverWraps) {
    const auto base = NewOffset(0, 0);
    EXPECT_EQ(base->CreateArrayOffset(TypeOfBits(8), 255)->ByteOffset(), 255);
    EXPECT_COM_ERROR(base->CreateArrayOffset(TypeOfBits(8), 256), kErrOverflow);
    EXPECT_COM_ERROR(base->CreateArrayOffset(TypeOfBits(1 << 30), 4), kErrOverflow);
}

TEST(CVarElementBase, WholeValueAtOffsetZero) {
    CVarElementBase base;
    EXPECT_EQ(base.Typedef(), nullptr);
    const auto type = std::make_shared<FakeTypedef>();
    base.SetTypedef(type);
    EXPECT_EQ(base.Typedef(), type);
    EXPECT_EQ(base.ArraySize(), 0);
    EXPECT_EQ(base.ByteOffset(), 0);
    EXPECT_EQ(base.BitOffset(), 0);
    EXPECT_EQ(base.Parent(), nullptr);
    EXPECT_TRUE(base.IsWholeValue());
}

}  // namespace
}  // namespace vx
