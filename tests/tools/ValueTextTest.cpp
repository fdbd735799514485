// The texts vxctl exchanges with people and scripts: the node's Latin-1 against UTF-8, and
// command-line values turned into what the library's elements take.
#include <gtest/gtest.h>

#include "TypeRegistry.h"
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

}  // namespace
}  // namespace vx::vxctl
