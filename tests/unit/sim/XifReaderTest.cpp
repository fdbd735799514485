#include "XifReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "fixtures/ErrorMatchers.h"

namespace vx::sim {
namespace {

const std::string kXifDir = std::string(VX_SIM_DATA_DIR) + "/xif/";

const VariableRecord& Named(const NodeDescription& node, const std::string& name) {
    const auto found = std::find_if(node.variables.begin(), node.variables.end(),
                                    [&](const auto& v) { return v.name == name; });
    EXPECT_NE(found, node.variables.end()) << name;
    return *found;
}

TEST(XifReader, ReadsTheNodeAndEveryVariableOfARealFile) {
    const auto node = LoadXif(kXifDir + "VAV_sim.XIF");
    EXPECT_EQ(node.programId, "9000015502040402");
    EXPECT_EQ(node.selfDoc, "&3.4@0NodeObject,8502sccVAV");
    ASSERT_EQ(node.variables.size(), 16u);
    for (std::size_t i = 0; i < node.variables.size(); ++i) {
        EXPECT_EQ(node.variables[i].index, static_cast<std::int32_t>(i));
    }

    const auto& request = Named(node, "nviRequest");
    EXPECT_FALSE(request.isOutput);
    EXPECT_EQ(request.selfDoc, "@0|1");
    EXPECT_EQ(request.typeIndex, 92);
    EXPECT_EQ(request.value, std::vector<std::uint8_t>(3, 0));  // 16-bit + 8-bit elements

    const auto& status = Named(node, "nvoStatus");
    EXPECT_TRUE(status.isOutput);
    EXPECT_EQ(status.value.size(), 6u);  // 16 bits, then three bytes of flags and a byte field

    EXPECT_TRUE(Named(node, "nvoFileDirectory").polled);
    EXPECT_EQ(Named(node, "nvoUnitStatus").value.size(), 12u);
    EXPECT_EQ(Named(node, "nvoVersion").selfDoc, "");  // a lone "*"
}

TEST(XifReader, JoinsContinuationLinesAndDecodesEscapes) {
    const auto node = LoadXif(kXifDir + "6kEvbMultiSensor.XIF");
    EXPECT_EQ(node.programId, "9FFFFF0501840460");
    EXPECT_EQ(node.selfDoc,
              "&3.4@0NodeObject,4[2Lamp,2[2Switch,1010LightSensor,1040TempSensor,1Joystick");

    const auto& netConfig = Named(node, "nciNetConfig");
    EXPECT_EQ(netConfig.selfDoc, "&1,0,0\xA0,25");
    EXPECT_TRUE(netConfig.isConfigClass);
    EXPECT_EQ(Named(node, "nciNvType").selfDoc, "&2,21,0\xA0,254");
    EXPECT_EQ(Named(node, "nvoJoystick").selfDoc, "@7|1?");
    EXPECT_EQ(Named(node, "nviLightRemote").selfDoc, "@0#1");
    EXPECT_EQ(Named(node, "nvoAlarm").value.size(), 31u);  // arrays and a 22-character text
}

TEST(XifReader, OpaqueBlocksAndTheSmallFiles) {
    const auto dynamic = LoadXif(kXifDir + "NM_DynamicC.xif");
    EXPECT_EQ(dynamic.selfDoc, "&3.4@0nodeObject,20008[64webServer");
    ASSERT_EQ(dynamic.variables.size(), 2u);
    EXPECT_EQ(dynamic.variables[0].value.size(), 3u);
    EXPECT_EQ(dynamic.variables[1].value.size(), 6u);

    const auto bcast = LoadXif(kXifDir + "bcastSwitch.xif");  // ends with an NVVAL section
    ASSERT_EQ(bcast.variables.size(), 2u);
    EXPECT_EQ(bcast.variables[1].selfDoc, "&1,0,0\x80,7");
}

std::string MessageOf(std::string_view text) {
    return test::CaughtError([&] { ReadXif(text, "bad.xif"); }).Description();
}

TEST(XifReader, MalformedFilesNameTheFileAndLine) {
    const std::string head = "File: x\n\n90:00:01:55:02:04:04:02\n1 2 3\n*\n\"&3.4@0NodeObject\n\n";
    EXPECT_EQ(MessageOf("nothing here\n"),
              "bad.xif line 1: no program ID line (eight hexadecimal bytes separated by \":\")");
    EXPECT_EQ(MessageOf("90:00:01:55:02:04:04:02\n1 2\n"),
              "bad.xif line 3: no \"*\" line before the node self-documentation");
    EXPECT_EQ(MessageOf(head + "VAR nviA 0 0 0 0\n"),
              "bad.xif line 9: file ends where the flag line was expected");
    EXPECT_EQ(MessageOf(head + "VAR nviA x 0 0 0\n"),
              "bad.xif line 9: expected a number for the variable index, found \"x\"");
    EXPECT_EQ(
        MessageOf(head +
                  "VAR nviA 0 0 0 0\n0 1 63 0 0 1 0 1 0 1 0 0 0\n\"@0|1\n92 * 1\n9 0 0 0 0\n"),
        "bad.xif line 13: unknown element kind 9");
    EXPECT_EQ(MessageOf(head + "VAR nviA 0 0 0 0\n0 1 63 0 0 1 0 1 0 1 0 0 0\n\"@0|1\n92 * 2\n4 0 "
                               "200 0 0\n4 0 100 0 0\n"),
              "bad.xif line 14: value larger than 255 bytes");
    EXPECT_EQ(test::CaughtError([] { LoadXif("/nonexistent/file.xif"); }).Description(),
              "/nonexistent/file.xif: cannot be opened");
}

}  // namespace
}  // namespace vx::sim
