#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "automation/Collection.h"
#include "automation/SafeArray.h"
#include "automation/Variant.h"
#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

TEST(SafeArray, UnallocatedArrayHasNoBounds) {
    const ByteArray array;
    EXPECT_FALSE(array.IsAllocated());
    EXPECT_EQ(array.Count(), 0u);
    EXPECT_COM_ERROR(array.LBound(), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(array.UBound(), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(array(0), kErrSubscriptOutOfRange);
}

TEST(SafeArray, BoundsTravelWithCopiesAndThroughVariants) {
    ByteArray oneBased(1, {10, 20, 30});
    const ByteArray copy = oneBased;
    EXPECT_EQ(copy.LBound(), 1);
    EXPECT_EQ(copy.UBound(), 3);
    EXPECT_EQ(copy(1), 10);
    EXPECT_COM_ERROR(copy(0), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(copy(4), kErrSubscriptOutOfRange);

    const Variant held(oneBased);
    const auto* back = held.Get<ByteArray>();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->LBound(), 1);
    EXPECT_EQ(*back, oneBased);

    oneBased(2) = 99;  // the copies are independent
    EXPECT_EQ(copy(2), 20);
    EXPECT_EQ((*held.Get<ByteArray>())(2), 20);

    EXPECT_NE(ByteArray(0, {1, 2}), ByteArray(1, {1, 2}));  // same bytes, other bounds
}

TEST(SafeArray, ReDimWithAnEmptyRangeIsASubscriptError) {
    const auto array = StringArray::WithBounds(-2, 1, "x");
    EXPECT_EQ(array.LBound(), -2);
    EXPECT_EQ(array.Count(), 4u);
    EXPECT_EQ(array(-2), "x");
    EXPECT_COM_ERROR(ByteArray::WithBounds(1, 0), kErrSubscriptOutOfRange);
}

TEST(Variant, TypeCodesAreThePlatforms) {
    EXPECT_EQ(Variant().Type(), 0);
    EXPECT_EQ(Variant::Null().Type(), 1);
    EXPECT_EQ(Variant(std::int16_t{1}).Type(), 2);
    EXPECT_EQ(Variant(1).Type(), 3);
    EXPECT_EQ(Variant(1.0f).Type(), 4);
    EXPECT_EQ(Variant(1.0).Type(), 5);
    EXPECT_EQ(Variant("a").Type(), 8);
    EXPECT_EQ(Variant(ObjectPtr()).Type(), 9);
    EXPECT_EQ(Variant(true).Type(), 11);
    EXPECT_EQ(Variant(std::uint8_t{1}).Type(), 17);
    EXPECT_EQ(Variant(ByteArray(0, {1})).Type(), 0x2011);
    EXPECT_EQ(Variant(StringArray(0, {"a"})).Type(), 0x2008);
    EXPECT_EQ(Variant(VariantArray(0, {Variant(1)})).Type(), 0x200C);
}

TEST(Variant, ObjectsAndNestedArrays) {
    struct Thing : Object {};
    const auto thing = std::make_shared<Thing>();
    const Variant held(thing);
    EXPECT_EQ(held.AsObject(), thing);
    EXPECT_EQ(Variant(ObjectPtr()).AsObject(), nullptr);  // Nothing
    EXPECT_COM_ERROR(Variant(3).AsObject(), kErrTypeMismatch);

    const Variant nested(VariantArray(1, {Variant("a"), Variant(VariantArray(0, {Variant(2)}))}));
    const auto* outer = nested.Get<VariantArray>();
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->LBound(), 1);
    EXPECT_TRUE((*outer)(2).IsArray());
    EXPECT_EQ(nested,
              Variant(VariantArray(1, {Variant("a"), Variant(VariantArray(0, {Variant(2)}))})));
    EXPECT_NE(Variant(1), Variant(std::int16_t{1}));  // equality includes the type
}

TEST(Collection, KeysIgnoreCaseAndDuplicatesAreRefused) {
    Collection<int> items;
    items.Add(1, "nvoTemp");
    items.Add(2);
    items.Add(3, "nciSetpoint");
    EXPECT_EQ(items.Count(), 3);
    EXPECT_EQ(items.Item("NVOTEMP"), 1);
    EXPECT_EQ(items.Item("nvotemp"), 1);
    EXPECT_EQ(items.Item(Variant("NciSetPoint")), 3);
    EXPECT_EQ(items.Item(Variant(2)), 2);
    EXPECT_EQ(items.Find("missing"), nullptr);

    EXPECT_COM_ERROR(items.Add(4, "NVOtemp"), kErrDuplicateKey);
    EXPECT_EQ(items.Count(), 3);  // the refused item is not added
    EXPECT_COM_ERROR(items.Item("missing"), kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(items.Item(0), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(items.Item(4), kErrSubscriptOutOfRange);
}

TEST(Collection, RemoveKeepsOrderAndKeysConsistent) {
    Collection<std::string> items;
    items.Add("a", "A");
    items.Add("b", "B");
    items.Add("c", "C");
    items.Remove("b");
    EXPECT_EQ(items.Item(2), "c");
    EXPECT_EQ(items.Item("C"), "c");  // the key still finds its moved item
    items.Remove(1);
    EXPECT_EQ(items.Item("c"), "c");
    items.Add("b2", "B");  // a removed key is free again
    std::vector<std::string> order(items.begin(), items.end());
    EXPECT_EQ(order, (std::vector<std::string>{"c", "b2"}));
    EXPECT_COM_ERROR(items.Remove("A"), kErrInvalidProcedureCall);
}

}  // namespace
}  // namespace vx
