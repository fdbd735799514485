// The texts vxctl exchanges with people and scripts: the node's Latin-1 against UTF-8, and
// command-line values turned into what the library's elements take.
#include <gtest/gtest.h>

#include "Suggest.h"
#include "TypeRegistry.h"
#include "Units.h"
#include "ValueText.h"

namespace vx::vxctl {
namespace {

TEST(ValueText, NodeTextsCrossAsLatin1) {
    EXPECT_EQ(Utf8FromLatin1("21 \xB0"
                             "C"),
              "21 \xC2\xB0"
              "C");
    EXPECT_EQ(Latin1FromUtf8("21 \xC2\xB0"
                             "C"),
              "21 \xB0"
              "C");
    // Beyond Latin-1 (the euro sign, three bytes; an emoji, four) there is no byte to give.
    EXPECT_EQ(Latin1FromUtf8("\xE2\x82\xAC 5 \xF0\x9F\x98\x80!"), "? 5 ?!");
    EXPECT_EQ(Latin1FromUtf8("\xC3"), "?");  // cut short
}

TEST(ValueText, CommandLineValuesBecomeWhatTheElementTakes) {
    const auto types = TypeRegistry::Standard();
    const auto mode = types->TypeByName("SNVT_hvac_mode");
    ASSERT_NE(mode, nullptr);
    EXPECT_EQ(InputValue(*mode, "HVAC_COOL"), Variant(std::int32_t{3}));
    EXPECT_EQ(InputValue(*mode, "cool"), Variant(std::int32_t{3}));  // without the prefix
    EXPECT_EQ(InputValue(*mode, "nul"), Variant(std::int32_t{-1}));  // the invalid member too
    EXPECT_EQ(InputValue(*mode, "3"), Variant(std::string("3")));    // numbers: the element's
    EXPECT_EQ(EnumMembers(*mode).front(), (std::pair<std::int32_t, std::string>{-1, "HVAC_NUL"}));

    const auto flags = types->TypeByName("SNVT_obj_status");
    ASSERT_NE(flags, nullptr);
    const auto disabled = flags->FieldByName("disabled")->Typedef();
    EXPECT_EQ(InputValue(*disabled, "On"), Variant(true));
    EXPECT_EQ(InputValue(*disabled, "false"), Variant(false));

    // A plain number type has no members, however narrow.
    const auto percent = types->TypeByName("SNVT_lev_percent");
    EXPECT_TRUE(EnumMembers(*percent).empty());
    EXPECT_EQ(InputValue(*percent, "42.5"), Variant(std::string("42.5")));
}

TEST(ValueText, AValueWithItsUnitsForPeople) {
    DecodedValue setpoints;
    DecodedValue cool{"occupied_cool", 24.0, "24 degrees Celsius", {}};
    DecodedValue heat{"occupied_heat", 21.0, "21 degrees Celsius", {}};
    setpoints.fields = {cool, heat};
    EXPECT_EQ(ValueWithUnits(setpoints),
              "occupied_cool 24 degrees Celsius; occupied_heat 21 degrees Celsius");
    EXPECT_EQ(ValueWithUnits(cool), "24 degrees Celsius");
}

TEST(ValueText, ARunTimeErrorGivesItsDecimalNumberToo) {
    EXPECT_EQ(ErrorText(ComError(kErrTypeMismatch, "Vx", "Type mismatch")),
              "error 13 = 0x0000000D (Vx): Type mismatch");
    EXPECT_EQ(ErrorJson(ComError(kErrTypeMismatch, "Vx", "Type mismatch"))["hex"], "0x0000000D");
}

TEST(Units, ANumberAndItsUnitAreConvertedIntoTheTypesUnits) {
    const auto typed = SplitNumberAndUnit(
        " 72 \xC2\xB0"
        "F ");
    ASSERT_TRUE(typed);
    EXPECT_EQ(typed->number, 72);
    EXPECT_EQ(typed->unit,
              "\xC2\xB0"
              "F");
    EXPECT_EQ(SplitNumberAndUnit("-5.5degC")->unit, "degC");
    EXPECT_FALSE(SplitNumberAndUnit("warm"));
    EXPECT_FALSE(SplitNumberAndUnit("0x10"));  // hexadecimal, not 0 in "x10"
    EXPECT_FALSE(SplitNumberAndUnit("inf"));

    EXPECT_NEAR(*ConvertUnits(72, "F", "degrees Celsius"), 22.2222222, 1e-6);
    EXPECT_NEAR(*ConvertUnits(9, "F", "degrees Celsius", true), 5, 1e-9);  // a difference
    EXPECT_NEAR(*ConvertUnits(300, "cfm", "liters/second"), 141.584233, 1e-5);
    EXPECT_NEAR(*ConvertUnits(1.5, "kPa", "Pascals"), 1500, 1e-9);
    EXPECT_NEAR(*ConvertUnits(50, "%", "% of full level"), 50, 1e-9);
    // Other dimensions, unknown units, and degrees into kelvins (absolute or difference?) are not
    // guessed.
    EXPECT_FALSE(ConvertUnits(1, "kPa", "degrees Celsius"));
    EXPECT_FALSE(ConvertUnits(1, "furlong", "meters"));
    EXPECT_FALSE(ConvertUnits(5, "F", "K"));
    EXPECT_NEAR(*ConvertUnits(5, "K", "K"), 5, 1e-9);
    EXPECT_EQ(ConvertibleUnits("degrees Celsius"), "C, F, K");
    EXPECT_EQ(ConvertibleUnits("K"), "K");
}

TEST(Suggest, TheClosestNamesWithinASlip) {
    const std::vector<std::string> names = {"nviSetpoint", "nviSetptOffset", "nvoSpaceTemp",
                                            "nviSpaceTemp"};
    EXPECT_EQ(EditDistance("nviSetpiont", "nviSetpoint"), 1u);  // neighbours swapped
    EXPECT_EQ(DidYouMean("NVISETPOINT", names), " (did you mean nviSetpoint?)");
    EXPECT_EQ(DidYouMean("nvxSpaceTemp", names), " (did you mean nvoSpaceTemp or nviSpaceTemp?)");
    EXPECT_EQ(DidYouMean("humidity", names), "");
    EXPECT_EQ(DidYouMean("ab", {"xy"}), "");  // short names: one edit at most
}

}  // namespace
}  // namespace vx::vxctl
