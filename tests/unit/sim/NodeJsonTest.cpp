#include "NodeJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "CDeviceRevision.h"
#include "RevisionJson.h"
#include "SimulatedNode.h"
#include "fixtures/ErrorMatchers.h"
#include "interfaces/IOrvexAdvancedConfig.h"
#include "interfaces/IOrvexVariableIdentity.h"

namespace vx::sim {
namespace {

using test::CaughtError;
using ::testing::StartsWith;

const std::string kDataDir = std::string(VX_SIM_DATA_DIR) + "/";

TEST(SimNodeJson, ReadsEveryKeyAndFillsTheDefaults) {
    const auto node = ReadNodeJson(R"({
      "comment": "a node",
      "neuronId": "05013c7a1f02",
      "programId": "91A5A581020404dc",
      "selfDoc": "&3.4@0;x",
      "variables": [
        { "name": "nviRequest", "value": "00 00 00" },
        { "name": "nvoData", "index": 7, "selfDoc": "@0|2", "selfDocName": "data",
          "typeIndex": 93, "output": true, "polled": true, "configClass": true,
          "arrayCount": 2, "value": "0102030405aB" }
      ],
      "configItems": [ { "name": "3-1", "layout": "-1|0|", "value": "4900" } ]
    })",
                                   "node.json");
    EXPECT_EQ(node.neuronId, "05013C7A1F02");
    EXPECT_EQ(node.programId, "91A5A581020404DC");
    EXPECT_EQ(node.nodeState, 4);
    EXPECT_EQ(node.mode, 1);
    ASSERT_EQ(node.variables.size(), 2u);
    const auto& request = node.variables[0];
    EXPECT_EQ(request.index, 0);  // its position
    EXPECT_FALSE(request.isOutput);
    EXPECT_EQ(request.value, (std::vector<std::uint8_t>{0, 0, 0}));
    const auto& data = node.variables[1];
    EXPECT_EQ(data.index, 7);
    EXPECT_EQ(data.selfDocName, "data");
    EXPECT_EQ(data.typeIndex, 93);
    EXPECT_TRUE(data.isOutput && data.polled && data.isConfigClass);
    EXPECT_EQ(data.arrayCount, 2);
    EXPECT_EQ(data.value, (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 0xAB}));
    ASSERT_EQ(node.configItems.size(), 1u);
    EXPECT_EQ(node.configItems[0].layout, "-1|0|");
}

std::string NodeError(const std::string& text) {
    const auto error = CaughtError([&] { ReadNodeJson(text, "bad.json"); });
    EXPECT_EQ(error.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(error.Source(), "Vx.Sim.ReadNodeJson");
    return error.Description();
}

// A node with these variables and items.
std::string WithEntries(const std::string& variables, const std::string& items = "[]") {
    return R"({"neuronId": "000000000001", "programId": "91A5A50000000000", "selfDoc": "",
               "variables": )" +
           variables + R"(, "configItems": )" + items + "}";
}

TEST(SimNodeJson, MalformedFilesNameTheFileAndTheLineOrEntry) {
    EXPECT_THAT(NodeError("{\n  \"neuronId\": \"x\",\n  oops\n}"),
                StartsWith("bad.json line 3: not valid JSON (syntax error"));
    EXPECT_EQ(NodeError(R"({"neuronId": "0123", "programId": "", "selfDoc": ""})"),
              "bad.json: neuronId must be 12 hexadecimal digits");
    EXPECT_EQ(NodeError(WithEntries("{}")), "bad.json: \"variables\" must be an array");
    EXPECT_EQ(NodeError(WithEntries(R"([{"name": "a", "value": "00", "colour": 1}])")),
              "bad.json: variables[0] (a): unknown key \"colour\"");
    EXPECT_EQ(NodeError(WithEntries(R"([{"name": "a", "value": "00", "output": 1}])")),
              "bad.json: variables[0] (a): output must be true or false");
    EXPECT_EQ(NodeError(WithEntries(R"([{"name": "a", "value": "0"}, {"name": "b"}])")),
              "bad.json: variables[0] (a): value is not hexadecimal (digit pairs, blanks between "
              "them)");
    EXPECT_EQ(
        NodeError(WithEntries(R"([{"name": "a", "value": "00"}, {"name": "a", "value": "00"}])")),
        "bad.json: variables[1] (a): the name is taken by variables[0] (a)");
    EXPECT_EQ(NodeError(WithEntries(
                  R"([{"name": "a", "value": "00"}, {"name": "b", "index": 0, "value": "00"}])")),
              "bad.json: variables[1] (b): index 0 is taken by variables[0] (a)");
    EXPECT_EQ(
        NodeError(WithEntries(R"([{"name": "a", "value": ")" + std::string(512, 'F') + R"("}])")),
        "bad.json: variables[0] (a): value holds 256 bytes, not 1..255");
    EXPECT_EQ(NodeError(WithEntries("[]", R"([{"name": "3-01", "value": "00"}])")),
              "bad.json: configItems[0] (3-01): name must be the item's kind and index in "
              "decimal, joined by \"-\" (\"3-1\")");
    EXPECT_EQ(NodeError(WithEntries(
                  "[]", R"([{"name": "0-1", "layout": "x|105|SNVT_temp_p", "value": "00"}])")),
              "bad.json: configItems[0] (0-1): layout must be \"object|type index|type "
              "name[|text]\" with an object from -1 and a type index from 0");
}

TEST(SimNodeJson, ReadsTheMemoryImageTheChecksumAndTheResetPolls) {
    const auto node = ReadNodeJson(R"({
      "neuronId": "000000000001", "programId": "91A5A50000000000", "selfDoc": "",
      "variables": [ { "name": "nciA", "value": "0102" } ],
      "configItems": [ { "name": "3-1", "value": "0000" }, { "name": "0-1", "value": "05" } ],
      "memory": [ { "address": "fFf0", "bytes": "00112233445566778899AABBCCDDEEFF" },
                  { "address": "1000", "bytes": "01", "comment": "one byte" } ],
      "checksum": { "item": "3-1", "covers": ["0-1", "nciA"] },
      "resetPolls": -1
    })",
                                   "node.json");
    EXPECT_EQ(node.memory,
              (std::vector<MemoryBlock>{{0xFFF0,
                                         {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,
                                          0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
                                        {0x1000, {0x01}}}));
    EXPECT_EQ(node.checksumItem, "3-1");
    EXPECT_EQ(node.checksumCovers, (std::vector<std::string>{"0-1", "nciA"}));
    EXPECT_EQ(node.resetPolls, -1);
    EXPECT_EQ(ReadNodeJson(WithEntries("[]"), "node.json").resetPolls, 2);
}

// A node with one variable "a" of two bytes, one item "3-1" of one byte, and these keys.
std::string WithExtras(const std::string& keys) {
    return R"({"neuronId": "000000000001", "programId": "91A5A50000000000", "selfDoc": "",
               "variables": [{"name": "a", "value": "0000"}],
               "configItems": [{"name": "3-1", "value": "00"}], )" +
           keys + "}";
}

TEST(SimNodeJson, MalformedMemoryOrChecksumIsNamed) {
    EXPECT_EQ(NodeError(WithExtras(R"("memory": [{"address": "100", "bytes": "00"}])")),
              "bad.json: memory[0]: address must be 4 hexadecimal digits");
    EXPECT_EQ(NodeError(WithExtras(R"("memory": [{"address": "FFFF", "bytes": "0000"}])")),
              "bad.json: memory[0]: bytes holds 2 bytes, not 1..1");
    EXPECT_EQ(NodeError(WithExtras(R"("memory": [{"address": "1000", "bytes": "0000"},
                                                 {"address": "0FFF", "bytes": "0000"}])")),
              "bad.json: memory: memory block at 1000: it overlaps the block at 0FFF");
    EXPECT_EQ(NodeError(WithExtras(R"("checksum": {"item": "3-1", "covers": ["a"]})")),
              "bad.json: checksum: 3-1 is no value of two bytes of the node");
    EXPECT_EQ(NodeError(WithExtras(R"("checksum": {"item": "a", "covers": ["3-1", "b"]})")),
              "bad.json: checksum: the node has no value named b");
    EXPECT_EQ(NodeError(WithExtras(R"("checksum": {"item": "a", "covers": []})")),
              "bad.json: checksum: it covers no values");
    EXPECT_EQ(NodeError(WithExtras(R"("resetPolls": -2)")),
              "bad.json: resetPolls must lie within -1..2147483647");
}

// A node with the items 3-1 (one byte) at `address` and 0-1 (two bytes) at 2001, and these keys.
std::string WithItemsAt(const std::string& address, const std::string& keys = R"("mode": 1)") {
    return R"({"neuronId": "000000000001", "programId": "91A5A50000000000", "selfDoc": "",
               "variables": [{"name": "a", "value": "0000"}],
               "configItems": [{"name": "3-1", "address": ")" +
           address + R"(", "value": "00"},
                               {"name": "0-1", "address": "2001", "value": "0000"},
                               {"name": "0-2", "value": "00"}], )" +
           keys + "}";
}

TEST(SimNodeJson, ConfigurationItemsMayLiveInMemory) {
    const auto node = ReadNodeJson(WithItemsAt("1fFF"), "node.json");
    ASSERT_EQ(node.configItems.size(), 3u);
    EXPECT_EQ(node.configItems[0].address, 0x1FFF);
    EXPECT_EQ(node.configItems[1].address, 0x2001);
    EXPECT_EQ(node.configItems[2].address, -1);  // not in memory
    // Blocks right before and after an item's bytes are no overlap.
    EXPECT_NO_THROW(ReadNodeJson(WithItemsAt("2000", R"("memory": [
        {"address": "1FFF", "bytes": "00"}, {"address": "2003", "bytes": "00"}])"),
                                 "node.json"));
    // A state file's running state is no part of the description.
    EXPECT_EQ(ReadNodeJson(WithItemsAt("2000", R"("running": {"anything": 1})"), "node.json"),
              ReadNodeJson(WithItemsAt("2000"), "node.json"));
}

TEST(SimNodeJson, ConfigurationItemsOutsideTheImageOrOverlappingAreNamed) {
    EXPECT_EQ(NodeError(WithItemsAt("200")),
              "bad.json: configItems[0] (3-1): address must be 4 hexadecimal digits");
    EXPECT_EQ(NodeError(WithItemsAt("2002")),
              "bad.json: configItems: configuration item 3-1 at 2002: it overlaps configuration "
              "item 0-1 at 2001");
    EXPECT_EQ(NodeError(WithItemsAt("1000", R"("memory": [{"address": "0FFF", "bytes": "0000"}])")),
              "bad.json: configItems: configuration item 3-1 at 1000: it overlaps the memory "
              "block at 0FFF");
    EXPECT_EQ(NodeError(WithItemsAt("1000", R"("memory": [{"address": "2002", "bytes": "00"}])")),
              "bad.json: configItems: configuration item 0-1 at 2001: it overlaps the memory "
              "block at 2002");
    std::string pastTheEnd = WithItemsAt("1000");
    pastTheEnd.replace(pastTheEnd.find("2001"), 4, "FFFF");
    EXPECT_EQ(NodeError(pastTheEnd),
              "bad.json: configItems: configuration item 0-1 at FFFF: its 2 bytes end past 65535");
    EXPECT_EQ(NodeError(WithItemsAt("1000", R"("running": [])")),
              "bad.json: \"running\" must be an object");

    // A node refuses what the reader refuses.
    auto description = ReadNodeJson(WithItemsAt("1000"), "node.json");
    description.configItems[0].address = 0x2002;
    EXPECT_COM_ERROR(SimulatedNode::Create(description), kErrInvalidProcedureCall);
    description.configItems[0].address = 0x10000;
    EXPECT_COM_ERROR(SimulatedNode::Create(description), kErrInvalidProcedureCall);
}

TEST(SimNodeJson, LoadNodeChoosesTheReaderByExtension) {
    const auto json = LoadNode(kDataDir + "orvex-vx220.json");
    EXPECT_EQ(json.variables.front().name, "nviRequest");
    const auto xif = LoadNode(kDataDir + "xif/VAV_sim.XIF");
    EXPECT_EQ(xif.programId, "9000015502040402");

    const auto unknown = CaughtError([] { LoadNode("node.txt"); });
    EXPECT_EQ(unknown.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(unknown.Description(),
              "node.txt: neither a JSON node description (.json) nor a device interface file "
              "(.xif)");
    EXPECT_EQ(CaughtError([] { LoadNode("/nonexistent/node.JSON"); }).Description(),
              "/nonexistent/node.JSON: cannot be opened");
}

TEST(SimRevisionJson, RegistersNamesLevelsChecksumListsAndAdvancedConfiguration) {
    const auto registry = std::make_shared<CDeviceRevision>();
    RegisterRevision(ReadRevisionJson(R"({
      "configItemNames": [ { "scope": 0, "index": 4, "name": "nciA" },
                           { "scope": 3, "index": 1, "name": "nciCrc" },
                           { "scope": 0, "index": 5, "name": "nciB" } ],
      "objects": [ { "object": 1, "levels": { "3": ["nciX", "nciY"], "2": [] },
                     "crc": ["nciX", "nciY", { "name": "nciZ", "after": 1 }],
                     "advanced": [ { "name": "nciA", "object": 2 } ] } ]
    })",
                                      "rev.json"),
                     *registry);
    EXPECT_EQ(registry->FileType2Config(0, 4), "nciA");
    EXPECT_EQ(registry->FileType2Config(0, 5), "nciB");  // one list per scope
    EXPECT_EQ(registry->FileType2Config(3, 1), "nciCrc");
    EXPECT_EQ(registry->ConfigVarlist(1, 3), Variant(StringArray(0, {"nciX", "nciY"})));
    EXPECT_EQ(registry->ConfigVarlist(1, 2), Variant(StringArray(0, std::vector<std::string>{})));
    ASSERT_EQ(registry->CRCVarCount(1), 3);
    EXPECT_EQ(registry->CRCVar(1, 2)->Name(), "nciZ");  // inserted after the first
    EXPECT_EQ(registry->CRCVar(1, 3)->LonObject(), 1);
    const auto advanced = registry->AdvConfig(1)->NewEnum();
    ASSERT_EQ(advanced.size(), 1u);
    EXPECT_EQ(advanced[0]->Name(), "nciA");
    EXPECT_EQ(advanced[0]->LonObject(), 2);
}

std::string RevisionError(const std::string& text) {
    const auto error = CaughtError([&] { ReadRevisionJson(text, "rev.json"); });
    EXPECT_EQ(error.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(error.Source(), "Vx.Sim.ReadRevisionJson");
    return error.Description();
}

TEST(SimRevisionJson, MalformedFilesNameTheFileAndTheLineOrEntry) {
    EXPECT_THAT(RevisionError("{\n\n,"),
                StartsWith("rev.json line 3: not valid JSON (syntax error"));
    EXPECT_EQ(RevisionError(R"({"objects": {}})"), "rev.json: \"objects\" must be an array");
    EXPECT_EQ(RevisionError(R"({"configItemNames": [{"scope": 3, "index": 1, "name": "a"},
                                                    {"scope": 3, "index": 1, "name": "b"}]})"),
              "rev.json: configItemNames[1] (3-1): the item is named twice");
    EXPECT_EQ(RevisionError(R"({"objects": [{"object": 1}, {"object": 1}]})"),
              "rev.json: objects[1] (object 1): the object is listed twice");
    EXPECT_EQ(RevisionError(R"({"objects": [{"object": 1, "levels": {"4": []}}]})"),
              "rev.json: objects[0] (object 1): levels: \"4\" is no configuration level (2, 3)");
    EXPECT_EQ(RevisionError(R"({"objects": [{"object": 1, "levels": {"2": ["a", 7]}}]})"),
              "rev.json: objects[0] (object 1): levels.2[1]: a name must be a text");
    EXPECT_EQ(
        RevisionError(R"({"objects": [{"object": 1, "crc": ["a", {"name": "b", "after": 2}]}]})"),
        "rev.json: objects[0] (object 1): crc[1]: after must lie within 0..1");
    EXPECT_EQ(RevisionError(R"({"objects": [{"object": 2, "crc": []}]})"),
              "rev.json: objects[0] (object 2): \"crc\" must be a non-empty array");
    EXPECT_EQ(RevisionError(R"({"objects": [{"object": 2, "advanced": [{"name": "a"}]}]})"),
              "rev.json: objects[0] (object 2): advanced[0]: \"object\" is missing");
}

}  // namespace
}  // namespace vx::sim
