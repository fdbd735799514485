// The session layer against a scripted peer on loopback: what goes out byte for byte, which
// datagrams complete an exchange and which are dropped, retries and transaction IDs, binding.
#include "Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <asio.hpp>
#include <set>

#include "LonErrors.h"
#include "ScriptedPeer.h"
#include "fixtures/ErrorMatchers.h"

namespace vx::lon {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::Incoming;
using test::Outgoing;
using test::ScriptedPeer;
using test::Step;
using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr std::uint8_t kQueryStatus[] = {0x51};
// A Query Status answer: 31 and the 15 status bytes (device B's, from its session).
const Bytes kStatusAnswer = {0x31, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00,
                             0x00, 0x00, 0x00, 0x14, 0x02, 0x80, 0x99, 0x72};
// Another one, told apart by its last byte.
const Bytes kOtherStatusAnswer = {0x31, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00,
                                  0x00, 0x00, 0x00, 0x14, 0x02, 0x80, 0x99, 0x55};

std::uint8_t PreviousTransaction(std::uint8_t transaction) {
    return static_cast<std::uint8_t>(transaction == 1 ? 15 : transaction - 1);
}

// The answer the request before this one would have had.
Step ReplyForPrevious(Bytes apdu) {
    return [apdu = std::move(apdu)](const Incoming& request) {
        return std::vector<Outgoing>{
            {test::ResponseBytes(PreviousTransaction(request.Transaction()), apdu)}};
    };
}

Step ReplyWith(std::function<Bytes(std::uint8_t transaction)> build) {
    return [build = std::move(build)](const Incoming& request) {
        return std::vector<Outgoing>{{build(request.Transaction())}};
    };
}

std::vector<std::uint8_t> Transactions(const std::vector<Incoming>& received) {
    std::vector<std::uint8_t> transactions;
    for (const auto& incoming : received)
        transactions.push_back(incoming.Transaction());
    return transactions;
}

class SessionTest : public ::testing::Test {
protected:
    Session& Open(int retries = 3, std::chrono::milliseconds timer = 40ms) {
        HostOptions options;
        options.local = hostAt;
        options.timing = {timer, retries};
        session = std::make_unique<Session>(peer.Where(), options);
        return *session;
    }

    Answer QueryStatus() {
        return session->Request(peer.Where(), {}, kQueryStatus, "Query Status");
    }

    Endpoint hostAt = test::UniqueLoopback();
    ScriptedPeer peer{test::UniqueLoopback()};
    std::unique_ptr<Session> session;
};

// ---- What goes out

TEST_F(SessionTest, RequestCarriesTheHostAsArbitrarySource) {
    Open();
    peer.Then(test::Reply(kStatusAnswer));
    QueryStatus();
    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 1u);
    // Arbitrary source, format 1 SPDU, source 7F / D + 7E, empty domain, request t, Query Status.
    const std::uint8_t transaction = received[0].bytes.size() == 7 ? received[0].bytes[5] : 0;
    EXPECT_GE(transaction, 1);
    EXPECT_LE(transaction, 15);
    EXPECT_EQ(received[0].bytes, (Bytes{0x01, 0x11, 0x7F, 0xFE, 0x00, transaction, 0x51}));
    EXPECT_EQ(received[0].from, hostAt);
}

TEST_F(SessionTest, ExchangeWithDeviceBByNeuronIdAsRecorded) {
    // device-b-arbitrary-source.txt, "Query Status by NID": host 23/7E in domain 51.
    HostOptions options;
    options.local = hostAt;
    options.address = {0x23, 0x7E, {0x51}};
    options.timing = {40ms, 3};
    Session device(peer.Where(), options);
    Destination byNeuronId;
    byNeuronId.format = AddressFormat::kNeuronId;
    byNeuronId.neuronId = {0xFE, 0x7B, 0x14, 0xAC, 0x07, 0x46};
    peer.Then(ReplyWith([](std::uint8_t transaction) {
        return Bytes{
            0x01, 0x71, 0x00, 0x00, 0x23, 0x7E, static_cast<std::uint8_t>(0x20 | transaction),
            0x31, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x00, 0x00, 0x00, 0x00, 0x14, 0x02, 0x80,
            0x00, 0x72};
    }));

    const auto answer = device.Request(peer.Where(), byNeuronId, kQueryStatus, "Query Status");

    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 1u);
    Bytes expected = {0x01, 0x61, 0x23, 0xFE, 0x01, 0x51, 0x00, 0xFE,
                      0x7B, 0x14, 0xAC, 0x07, 0x46, 0x01, 0x51};
    expected[13] = received[0].Transaction();
    EXPECT_EQ(received[0].bytes, expected);
    EXPECT_EQ(answer.code, 0x31);
    EXPECT_THAT(answer.data, ElementsAre(0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                         0x14, 0x02, 0x80, 0x00, 0x72));
}

TEST_F(SessionTest, UnacknowledgedGoesOutOnceAsBareApdu) {
    Open();
    peer.Then(test::Silent()).Then(test::Reply(kStatusAnswer));
    const std::uint8_t wink[] = {0x70};
    session->SendUnacknowledged(peer.Where(), {}, wink, "Wink");
    // The request behind it arrives after everything the wink caused.
    QueryStatus();
    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].bytes, (Bytes{0x01, 0x13, 0x7F, 0xFE, 0x00, 0x70}));
    EXPECT_EQ(received[1].bytes[6], 0x51);
    EXPECT_EQ(session->Stats().sent, 2u);
}

TEST_F(SessionTest, MessagesThatCannotBeSentAreRefusedBeforeSending) {
    Open();
    EXPECT_COM_ERROR(session->Request(peer.Where(), {}, {}, "nothing"), kLonErrBadRequest);
    const Bytes tooLong(kMaxApdu + 1, 0x6E);
    EXPECT_COM_ERROR(session->Request(peer.Where(), {}, tooLong, "Write Memory"),
                     kLonErrBadRequest);
    Destination badNode;
    badNode.format = AddressFormat::kExplicitSubnetNode;
    badNode.node = 128;
    EXPECT_COM_ERROR(session->SendUnacknowledged(peer.Where(), badNode, kQueryStatus, "Wink"),
                     kLonErrBadAddress);
    EXPECT_EQ(session->Stats().sent, 0u);
}

// ---- Retries

TEST_F(SessionTest, LostAnswersAreRetriedWithTheSamePacket) {
    Open(3);
    peer.Then(2, test::Silent()).Then(test::Reply(kStatusAnswer));

    const auto answer = QueryStatus();

    EXPECT_EQ(answer.code, 0x31);
    EXPECT_EQ(answer.data, Bytes(kStatusAnswer.begin() + 1, kStatusAnswer.end()));
    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[1].bytes, received[0].bytes);
    EXPECT_EQ(received[2].bytes, received[0].bytes);
    const auto& stats = session->Stats();
    EXPECT_EQ(stats.sent, 3u);
    EXPECT_EQ(stats.retries, 2u);
    EXPECT_EQ(stats.exchanges, 1u);
    EXPECT_EQ(stats.accepted, 1u);
    EXPECT_EQ(stats.dropped, 0u);
}

TEST_F(SessionTest, NoAnswerAfterEveryAttemptNamesNodeAttemptsAndRequest) {
    Open(3);
    const auto error = vx::test::CaughtError([&] { QueryStatus(); });
    EXPECT_EQ(error.Number(), kLonErrNoAnswer);
    EXPECT_EQ(error.Source(), kLonSource);
    EXPECT_EQ(error.Description(),
              "no answer from " + peer.Where().Text(false) + " after 4 attempts (Query Status)");
    ASSERT_TRUE(peer.WaitForReceived(4));
    EXPECT_EQ(peer.Received().size(), 4u);
    // Timing changes between exchanges; zero retries is one attempt.
    session->SetTiming({30ms, 0});
    const auto once = vx::test::CaughtError([&] { QueryStatus(); });
    EXPECT_THAT(once.Description(), ::testing::HasSubstr("after 1 attempt (Query Status)"));
    EXPECT_EQ(session->Stats().sent, 5u);
}

TEST_F(SessionTest, ImpossibleTimingOrHostAddressIsRefused) {
    Open();
    const auto timer = vx::test::CaughtError([&] { session->SetTiming({0ms, 3}); });
    EXPECT_EQ(timer.Number(), kLonErrBadAddress);
    EXPECT_EQ(timer.Description(), "the transmit timer must be 1 ms or more");
    EXPECT_COM_ERROR(session->SetTiming({-5ms, 3}), kLonErrBadAddress);
    EXPECT_COM_ERROR(session->SetTiming({40ms, -1}), kLonErrBadAddress);
    EXPECT_EQ(session->GetTiming().transmitTimer, 40ms);

    HostOptions options;
    options.local = test::UniqueLoopback();
    options.timing = {40ms, -1};
    EXPECT_COM_ERROR(Session(peer.Where(), options), kLonErrBadAddress);
    options.timing = {40ms, 3};
    options.address = {1, 128, {}};
    EXPECT_COM_ERROR(Session(peer.Where(), options), kLonErrBadAddress);
    options.address = {1, 2, {0x11, 0x22}};
    EXPECT_COM_ERROR(Session(peer.Where(), options), kLonErrBadAddress);
    options.address = {1, 2, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66}};
    EXPECT_EQ(Session(peer.Where(), options).HostAddress().domain.size(), 6u);
}

TEST_F(SessionTest, AnswerLateForOneAttemptCompletesTheExchangeOnARetry) {
    Open(5, 40ms);
    peer.Then(test::ReplyLate(kStatusAnswer, 60ms));
    EXPECT_EQ(QueryStatus().code, 0x31);
    EXPECT_GE(session->Stats().sent, 2u);
    for (const auto& incoming : peer.Received())
        EXPECT_EQ(incoming.bytes, peer.Received()[0].bytes);
}

// ---- What completes an exchange

TEST_F(SessionTest, EverythingButTheAnswerIsDroppedAndTheWaitGoesOn) {
    Open();
    peer.Then([&](const Incoming& request) {
        const std::uint8_t t = request.Transaction();
        const auto response = static_cast<std::uint8_t>(0x20 | t);
        return std::vector<Outgoing>{
            {{0xFF}},                                    // undecodable
            {test::ResponseBytes(t, Bytes(297, 0x31))},  // longer than any packet
            {Bytes(1400, 0x00)},                         // far longer
            {{0x00, 0x11, t, 0x51}},                     // a request, not a response
            {{0x00, 0x10, response}},                    // a transport ack
            {{0x00, 0x11, response, 0x2D, 0x01}},        // answers another request
            {{0x00, 0x11, response, 0x71}},              // another node-management code
            {test::ResponseBytes(t, kStatusAnswer)},     // the answer
        };
    });

    const auto answer = QueryStatus();

    EXPECT_EQ(answer.code, 0x31);
    const auto& stats = session->Stats();
    EXPECT_EQ(stats.received, 8u);
    EXPECT_EQ(stats.dropped, 7u);
    EXPECT_EQ(stats.accepted, 1u);
    EXPECT_EQ(stats.sent, 1u);
}

TEST_F(SessionTest, NetworkVariablePollIsAnsweredByANetworkVariableMessage) {
    Open();
    const std::uint8_t poll[] = {0xC1, 0x23};  // output selector 0123
    peer.Then(test::Sequence({test::Reply({0x31}), test::Reply({0xC1, 0x23, 0x00, 0x2A})}));
    const auto answer = session->Request(peer.Where(), {}, poll, "NV poll");
    EXPECT_EQ(answer.code, 0xC1);
    EXPECT_THAT(answer.data, ElementsAre(0x23, 0x00, 0x2A));
    EXPECT_EQ(session->Stats().dropped, 1u);
}

TEST(SessionForeignSender, AnswerFromAnotherPortOrAddressIsDropped) {
    for (const bool otherAddress : {false, true}) {
        SCOPED_TRACE(otherAddress ? "another address" : "another port");
        ScriptedPeer peer(test::UniqueLoopback(),
                          otherAddress ? std::optional(test::UniqueLoopback()) : std::nullopt);
        HostOptions options;
        options.local = test::UniqueLoopback();
        options.timing = {40ms, 3};
        Session session(peer.Where(), options);
        peer.Then(test::Sequence(
            {test::ReplyFromForeign(kOtherStatusAnswer), test::Reply(kStatusAnswer)}));
        EXPECT_EQ(session.Request(peer.Where(), {}, kQueryStatus, "Query Status").data.back(),
                  0x72);
        EXPECT_EQ(session.Stats().dropped, 1u);
    }
}

TEST_F(SessionTest, DuplicatedAnswerIsDroppedInTheNextExchange) {
    Open();
    peer.Then(test::ReplyTwice(kStatusAnswer)).Then(test::Reply(kOtherStatusAnswer));
    EXPECT_EQ(QueryStatus().data.back(), 0x72);
    EXPECT_EQ(QueryStatus().data.back(), 0x55);
    EXPECT_EQ(session->Stats().dropped, 1u);
    EXPECT_EQ(session->Stats().accepted, 2u);
}

TEST_F(SessionTest, LateAnswerOfAnEarlierExchangeDoesNotCompleteTheNext) {
    Open(0);
    // The first exchange gives up; its answer arrives while the second waits, ahead of the
    // second's own.
    peer.Then(test::Silent())
        .Then(test::Sequence({ReplyForPrevious(kStatusAnswer), test::Reply(kOtherStatusAnswer)}));
    EXPECT_COM_ERROR(QueryStatus(), kLonErrNoAnswer);
    EXPECT_EQ(QueryStatus().data.back(), 0x55);
    EXPECT_EQ(session->Stats().dropped, 1u);
}

TEST_F(SessionTest, AnswerArrivingAfterTheTimerIsNotTakenForTheNextExchange) {
    Open(0, 30ms);
    peer.Then(test::ReplyLate(kStatusAnswer, 150ms)).Then(test::Reply(kOtherStatusAnswer));
    EXPECT_COM_ERROR(QueryStatus(), kLonErrNoAnswer);
    EXPECT_EQ(QueryStatus().data.back(), 0x55);
}

TEST_F(SessionTest, AnswerArrivingBeforeItsRequestIsNotKept) {
    Open(0);
    // Reordered: the answer with the next exchange's ID comes first; it is dropped, so the next
    // exchange, which the peer leaves unanswered, finds nothing.
    peer.Then(test::ReplyWrongTidFirst(kStatusAnswer)).Then(test::Silent());
    EXPECT_EQ(QueryStatus().code, 0x31);
    EXPECT_COM_ERROR(QueryStatus(), kLonErrNoAnswer);
    EXPECT_EQ(session->Stats().dropped, 1u);
}

// ---- Transaction IDs

TEST_F(SessionTest, EachExchangeTakesTheNextTransactionIdSkippingZero) {
    Open();
    peer.Otherwise(test::Reply(kStatusAnswer));
    for (int i = 0; i < 17; ++i)
        QueryStatus();
    const auto transactions = Transactions(peer.Received());
    ASSERT_EQ(transactions.size(), 17u);
    int wraps = 0;
    for (std::size_t i = 1; i < transactions.size(); ++i) {
        const std::uint8_t previous = transactions[i - 1];
        EXPECT_EQ(transactions[i], previous == 15 ? 1 : previous + 1) << "exchange " << i;
        if (previous == 15) ++wraps;
    }
    EXPECT_GE(wraps, 1);  // 17 exchanges pass 15 at least once
    EXPECT_EQ(std::count(transactions.begin(), transactions.end(), 0), 0);
}

TEST_F(SessionTest, AcknowledgedSendsAndCollectsShareTheSequenceUnacknowledgedTakeNone) {
    Open();
    peer.Then(test::Reply(kStatusAnswer))
        .Then(test::Silent())
        .Then(test::Acknowledge())
        .Then(test::Reply(kStatusAnswer))
        .Then(test::Reply(kStatusAnswer));
    const std::uint8_t update[] = {0x80, 0x01, 0x00};
    QueryStatus();
    session->SendUnacknowledged(peer.Where(), {}, kQueryStatus, "Query Status");
    session->SendAcknowledged(peer.Where(), {}, update, "NV update");
    session->Collect(peer.Where(), {}, kQueryStatus, 30ms);
    QueryStatus();
    const auto transactions = Transactions(peer.Received());
    ASSERT_EQ(transactions.size(), 5u);
    EXPECT_EQ(PreviousTransaction(transactions[2]), transactions[0]);
    EXPECT_EQ(PreviousTransaction(transactions[3]), transactions[2]);
    EXPECT_EQ(PreviousTransaction(transactions[4]), transactions[3]);
}

// ---- Acknowledged sends

TEST_F(SessionTest, AcknowledgedSendCompletesOnTheTransportAck) {
    Open();
    // A session response with the same ID is no acknowledgement, nor an ack with another ID.
    peer.Then(test::Sequence({test::Reply({0x30}),
                              [](const Incoming& request) {
                                  const auto other = static_cast<std::uint8_t>(
                                      request.Transaction() == 15 ? 1 : request.Transaction() + 1);
                                  return std::vector<Outgoing>{{test::AckBytes(other)}};
                              },
                              test::Acknowledge()}));
    const std::uint8_t update[] = {0x92, 0x34, 0x01, 0x02};
    session->SendAcknowledged(peer.Where(), {}, update, "NV update");
    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 1u);
    const std::uint8_t t = received[0].Transaction();
    EXPECT_EQ(received[0].bytes, (Bytes{0x01, 0x10, 0x7F, 0xFE, 0x00, t, 0x92, 0x34, 0x01, 0x02}));
    EXPECT_EQ(session->Stats().dropped, 2u);
    EXPECT_EQ(session->Stats().accepted, 1u);
}

TEST_F(SessionTest, AcknowledgedSendWithoutAckRaisesNoAnswer) {
    Open(1);
    const std::uint8_t update[] = {0x92, 0x34, 0x01};
    const auto error = vx::test::CaughtError(
        [&] { session->SendAcknowledged(peer.Where(), {}, update, "NV update"); });
    EXPECT_EQ(error.Number(), kLonErrNoAnswer);
    EXPECT_EQ(error.Description(),
              "no answer from " + peer.Where().Text(false) + " after 2 attempts (NV update)");
    ASSERT_TRUE(peer.WaitForReceived(2));
    const auto received = peer.Received();
    EXPECT_EQ(received[0].bytes, received[1].bytes);
}

// ---- Collect

TEST(SessionCollect, GathersOneAnswerPerSender) {
    ScriptedPeer peer(test::UniqueLoopback(), test::UniqueLoopback());
    HostOptions options;
    options.local = test::UniqueLoopback();
    Session session(peer.Where(), options);
    const Bytes idAnswer = {0x21, 0xFE, 0x7B, 0x14, 0xAC, 0x07, 0x46, 0x9F,
                            0xFF, 0xFF, 0x06, 0x00, 0x0A, 0x04, 0x11};
    const Bytes otherId = {0x21, 0x02, 0x4C, 0x4F, 0x4E, 0x00, 0x0C, 0x9F,
                           0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x01};
    peer.Then(test::Sequence({test::Reply(idAnswer), test::ReplyFromForeign(otherId),
                              test::Reply(idAnswer), ReplyForPrevious(idAnswer)}));
    const std::uint8_t queryId[] = {0x61, 0x00};

    const auto heard = session.Collect(peer.Where(), {}, queryId, 300ms);

    ASSERT_EQ(heard.size(), 2u);
    std::set<std::string> senders;
    for (const auto& one : heard) {
        senders.insert(one.from.Text());
        EXPECT_EQ(one.datagram.apdu, one.from == peer.Where() ? idAnswer : otherId);
    }
    EXPECT_EQ(senders, (std::set<std::string>{peer.Where().Text(), peer.Foreign().Text()}));
    EXPECT_EQ(session.Stats().dropped, 2u);
    EXPECT_EQ(session.Stats().sent, 1u);
    // Nobody answering is an empty list.
    EXPECT_TRUE(session.Collect(peer.Where(), {}, queryId, 30ms).empty());
    EXPECT_TRUE(peer.WaitForReceived(2));
}

// ---- Binding

TEST_F(SessionTest, BindsTheLocalEndpointGivenAndOneInUseIsASocketError) {
    Open();
    EXPECT_EQ(session->Local(), hostAt);
    HostOptions options;
    options.local = hostAt;
    const auto error = vx::test::CaughtError([&] { Session second(peer.Where(), options); });
    EXPECT_EQ(error.Number(), kLonErrSocket);
    EXPECT_THAT(error.Description(),
                StartsWith("cannot open the host's socket on " + hostAt.Text() + ": "));
}

TEST_F(SessionTest, WithoutLocalEndpointBindsTheAddressThatReachesTheNode) {
    Session automatic(peer.Where(), HostOptions{});
    const Endpoint local = automatic.Local();
    EXPECT_EQ(local.address[0], 127);
    EXPECT_NE(local.port, 0);
    // The peer answers whichever port the request came from.
    peer.Then(test::Reply(kStatusAnswer));
    EXPECT_EQ(automatic.Request(peer.Where(), {}, kQueryStatus, "Query Status").code, 0x31);
    EXPECT_EQ(peer.Received().at(0).from, local);
}

TEST_F(SessionTest, WhenAnotherHostHoldsPort2541AnEphemeralPortIsTaken) {
    // The address the system sends from towards the peer, as the session learns it.
    asio::io_context io;
    asio::ip::udp::socket probe(io, asio::ip::udp::v4());
    probe.connect({asio::ip::address_v4(peer.Where().address), peer.Where().port});
    const auto address = probe.local_endpoint().address();
    asio::ip::udp::socket holder(io, asio::ip::udp::v4());
    std::error_code heldElsewhere;
    holder.bind({address, kLonIpPort}, heldElsewhere);  // or another process holds it already

    Session automatic(peer.Where(), HostOptions{});

    EXPECT_EQ(automatic.Local().address, address.to_v4().to_bytes());
    EXPECT_NE(automatic.Local().port, kLonIpPort);
    EXPECT_NE(automatic.Local().port, 0);
}

// ---- Endpoint

TEST(Endpoint, TextAndParse) {
    EXPECT_EQ(Endpoint({{127, 0, 0, 2}, 2541}).Text(), "127.0.0.2:2541");
    EXPECT_EQ(Endpoint({{127, 0, 0, 2}, 2541}).Text(false), "127.0.0.2");
    EXPECT_EQ(Endpoint({{10, 81, 35, 20}, 1628}).Text(false), "10.81.35.20:1628");
    EXPECT_EQ(Endpoint::Parse("127.0.0.2"), (Endpoint{{127, 0, 0, 2}, 2541}));
    EXPECT_EQ(Endpoint::Parse("255.255.255.255:65535"), (Endpoint{{255, 255, 255, 255}, 65535}));
    EXPECT_EQ(Endpoint::Parse("0.0.0.0:1"), (Endpoint{{0, 0, 0, 0}, 1}));
    for (const char* text :
         {"", "1.2.3", "1.2.3.4.5", "256.0.0.1", "1.2.3.4:0", "1.2.3.4:65536", ":2541",
          "1.2.3.4:", "1.2.3.4:2541x", "1..3.4", " 1.2.3.4", "1.2.3.-4", "+1.2.3.4", "01.2.3.4",
          "1.2.3.4:+80", "localhost", "1.2.3.4:80:80", "1234.2.3.4"}) {
        EXPECT_FALSE(Endpoint::Parse(text)) << '"' << text << '"';
    }
}

}  // namespace
}  // namespace vx::lon
