#include "NodeSnapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>

#include "DefaultController.h"
#include "NodeJson.h"
#include "SimErrors.h"
#include "SimTestSupport.h"
#include "fixtures/ErrorMatchers.h"

namespace vx::sim {
namespace {

using test::Bytes;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using vx::test::CaughtError;

Bytes Frame(Bytes head) {
    head.resize(12, 0);
    return head;
}

// Neuron ID 05 01 3C 7A 1F 02: 05^02, 01^1F, 3C^7A, sum 0xDD.
const Bytes kMemoryReset = Frame({12, 1, 0x07, 0x1E, 0x46, 0xDD});

SimulatedNodePtr RoundTrip(const SimulatedNode& node) {
    return LoadNodeState(SaveNodeState(node), "state.json");
}

// The description as a state file gives it: the memory blocks are the image's, see MemoryBytes.
NodeDescription WithoutMemory(NodeDescription description) {
    description.memory.clear();
    return description;
}

void ExpectSameNode(const SimulatedNode& loaded, const SimulatedNode& node) {
    EXPECT_EQ(WithoutMemory(loaded.Description()), WithoutMemory(node.Description()));
    EXPECT_EQ(loaded.MemoryBytes(0, 0x10000), node.MemoryBytes(0, 0x10000));
    EXPECT_EQ(loaded.Commands(), node.Commands());
    EXPECT_EQ(loaded.Running(), node.Running());
    ASSERT_EQ(loaded.ObjectCount(), node.ObjectCount());
    for (std::int32_t object = 0; object < node.ObjectCount(); ++object) {
        EXPECT_EQ(loaded.ObjectFlags(object), node.ObjectFlags(object)) << object;
    }
}

class SimSnapshot : public ::testing::Test {
protected:
    SimulatedNodePtr node = SimulatedNode::Create(DefaultController());
};

TEST_F(SimSnapshot, ANodeAsMadeSavesAsANodeFileAndRoundTrips) {
    const std::string text = SaveNodeState(*node);
    const auto loaded = LoadNodeState(text, "state.json");
    ExpectSameNode(*loaded, *node);
    EXPECT_EQ(SaveNodeState(*loaded), text);
    // The node file reader takes it; its values are the node's.
    EXPECT_EQ(WithoutMemory(ReadNodeJson(text, "state.json")), WithoutMemory(node->Description()));
    // A plain node file is a node as first made.
    EXPECT_EQ(SaveNodeState(*LoadNodeState(DefaultControllerJson(), "orvex-vx220.json")), text);
}

TEST_F(SimSnapshot, ARunningNodeSurvivesTheRoundTrip) {
    // Values of every kind, state, mode and reset polls.
    node->SetVariableValue("nviSetpoint", {0x08, 0x98});
    test::WriteVariable(*node, "nciSndHrtBt", {0x01, 0x2C});
    test::WriteItem(*node, "0-1", {0x03, 0x52});
    node->SetMemoryBytes(0x5000, {0x11, 0x22});
    node->SetNodeState(6);
    node->SetMode(0);
    node->SetResetPolls(3);
    // A restart with one of its three polls made, then a download opened during it.
    test::WriteVariable(*node, "nviCommand", Frame({3, 3, 1}));
    test::WriteVariable(*node, "nviCommand", Frame({4, 3}));
    test::ReadVariable(*node, "nvoAlarmMessage");
    test::WriteVariable(*node, "nviCommand", Frame({3, 2, 1}));
    test::WriteVariable(*node, "nviCommand", Frame({6, 0, 2, 0x01, 0x2C}));
    test::WriteVariable(*node, "nviCommand", Frame({7, 0, 5}));
    test::WriteVariable(*node, "nviCommand", Frame({8}));
    test::WriteVariable(*node, "nviCommand", Frame({10, 2}));
    test::WriteVariable(*node, "nviCommand", Frame({5}));
    // Object flags, by request and by control.
    test::WriteVariable(*node, "nviRequest", {0, 2, 1});  // disable object 2
    node->SetObjectFlags(1, kObjInAlarm | kObjOutOfLimits);
    node->SetObjectSupportedFlags(2, kObjDefaultSupported | kObjOutOfLimits);
    ASSERT_TRUE(node->Commands().restarting);
    ASSERT_EQ(node->Commands().pollsLeft, 2);
    ASSERT_EQ(node->Commands().downloadLevel, 2);

    const std::string text = SaveNodeState(*node);
    const auto loaded = LoadNodeState(text, "state.json");
    ExpectSameNode(*loaded, *node);
    EXPECT_EQ(SaveNodeState(*loaded), text);

    // Both go on alike: the restart ends after two more polls, with the alarm it began with.
    for (const auto& running : {node, loaded}) {
        EXPECT_EQ(test::ReadVariable(*running, "nvoAlarmMessage")[2], 'A');  // "0 Application..."
        test::ReadVariable(*running, "nvoAlarmMessage");
        EXPECT_FALSE(running->Commands().restarting);
        EXPECT_EQ(test::ReadVariable(*running, "nvoAlarmMessage")[2], 'N');  // "0 Normal"
        test::WriteVariable(*running, "nviCommand", Frame({4, 2}));
        EXPECT_EQ(running->Commands().closes, 2);
    }
    ExpectSameNode(*loaded, *node);
}

TEST_F(SimSnapshot, AMemoryResetAfterTheRoundTripRestoresTheFactoryValues) {
    test::WriteItem(*node, "0-1", {0x03, 0x52});
    test::WriteVariable(*node, "nciSndHrtBt", {0x01, 0x2C});
    const auto loaded = RoundTrip(*node);
    EXPECT_EQ(loaded->ConfigItemValue("0-1"), (Bytes{0x03, 0x52}));

    test::WriteVariable(*loaded, "nviCommand", kMemoryReset);
    EXPECT_EQ(loaded->ConfigItemValue("0-1"), (Bytes{0x03, 0x20}));
    EXPECT_EQ(loaded->VariableValue("nciSndHrtBt"), (Bytes{0x02, 0x58}));
    EXPECT_EQ(loaded->MemoryBytes(0x421A, 2), (Bytes{0x03, 0x20}));
}

// A node with item 0-1 (two bytes) at 2000 and the memory given.
SimulatedNodePtr NodeWithMemory(std::vector<MemoryBlock> memory) {
    NodeDescription description;
    description.neuronId = "000000000001";
    description.programId = "91A5A50000000000";
    VariableRecord variable;
    variable.name = "a";
    variable.value = {0};
    description.variables = {variable};
    ConfigItemRecord item;
    item.name = "0-1";
    item.value = {0xAA, 0xBB};
    item.address = 0x2000;
    description.configItems = {item};
    description.memory = std::move(memory);
    return SimulatedNode::Create(std::move(description));
}

TEST(SimSnapshotMemory, IsSavedAsTheNonZeroRunsWithoutTheItems) {
    Bytes fifteenApart(17, 0);
    fifteenApart.front() = 0x01;
    fifteenApart.back() = 0x02;
    const auto node = NodeWithMemory({{0x1000, fifteenApart},
                                      {0x1011, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},
                                      {0x1FFE, {0x04, 0x05}},
                                      {0x2002, {0x06, 0, 0x07}},
                                      {0xFFFF, {0x08}}});
    node->SetMemoryBytes(0x2001, {0xCC});  // into the item
    const auto saved = ReadNodeJson(SaveNodeState(*node), "state.json");
    // 15 zeros keep a block together, 16 part it; the item's bytes lie between two blocks.
    EXPECT_EQ(saved.memory, (std::vector<MemoryBlock>{{0x1000, fifteenApart},
                                                      {0x1021, {0x03}},
                                                      {0x1FFE, {0x04, 0x05}},
                                                      {0x2002, {0x06, 0x00, 0x07}},
                                                      {0xFFFF, {0x08}}}));
    EXPECT_EQ(saved.configItems[0].value, (Bytes{0xAA, 0xCC}));
    EXPECT_EQ(saved.configItems[0].address, 0x2000);

    const auto empty = ReadNodeJson(SaveNodeState(*NodeWithMemory({})), "state.json");
    EXPECT_TRUE(empty.memory.empty());
}

std::string StateError(const std::string& text) {
    const auto error = CaughtError([&] { LoadNodeState(text, "state.json"); });
    EXPECT_EQ(error.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(error.Source(), "Vx.Sim.LoadNodeState");
    return error.Description();
}

// The default controller's state file with its running state replaced by `running`.
std::string WithRunning(const std::string& running) {
    const auto node = SimulatedNode::Create(DefaultController());
    std::string text = SaveNodeState(*node);
    const auto at = text.find("\"running\":");
    EXPECT_NE(at, std::string::npos);
    return text.substr(0, at) + "\"running\": " + running + "\n}\n";
}

TEST(SimSnapshotFile, KeysLeftOutKeepTheNodesOwn) {
    const auto node = LoadNodeState(WithRunning(R"({"commands": {"closes": 4}})"), "state.json");
    EXPECT_EQ(node->Commands().closes, 4);
    EXPECT_TRUE(node->Commands().keypadEnabled);
    EXPECT_EQ(node->ObjectCount(), 3);
    EXPECT_EQ(node->Running().factoryItems.size(), 6u);
}

TEST(SimSnapshotFile, MalformedRunningStateIsNamed) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"colour": 1})", "unknown key \"colour\""},
        {R"({"commands": {"pollsLeft": -2}})", "pollsLeft must lie within -1..2147483647"},
        {R"({"objects": [{"flags": 0, "supported": 0}]})", "1 objects for a node of 3"},
        {R"({"factory": {"variables": {"nviSetpoint": "0000"}}})",
         "factory value of nviSetpoint: a memory reset restores no value of this name"},
        {R"({"factory": {"configItems": {"0-1": "00"}}})",
         "factory value of 0-1: 1 bytes for a value of 2"},
        {R"({"commands": {"downloadLevel": 1}})", "download level 1 is none of 0, 2 and 3"},
        {R"({"commands": {"restarting": true, "pollsLeft": 1}})",
         "a restart in progress without the alarm message it began with"},
        {R"({"commands": {"pollsLeft": 1}})", "polls left 1 without a restart in progress (0)"},
        {R"({"objects": [{"flags": 16, "supported": 0}, {"flags": 0, "supported": 0},
                         {"flags": 0, "supported": 0}]})",
         "flags outside the object's set"},
    };
    for (const auto& [running, error] : cases) {
        EXPECT_EQ(StateError(WithRunning(running)), std::string("state.json: running: ") + error);
    }
    // The node file reader's errors pass as they are.
    const auto error = CaughtError([] { LoadNodeState("{}", "state.json"); });
    EXPECT_EQ(error.Source(), "Vx.Sim.ReadNodeJson");
}

TEST(SimSnapshotFile, TextsThatAreNoUtf8CannotBeSaved) {
    auto description = DefaultController();
    description.selfDoc += '\xE9';
    const auto error =
        CaughtError([&] { SaveNodeState(*SimulatedNode::Create(std::move(description))); });
    EXPECT_EQ(error.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(error.Source(), "Vx.Sim.SaveNodeState");
}

TEST_F(SimSnapshot, TheChangeCountGrowsWithEveryChangeAStateFileHolds) {
    std::uint64_t count = node->ChangeCount();
    const auto changes = [&](const char* what, const std::function<void()>& change) {
        change();
        EXPECT_GT(node->ChangeCount(), count) << what;
        count = node->ChangeCount();
    };
    changes("variable write", [&] { test::WriteVariable(*node, "nviSetpoint", {0x08, 0x98}); });
    changes("item write", [&] { test::WriteItem(*node, "0-1", {0x03, 0x52}); });
    changes("variable control", [&] { node->SetVariableValue("nviSetpoint", {0x08, 0x99}); });
    changes("item control", [&] { node->SetConfigItemValue("0-1", {0x03, 0x53}); });
    changes("memory write", [&] { test::Send(*node, "6E", "0050000104AA", 7); });
    changes("memory control", [&] { node->SetMemoryBytes(0x5000, {0xBB}); });
    changes("node state", [&] { node->SetNodeState(6); });
    changes("mode", [&] { node->SetMode(0); });
    changes("reset polls", [&] { node->SetResetPolls(2); });
    changes("command", [&] { test::WriteVariable(*node, "nviCommand", kMemoryReset); });
    changes("restart poll", [&] { test::ReadVariable(*node, "nvoAlarmMessage"); });
    changes("object request", [&] { test::WriteVariable(*node, "nviRequest", {0, 1, 1}); });
    changes("object flags", [&] { node->SetObjectFlags(1, kObjInAlarm); });
    changes("supported flags", [&] { node->SetObjectSupportedFlags(1, kObjInAlarm); });
    changes("running state", [&] { node->SetRunning(node->Running()); });
}

TEST_F(SimSnapshot, TheChangeCountStaysForWhatAStateFileDoesNotHold) {
    test::ReadVariable(*node, "nvoAlarmMessage");  // no restart running
    const std::uint64_t count = node->ChangeCount();
    test::ReadVariable(*node, "nviSetpoint");
    test::ItemRecordOf(*node, "0-1")->ReadValue();
    test::Send(*node, "6D", "00420002", 5);
    test::Send(*node, "51", "", 1);
    node->MemoryBytes(0, 16);
    node->Wink();
    node->SetLatency(0);
    node->SetAnswering(false);
    EXPECT_COM_ERROR(test::WriteVariable(*node, "nviSetpoint", {0, 0}), kSimErrNoAnswer);
    EXPECT_EQ(node->ChangeCount(), count);
}

// ---- Writing files --------------------------------------------------------------------------

class SimWriteFile : public ::testing::Test {
protected:
    void SetUp() override {
        folder = std::filesystem::temp_directory_path() /
                 ("vx-sim-write-" + std::to_string(std::random_device()()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    static std::string Content(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    std::filesystem::path folder;
};

TEST_F(SimWriteFile, ReplacesTheFileAndLeavesNoTemporaryFile) {
    const auto path = (folder / "node.state.json").string();
    WriteFileAtomically(path, "first");
    EXPECT_EQ(Content(path), "first");
    const std::string second(100000, 'x');
    WriteFileAtomically(path, second);
    EXPECT_EQ(Content(path), second);
    WriteFileAtomically(path, "");
    EXPECT_EQ(Content(path), "");
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
}

TEST_F(SimWriteFile, AFailureNamesThePathAndLeavesWhatWasThere) {
    const auto missing = (folder / "no-such-folder" / "node.json").string();
    const auto error = CaughtError([&] { WriteFileAtomically(missing, "x"); });
    EXPECT_EQ(error.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(error.Source(), "Vx.Sim.WriteFile");
    EXPECT_THAT(error.Description(), StartsWith(missing + ": cannot be written ("));

    // A folder in the way: the rename fails, the folder stays, the temporary file goes.
    const auto taken = folder / "taken";
    std::filesystem::create_directories(taken / "inside");
    EXPECT_COM_ERROR(WriteFileAtomically(taken.string(), "x"), kErrInvalidProcedureCall);
    EXPECT_TRUE(std::filesystem::is_directory(taken / "inside"));
    EXPECT_FALSE(std::filesystem::exists(taken.string() + ".tmp"));
}

}  // namespace
}  // namespace vx::sim
