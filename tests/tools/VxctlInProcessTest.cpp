// vxctl's commands inside one process, where the simulated controller outlives a command and what
// it holds can be checked byte for byte: writes of each kind of value, the device name, level-3
// downloads with their checksum, a saved configuration restored onto a fresh controller, and the
// progress shown on a terminal. The library's waits run on a virtual clock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ConfigCommands.h"
#include "ConfigFile.h"
#include "DefaultController.h"
#include "Operations.h"
#include "SavedConfiguration.h"
#include "SimulatedNode.h"
#include "Vxctl.h"
#include "automation/Clock.h"
#include "fixtures/Scenario.h"

namespace vx::vxctl {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

class VxctlInOneProcess : public ::testing::Test {
protected:
    static std::map<std::string, Bytes> HeldConfiguration(const sim::SimulatedNode& node) {
        return sim::SavedConfiguration::Save(node)->Values();
    }

    // The default controller, kept by the test so that it can look inside.
    static sim::SimulatedNodePtr DefaultNode() {
        return sim::SimulatedNode::Create(sim::DefaultController());
    }
    static Connection Over(const sim::SimulatedNodePtr& node) {
        return {node, "default", "simulated controller", node->ProgramIDText()};
    }

    test::ScopedStandardTypes standardTypes;
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScopedClock clockGuard{clock};
    Progress quiet{nullptr};
    fs::path file = fs::temp_directory_path() / ("vxctl-config-" + std::to_string(getpid()));
    void TearDown() override { fs::remove(file); }
};

TEST_F(VxctlInOneProcess, ARestoreReproducesTheSavedConfigurationByteForByte) {
    const auto siteNode = DefaultNode();
    Session site(Over(siteNode), {}, quiet);
    // Level-2 changes first: the level-3 one after them sends a checksum over all of them.
    ASSERT_EQ(Set(site, "nciSetpoints.occupied_cool", "23.5", std::nullopt).failure, "");
    ASSERT_EQ(Set(site, "nciMaxFlow", "280", std::nullopt).failure, "");
    ASSERT_EQ(Set(site, "nciDeviceConfig.fan_mode", "FAN_LOW", std::nullopt).failure, "");
    ASSERT_EQ(Set(site, "nciFrostSetpt", "6.5", std::nullopt).failure, "");
    ASSERT_FALSE(siteNode->Commands().checksumMismatch);
    ASSERT_EQ(ConfigSave(site, file.string()).failure, "");

    // The file holds what the site's controller holds.
    const SavedConfigurationFile saved = ReadConfigurationFile(file.string());
    std::map<std::string, Bytes> savedValues;
    for (const auto& value : saved.values)
        savedValues.emplace(value.key, value.raw);
    EXPECT_EQ(savedValues, HeldConfiguration(*siteNode));

    const auto freshNode = DefaultNode();
    Session fresh(Over(freshNode), {}, quiet);
    ASSERT_NE(HeldConfiguration(*freshNode), HeldConfiguration(*siteNode));
    const Outcome restored = ConfigRestore(fresh, file.string());
    EXPECT_EQ(restored.failure, "");
    EXPECT_EQ(HeldConfiguration(*freshNode), HeldConfiguration(*siteNode));
    EXPECT_EQ(restored.json["changed"],
              Json::parse(R"(["nciSetpoints.20", "3-1", "3-2", "0-1", "nciMaxFlow.30"])"));
    EXPECT_EQ(restored.json["level"], 3);
    EXPECT_FALSE(freshNode->Commands().checksumMismatch);
    EXPECT_EQ(freshNode->Commands().restarts, 1);
    EXPECT_FALSE(freshNode->Commands().restarting);
}

TEST_F(VxctlInOneProcess, ARestoreRefusesAnotherModelsConfiguration) {
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    SavedConfigurationFile saved;
    saved.programId = "9FFFFF0501840460";
    saved.values.push_back({"3-1", {0, 0}});
    WriteConfigurationFile(file.string(), saved);
    EXPECT_THROW(ConfigRestore(session, file.string()), ToolError);
    EXPECT_TRUE(node->CommandFrames().empty());
}

TEST_F(VxctlInOneProcess, SetSendsEachKindOfValueTheWayTheNodeTakesIt) {
    const auto held = DefaultNode();
    Session session(Over(held), {}, quiet);
    const auto& node = *held;

    // A level-3 item: written as it changes, then a level-3 download with the checksum over it,
    // closed at once and waited for.
    Outcome outcome = Set(session, "nciTempOffset", "-0.5", std::nullopt);
    EXPECT_EQ(outcome.json["sent"]["how"], "download");
    EXPECT_EQ(node.ConfigItemValue("0-2"), (Bytes{0xFF, 0xCE}));  // -50 hundredths
    EXPECT_EQ(node.CommandFrames(),
              (std::vector<Bytes>{test::Frame({3, 3, 1}), test::Frame({4, 3})}));
    EXPECT_EQ(node.ConfigItemValue("3-1"), node.CoveredChecksum());
    EXPECT_FALSE(node.Commands().checksumMismatch);
    EXPECT_FALSE(node.Commands().restarting);

    // A configuration value that does not change sends nothing.
    held->ClearRecord();
    outcome = Set(session, "nciMinFlow", "60", std::nullopt);
    EXPECT_EQ(outcome.json["sent"]["how"], "unchanged");
    EXPECT_TRUE(node.CommandFrames().empty());

    // A network variable is written even with the value it holds.
    held->ClearRecord();
    outcome = Set(session, "nviApplicMode", "HVAC_AUTO", std::nullopt);
    EXPECT_EQ(outcome.json["sent"]["how"], "write");
    ASSERT_EQ(node.Exchanges().size(), 3u);  // read, write, read back
    EXPECT_EQ(node.Exchanges()[1].operation, "WriteValue");
    EXPECT_EQ(node.Exchanges()[1].request, Bytes{0});
}

TEST_F(VxctlInOneProcess, ALevel3DownloadSendsEveryValueWithTheRoomBlocksChecksum) {
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    node->ClearRecord();
    // Object 2 keeps no checksum list: the node's one checksum is still the room block's.
    const Outcome outcome = ConfigDownload(session, 3, 2);
    EXPECT_EQ(outcome.failure, "");

    std::set<std::string> written;
    for (const auto& exchange : node->Exchanges()) {
        if (exchange.operation == "WriteValue") written.insert(exchange.target);
    }
    EXPECT_EQ(written,
              (std::set<std::string>{"nviCommand", "nciMinFlow", "nciMaxFlow", "nciNomFlow",
                                     "nciMinFlowHeat", "nciDuctArea", "0-3"}));
    EXPECT_EQ(node->CommandFrames(),
              (std::vector<Bytes>{test::Frame({3, 3, 1}), test::Frame({4, 3})}));
    EXPECT_EQ(node->ConfigItemValue("3-1"), node->CoveredChecksum());
    EXPECT_FALSE(node->Commands().checksumMismatch);
    EXPECT_FALSE(node->Commands().restarting);  // the wait saw the restart end
}

TEST_F(VxctlInOneProcess, TheNameIsWrittenWhereTheFileDirectoryPointsAndReadBack) {
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    const Outcome outcome = Name(session, "20", std::string("Hall 3 \xC2\xB0 east"));  // UTF-8 °
    EXPECT_EQ(outcome.failure, "");
    EXPECT_EQ(outcome.json["address"], "4120");  // the directory's third area, 4100, plus 20
    EXPECT_EQ(outcome.json["name"], "Hall 3 \xC2\xB0 east");
    Bytes expected = {'H', 'a', 'l', 'l', ' ', '3', ' ', 0xB0, ' ', 'e', 'a', 's', 't'};
    expected.resize(30, ' ');
    expected.push_back(0);
    EXPECT_EQ(node->MemoryBytes(0x4120, 31), expected);
}

TEST_F(VxctlInOneProcess, ProgressGoesToTheTerminalOnlyAndTheClockIsGivenBack) {
    std::ostringstream plainOut, plainErr, shownOut, shownErr;
    const std::vector<std::string> line = {"config", "download", "--level", "3"};
    EXPECT_EQ(vxctl::Run(line, plainOut, plainErr, false), kExitSuccess);
    EXPECT_EQ(vxctl::Run(line, shownOut, shownErr, true), kExitSuccess);

    EXPECT_EQ(shownOut.str(), plainOut.str());
    EXPECT_EQ(plainErr.str(), "");
    EXPECT_NE(shownErr.str().find("uploading the configuration ["), std::string::npos);
    EXPECT_NE(shownErr.str().find("waiting for the application reset ["), std::string::npos);
    EXPECT_EQ(&CurrentClock(), clock.get());
}

}  // namespace
}  // namespace vx::vxctl
