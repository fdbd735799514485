#include <gtest/gtest.h>

#include "DefaultController.h"
#include "NodeSelfDoc.h"
#include "SimTestSupport.h"
#include "SimulatedNode.h"
#include "XifReader.h"

namespace vx::sim {
namespace {

std::vector<std::string> Described(std::string_view selfDoc) {
    std::vector<std::string> texts;
    for (const auto& block : FunctionalBlocks(selfDoc)) {
        texts.push_back((block.profile ? std::to_string(*block.profile) : "-") + " " + block.name);
    }
    return texts;
}

TEST(NodeSelfDoc, ACountedEntryStandsForThatManyBlocksOfItsProfile) {
    EXPECT_EQ(Described("&3.4@0NodeObject,4[2Lamp,1010LightSensor;free text, with commas"),
              (std::vector<std::string>{"0 NodeObject", "4 Lamp", "4 Lamp", "1010 LightSensor"}));
    EXPECT_EQ(Described("&3.4@0,8500, 8010 ;Controller"),
              (std::vector<std::string>{"0 ", "8500 ", "8010 "}));
    EXPECT_EQ(Described("&3.4@0nodeObject,20008[64webServer").size(), 65u);
    // What is no number stays a name; a count without a profile counts nothing.
    EXPECT_EQ(Described("&3.4@x[3,7[]y"), (std::vector<std::string>{"- x[3", "7 y"}));
    EXPECT_TRUE(Described("no list").empty());
    EXPECT_EQ(FunctionalBlocks("@1[99999999999]", 10).size(), 10u);  // capped
}

TEST(NodeSelfDoc, TheSimulatedNodeHasEveryCountedBlockAsAnObject) {
    const auto node =
        SimulatedNode::Create(LoadXif(std::string(VX_SIM_DATA_DIR) + "/xif/6kEvbMultiSensor.XIF"));
    // Node object, two lamps, two switches, a light sensor, a temperature sensor, a joystick.
    EXPECT_EQ(node->ObjectCount(), 8);
    EXPECT_EQ(SimulatedNode::Create(DefaultController())->ObjectCount(), 3);
}

}  // namespace
}  // namespace vx::sim
