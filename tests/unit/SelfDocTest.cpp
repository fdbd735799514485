#include "SelfDoc.h"

#include <gtest/gtest.h>

#include <string>

namespace vx {
namespace {

struct Expected {
    std::int32_t objectIndex;
    bool bound;
    std::int32_t scopeCode;
    std::int32_t memberGroup;
    std::int32_t memberNumber;
    bool isProperty;
};

void ExpectNumbers(const std::string& selfDoc, const Expected& expected) {
    SCOPED_TRACE(selfDoc);
    const VariableSelfDoc parsed = ParseVariableSelfDoc(selfDoc, "nvoX");
    EXPECT_EQ(parsed.objectIndex, expected.objectIndex);
    EXPECT_EQ(parsed.bound, expected.bound);
    EXPECT_EQ(parsed.scopeCode, expected.scopeCode);
    EXPECT_EQ(parsed.memberGroup, expected.memberGroup);
    EXPECT_EQ(parsed.memberNumber, expected.memberNumber);
    EXPECT_EQ(parsed.isProperty, expected.isProperty);
}

TEST(VariableSelfDoc, ObjectMembersFromRealInterfaceFiles) {
    ExpectNumbers("@0|1", {0, true, 10, 0, 1, false});
    ExpectNumbers("@0#1", {0, true, 10, 0, 1, false});  // "#" reads as "|"
    ExpectNumbers("@1|52", {1, true, 10, 0, 52, false});
    // A member number the platform cannot read as a number keeps its default; the object stays.
    ExpectNumbers("@7|1?", {7, true, 10, 0, 0, false});
}

TEST(VariableSelfDoc, PropertiesFromRealInterfaceFiles) {
    // The flags field carries a non-ASCII byte after its first digit.
    ExpectNumbers("&1,0,0\xA0,25", {0, true, 0, 0, 25, true});
    ExpectNumbers("&1,5,0\x80,82", {5, true, 0, 0, 82, true});
    // A property of network variable 21: the index waits for its variable's object.
    ExpectNumbers("&2,21,0\xA0,254", {21, false, 0, 0, 254, true});
}

TEST(VariableSelfDoc, DocumentedForms) {
    ExpectNumbers("@1|3", {1, true, 10, 0, 3, false});
    ExpectNumbers("@0#3001", {0, true, 10, 3, 1, false});
    ExpectNumbers("$2|1005; text", {2, true, 10, 1, 5, false});
    ExpectNumbers(" @ 1|3", {-1, false, 10, 0, 0, false});  // only the first character decides
    ExpectNumbers("&1,2,0,17;text", {2, true, 0, 0, 17, true});
    ExpectNumbers("&2,5,1,60", {5, false, 1, 0, 60, true});
    ExpectNumbers("&2,4.1,0,17", {4, false, 0, 0, 17, true});
    ExpectNumbers("~2,4.6,0,17", {4, false, 0, 0, 17, true});  // up to the ".", no rounding
    ExpectNumbers("&1,1-3,0,17", {-1, true, 0, 0, 17, true});  // a range is node-wide
    ExpectNumbers("&0,7,3,60", {-1, true, 3, 0, 60, true});    // header 0 applies to the node
    ExpectNumbers("&3,7,0,60", {-1, false, 0, 0, 60, true});   // unknown header
    ExpectNumbers("", {-1, false, 10, 0, 0, false});
    ExpectNumbers("plain text", {-1, false, 10, 0, 0, false});
}

TEST(VariableSelfDoc, IncompleteTextsKeepDefaults) {
    ExpectNumbers("&", {-1, false, 10, 0, 0, true});
    ExpectNumbers("&1", {-1, false, 10, 0, 0, true});
    ExpectNumbers("&1,x,0,5", {-1, false, 0, 0, 5, true});
    ExpectNumbers("@", {-1, false, 10, 0, 0, false});
    ExpectNumbers("@3", {3, true, 10, 0, 0, false});
    ExpectNumbers("@99999999999|1", {-1, false, 10, 0, 1, false});  // beyond a Long
    ExpectNumbers("@1|-2005", {1, true, 10, -2, -5, false});
}

TEST(VariableSelfDoc, NameComesFromTheHostOrTheText) {
    EXPECT_EQ(ParseVariableSelfDoc("@1|3;nvoOther", "nviTemp").name, "nviTemp");
    EXPECT_EQ(ParseVariableSelfDoc("@1|3;nvoTemp, text", "Temp").name, "nvoTemp");
    EXPECT_EQ(ParseVariableSelfDoc("@1|3;  nvoTemp  ", "Temp").name, "nvoTemp");
    // "nvi" is looked for before "nvo", wherever each occurs.
    EXPECT_EQ(ParseVariableSelfDoc("@1|3;nvoA,nviB", "Temp").name, "nviB");
    // The search is case-sensitive.
    EXPECT_EQ(ParseVariableSelfDoc("@1|3;NVOTemp", "Temp").name, "Temp");

    const auto property = ParseVariableSelfDoc("@1|4;nciSetpoint,x", "Setpoint");
    EXPECT_EQ(property.name, "nciSetpoint");
    EXPECT_TRUE(property.isProperty);
    // The host's own LonMark name stops the search, so "nci" in the text marks nothing.
    EXPECT_FALSE(ParseVariableSelfDoc("@1|4;nciSetpoint", "nvoSetpoint").isProperty);
}

TEST(VariableSelfDoc, LonMarkNames) {
    EXPECT_TRUE(IsLonMarkName("nviTemp"));
    EXPECT_TRUE(IsLonMarkName("NVOx"));
    EXPECT_TRUE(IsLonMarkName("nCi"));
    EXPECT_FALSE(IsLonMarkName("nv"));
    EXPECT_FALSE(IsLonMarkName("nvx"));
    EXPECT_FALSE(IsLonMarkName(""));
}

}  // namespace
}  // namespace vx
