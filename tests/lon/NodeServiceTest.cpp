// vxsim's request handling: datagrams written by hand from the datagram layout and the answers
// the default controller must give, byte for byte, without a socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixtures/Hex.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "DefaultController.h"
#include "Hex.h"
#include "NodeService.h"
#include "ReceiveRecords.h"
#include "SelfIdentification.h"
#include "SimErrors.h"

namespace {

using namespace std::chrono_literals;
using vx::lon::Endpoint;
using vx::sim::SimulatedNode;
using vx::vxsim::NodeService;
using vx::vxsim::NodeServiceOptions;
using Bytes = std::vector<std::uint8_t>;
using Reply = std::optional<Bytes>;

using vx::test::Hex;

const Endpoint kHost{{127, 0, 0, 1}, 2541};
const Endpoint kOtherHost{{127, 0, 0, 1}, 40000};

// The default controller's identity and status block (docs/sim.md): ten zero bytes of error
// counters, reset cause 01 (power-up), then the state, firmware version 10, last error and model.
constexpr std::string_view kNeuronId = "05 01 3C 7A 1F 02";
constexpr std::string_view kProgramId = "91 A5 A5 81 02 04 04 DC";
std::string StatusBlock(std::string_view state) {
    return "00 00 00 00 00 00 00 00 00 00 01 " + std::string(state) + " 10 00 00";
}

// The default controller's variables by index (sim/data/orvex-vx220.json); an unbound
// variable's selector is 3FFF less its index, sent as BF xx (1, direction 0, selector):
//   4 nviCommand, 12 bytes, selector 3FFB      7 nviSetpoint, 2 bytes, selector 3FF8
//   12 nvoSpaceTemp, 2 bytes holding 08 57, selector 3FF3
// A keypress command frame (code 7, key code 00 0C) written to nviCommand:
constexpr std::string_view kKeypress12 = "BF FB 07 00 0C 00 00 00 00 00 00 00 00 00";
constexpr std::string_view kKeypress13 = "BF FB 07 00 0D 00 00 00 00 00 00 00 00 00";

class NodeServiceTest : public ::testing::Test {
protected:
    Reply Send(std::string_view hex, std::chrono::milliseconds after = 0ms,
               const Endpoint& from = kHost) {
        return service.Handle(Hex(hex), from, start + after);
    }
    Bytes Value(const char* name) const { return node->VariableValue(name); }

    vx::sim::SimulatedNodePtr node = SimulatedNode::Create(vx::sim::DefaultController());
    NodeService service{node};
    std::chrono::steady_clock::time_point start{};
};

// ---- Network-management and diagnostic requests -------------------------------------------------

TEST_F(NodeServiceTest, AnswersCarryTheRequestsTransactionToTheSendersAddress) {
    EXPECT_EQ(Send("00 11 03 51"), Hex("00 11 23 31" + StatusBlock("04")));
    EXPECT_EQ(Send("00 11 0F 51"), Hex("00 11 2F 31" + StatusBlock("04")));
    // Device B's session: host 23/7E in domain 51 asks for the status; the answer names it
    // explicitly (format 7) and carries no source address of its own.
    EXPECT_EQ(Send("01 11 23 FE 01 51 04 51"), Hex("00 71 23 7E 24 31" + StatusBlock("04")));
    // An acknowledged request gets the acknowledgement only.
    EXPECT_EQ(Send("00 10 01 51"), Hex("00 10 21"));
    EXPECT_EQ(Send("01 10 23 7E 02 51"), Hex("00 70 23 7E 22"));
}

TEST_F(NodeServiceTest, SetNodeModeTakesTheApplicationOfflineAndBack) {
    // Unacknowledged: acted on without a reply.
    EXPECT_EQ(Send("00 13 6C 00"), std::nullopt);
    EXPECT_EQ(Send("00 11 02 51"), Hex("00 11 22 31" + StatusBlock("0C")));
    EXPECT_EQ(Send("00 11 03 6C 01"), Hex("00 11 23 2C"));
    EXPECT_EQ(Send("00 11 04 51"), Hex("00 11 24 31" + StatusBlock("04")));
    // A reset restarts the application, which comes back online.
    Send("00 11 05 6C 00");
    EXPECT_EQ(Send("00 11 06 6C 02"), Hex("00 11 26 2C"));
    EXPECT_EQ(node->Mode(), 1);
}

TEST_F(NodeServiceTest, SetNodeModeChangesTheNodeState) {
    for (const auto& [request, state] : {std::pair{"6C 03 02", 2}, std::pair{"6C 03 06", 6}}) {
        SCOPED_TRACE(request);
        EXPECT_EQ(Send("00 11 01 " + std::string(request)), Hex("00 11 21 2C"));
        EXPECT_EQ(node->NodeState(), state);
    }
}

TEST_F(NodeServiceTest, QueryIdFindsOnlyAnUnconfiguredNode) {
    // A configured node does not answer selector 0, and nothing ever selects it.
    EXPECT_EQ(Send("00 21 01 61 00"), std::nullopt);
    EXPECT_EQ(Send("00 21 02 61 01"), std::nullopt);
    EXPECT_EQ(Send("00 21 03 61 02"), std::nullopt);
    // An unknown selector is a failure (device A's session: 61 03 -> 01).
    EXPECT_EQ(Send("00 21 04 61 03"), Hex("00 11 24 01"));

    node->SetNodeState(2);
    EXPECT_EQ(Send("00 21 05 61 00"),
              Hex("00 11 25 21" + std::string(kNeuronId) + std::string(kProgramId)));
    node->SetNodeState(3);
    EXPECT_EQ(Send("00 21 06 61 00"),
              Hex("00 11 26 21" + std::string(kNeuronId) + std::string(kProgramId)));
}

TEST_F(NodeServiceTest, WinkWinksAndItsIdentityFormSendsTheIdentity) {
    EXPECT_EQ(Send("00 13 70"), std::nullopt);
    EXPECT_EQ(node->WinkCount(), 1);
    EXPECT_EQ(Send("00 11 01 70"), Hex("00 11 21 30"));
    EXPECT_EQ(node->WinkCount(), 2);
    // As device A answers it: 30 00, the Neuron ID, the program ID.
    EXPECT_EQ(Send("00 11 02 70 01 00"),
              Hex("00 11 22 30 00" + std::string(kNeuronId) + std::string(kProgramId)));
    EXPECT_EQ(node->WinkCount(), 2);
}

TEST_F(NodeServiceTest, MemoryRequestsReachTheNodesMemoryImage) {
    // The file directory at 4000 begins 01 03 00 00 (docs/sim.md).
    EXPECT_EQ(Send("00 11 01 6D 00 40 00 04"), Hex("00 11 21 2D 01 03 00 00"));
    EXPECT_EQ(Send("00 11 02 6E 00 41 40 02 00 AB CD"), Hex("00 11 22 2E"));
    EXPECT_EQ(node->MemoryBytes(0x4140, 2), Hex("AB CD"));
    // The read-only data starts with the Neuron ID.
    EXPECT_EQ(Send("00 11 03 6D 01 00 00 06"), Hex("00 11 23 2D" + std::string(kNeuronId)));
    // Mode 7 does not exist: the node's failure response.
    EXPECT_EQ(Send("00 11 04 6D 07 00 00 04"), Hex("00 11 24 0D"));
}

TEST_F(NodeServiceTest, AnyOtherRequestGetsAFailureResponse) {
    EXPECT_EQ(Send("00 11 01 42"), Hex("00 11 21 02"));
    EXPECT_EQ(Send("00 11 02 6A 00"), Hex("00 11 22 0A"));
    EXPECT_EQ(Send("00 13 42"), std::nullopt);
}

// ---- Network variables ------------------------------------------------------------------------

TEST_F(NodeServiceTest, NvFetchAnswersTheIndexAsAskedAndTheValue) {
    EXPECT_EQ(Send("00 11 01 73 0C"), Hex("00 11 21 33 0C 08 57"));
    EXPECT_EQ(Send("00 11 02 73 FF 00 0C"), Hex("00 11 22 33 FF 00 0C 08 57"));
    // Device B's answer to an index the node does not have.
    EXPECT_EQ(Send("00 11 03 73 63"), Hex("00 11 23 13"));
    // A poll is answered with the value as an output message; a selector no variable has, not.
    EXPECT_EQ(Send("00 11 04 BF F3"), Hex("00 11 24 FF F3 08 57"));
    EXPECT_EQ(Send("00 11 05 80 01"), std::nullopt);
}

TEST_F(NodeServiceTest, QueryNvConfigGivesTheUnboundSelectorAndDirection) {
    EXPECT_EQ(Send("00 11 01 68 0C"), Hex("00 11 21 28 7F F3 00"));  // output
    EXPECT_EQ(Send("00 11 02 68 07"), Hex("00 11 22 28 3F F8 00"));  // input
    EXPECT_EQ(Send("00 11 03 68 FF 00 00"), Hex("00 11 23 28 3F FF 00"));
    EXPECT_EQ(Send("00 11 04 68 63"), Hex("00 11 24 08"));
}

TEST_F(NodeServiceTest, AnNvUpdateWritesTheVariableAndAFetchReadsItBack) {
    EXPECT_EQ(Send("00 10 01 BF F8 09 99"), Hex("00 10 21"));
    EXPECT_EQ(Value("nviSetpoint"), Hex("09 99"));
    EXPECT_EQ(Send("00 11 02 73 07"), Hex("00 11 22 33 07 09 99"));
    // Unacknowledged: written, nothing sent. The direction bit does not matter.
    EXPECT_EQ(Send("00 13 FF F8 0A 28"), std::nullopt);
    EXPECT_EQ(Value("nviSetpoint"), Hex("0A 28"));
}

TEST_F(NodeServiceTest, AnNvUpdateOfAnotherLengthIsAcknowledgedButNotWritten) {
    EXPECT_EQ(Send("00 10 01 BF F8 09"), Hex("00 10 21"));
    EXPECT_EQ(Send("00 10 02 BF F8 09 99 00"), Hex("00 10 22"));
    EXPECT_EQ(Value("nviSetpoint"), Hex("7F FF"));
    EXPECT_THAT(service.LastExchange(), ::testing::HasSubstr("value ignored"));
    // A selector no variable has: acknowledged, nothing changes.
    EXPECT_EQ(Send("00 10 03 80 01 09 99"), Hex("00 10 23"));
    EXPECT_EQ(node->Description(),
              SimulatedNode::Create(vx::sim::DefaultController())->Description());
}

// ---- Retries ----------------------------------------------------------------------------------

TEST_F(NodeServiceTest, ARetryIsAnsweredAgainButNotActedOnAgain) {
    const std::string frame = "00 10 05 " + std::string(kKeypress12);
    EXPECT_EQ(Send(frame), Hex("00 10 25"));
    EXPECT_EQ(node->CommandFrames(), std::vector<Bytes>{Hex(std::string(kKeypress12).substr(6))});
    EXPECT_EQ(Send(frame, 300ms), Hex("00 10 25"));
    EXPECT_EQ(Send(frame, 1999ms), Hex("00 10 25"));
    EXPECT_THAT(service.LastExchange(), ::testing::HasSubstr("retry"));
    EXPECT_EQ(node->Commands().keypresses, std::vector<std::int32_t>{12});
}

TEST_F(NodeServiceTest, ARetryGetsTheFirstAnswerEvenWhenTheValueChangedSince) {
    EXPECT_EQ(Send("00 11 03 73 07"), Hex("00 11 23 33 07 7F FF"));
    Send("00 10 04 BF F8 09 99");
    EXPECT_EQ(Send("00 11 03 73 07", 10ms), Hex("00 11 23 33 07 7F FF"));
    EXPECT_EQ(Send("00 11 05 73 07", 20ms), Hex("00 11 25 33 07 09 99"));
}

TEST_F(NodeServiceTest, ANewTransactionIsActedOnThoughItLooksLikeAnEarlierOne) {
    Send("00 10 05 " + std::string(kKeypress12));
    // Same ID, another APDU: a new transaction.
    Send("00 10 05 " + std::string(kKeypress13), 10ms);
    // The same packet from another port, as a session request, and at high priority.
    Send("00 10 05 " + std::string(kKeypress13), 20ms, kOtherHost);
    Send("00 11 05 " + std::string(kKeypress13), 30ms);
    Send("00 14 05 " + std::string(kKeypress13), 40ms);
    // The same packet once the receive timer has run out.
    Send("00 10 05 " + std::string(kKeypress13), 2100ms);
    EXPECT_EQ(node->Commands().keypresses, (std::vector<std::int32_t>{12, 13, 13, 13, 13, 13}));
}

TEST_F(NodeServiceTest, ASendersNextTransactionEndsItsEarlierOne) {
    // A sender runs one transaction at a time: after TID 6, TID 5 is a new run's, not a retry.
    Send("00 10 05 " + std::string(kKeypress12));
    Send("00 10 06 " + std::string(kKeypress13), 10ms);
    Send("00 10 05 " + std::string(kKeypress12), 20ms);
    EXPECT_EQ(node->Commands().keypresses, (std::vector<std::int32_t>{12, 13, 12}));
}

TEST_F(NodeServiceTest, TheSendersOwnAddressIsPartOfTheTransaction) {
    Send("01 10 23 7E 05 " + std::string(kKeypress12));
    Send("01 10 23 7D 05 " + std::string(kKeypress12));
    Send("01 10 23 7E 05 " + std::string(kKeypress12));
    EXPECT_EQ(node->Commands().keypresses, (std::vector<std::int32_t>{12, 12}));
}

TEST_F(NodeServiceTest, ARepeatedMessageIsTakenOnceAndNeverAnswered) {
    const std::string frame = "00 10 15 " + std::string(kKeypress12);  // unack-repeated, TID 5
    EXPECT_EQ(Send(frame), std::nullopt);
    EXPECT_EQ(Send(frame, 50ms), std::nullopt);
    EXPECT_EQ(node->Commands().keypresses, std::vector<std::int32_t>{12});
}

TEST(ReceiveRecords, ForgetsTheOldestWhenFull) {
    vx::vxsim::ReceiveRecords records(2000ms, 2);
    const auto now = std::chrono::steady_clock::time_point{};
    const Bytes apdu = {0x51};
    vx::vxsim::TransactionKey key{kHost, std::nullopt, vx::lon::PduFormat::kSpdu, 0, 1};
    for (std::uint16_t port = 1; port <= 3; ++port) {
        key.sender.port = port;
        records.Remember(key, apdu, Bytes{static_cast<std::uint8_t>(port)}, now);
    }
    EXPECT_EQ(records.Size(), 2u);
    key.sender.port = 1;
    EXPECT_EQ(records.FindRetry(key, apdu, now), nullptr);
    key.sender.port = 3;
    const auto* kept = records.FindRetry(key, apdu, now);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->reply, Bytes{3});
}

// ---- What the node does not take in ------------------------------------------------------------

TEST_F(NodeServiceTest, DatagramsThatAreNoRequestForThisNodeChangeNothing) {
    const auto before = node->Description();
    for (const char* datagram : {
             "",                                     // nothing
             "00",                                   // ends inside the header
             "00 11",                                // no PDU header
             "10 11 01 51",                          // version 1
             "00 01 01 51",                          // address format 0
             "00 11 01",                             // a request without its APDU
             "00 11 21 31",                          // a response
             "00 10 21",                             // an acknowledgement
             "00 11 41 02 03 04",                    // a session reminder
             "00 12 01 6C 00",                       // an authentication PDU
             "00 11 81 6C 00",                       // authenticated: the node holds no key
             "00 41 07 01 6C 00",                    // a group: the node is in none
             "00 51 07 01 01 6C 00",                 // a group response
             "00 31 02 01 6C 00",                    // another subnet's broadcast
             "00 71 01 02 01 6C 00",                 // another node of our subnet
             "00 71 02 01 01 6C 00",                 // our node number in another subnet
             "00 61 00 05 01 3C 7A 1F 03 01 6C 00",  // another Neuron ID
         }) {
        SCOPED_TRACE(datagram);
        EXPECT_EQ(Send(datagram), std::nullopt);
        EXPECT_EQ(node->Description(), before);
        EXPECT_TRUE(node->Exchanges().empty());
    }
}

TEST_F(NodeServiceTest, EveryWayOfAddressingThisNodeIsAnswered) {
    std::chrono::milliseconds later{0};
    for (const char* datagram : {
             "00 11 01 51",                       // implied by our IP address
             "00 21 01 51",                       // domain broadcast
             "00 31 01 01 51",                    // our subnet's broadcast
             "00 71 01 01 01 51",                 // subnet 1, node 1
             "00 61 00 05 01 3C 7A 1F 02 01 51",  // our Neuron ID
         }) {
        SCOPED_TRACE(datagram);
        // Each after the receive timer, so that none is taken for a retry of the one before.
        later += 3s;
        EXPECT_EQ(Send(datagram, later), Hex("00 11 21 31" + StatusBlock("04")));
    }
}

TEST(NodeServiceAddress, TheNodeAnswersToTheAddressItIsGiven) {
    NodeServiceOptions options;
    options.address = {5, 9, {}};
    NodeService service(SimulatedNode::Create(vx::sim::DefaultController()), options);
    EXPECT_EQ(service.Handle(Hex("00 71 05 09 01 51"), kHost, {}).value_or(Bytes{}).size(), 19u);
    EXPECT_EQ(service.Handle(Hex("00 71 01 01 02 51"), kHost, {}), std::nullopt);
    EXPECT_EQ(service.Handle(Hex("00 31 01 03 51"), kHost, {}), std::nullopt);
}

TEST(NodeServiceAddress, OptionsOutOfRangeAreRefused) {
    const auto node = SimulatedNode::Create(vx::sim::DefaultController());
    for (const NodeServiceOptions& options : {
             NodeServiceOptions{{0, 1, {}}},
             NodeServiceOptions{{1, 0, {}}},
             NodeServiceOptions{{1, 128, {}}},
             NodeServiceOptions{{1, 1, {0x51}}},
             NodeServiceOptions{{1, 1, {}}, 2000ms, 0},
             NodeServiceOptions{{1, 1, {}}, 2000ms, 229},
         }) {
        EXPECT_THROW((NodeService{node, options}), vx::ComError);
    }
}

TEST_F(NodeServiceTest, MalformedRequestsGetAFailureResponseAndChangeNothing) {
    const auto before = node->Description();
    const auto memory = node->MemoryBytes(0, 0x10000);
    for (const auto& [request, failure] : {
             std::pair{"6C", "0C"},                    // no mode
             std::pair{"6C 05", "0C"},                 // no such mode
             std::pair{"6C 00 00", "0C"},              // a byte too many
             std::pair{"6C 03", "0C"},                 // change state without the state
             std::pair{"6C 03 09", "0C"},              // no such state
             std::pair{"61", "01"},                    // no selector
             std::pair{"70 02", "10"},                 // no such wink
             std::pair{"72 00 00", "12"},              // no count
             std::pair{"72 00 00 00", "12"},           // count 0
             std::pair{"72 FF F0 10", "12"},           // past the end
             std::pair{"72 00 00 E5", "12"},           // more than one answer holds
             std::pair{"73", "13"},                    // no index
             std::pair{"73 FF 00", "13"},              // an escaped index cut short
             std::pair{"73 0C 00", "13"},              // a byte too many
             std::pair{"68", "08"},                    // no index
             std::pair{"6D 00 40", "0D"},              // no count
             std::pair{"6E 00 41 40 02 00 AB", "0E"},  // fewer bytes than the count
         }) {
        SCOPED_TRACE(request);
        EXPECT_EQ(Send("00 11 01 " + std::string(request)),
                  Hex("00 11 21 " + std::string(failure)));
        EXPECT_EQ(node->Description(), before);
        EXPECT_EQ(node->MemoryBytes(0, 0x10000), memory);
    }
}

// ---- Self-identification ----------------------------------------------------------------------

// Reads the whole self-identification data through Query SI, `slice` bytes at a time.
Bytes ReadSelfIdentification(NodeService& service, std::size_t slice) {
    std::uint8_t transaction = 1;
    const auto ask = [&](std::size_t offset, std::size_t count) {
        transaction = static_cast<std::uint8_t>(transaction % 15 + 1);
        const Bytes request = {0x00,
                               0x11,
                               transaction,
                               0x72,
                               static_cast<std::uint8_t>(offset >> 8),
                               static_cast<std::uint8_t>(offset & 0xFF),
                               static_cast<std::uint8_t>(count)};
        const auto reply = service.Handle(request, kHost, {});
        EXPECT_TRUE(reply && reply->size() == 4 + count && (*reply)[3] == 0x32);
        return reply ? Bytes(reply->begin() + 4, reply->end()) : Bytes{};
    };
    const Bytes header = ask(0, 6);
    const std::size_t length = header.size() == 6 ? (header[0] << 8 | header[1]) : 0;
    Bytes data;
    for (std::size_t offset = 0; offset < length && data.size() == offset; offset += slice) {
        const Bytes part = ask(offset, std::min(slice, length - offset));
        data.insert(data.end(), part.begin(), part.end());
    }
    return data;
}

TEST_F(NodeServiceTest, QuerySiSlicesMakeTheNodesSelfIdentification) {
    const Bytes data = ReadSelfIdentification(service, vx::vxsim::kMaxSiSlice);
    ASSERT_GE(data.size(), 6u);
    // 34 variables (low byte, version 1, high byte), no message tags.
    EXPECT_EQ(Bytes(data.begin() + 2, data.begin() + 6), Hex("22 01 00 00"));
    // Descriptors and types: nviRequest (92), nvoFileDirectory polled without a type,
    // nciSndHrtBt a configuration variable (107); each has an extension record (80).
    EXPECT_EQ(Bytes(data.begin() + 6, data.begin() + 8), Hex("80 5C"));
    EXPECT_EQ(Bytes(data.begin() + 12, data.begin() + 14), Hex("A0 00"));
    EXPECT_EQ(Bytes(data.begin() + 42, data.begin() + 44), Hex("81 6B"));

    const auto parsed = vx::lon::ParseSelfIdentification(data);
    ASSERT_TRUE(parsed.data) << parsed.error;
    const auto& description = node->Description();
    EXPECT_EQ(parsed.data->nodeSelfDoc, description.selfDoc);
    ASSERT_EQ(parsed.data->variables.size(), description.variables.size());
    for (const auto& variable : description.variables) {
        const auto& entry = parsed.data->variables.at(static_cast<std::size_t>(variable.index));
        EXPECT_EQ(entry.name, variable.name);
        EXPECT_EQ(entry.selfDoc, variable.selfDoc);
    }
    // Read in small slices, it is the same data.
    EXPECT_EQ(ReadSelfIdentification(service, 17), data);
}

TEST(NodeServiceSelfIdentification, IndexesWithoutAVariableKeepAnEmptyEntry) {
    vx::sim::NodeDescription description;
    description.neuronId = "010203040506";
    description.programId = "9000000000000000";
    description.selfDoc = "&3.4@0;gaps";
    vx::sim::VariableRecord input;
    input.name = "nviA";
    input.typeIndex = 105;
    input.value = {0, 0};
    vx::sim::VariableRecord output;
    output.name = "nvoB";
    output.index = 2;
    output.isOutput = true;
    output.typeIndex = 300;
    output.value = {0};
    description.variables = {input, output};
    NodeService service(SimulatedNode::Create(description));
    // Length 24; entries 80 69, 00 00, 80 00 (type 300 is no standard index); "&3.4@0;gaps";
    // the records of nviA and nvoB: mask 20 (a name), the name.
    const Bytes expected =
        Hex("00 24 03 01 00 00  80 69 00 00 80 00  26 33 2E 34 40 30 3B 67 61 70 73 00"
            "  20 6E 76 69 41 00  20 6E 76 6F 42 00");
    EXPECT_EQ(service.SelfIdentificationData(), expected);
}

TEST(NodeServiceSelfIdentification, SlicesAreLimitedToTheSizeGiven) {
    NodeServiceOptions options;
    options.siSliceLimit = 40;
    NodeService service(SimulatedNode::Create(vx::sim::DefaultController()), options);
    EXPECT_EQ(service.Handle(Hex("00 11 01 72 00 00 28"), kHost, {}).value_or(Bytes{}).size(),
              4u + 40u);
    EXPECT_EQ(service.Handle(Hex("00 11 02 72 00 00 29"), kHost, {}), Hex("00 11 22 12"));
}

// ---- Faults of the node model -----------------------------------------------------------------

TEST_F(NodeServiceTest, ANodeThatDoesNotAnswerSendsNothingAndTakesTheRetryLater) {
    node->InjectFault({.operation = "SendNetworkMessage", .target = "51"});
    EXPECT_EQ(Send("00 11 03 51"), std::nullopt);
    // Nothing was remembered: the retry is served.
    EXPECT_EQ(Send("00 11 03 51", 100ms), Hex("00 11 23 31" + StatusBlock("04")));

    node->InjectFault({.operation = "WriteValue", .target = "nviSetpoint"});
    EXPECT_EQ(Send("00 10 04 BF F8 09 99"), std::nullopt);
    EXPECT_EQ(Value("nviSetpoint"), Hex("7F FF"));
    EXPECT_EQ(Send("00 10 04 BF F8 09 99", 100ms), Hex("00 10 24"));
    EXPECT_EQ(Value("nviSetpoint"), Hex("09 99"));

    node->SetAnswering(false);
    EXPECT_EQ(Send("00 11 05 6C 00"), std::nullopt);
    EXPECT_EQ(Send("00 10 06 51"), std::nullopt);
    EXPECT_EQ(node->Mode(), 1);
}

TEST_F(NodeServiceTest, AFailureOfTheNodeModelIsAFailureResponse) {
    node->InjectFault({.operation = "ReadValue",
                       .target = "nvoSpaceTemp",
                       .kind = vx::sim::FaultKind::kFailureResponse});
    EXPECT_EQ(Send("00 11 01 73 0C"), Hex("00 11 21 13"));
    node->InjectFault({.operation = "Wink",
                       .kind = vx::sim::FaultKind::kHostError,
                       .number = static_cast<std::int32_t>(0x80049999u),
                       .description = "the host failed"});
    EXPECT_EQ(Send("00 11 02 70"), Hex("00 11 22 10"));
    EXPECT_EQ(node->WinkCount(), 0);
}

}  // namespace
