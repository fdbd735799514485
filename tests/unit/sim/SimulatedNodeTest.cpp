#include "SimulatedNode.h"

#include <gtest/gtest.h>

#include "SimErrors.h"
#include "fixtures/ErrorMatchers.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"

namespace vx::sim {
namespace {

using test::CaughtError;

VariableRecord Variable(std::string name, std::int32_t index, std::vector<std::uint8_t> value,
                        bool isOutput = false) {
    VariableRecord variable;
    variable.name = std::move(name);
    variable.index = index;
    variable.isOutput = isOutput;
    variable.value = std::move(value);
    return variable;
}

NodeDescription SmallNode() {
    NodeDescription node;
    node.neuronId = "05013C7A1F02";
    node.programId = "91A5A581020404DC";
    node.selfDoc = "&3.4@0,8500;test node";
    node.variables.push_back(Variable("nviRequest", 0, {0, 0, 0}));
    node.variables.back().selfDoc = "@0|1;nviRequest";
    node.variables.back().typeIndex = 92;
    node.variables.push_back(Variable("nvoStatus", 1, {0, 0, 0, 0, 0, 0}, true));
    node.variables.back().selfDocName = "status";
    node.variables.push_back(Variable("nvoSpaceTemp", 2, {0x08, 0x57}, true));
    node.configItems.push_back({"3-1", "1|0|UCPT_CRC", {0x49, 0x00}});
    node.configItems.push_back({"0-1", "-1|105|SNVT_temp_p|frost", {0x03, 0x20}});
    return node;
}

std::shared_ptr<INodeVariable> NetworkVariable(SimulatedNode& node, std::size_t at) {
    return std::dynamic_pointer_cast<INodeVariable>(node.NetworkVariables()->Items().at(at));
}

std::shared_ptr<INodeVariableAccess> ConfigItem(SimulatedNode& node, std::size_t at) {
    return std::dynamic_pointer_cast<INodeVariableAccess>(
        node.ConfigurationProperties()->Items().at(at));
}

Variant Bytes(std::int32_t lower, std::vector<std::uint8_t> bytes) {
    return Variant(ByteArray(lower, std::move(bytes)));
}

TEST(SimNode, ListsHoldTheRecordsInOrderAndAreMadeOnce) {
    const auto node = SimulatedNode::Create(SmallNode());
    EXPECT_EQ(node->NetworkVariables(), node->NetworkVariables());
    EXPECT_EQ(node->ConfigurationProperties(), node->ConfigurationProperties());
    ASSERT_EQ(node->NetworkVariables()->Count(), 3);
    ASSERT_EQ(node->ConfigurationProperties()->Count(), 2);

    const auto status = NetworkVariable(*node, 1);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->Name(), "nvoStatus");
    EXPECT_EQ(status->Index(), 1);
    EXPECT_EQ(status->ByteLength(), 6);
    EXPECT_TRUE(status->IsOutput());
    EXPECT_EQ(status->SelfDocName(), "status");
    const auto item = ConfigItem(*node, 1);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->Name(), "0-1");
    EXPECT_EQ(item->Layout(), "-1|105|SNVT_temp_p|frost");
}

TEST(SimNode, ValuesReadAndWrittenThroughRecordsAndControls) {
    const auto node = SimulatedNode::Create(SmallNode());
    const auto temp = NetworkVariable(*node, 2);
    const Variant read = temp->ReadValue();
    EXPECT_EQ(read.Type(), vbArray | vbByte);
    EXPECT_EQ(*read.Get<ByteArray>(), ByteArray(0, {0x08, 0x57}));

    temp->WriteValue(Bytes(1, {0x09, 0x60}));  // any lower bound
    EXPECT_EQ(node->VariableValue("nvoSpaceTemp"), (std::vector<std::uint8_t>{0x09, 0x60}));
    node->SetVariableValue("nvoSpaceTemp", {0x07, 0xD0});
    EXPECT_EQ(*temp->ReadValue().Get<ByteArray>(), ByteArray(0, {0x07, 0xD0}));

    const auto crc = ConfigItem(*node, 0);
    Variant written = Bytes(0, {0x12, 0x34});
    crc->WriteValue(written);
    EXPECT_EQ(node->ConfigItemValue("3-1"), (std::vector<std::uint8_t>{0x12, 0x34}));
    node->SetConfigItemValue("3-1", {0xAB, 0xCD});
    EXPECT_EQ(*crc->ReadValue().Get<ByteArray>(), ByteArray(0, {0xAB, 0xCD}));
    EXPECT_EQ(node->Description().configItems[0].value, (std::vector<std::uint8_t>{0xAB, 0xCD}));
}

TEST(SimNode, WritesOfAnotherKindOrLengthChangeNothing) {
    const auto node = SimulatedNode::Create(SmallNode());
    const auto temp = NetworkVariable(*node, 2);
    const auto before = node->VariableValue("nvoSpaceTemp");

    EXPECT_COM_ERROR(temp->WriteValue(Variant(std::string("0960"))), kErrTypeMismatch);
    EXPECT_COM_ERROR(temp->WriteValue(Variant(StringArray(0, {"09", "60"}))), kErrTypeMismatch);
    const auto wrongLength = CaughtError([&] { temp->WriteValue(Bytes(0, {1, 2, 3})); });
    EXPECT_EQ(wrongLength.Number(), kSimErrWrongLength);
    EXPECT_EQ(wrongLength.Source(), "Vx.Sim");
    EXPECT_EQ(wrongLength.Description(),
              "nvoSpaceTemp: a value of 3 bytes for a network variable of 2");
    EXPECT_COM_ERROR(temp->WriteValue(Variant(ByteArray())), kSimErrWrongLength);
    EXPECT_COM_ERROR(node->SetVariableValue("nvoSpaceTemp", {1}), kSimErrWrongLength);
    EXPECT_EQ(node->VariableValue("nvoSpaceTemp"), before);

    Variant shortValue = Bytes(0, {1});
    EXPECT_COM_ERROR(ConfigItem(*node, 0)->WriteValue(shortValue), kSimErrWrongLength);
    EXPECT_EQ(node->ConfigItemValue("3-1"), (std::vector<std::uint8_t>{0x49, 0x00}));

    EXPECT_COM_ERROR(node->VariableValue("nvoMissing"), kSimErrUnknownName);
    EXPECT_COM_ERROR(node->ConfigItemValue("3-9"), kSimErrUnknownName);
}

TEST(SimNode, ANodeThatDoesNotAnswerFailsEveryExchangeButKeepsItsIdentity) {
    const auto node = SimulatedNode::Create(SmallNode());
    const auto temp = NetworkVariable(*node, 2);
    const auto item = ConfigItem(*node, 0);
    node->SetNodeState(6);
    node->SetAnswering(false);

    const auto noAnswer = CaughtError([&] { temp->ReadValue(); });
    EXPECT_EQ(noAnswer.Number(), kSimErrNoAnswer);
    EXPECT_EQ(noAnswer.Description(), "nvoSpaceTemp: the node does not answer");
    EXPECT_COM_ERROR(temp->WriteValue(Bytes(0, {0, 0})), kSimErrNoAnswer);
    EXPECT_COM_ERROR(item->ReadValue(), kSimErrNoAnswer);
    EXPECT_COM_ERROR(node->Wink(), kSimErrNoAnswer);
    std::string code = "51", data = "0000";
    std::int32_t length = 1;
    EXPECT_COM_ERROR(node->SendNetworkMessage(code, data, length), kSimErrNoAnswer);
    EXPECT_EQ(node->VariableValue("nvoSpaceTemp"), (std::vector<std::uint8_t>{0x08, 0x57}));
    EXPECT_EQ(node->WinkCount(), 0);

    EXPECT_EQ(node->NodeState(), 6);
    EXPECT_EQ(node->Mode(), 1);
    EXPECT_EQ(node->SelfDocText(), "&3.4@0,8500;test node");

    node->SetAnswering(true);
    node->Wink();
    node->Wink();
    EXPECT_EQ(node->WinkCount(), 2);
    EXPECT_EQ(*temp->ReadValue().Get<ByteArray>(), ByteArray(0, {0x08, 0x57}));
}

TEST(SimNode, QueryStatusAnswersWithTheStatusBlockOtherRequestsFail) {
    const auto node = SimulatedNode::Create(SmallNode());
    std::string code = "51", data = "0000";  // the length sends no data byte
    std::int32_t length = 1;
    EXPECT_TRUE(node->SendNetworkMessage(code, data, length));
    EXPECT_EQ(code, "31");
    // Five zero counters, reset cause power-up, state configured, version, no error, model.
    EXPECT_EQ(data,
              "00000000000000000000"
              "01"
              "04"
              "10"
              "00"
              "00");
    EXPECT_EQ(length, 16);

    node->SetMode(0);  // application offline: the block tells it apart
    code = "51";
    data = "";
    length = 1;
    node->SendNetworkMessage(code, data, length);
    EXPECT_EQ(data.substr(22, 2), "0C");

    code = "70";  // a request the node does not serve
    data = "0040000A02";
    length = 5;
    EXPECT_COM_ERROR(node->SendNetworkMessage(code, data, length), kSimErrFailureResponse);
    code = "5";
    EXPECT_COM_ERROR(node->SendNetworkMessage(code, data, length), kSimErrBadRequest);
    code = "51";
    data = "00";
    length = 3;  // more bytes than the data holds
    EXPECT_COM_ERROR(node->SendNetworkMessage(code, data, length), kSimErrBadRequest);
    data = "0G";
    length = 1;
    EXPECT_COM_ERROR(node->SendNetworkMessage(code, data, length), kSimErrBadRequest);
}

TEST(SimNode, RecordsOutliveTheNode) {
    auto node = SimulatedNode::Create(SmallNode());
    const auto list = node->NetworkVariables();
    const auto item = ConfigItem(*node, 1);
    node.reset();

    const auto temp = std::dynamic_pointer_cast<INodeVariable>(list->Items().at(2));
    temp->WriteValue(Bytes(0, {0x01, 0x02}));
    EXPECT_EQ(*temp->ReadValue().Get<ByteArray>(), ByteArray(0, {0x01, 0x02}));
    EXPECT_EQ(*item->ReadValue().Get<ByteArray>(), ByteArray(0, {0x03, 0x20}));
}

TEST(SimNode, CreateRefusesWhatNoHostHolds) {
    const auto refused = [](auto change) {
        NodeDescription node = SmallNode();
        change(node);
        return CaughtError([&] { SimulatedNode::Create(node); });
    };
    const auto twice = refused([](NodeDescription& n) { n.variables[2].name = "nvoStatus"; });
    EXPECT_EQ(twice.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(twice.Description(), "two network variables are named nvoStatus");
    EXPECT_EQ(refused([](NodeDescription& n) { n.variables[2].index = 0; }).Description(),
              "nvoSpaceTemp: index 0 is taken by another network variable");
    EXPECT_EQ(refused([](NodeDescription& n) { n.variables[2].index = 32768; }).Description(),
              "nvoSpaceTemp: index 32768 is outside 0..32767");
    EXPECT_EQ(refused([](NodeDescription& n) { n.variables[2].value.resize(256); }).Description(),
              "nvoSpaceTemp: value longer than 255 bytes");
    EXPECT_EQ(refused([](NodeDescription& n) { n.configItems[1].name = "3-1"; }).Description(),
              "two configuration items are named 3-1");
    EXPECT_EQ(refused([](NodeDescription& n) {
                  n.memory = {{0x1000, {1, 2}}, {0x1001, {3}}};
              }).Description(),
              "memory block at 1001: it overlaps the block at 1000");
    EXPECT_EQ(refused([](NodeDescription& n) {
                  n.memory = {{0xFFFF, {1, 2}}};
              }).Description(),
              "memory block at FFFF: it must hold 1 byte at least and end at 65535 at the latest");
    EXPECT_EQ(refused([](NodeDescription& n) {
                  n.checksumItem = "3-1";
                  n.checksumCovers = {"nvoSpaceTemp", "nvoMissing"};
              }).Description(),
              "checksum: the node has no value named nvoMissing");
    EXPECT_EQ(refused([](NodeDescription& n) { n.resetPolls = -2; }).Description(),
              "reset polls: -2 is below -1");
}

}  // namespace
}  // namespace vx::sim
