// The network-management client against a scripted peer: the requests byte for byte, the typed
// results from real devices' answers, failure and short answers, memory writes in parts and
// self-identification read in slices.
#include "NodeClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "LonErrors.h"
#include "ScriptedPeer.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/Hex.h"

namespace vx::lon {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::Incoming;
using test::ScriptedPeer;
using ::testing::ElementsAre;

const NeuronId kDeviceB = {0xFE, 0x7B, 0x14, 0xAC, 0x07, 0x46};

// The self-identification data device B served, as its session lists it.
Bytes DeviceBSelfIdentification() {
    std::ifstream in(std::string(VX_SHARED_LONIP_DIR) + "/device-b-session.txt");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("SI data", 0) == 0) return vx::test::Hex(line.substr(line.find(':') + 1));
    }
    return {};
}

// The APDUs the peer received, without the datagram header.
std::vector<Bytes> Apdus(const ScriptedPeer& peer) {
    std::vector<Bytes> apdus;
    for (const auto& incoming : peer.Received())
        apdus.push_back(incoming.datagram ? incoming.datagram->apdu : Bytes{});
    return apdus;
}

class NodeClientTest : public ::testing::Test {
protected:
    NodeClientTest() {
        HostOptions options;
        options.local = test::UniqueLoopback();
        options.timing = {40ms, 2};
        session = std::make_unique<Session>(peer.Where(), options);
        client = std::make_unique<NodeClient>(*session, NodeTarget{peer.Where(), std::nullopt});
    }

    std::string Node() const { return peer.Where().Text(false); }

    ScriptedPeer peer{test::UniqueLoopback()};
    std::unique_ptr<Session> session;
    std::unique_ptr<NodeClient> client;
};

// ---- Names and addressing

TEST_F(NodeClientTest, QueryStatusByNeuronIdReadsDeviceBsStatusBlock) {
    NodeClient byId(*session, NodeTarget{peer.Where(), kDeviceB});
    peer.Then(test::Reply({0x31, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14,
                           0x02, 0x80, 0x99, 0x72}));
    const auto status = byId.QueryStatus();
    EXPECT_EQ(status.ResetCause(), 0x14);
    EXPECT_EQ(status.NodeStateByte(), 0x02);
    EXPECT_EQ(status.Version(), 0x80);
    EXPECT_EQ(status.LastError(), 0x99);
    EXPECT_EQ(status.Model(), 0x72);
    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].bytes, (Bytes{0x01, 0x61, 0x7F, 0xFE, 0x00, 0x00, 0xFE, 0x7B, 0x14, 0xAC,
                                        0x07, 0x46, received[0].Transaction(), 0x51}));
}

TEST_F(NodeClientTest, ErrorsNameTheNodeAndTheRequest) {
    peer.Then(test::Reply({0x31, 0x01, 0x02, 0x03})).Then(test::Reply({0x0D}));
    const auto shortAnswer = vx::test::CaughtError([&] { client->QueryStatus(); });
    EXPECT_EQ(shortAnswer.Number(), kLonErrBadAnswer);
    EXPECT_EQ(shortAnswer.Description(),
              Node() + " answered Query Status with 3 bytes where 15 were expected");
    const auto failure =
        vx::test::CaughtError([&] { client->ReadMemory(MemoryMode::kAbsolute, 0xF000, 4); });
    EXPECT_EQ(failure.Number(), kLonErrFailureResponse);
    EXPECT_EQ(failure.Source(), kLonSource);
    EXPECT_EQ(failure.Description(), Node() + " answered Read Memory with a failure response (0D)");
    EXPECT_COM_ERROR(client->QueryStatus(), kLonErrNoAnswer);
}

TEST_F(NodeClientTest, SendReturnsAnyRequestsSuccessAnswer) {
    // Device A's Query Domain 0.
    peer.Then(test::Reply({0x2A, 0x51, 0x00, 0x00, 0x00, 0x00, 0x00, 0x23, 0x8C, 0x29, 0x00, 0x00,
                           0x00, 0x00, 0x00, 0x00}))
        .Then(test::Reply({0x03}));
    const std::uint8_t index[] = {0x00};
    const auto answer = client->Send(0x6A, index);
    EXPECT_EQ(answer.code, 0x2A);
    EXPECT_EQ(answer.data.size(), 15u);
    EXPECT_EQ(answer.data[0], 0x51);
    const std::uint8_t entry[16] = {};
    EXPECT_COM_ERROR(client->Send(0x63, entry), kLonErrFailureResponse);
    EXPECT_COM_ERROR(client->Send(0x6E, Bytes(229, 0)), kLonErrBadRequest);
    EXPECT_THAT(Apdus(peer)[0], ElementsAre(0x6A, 0x00));
    EXPECT_EQ(Apdus(peer).size(), 2u);
    EXPECT_EQ(Apdus(peer)[1].size(), 17u);
}

// ---- Identity

TEST_F(NodeClientTest, QueryIdReadsDeviceBsAnswer) {
    peer.Then(test::Reply({0x21, 0xFE, 0x7B, 0x14, 0xAC, 0x07, 0x46, 0x9F, 0xFF, 0xFF, 0x06, 0x00,
                           0x0A, 0x04, 0x11}));
    const auto identity = client->QueryId(0);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->neuronId, kDeviceB);
    EXPECT_THAT(identity->programId, ElementsAre(0x9F, 0xFF, 0xFF, 0x06, 0x00, 0x0A, 0x04, 0x11));
    EXPECT_THAT(Apdus(peer), ElementsAre(Bytes{0x61, 0x00}));
    // A node that does not match is silent.
    EXPECT_FALSE(client->QueryId(0));
    // Device A's answer to a selector it refuses is a failure, not silence.
    peer.Then(test::Reply({0x01}));
    EXPECT_COM_ERROR(client->QueryId(3), kLonErrFailureResponse);
}

TEST_F(NodeClientTest, ReadIdentityTakesNeuronIdAndProgramIdFromReadOnlyData) {
    // Device B's first 16 read-only bytes, then the rest of its program ID.
    peer.Then(test::Reply({0x2D, 0xFE, 0x7B, 0x14, 0xAC, 0x07, 0x46, 0x72, 0x00, 0x00, 0x00,
                           0x02, 0xFF, 0xFF, 0x9F, 0xFF, 0xFF, 0x06, 0x00, 0x0A, 0x04, 0x11}));
    const auto identity = client->ReadIdentity();
    EXPECT_EQ(identity.neuronId, kDeviceB);
    EXPECT_THAT(identity.programId, ElementsAre(0x9F, 0xFF, 0xFF, 0x06, 0x00, 0x0A, 0x04, 0x11));
    EXPECT_THAT(Apdus(peer), ElementsAre(Bytes{0x6D, 0x01, 0x00, 0x00, 0x15}));
}

// ---- Memory

TEST_F(NodeClientTest, ReadMemoryAsksModeAddressCountAndTakesExactlyThat) {
    // Device A's configuration-relative read of 16 bytes.
    const Bytes bytes = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x18, 0x5E, 0x00, 0x3F, 0xA6, 0x77, 0x67, 0x01};
    Bytes answer = {0x2D};
    answer.insert(answer.end(), bytes.begin(), bytes.end());
    peer.Then(test::Reply(answer));
    EXPECT_EQ(client->ReadMemory(MemoryMode::kConfigRelative, 0, 16), bytes);
    EXPECT_THAT(Apdus(peer), ElementsAre(Bytes{0x6D, 0x02, 0x00, 0x00, 0x10}));
}

TEST_F(NodeClientTest, ReadMemoryAnswerOfAnotherLengthIsABadAnswer) {
    peer.Then(test::Reply({0x2D, 0x01, 0x02, 0x03})).Then(test::Reply({0x2D, 0x01, 0x02, 0x03}));
    const auto fewer =
        vx::test::CaughtError([&] { client->ReadMemory(MemoryMode::kAbsolute, 0x1234, 4); });
    EXPECT_EQ(fewer.Number(), kLonErrBadAnswer);
    EXPECT_EQ(fewer.Description(),
              Node() + " answered Read Memory with 3 bytes where 4 were expected");
    EXPECT_COM_ERROR(client->ReadMemory(MemoryMode::kAbsolute, 0x1234, 2), kLonErrBadAnswer);
    EXPECT_COM_ERROR(client->ReadMemory(MemoryMode::kAbsolute, 0, 0), kLonErrBadRequest);
    EXPECT_COM_ERROR(client->ReadMemory(MemoryMode::kAbsolute, 0, 229), kLonErrBadRequest);
    EXPECT_EQ(peer.Received().size(), 2u);
    EXPECT_THAT(Apdus(peer)[0], ElementsAre(0x6D, 0x00, 0x12, 0x34, 0x04));
}

Bytes Counting(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
}

// A write request: code, mode, address, count, form, then the bytes.
Bytes WriteRequest(std::uint8_t mode, std::uint16_t address, std::uint8_t form, const Bytes& bytes,
                   std::size_t from, std::size_t count) {
    Bytes apdu = {0x6E,
                  mode,
                  static_cast<std::uint8_t>(address >> 8),
                  static_cast<std::uint8_t>(address & 0xFF),
                  static_cast<std::uint8_t>(count),
                  form};
    apdu.insert(apdu.end(), bytes.begin() + static_cast<std::ptrdiff_t>(from),
                bytes.begin() + static_cast<std::ptrdiff_t>(from + count));
    return apdu;
}

TEST_F(NodeClientTest, LongWriteGoesOutIn64ByteParts) {
    peer.Otherwise(test::Reply({0x2E}));
    const Bytes bytes = Counting(130);
    client->WriteMemory(MemoryMode::kConfigRelative, 0x0100, bytes, 4);
    client->WriteMemory(MemoryMode::kAbsolute, 0x0102, {bytes.begin(), bytes.begin() + 3}, 4);
    // Only the last part carries the form: the node acts on the whole write.
    EXPECT_THAT(Apdus(peer), ElementsAre(WriteRequest(2, 0x0100, 0, bytes, 0, 64),
                                         WriteRequest(2, 0x0140, 0, bytes, 64, 64),
                                         WriteRequest(2, 0x0180, 4, bytes, 128, 2),
                                         WriteRequest(0, 0x0102, 4, bytes, 0, 3)));
}

TEST_F(NodeClientTest, AFailedPartOfALongWriteSaysWhatWasWritten) {
    struct Case {
        int partsAccepted;
        bool refused;  // else unanswered
        std::size_t size;
        std::string text;
    };
    const std::string failure = " answered Write Memory with a failure response (0E) ";
    const Case cases[] = {
        {1, true, 130, failure + "(bytes 0..63 of 130 written, the rest not)"},
        {0, true, 100, failure + "(none of 100 bytes written)"},
        {1, false, 200,
         " after 3 attempts (Write Memory) (bytes 0..63 of 200 written, bytes 64..127 unknown, "
         "the rest not)"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.text);
        ScriptedPeer node{test::UniqueLoopback()};
        NodeClient writer(*session, NodeTarget{node.Where(), std::nullopt});
        node.Then(static_cast<std::size_t>(test.partsAccepted), test::Reply({0x2E}));
        if (test.refused) node.Then(test::Reply({0x0E}));
        const auto error = vx::test::CaughtError(
            [&] { writer.WriteMemory(MemoryMode::kConfigRelative, 0, Counting(test.size), 0); });
        EXPECT_EQ(error.Number(), test.refused ? kLonErrFailureResponse : kLonErrNoAnswer);
        const std::string where = node.Where().Text(false);
        EXPECT_EQ(error.Description(),
                  test.refused ? where + test.text : "no answer from " + where + test.text);
    }
}

TEST_F(NodeClientTest, WriteOfNothingOrPastTheEndOfMemoryIsRefused) {
    EXPECT_COM_ERROR(client->WriteMemory(MemoryMode::kAbsolute, 0, {}, 0), kLonErrBadRequest);
    EXPECT_COM_ERROR(client->WriteMemory(MemoryMode::kAbsolute, 0xFFFF, Counting(2), 0),
                     kLonErrBadRequest);
    EXPECT_TRUE(peer.Received().empty());
}

// ---- Modes and wink

TEST_F(NodeClientTest, SetNodeModeSendsTheStateOnlyForAChangeOfState) {
    // Device A answers 0C, the failure code, where it succeeded; the code is what counts.
    peer.Then(test::Reply({0x2C})).Then(test::Reply({0x2C})).Then(test::Reply({0x0C}));
    client->SetNodeMode(NodeMode::kChangeState, 4);
    client->SetNodeMode(NodeMode::kOnline, 9);
    EXPECT_COM_ERROR(client->SetNodeMode(NodeMode::kChangeState, 4), kLonErrFailureResponse);
    EXPECT_THAT(Apdus(peer),
                ElementsAre(Bytes{0x6C, 0x03, 0x04}, Bytes{0x6C, 0x01}, Bytes{0x6C, 0x03, 0x04}));
}

// ---- Network variables

TEST_F(NodeClientTest, QueryNvConfigUnpacksEveryField) {
    // Device A's entry; then 1 1 000001 / 00100011: priority, output, selector 0123;
    // 1 01 1 0101: turnaround, service 1, authenticated, address index 5.
    peer.Then(test::Reply({0x28, 0x00, 0x01, 0x00})).Then(test::Reply({0x28, 0xC1, 0x23, 0xB5}));
    const auto plain = client->QueryNvConfig(1);
    EXPECT_FALSE(plain.priority || plain.output || plain.turnaround || plain.authenticated);
    EXPECT_EQ(plain.selector, 1);
    EXPECT_EQ(plain.service, 0);
    EXPECT_EQ(plain.addressIndex, 0);
    const auto config = client->QueryNvConfig(3);
    EXPECT_TRUE(config.priority && config.output && config.turnaround && config.authenticated);
    EXPECT_EQ(config.selector, 0x0123);
    EXPECT_EQ(config.service, 1);
    EXPECT_EQ(config.addressIndex, 5);
    EXPECT_THAT(Apdus(peer), ElementsAre(Bytes{0x68, 0x01}, Bytes{0x68, 0x03}));
}

TEST_F(NodeClientTest, IndexesFrom255AreEscaped) {
    peer.Then(test::Reply({0x28, 0x3F, 0xFF, 0x0F}))
        .Then(test::Reply({0x28, 0x00, 0x00, 0x0F}))
        .Then(test::Reply({0x28, 0x00, 0x00, 0x0F}))
        .Then(test::Reply({0x33, 0xFF, 0x01, 0x2C, 0x12, 0x34}));
    EXPECT_EQ(client->QueryNvConfig(300).selector, 0x3FFF);
    client->QueryNvConfig(254);
    client->QueryNvConfig(255);
    EXPECT_THAT(client->FetchNv(300), ElementsAre(0x12, 0x34));
    EXPECT_THAT(Apdus(peer),
                ElementsAre(Bytes{0x68, 0xFF, 0x01, 0x2C}, Bytes{0x68, 0xFE},
                            Bytes{0x68, 0xFF, 0x00, 0xFF}, Bytes{0x73, 0xFF, 0x01, 0x2C}));
}

TEST_F(NodeClientTest, FetchNvTakesItsOwnIndexWithAValueOnly) {
    // Device A answers an unknown index with 33 alone; 33 with the index only is no better.
    peer.Then(test::Reply({0x33})).Then(test::Reply({0x33, 0x63}));
    for (int i = 0; i < 2; ++i) {
        const auto error = vx::test::CaughtError([&] { client->FetchNv(99); });
        EXPECT_EQ(error.Number(), kLonErrBadAnswer);
        EXPECT_EQ(error.Description(), Node() + " answered NV Fetch of index 99 with no value");
    }
    // An answer for another index cannot be this request's (a stale one whose transaction ID
    // came round): it is dropped, and the retry's answer is taken.
    peer.Then(test::Reply({0x33, 0x02, 0x00, 0x00}))
        .Then(test::Reply({0x33, 0x01, 0x12, 0x34}))
        .Then(test::Reply({0x13}));
    const auto dropped = client->GetSession().Stats().dropped;
    EXPECT_THAT(client->FetchNv(1), ElementsAre(0x12, 0x34));
    EXPECT_EQ(client->GetSession().Stats().dropped, dropped + 1);
    // Device B's answer to an unknown index.
    const auto error = vx::test::CaughtError([&] { client->FetchNv(99); });
    EXPECT_EQ(error.Description(), Node() + " answered NV Fetch with a failure response (13)");
}

TEST_F(NodeClientTest, UpdateNvIsAnAcknowledgedMessageToTheInputSelectorIfItFits) {
    peer.Then(test::Acknowledge());
    const Bytes value = {0x01, 0x02};
    client->UpdateNv(0x1234, value);
    const auto received = peer.Received();
    ASSERT_EQ(received.size(), 1u);
    // 1 0 010010 00110100: a network-variable message, to an input, selector 1234.
    EXPECT_EQ(received[0].bytes, (Bytes{0x01, 0x10, 0x7F, 0xFE, 0x00, received[0].Transaction(),
                                        0x92, 0x34, 0x01, 0x02}));
    EXPECT_COM_ERROR(client->UpdateNv(1, {}), kLonErrBadRequest);
    EXPECT_COM_ERROR(client->UpdateNv(1, Bytes(228, 0)), kLonErrBadRequest);
    EXPECT_COM_ERROR(client->UpdateNv(0x4000, Bytes(1, 0)), kLonErrBadRequest);
    EXPECT_EQ(peer.Received().size(), 1u);
}

// ---- Self-identification

struct SiRequest {
    std::size_t offset = 0;
    std::size_t count = 0;
};

SiRequest ParseSiRequest(const Incoming& request) {
    if (!request.datagram) return {};
    const auto& apdu = request.datagram->apdu;
    if (apdu.size() != 4 || apdu[0] != 0x72) return {};
    return {static_cast<std::size_t>(apdu[1] << 8 | apdu[2]), apdu[3]};
}

// A node holding `data` that refuses slices above `largest` and answers at most `most` bytes.
test::Step ServeSi(Bytes data, std::size_t largest, std::size_t most = 228) {
    return test::Serve([data = std::move(data), largest, most](const Incoming& request) {
        const auto [offset, count] = ParseSiRequest(request);
        if (count == 0 || count > largest || offset >= data.size()) return Bytes{0x12};
        const std::size_t end = std::min({data.size(), offset + count, offset + most});
        Bytes answer = {0x32};
        answer.insert(answer.end(), data.begin() + static_cast<std::ptrdiff_t>(offset),
                      data.begin() + static_cast<std::ptrdiff_t>(end));
        return answer;
    });
}

std::vector<std::pair<std::size_t, std::size_t>> SiRequests(const ScriptedPeer& peer) {
    std::vector<std::pair<std::size_t, std::size_t>> requests;
    for (const auto& incoming : peer.Received()) {
        const auto [offset, count] = ParseSiRequest(incoming);
        requests.emplace_back(offset, count);
    }
    return requests;
}

using OffsetCount = std::pair<std::size_t, std::size_t>;

TEST_F(NodeClientTest, SelfIdentificationIsReadInTheLargestSliceTheNodeTakes) {
    const Bytes si = DeviceBSelfIdentification();
    ASSERT_EQ(si.size(), 66u);
    peer.Otherwise(ServeSi(si, 40));

    EXPECT_EQ(client->QuerySelfIdentification(), si);

    // 228, 114 and 57 refused; 28 taken, then 28 and the last 10.
    EXPECT_THAT(SiRequests(peer),
                ElementsAre(OffsetCount{0, 228}, OffsetCount{0, 114}, OffsetCount{0, 57},
                            OffsetCount{0, 28}, OffsetCount{28, 28}, OffsetCount{56, 10}));
    EXPECT_EQ(client->SelfIdentificationSlice(), 28);

    // Read again, it starts with the slice found.
    EXPECT_EQ(client->QuerySelfIdentification(), si);
    const auto again = SiRequests(peer);
    EXPECT_THAT(std::vector<OffsetCount>(again.begin() + 6, again.end()),
                ElementsAre(OffsetCount{0, 28}, OffsetCount{28, 28}, OffsetCount{56, 10}));
}

TEST_F(NodeClientTest, SelfIdentificationGoesOnFromWhereAShortAnswerEnds) {
    const Bytes si = DeviceBSelfIdentification();
    peer.Otherwise(ServeSi(si, 228, 25));
    EXPECT_EQ(client->QuerySelfIdentification(), si);
    EXPECT_THAT(SiRequests(peer),
                ElementsAre(OffsetCount{0, 228}, OffsetCount{25, 41}, OffsetCount{50, 16}));
}

TEST_F(NodeClientTest, SelfIdentificationRefusedEvenByteByByteIsTheFailure) {
    peer.Otherwise(test::Reply({0x12}));
    const auto error = vx::test::CaughtError([&] { client->QuerySelfIdentification(); });
    EXPECT_EQ(error.Description(), Node() + " answered Query SI with a failure response (12)");
    const auto requests = SiRequests(peer);
    ASSERT_EQ(requests.size(), 8u);
    EXPECT_EQ(requests.back(), (OffsetCount{0, 1}));
}

TEST_F(NodeClientTest, SelfIdentificationThatCannotBeDataIsABadAnswer) {
    peer.Then(test::Reply({0x32}))                     // nothing where bytes were asked
        .Then(test::Reply({0x32, 0x00, 0x04, 0x01}));  // shorter than its own header
    EXPECT_COM_ERROR(client->QuerySelfIdentification(), kLonErrBadAnswer);
    EXPECT_COM_ERROR(client->QuerySelfIdentification(), kLonErrBadAnswer);
}

}  // namespace
}  // namespace vx::lon
