#include "CDeviceVariableElement.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "SupportRoutines.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/FakeTypes.h"
#include "resources/StringTable.h"

namespace vx {
namespace {

using test::FakeElementdef;
using test::FakeTypedef;
using ByteVector = std::vector<std::uint8_t>;

std::shared_ptr<FakeTypedef> Integer(std::int32_t bits, bool isSigned, std::int32_t minimum,
                                     std::int32_t maximum) {
    auto type = std::make_shared<FakeTypedef>();
    type->bits = bits;
    type->isSigned = isSigned;
    type->minimum = minimum;
    type->maximum = maximum;
    return type;
}

BufferPtr Buffer(ByteVector bytes) {
    auto buffer = std::make_shared<CBuffer>();
    buffer->SetBytes(ByteArray(0, std::move(bytes)));
    return buffer;
}

DeviceVariableElementPtr Element(TypedefPtr type, BufferPtr buffer, DataOffsetPtr offset,
                                 std::int32_t elements = 0) {
    auto element = std::make_shared<CDeviceVariableElement>();
    element->InitElement(std::move(type), std::move(buffer), std::move(offset), elements);
    return element;
}

ByteVector Content(const BufferPtr& buffer) {
    return buffer->GetBytes().Values();
}

TEST(CDeviceVariableElement, Bounds) {
    const auto type = Integer(8, false, 0, 255);
    const auto buffer = Buffer({0});
    EXPECT_EQ(Element(type, buffer, NewOffset(0, 0))->LBound(), 0);
    EXPECT_EQ(Element(type, buffer, NewOffset(0, 0))->UBound(), -1);
    EXPECT_EQ(Element(type, buffer, NewOffset(0, 0), 4)->UBound(), 3);
    EXPECT_COM_ERROR(
        Element(type, buffer, NewOffset(0, 0), std::numeric_limits<std::int32_t>::min())->UBound(),
        kErrOverflow);
    EXPECT_EQ(Element(type, buffer, NewOffset(0, 0))->Typedef(), type);
}

TEST(CDeviceVariableElement, StructureHasNoValue) {
    auto type = std::make_shared<FakeTypedef>();
    type->category = kCategoryStructure;
    const auto buffer = Buffer({7});
    int modified = 0;
    auto token = buffer->Modified().Subscribe([&] { ++modified; });
    const auto element = Element(type, buffer, NewOffset(0, 0));
    EXPECT_TRUE(element->Value().IsEmpty());
    EXPECT_EQ(element->UnScaledValue(), 0);
    EXPECT_FALSE(element->Undefined());
    element->SetValue(0, Variant(1));
    element->SetUnScaledValue(0, 1);
    EXPECT_EQ(Content(buffer), ByteVector({7}));
    EXPECT_EQ(modified, 0);
}

TEST(CDeviceVariableElement, ScaledSignedValueReadsAndWrites) {
    auto type = Integer(16, true, -400, 400);
    type->factor = 10;
    const auto buffer = Buffer({0x00, 0xFF, 0x85});  // -123 at byte 1
    const auto element = Element(type, buffer, NewOffset(1, 0));
    EXPECT_EQ(element->Value(), Variant(-12.3F));
    EXPECT_EQ(element->UnScaledValue(), -123);
    EXPECT_FLOAT_EQ(element->ScaledMax(), 40.0F);
    EXPECT_FLOAT_EQ(element->ScaledMin(), -40.0F);
    element->SetValue(0, Variant(12.34));
    EXPECT_EQ(Content(buffer), ByteVector({0x00, 0x00, 0x7B}));
    element->SetValue(0, Variant(1000));
    EXPECT_EQ(element->UnScaledValue(), 400) << "clamped to the largest engineering value";
    element->SetValue(0, Variant(-1000.5));
    EXPECT_EQ(element->UnScaledValue(), -400);
    EXPECT_EQ(Content(buffer), ByteVector({0x00, 0xFE, 0x70}));
}

TEST(CDeviceVariableElement, LongResultOfAMultiplyingTypeIsTheRawNumber) {
    // Result type -2 with a multiplying factor: the value is the raw number as a Long, though
    // the limits and a write still scale (20 written is raw 2, which reads as 2).
    auto type = Integer(8, false, 0, 255);
    type->resultType = kResultTypeLong;
    type->factor = 10;
    type->multiplies = true;
    const auto buffer = Buffer({0x0A});
    const auto element = Element(type, buffer, NewOffset(0, 0));
    EXPECT_EQ(element->Value(), Variant(10));
    EXPECT_EQ(element->Value(), Variant(10)) << "again, with the type's answers kept";
    EXPECT_FLOAT_EQ(element->ScaledMax(), 2550.0F);
    element->SetValue(0, Variant(20));
    EXPECT_EQ(Content(buffer), ByteVector({2}));
    EXPECT_EQ(element->Value(), Variant(2));
}

TEST(CDeviceVariableElement, WritesAreClampedToTheFieldsRange) {
    const auto percent = Integer(8, false, 0, 250);
    const auto buffer = Buffer({0, 0, 0});
    const auto byte0 = Element(percent, buffer, NewOffset(0, 0));
    byte0->SetValue(0, Variant(1000));
    EXPECT_EQ(Content(buffer)[0], 250);
    byte0->SetValue(0, Variant(-5));
    EXPECT_EQ(Content(buffer)[0], 0);

    // Raw writes: bit width and declared range intersect.
    const auto small = Element(Integer(8, false, 0, 200), buffer, NewOffset(0, 0));
    EXPECT_EQ(small->RawMax(), 200);
    small->SetUnScaledValue(0, 300);
    EXPECT_EQ(Content(buffer)[0], 200);
    const auto wide = Element(Integer(16, true, -40000, 40000), buffer, NewOffset(1, 0));
    EXPECT_EQ(wide->RawMin(), -32768);
    EXPECT_EQ(wide->RawMax(), 32767);
    wide->SetUnScaledValue(0, 40000);
    EXPECT_EQ(Content(buffer), ByteVector({200, 0x7F, 0xFF}));
    wide->SetUnScaledValue(0, -40000);
    EXPECT_EQ(Content(buffer), ByteVector({200, 0x80, 0x00}));

    // Floating point is written as given.
    auto real = std::make_shared<FakeTypedef>();
    real->category = kCategoryFloat;
    real->bits = 32;
    real->minimum = 0;
    real->maximum = 10;
    const auto floatBuffer = Buffer({0, 0, 0, 0});
    const auto value = Element(real, floatBuffer, NewOffset(0, 0));
    EXPECT_FLOAT_EQ(value->ScaledMax(), 10.0F);
    value->SetValue(0, Variant(1000.0));
    EXPECT_EQ(value->Value(), Variant(1000.0F));
}

TEST(CDeviceVariableElement, AWidthBeyondALongIsLimitedByTheDeclaredRange) {
    // An unsigned 32-bit width holds up to 2^32-1, which is no Long; the declared range decides.
    const auto buffer = Buffer({0, 0, 0, 0});
    const auto counter = Element(Integer(32, false, 0, 100000), buffer, NewOffset(0, 0));
    EXPECT_COM_ERROR(counter->RawTypeMax(), kErrOverflow) << "the width's own maximum";
    EXPECT_EQ(counter->RawMax(), 100000);
    EXPECT_EQ(counter->RawMin(), 0);
    counter->SetValue(0, Variant(70000));
    EXPECT_EQ(Content(buffer), ByteVector({0x00, 0x01, 0x11, 0x70}));
    EXPECT_FALSE(counter->Undefined());
    counter->SetValue(0, Variant(1e9));
    EXPECT_EQ(counter->UnScaledValue(), 100000);
    counter->SetUnScaledValue(0, -7);
    EXPECT_EQ(counter->UnScaledValue(), 0);

    auto largest = Integer(32, false, 0, std::numeric_limits<std::int32_t>::max());
    const auto full = Element(largest, buffer, NewOffset(0, 0));
    EXPECT_EQ(full->RawMax(), std::numeric_limits<std::int32_t>::max());
    full->SetUnScaledValue(0, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(Content(buffer), ByteVector({0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_FALSE(full->Undefined());
    buffer->SetUInt8(*NewOffset(0, 0), 0x80);  // top bit set: beyond what a Long reads
    EXPECT_COM_ERROR(full->Undefined(), kErrOverflow);

    // A signed width wider than a Long, the same on the low side.
    const auto signedWide =
        Element(Integer(40, true, -1000, 1000), Buffer({0, 0, 0, 0, 0}), NewOffset(0, 0));
    EXPECT_EQ(signedWide->RawMin(), -1000);
    EXPECT_EQ(signedWide->RawMax(), 1000);
    EXPECT_COM_ERROR(signedWide->RawTypeMin(), kErrOverflow);
}

TEST(CDeviceVariableElement, UndefinedOutsideTheRangeOrAtTheInvalidCode) {
    auto type = Integer(8, false, 0, 200);
    type->hasInvalid = true;
    type->invalid = 150;
    const auto buffer = Buffer({150});
    const auto element = Element(type, buffer, NewOffset(0, 0));
    EXPECT_TRUE(element->Undefined()) << "the invalid code lies inside the range";
    buffer->SetUInt8(*NewOffset(0, 0), 100);
    EXPECT_FALSE(element->Undefined());
    buffer->SetUInt8(*NewOffset(0, 0), 201);
    EXPECT_TRUE(element->Undefined());
    const auto negative = Element(Integer(8, true, -10, 10), Buffer({0xF5}), NewOffset(0, 0));
    EXPECT_TRUE(negative->Undefined()) << "-11";

    // Other kinds are never undefined and do not read the buffer.
    auto real = std::make_shared<FakeTypedef>();
    real->category = kCategoryFloat;
    auto unloaded = std::make_shared<CBuffer>();
    int loads = 0;
    auto count = unloaded->LoadMePlease().Subscribe([&] { ++loads; });
    EXPECT_FALSE(Element(real, unloaded, NewOffset(0, 0))->Undefined());
    EXPECT_EQ(loads, 0);
}

TEST(CDeviceVariableElement, ArrayEntriesAndUnusableIndexes) {
    const auto type = Integer(8, false, 0, 255);
    const auto buffer = Buffer({1, 2, 3, 4, 5});
    int modified = 0;
    auto token = buffer->Modified().Subscribe([&] { ++modified; });
    const auto array = Element(type, buffer, NewOffset(1, 0), 3);
    EXPECT_EQ(array->UnScaledValue(2), 4);
    EXPECT_EQ(array->UnScaledValue(-1), 2) << "a negative index reads the first entry";
    EXPECT_TRUE(array->Value(3).IsEmpty());
    EXPECT_EQ(array->UnScaledValue(3), 0);
    array->SetValue(3, Variant(9));
    array->SetUnScaledValue(3, 9);
    EXPECT_EQ(modified, 0);
    array->SetValue(1, Variant(9));
    EXPECT_EQ(Content(buffer), ByteVector({1, 2, 9, 4, 5}));

    const auto scalar = Element(type, buffer, NewOffset(4, 0));
    EXPECT_EQ(scalar->UnScaledValue(7), 5) << "a field that is no array ignores the index";
    scalar->SetUnScaledValue(7, 6);
    EXPECT_EQ(Content(buffer), ByteVector({1, 2, 9, 4, 6}));
}

TEST(CDeviceVariableElement, FailuresOfTheBufferAndTypePropagate) {
    const auto unloaded = std::make_shared<CBuffer>();
    const auto element = Element(Integer(8, false, 0, 255), unloaded, NewOffset(0, 0));
    EXPECT_COM_ERROR(element->Value(), LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_COM_ERROR(element->SetValue(0, Variant(1)), LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_COM_ERROR(Element(nullptr, unloaded, NewOffset(0, 0))->Value(), kErrObjectNotSet);
}

// A record: x (byte 0), a (structure at byte 1 holding b at its byte 1), arr (4 bytes from byte 3),
// "3" (byte 7), flags (three 1-bit flags from byte 8 bit 2).
struct Record {
    Record() {
        auto byte = Integer(8, false, 0, 255);
        auto inner = std::make_shared<FakeTypedef>();
        inner->category = kCategoryStructure;
        inner->fields["b"] = std::make_shared<FakeElementdef>(1, 0, byte);
        auto flag = std::make_shared<FakeTypedef>();
        flag->category = kCategoryBoolean;
        flag->bits = 1;
        type->category = kCategoryStructure;
        type->fields["x"] = std::make_shared<FakeElementdef>(0, 0, byte);
        type->fields["a"] = std::make_shared<FakeElementdef>(1, 0, inner);
        type->fields["arr"] = std::make_shared<FakeElementdef>(3, 0, byte, 4);
        type->fields["3"] = std::make_shared<FakeElementdef>(7, 0, byte);
        type->fields["flags"] = std::make_shared<FakeElementdef>(8, 2, flag, 3);
        root = Element(type, buffer, NewOffset(0, 0));
    }
    std::shared_ptr<FakeTypedef> type = std::make_shared<FakeTypedef>();
    BufferPtr buffer = Buffer({0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0xF4});
    DeviceVariableElementPtr root;
};

const CDeviceVariableElement& Concrete(const DataElementPtr& element) {
    return dynamic_cast<const CDeviceVariableElement&>(*element);
}

TEST(CDeviceVariableElement, SubElementWalksFieldsAndEntries) {
    Record record;
    const auto b = record.root->SubElement({"a", "b"});
    EXPECT_EQ(b->Value(), Variant(18.0F));
    const auto dotted = record.root->SubElement({"a.b"});
    EXPECT_EQ(Concrete(dotted).Offset()->ByteOffset(), 2);
    EXPECT_EQ(dotted->Typedef(), b->Typedef());
    EXPECT_FALSE(record.root->LastError());

    const auto entry = record.root->SubElement({"arr", 2});
    EXPECT_EQ(entry->UnScaledValue(), 0x15);
    EXPECT_EQ(entry->UBound(), 3) << "the field's array size stays with the entry";
    EXPECT_EQ(record.root->SubElement({"arr", std::int16_t{1}})->UnScaledValue(), 0x14);
    EXPECT_EQ(record.root->SubElement({"3"})->UnScaledValue(), 0x17) << "digits name a field";

    // Bits carry into the byte offset: flags entry 2 is bit 4 of byte 8 (F4).
    const auto flags = record.root->SubElement({"flags"});
    EXPECT_EQ(flags->Value(0), Variant(true));
    EXPECT_EQ(flags->Value(1), Variant(false));
    EXPECT_EQ(record.root->SubElement({"flags", 2})->Value(), Variant(true));
    const auto moved = record.root->SubElement({"flags", 2});
    EXPECT_EQ(Concrete(moved).Offset()->ByteOffset(), 8);
    EXPECT_EQ(Concrete(moved).Offset()->BitOffset(), 4);

    // Sub-elements of sub-elements start from their own position; nobody's offset moves.
    const auto a = record.root->SubElement({"a"});
    EXPECT_EQ(a->SubElement({"b"})->UnScaledValue(), 0x12);
    EXPECT_EQ(Concrete(a).Offset()->ByteOffset(), 1);
    EXPECT_EQ(record.root->Offset()->ByteOffset(), 0);

    // All share the buffer.
    b->SetUnScaledValue(0, 0x99);
    EXPECT_EQ(Content(record.buffer)[2], 0x99);
}

TEST(CDeviceVariableElement, SubElementTakesOneArrayOfSubscripts) {
    Record record;
    const auto listed = record.root->SubElement({Variant(VariantArray(0, {"arr", 3}))});
    EXPECT_EQ(listed->UnScaledValue(), 0x16);
    const auto names = record.root->SubElement({Variant(StringArray(1, {"a", "b"}))});
    EXPECT_EQ(names->UnScaledValue(), 0x12);
    EXPECT_FALSE(record.root->LastError());

    // An array entry that is an array is skipped.
    const auto nested = record.root->SubElement(
        {Variant(VariantArray(0, {"a", Variant(VariantArray(0, {"x"})), "b"}))});
    EXPECT_EQ(nested->UnScaledValue(), 0x12);
    ASSERT_TRUE(record.root->LastError());
    EXPECT_EQ(record.root->LastError()->Number(), kErrInvalidProcedureCall);

    // An array beside other subscripts is skipped.
    const auto mixed = record.root->SubElement({"x", Variant(VariantArray(0, {"a"}))});
    EXPECT_EQ(Concrete(mixed).Offset()->ByteOffset(), 0);
    EXPECT_EQ(mixed->UnScaledValue(), 0x10);
    ASSERT_TRUE(record.root->LastError());
    EXPECT_EQ(record.root->LastError()->Number(), kErrInvalidProcedureCall);
}

TEST(CDeviceVariableElement, SubElementRecordsAndSkipsBadSubscripts) {
    Record record;
    const auto afterX = record.root->SubElement({"x", "a.b"});
    EXPECT_EQ(afterX->UnScaledValue(), 0x10);
    ASSERT_TRUE(record.root->LastError());
    EXPECT_EQ(record.root->LastError()->Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(record.root->LastError()->Source(),
              "Vx.CDeviceVariableElement.IOrvexDataElement_SubElement()");

    // An unknown name leaves the navigation where it was.
    const auto stillA = record.root->SubElement({"a", "nope"});
    EXPECT_EQ(Concrete(stillA).Offset()->ByteOffset(), 1);
    ASSERT_TRUE(record.root->LastError());
    EXPECT_EQ(record.root->LastError()->Source(), "Vx") << "the type's own error is kept";
    EXPECT_EQ(record.root->SubElement({"nope"}), record.root);

    // An index with no field to index into.
    EXPECT_EQ(record.root->SubElement({2}), record.root);
    ASSERT_TRUE(record.root->LastError());
    EXPECT_EQ(record.root->LastError()->Number(), kErrObjectNotSet);

    // Nothing to walk: the element itself, and no error left over from before.
    EXPECT_EQ(record.root->SubElement({""}), record.root);
    EXPECT_FALSE(record.root->LastError());
    EXPECT_EQ(record.root->SubElement(VariantArray()), record.root);
    EXPECT_EQ(record.root->SubElement({Variant(), "x"})->UnScaledValue(), 0x10);
}

}  // namespace
}  // namespace vx

namespace vx {
namespace {

// A type whose ScaleFactor fails a given number of times before it answers.
struct FlakyScale final : IOrvexTypedef {
    std::shared_ptr<FakeTypedef> inner;
    mutable int failuresLeft = 0;
    mutable int scaleReads = 0;

    std::string TypeName() const override { return inner->TypeName(); }
    std::int32_t TypeIndex() const override { return inner->TypeIndex(); }
    std::int32_t TypeCategory() const override { return inner->TypeCategory(); }
    std::int32_t BitSize() const override { return inner->BitSize(); }
    std::int32_t TextLength() const override { return inner->TextLength(); }
    bool IsSigned() const override { return inner->IsSigned(); }
    std::int32_t ByteSize() const override { return inner->ByteSize(); }
    std::int32_t ResultType() const override { return inner->ResultType(); }
    std::int32_t ScaleFactor() const override {
        ++scaleReads;
        if (failuresLeft > 0) {
            --failuresLeft;
            RaiseRuntimeError(kErrTypeMismatch);
        }
        return inner->ScaleFactor();
    }
    bool InvalidValue(std::int32_t& raw) const override { return inner->InvalidValue(raw); }
    std::int32_t MinValue() const override { return inner->MinValue(); }
    std::int32_t MaxValue() const override { return inner->MaxValue(); }
    std::string Units() const override { return inner->Units(); }
    bool ScaleMultiplies() const override { return inner->ScaleMultiplies(); }
    std::string ScaleText() const override { return inner->ScaleText(); }
    ElementdefPtr FieldByName(std::string_view name) const override {
        return inner->FieldByName(name);
    }
};

TEST(CDeviceVariableElement, TypeFactsAreKeptPerBindingAndFailuresAskAgain) {
    const auto type = Integer(16, true, -32768, 32767);
    type->factor = 10;
    const auto buffer = Buffer({0x00, 0xFA});  // 250
    const auto element = Element(type, buffer, NewOffset(0, 0));
    EXPECT_FLOAT_EQ(CSng(element->Value()), 25.0f);

    type->factor = 100;  // a type does not change under a bound element...
    EXPECT_FLOAT_EQ(CSng(element->Value()), 25.0f);
    element->InitElement(type, buffer, NewOffset(0, 0), 0);  // ...until it is bound again
    EXPECT_FLOAT_EQ(CSng(element->Value()), 2.5f);

    const auto flaky = std::make_shared<FlakyScale>();
    flaky->inner = type;
    flaky->failuresLeft = 2;
    const auto other = Element(flaky, buffer, NewOffset(0, 0));
    EXPECT_COM_ERROR(other->Value(), kErrTypeMismatch);
    EXPECT_COM_ERROR(other->Value(), kErrTypeMismatch);  // asked again, fails again
    EXPECT_FLOAT_EQ(CSng(other->Value()), 2.5f);
    const int reads = flaky->scaleReads;
    EXPECT_FLOAT_EQ(CSng(other->Value()), 2.5f);
    EXPECT_EQ(flaky->scaleReads, reads);  // the answer is kept
}

}  // namespace
}  // namespace vx
