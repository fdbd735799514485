#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "DefaultController.h"
#include "SimErrors.h"
#include "SimTestSupport.h"
#include "automation/Clock.h"
#include "fixtures/ErrorMatchers.h"

namespace vx::sim {
namespace {

using test::Bytes;
using test::Send;
using ::vx::test::CaughtError;

class SimFault : public ::testing::Test {
protected:
    std::int32_t ReadError(const std::string& name) {
        return CaughtError([&] { test::ReadVariable(*node, name); }).Number();
    }

    SimulatedNodePtr node = SimulatedNode::Create(DefaultController());
};

TEST_F(SimFault, EachKindFailsTheNextCallsThatMatch) {
    node->InjectFault({.operation = "ReadValue", .target = "nvoSpaceTemp", .count = 2});
    EXPECT_EQ(test::ReadVariable(*node, "nvoBoxFlow"), (Bytes{0x00, 0xB9}));  // another target
    EXPECT_EQ(ReadError("nvoSpaceTemp"), kSimErrNoAnswer);
    EXPECT_EQ(ReadError("nvoSpaceTemp"), kSimErrNoAnswer);
    EXPECT_EQ(test::ReadVariable(*node, "nvoSpaceTemp"), (Bytes{0x08, 0x57}));

    node->InjectFault(
        {.operation = "SendNetworkMessage", .target = "6D", .kind = FaultKind::kFailureResponse});
    EXPECT_EQ(Send(*node, "51", "", 1).code, "31");
    EXPECT_COM_ERROR(Send(*node, "6D", "00400A02", 5), kSimErrFailureResponse);
    EXPECT_EQ(Send(*node, "6D", "00400A02", 5).data, "4100");

    // A host error, on a write: the node never takes the command.
    node->InjectFault({.operation = "WriteValue",
                       .kind = FaultKind::kHostError,
                       .number = static_cast<std::int32_t>(0x80070005u),
                       .description = "access denied"});
    const auto denied = CaughtError([&] {
        test::WriteVariable(*node, "nviCommand", {5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    });
    EXPECT_EQ(denied.Number(), static_cast<std::int32_t>(0x80070005u));
    EXPECT_EQ(denied.Source(), "Vx.Sim");
    EXPECT_EQ(denied.Description(), "access denied");
    EXPECT_EQ(node->VariableValue("nviCommand"), Bytes(12, 0));
    EXPECT_TRUE(node->CommandFrames().empty());
    EXPECT_EQ(node->Commands().sendAllScans, 0);
    EXPECT_EQ(node->VariableValue("nvoCommandStatus"), Bytes(4, 0));
}

TEST_F(SimFault, AFaultForAlwaysLastsUntilCleared) {
    node->InjectFault({.operation = "Wink", .count = kFaultAlways});
    node->InjectFault({.operation = "ReadValue", .target = "3-1", .count = kFaultAlways});
    for (int i = 0; i < 3; ++i) {
        EXPECT_COM_ERROR(node->Wink(), kSimErrNoAnswer);
        EXPECT_COM_ERROR(test::ItemRecordOf(*node, "3-1")->ReadValue(), kSimErrNoAnswer);
    }
    node->ClearFaults();
    node->Wink();
    EXPECT_EQ(node->WinkCount(), 1);
    EXPECT_NO_THROW(test::ItemRecordOf(*node, "3-1")->ReadValue());
}

TEST_F(SimFault, TheHostsOwnAnswersFailToo) {
    const std::vector<std::pair<std::string, std::function<void()>>> answers = {
        {"NodeState", [&] { node->NodeState(); }},
        {"Mode", [&] { node->Mode(); }},
        {"NeuronIDText", [&] { node->NeuronIDText(); }},
        {"ProgramIDText", [&] { node->ProgramIDText(); }},
        {"SelfDocText", [&] { node->SelfDocText(); }},
        {"NetworkVariables", [&] { node->NetworkVariables(); }},
        {"ConfigurationProperties", [&] { node->ConfigurationProperties(); }},
    };
    for (const auto& [operation, call] : answers) {
        node->InjectFault({.operation = operation, .kind = FaultKind::kFailureResponse});
        EXPECT_EQ(CaughtError(call).Number(), kSimErrFailureResponse) << operation;
        EXPECT_NO_THROW(call()) << operation;
    }
}

TEST_F(SimFault, FaultsMatchInTheOrderInjectedAndBadOnesAreRefused) {
    node->InjectFault({.operation = "ReadValue", .kind = FaultKind::kFailureResponse});
    node->InjectFault({.operation = "ReadValue", .target = "nvoSpaceTemp"});
    EXPECT_EQ(ReadError("nvoSpaceTemp"), kSimErrFailureResponse);
    EXPECT_EQ(ReadError("nvoSpaceTemp"), kSimErrNoAnswer);
    EXPECT_NO_THROW(test::ReadVariable(*node, "nvoSpaceTemp"));

    EXPECT_COM_ERROR(node->InjectFault({.operation = "Read"}), kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(node->InjectFault({.operation = "Wink", .target = "x"}),
                     kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(node->InjectFault({.operation = "Wink", .count = 0}),
                     kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(node->InjectFault({.operation = "Wink", .count = -2}),
                     kErrInvalidProcedureCall);
    EXPECT_NO_THROW(node->Wink());
}

TEST_F(SimFault, LatencyWaitsOnTheInstalledClockForEveryExchange) {
    const auto clock = std::make_shared<VirtualClock>();
    const ScopedClock installed(clock);
    node->SetLatency(250);
    test::ReadVariable(*node, "nvoSpaceTemp");
    test::WriteVariable(*node, "nviSetpoint", {0x08, 0x34});
    Send(*node, "51", "", 1);
    node->Wink();
    EXPECT_EQ(clock->SleptMilliseconds(), 1000u);
    EXPECT_EQ(clock->SleepCalls(), 4u);

    node->NodeState();  // what the host knows: no exchange
    EXPECT_COM_ERROR(test::WriteVariable(*node, "nviSetpoint", {1}), kSimErrWrongLength);
    EXPECT_EQ(clock->SleepCalls(), 4u);
    node->SetAnswering(false);  // an exchange that fails waits as well
    EXPECT_COM_ERROR(node->Wink(), kSimErrNoAnswer);
    EXPECT_EQ(clock->SleptMilliseconds(), 1250u);
}

TEST_F(SimFault, TheRecordHoldsEveryExchangeAsItWent) {
    test::ReadVariable(*node, "nvoSpaceTemp");
    test::WriteItem(*node, "0-3", {0x03, 0x20});
    Send(*node, "6d", "00400A02FF", 5);  // the byte past the length is not sent
    node->InjectFault({.operation = "Wink"});
    EXPECT_COM_ERROR(node->Wink(), kSimErrNoAnswer);
    EXPECT_COM_ERROR(Send(*node, "70", "", 1), kSimErrFailureResponse);
    EXPECT_COM_ERROR(test::WriteItem(*node, "0-3", {1}), kSimErrWrongLength);  // never sent
    test::WriteVariable(*node, "nviRequest", {0, 2, 1});
    test::WriteVariable(*node, "nviCommand", {8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});

    const std::vector<Exchange> expected = {
        {"ReadValue", "nvoSpaceTemp", {}, {0x08, 0x57}, 0},
        {"WriteValue", "0-3", {0x03, 0x20}, {}, 0},
        {"SendNetworkMessage", "6D", {0x00, 0x40, 0x0A, 0x02}, {0x41, 0x00}, 0},
        {"Wink", "", {}, {}, kSimErrNoAnswer},
        {"SendNetworkMessage", "70", {}, {}, kSimErrFailureResponse},
        {"WriteValue", "nviRequest", {0, 2, 1}, {}, 0},
        {"WriteValue", "nviCommand", {8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {}, 0},
    };
    EXPECT_EQ(node->Exchanges(), expected);
    EXPECT_EQ(node->ObjectRequests(), (std::vector<ObjectRequest>{{2, 1}}));
    EXPECT_EQ(node->CommandFrames().size(), 1u);

    node->ClearRecord();
    EXPECT_TRUE(node->Exchanges().empty());
    EXPECT_TRUE(node->ObjectRequests().empty());
    EXPECT_TRUE(node->CommandFrames().empty());
    EXPECT_FALSE(node->Commands().keypadEnabled);  // the node's state stays

    node->SetRecording(false);
    test::WriteVariable(*node, "nviRequest", {0, 1, 1});
    EXPECT_TRUE(node->Exchanges().empty());
    EXPECT_TRUE(node->ObjectRequests().empty());
    EXPECT_EQ(node->ObjectFlags(1), kObjDisabled);
}

}  // namespace
}  // namespace vx::sim
