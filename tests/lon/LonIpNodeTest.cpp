// LonIpNode end to end: the library connects through it to a node on loopback that answers as
// device B of the recorded sessions did (tests/lon/data/device-b-*.txt).
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

#include "CDevice.h"
#include "LonErrors.h"
#include "LonIpNode.h"
#include "ScriptedPeer.h"
#include "VxDef.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/Scenario.h"

namespace vx::lon {
namespace {

TEST(LonIpUrl, TakesHostPortAndNeuronId) {
    const auto plain = ParseLonIpUrl("lonip://127.0.0.2");
    EXPECT_EQ(plain.endpoint.Text(), "127.0.0.2:2541");
    EXPECT_FALSE(plain.neuronId);

    const auto full = ParseLonIpUrl("lonip://127.0.0.9:3000/05013c7A1F02");
    EXPECT_EQ(full.endpoint.Text(), "127.0.0.9:3000");
    ASSERT_TRUE(full.neuronId);
    EXPECT_EQ(*full.neuronId, (NeuronId{0x05, 0x01, 0x3C, 0x7A, 0x1F, 0x02}));
}

TEST(LonIpUrl, RefusesWhatCannotBeAnAddress) {
    for (const char* text :
         {"127.0.0.2", "lonip://", "lonip://host.example", "lonip://127.0.0.2:0",
          "lonip://127.0.0.2/05013C7A1F", "lonip://127.0.0.2/05013C7A1F0G", "udp://127.0.0.2"}) {
        try {
            ParseLonIpUrl(text);
            ADD_FAILURE() << text << " was accepted";
        } catch (const ComError& error) {
            EXPECT_EQ(error.Number(), kLonErrBadAddress) << text;
            EXPECT_EQ(error.Source(), "Vx.Lon");
            EXPECT_NE(error.Description().find("lonip://HOST"), std::string::npos);
        }
    }
}

// Device B's answers: its self-identification data (66 bytes, as it served them), its read-only
// data (Neuron ID FE 7B 14 AC 07 46, program ID 9F FF FF 06 00 0A 04 11 at 13..20), its status
// once configured, and its two variables' values.
const test::Bytes kDeviceBSelfId = {
    0x00, 0x42, 0x02, 0x01, 0x00, 0x00, 0x8E, 0x2C, 0x8E, 0x2C, 0x26, 0x33, 0x2E, 0x33,
    0x40, 0x34, 0x56, 0x6F, 0x6C, 0x74, 0x41, 0x63, 0x74, 0x75, 0x61, 0x74, 0x6F, 0x72,
    0x00, 0x30, 0x6E, 0x76, 0x69, 0x56, 0x6F, 0x6C, 0x74, 0x00, 0x40, 0x30, 0x7C, 0x31,
    0x00, 0x30, 0x6E, 0x76, 0x6F, 0x56, 0x6F, 0x6C, 0x74, 0x46, 0x62, 0x00, 0x40, 0x30,
    0x7C, 0x32, 0x00, 0xFF, 0x00, 0x00, 0x00, 0x13, 0x00, 0x02};
const test::Bytes kDeviceBReadOnly = {0xFE, 0x7B, 0x14, 0xAC, 0x07, 0x46, 0x72,
                                      0x00, 0x00, 0x00, 0x02, 0xFF, 0xFF, 0x9F,
                                      0xFF, 0xFF, 0x06, 0x00, 0x0A, 0x04, 0x11};
const test::Bytes kDeviceBStatus = {0x31, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00,
                                    0x00, 0x00, 0x00, 0x14, 0x04, 0x80, 0x00, 0x72};

// The most Query SI data the node gives in one answer, as device A and B were asked.
constexpr std::size_t kSliceLimit = 40;

// Answers as device B; keeps the values written and counts the requests by code.
class DeviceB {
public:
    test::Step Step() {
        return [this](const test::Incoming& in) -> std::vector<test::Outgoing> {
            if (!in.datagram) return {};
            const Datagram& request = *in.datagram;
            std::lock_guard lock(m_mutex);
            if (request.pduFormat == PduFormat::kApdu) {
                ++m_unacknowledged;
                return {};
            }
            const test::Bytes& apdu = request.apdu;
            ++m_requests[apdu[0]];
            if (request.pduFormat == PduFormat::kTpdu) {
                // An NV update: 1, direction, selector; the value follows.
                const auto selector = static_cast<std::uint16_t>((apdu[0] & 0x3F) << 8 | apdu[1]);
                m_values[0x3FFF - selector] = test::Bytes(apdu.begin() + 2, apdu.end());
                return {{test::AckBytes(request.transaction)}};
            }
            return {{test::ResponseBytes(request.transaction, Answer(apdu))}};
        };
    }

    int Requests(std::uint8_t code) {
        std::lock_guard lock(m_mutex);
        return m_requests[code];
    }
    int Unacknowledged() {
        std::lock_guard lock(m_mutex);
        return m_unacknowledged;
    }
    test::Bytes Value(std::size_t index) {
        std::lock_guard lock(m_mutex);
        return m_values[index];
    }

private:
    test::Bytes Answer(const test::Bytes& apdu) {
        const std::uint8_t code = apdu[0];
        const auto fail = test::Bytes{FailureCode(code)};
        switch (code) {
            case 0x51:
                return kDeviceBStatus;
            case 0x72: {
                const std::size_t offset = apdu[1] << 8 | apdu[2];
                const std::size_t count = apdu[3];
                if (count > kSliceLimit || offset + count > kDeviceBSelfId.size()) return fail;
                test::Bytes answer = {0x32};
                answer.insert(answer.end(), kDeviceBSelfId.begin() + static_cast<long>(offset),
                              kDeviceBSelfId.begin() + static_cast<long>(offset + count));
                return answer;
            }
            case 0x6D: {
                if (apdu[1] != 1 || apdu[2] != 0 || apdu[3] + apdu[4] > 21) return fail;
                test::Bytes answer = {0x2D};
                answer.insert(answer.end(), kDeviceBReadOnly.begin() + apdu[3],
                              kDeviceBReadOnly.begin() + apdu[3] + apdu[4]);
                return answer;
            }
            case 0x68:  // unbound: selector 3FFF - index, acknowledged service
                return {0x28, static_cast<std::uint8_t>(0x3F | (apdu[1] == 1 ? 0x40 : 0)),
                        static_cast<std::uint8_t>(0xFF - apdu[1]), 0x00};
            case 0x73: {
                if (apdu[1] > 1) return fail;
                test::Bytes answer = {0x33, apdu[1]};
                const auto& value = m_values[apdu[1]];
                answer.insert(answer.end(), value.begin(), value.end());
                return answer;
            }
            default:
                return fail;
        }
    }

    std::mutex m_mutex;
    std::map<std::uint8_t, int> m_requests;
    std::map<std::size_t, test::Bytes> m_values = {{0, {0x00, 0x00}}, {1, {0x01, 0x2C}}};
    int m_unacknowledged = 0;
};

class LonIpNodeEndToEnd : public ::testing::Test {
protected:
    LonIpNodeEndToEnd() { peer.Otherwise(deviceB.Step()); }

    LonIpNodePtr Open(Timing timing = {std::chrono::milliseconds(100), 3}) {
        LonIpOptions options;
        options.host.local = test::UniqueLoopback();
        options.host.timing = timing;
        return LonIpNode::Open(peer.Where(), options);
    }

    vx::test::ScopedStandardTypes standardTypes;
    DeviceB deviceB;
    test::ScriptedPeer peer{test::UniqueLoopback()};
    std::shared_ptr<CDevice> device = std::make_shared<CDevice>();
};

TEST_F(LonIpNodeEndToEnd, TheLibraryConnectsAndReadsWhatTheNodeSays) {
    const auto node = Open();
    // Device B has no node object: the objects load, and the connect then misses nviRequest.
    EXPECT_COM_ERROR(device->Connect(node, nullptr), static_cast<std::int32_t>(0x80040102));
    ASSERT_TRUE(device->Connected());
    EXPECT_EQ(device->Info()->SelfDoc(), "&3.3@4VoltActuator");
    EXPECT_EQ(device->Info()->NeuronID(), "FE-7B-14-AC-07-46");
    EXPECT_EQ(device->Info()->ProgID(), "9FFFFF06000A0411");
    EXPECT_EQ(device->Info()->State(false, false), "Configured/Online");
    EXPECT_TRUE(device->Ping());
    EXPECT_TRUE(device->Wink());

    const auto list = node->NetworkVariables();
    ASSERT_EQ(list->Count(), 2);
    const auto volt = std::dynamic_pointer_cast<INodeVariable>(list->Items()[0]);
    const auto feedback = std::dynamic_pointer_cast<INodeVariable>(list->Items()[1]);
    EXPECT_EQ(volt->Name(), "nviVolt");
    EXPECT_EQ(volt->SelfDoc(), "@0|1");
    EXPECT_EQ(volt->TypeIndex(), 44);
    EXPECT_EQ(volt->ByteLength(), 2);  // SNVT_volt
    EXPECT_FALSE(volt->IsOutput());
    EXPECT_TRUE(feedback->IsOutput());
    EXPECT_EQ(feedback->ReadValue().Get<ByteArray>()->Values(), (test::Bytes{0x01, 0x2C}));

    volt->WriteValue(Variant(ByteArray(1, {0x00, 0x64})));
    EXPECT_EQ(deviceB.Value(0), (test::Bytes{0x00, 0x64}));
    EXPECT_EQ(volt->ReadValue().Get<ByteArray>()->Values(), (test::Bytes{0x00, 0x64}));
    EXPECT_COM_ERROR(volt->WriteValue(Variant(ByteArray(0, {0x01}))), kLonErrWrongLength);

    // Read once per connection: the self-identification data (three slices too large for the
    // node, then 28, 28 and 10 bytes), the identity, and one selector per variable written.
    EXPECT_EQ(deviceB.Requests(0x72), 6);
    EXPECT_EQ(deviceB.Requests(0x6D), 1);
    EXPECT_EQ(deviceB.Requests(0x68), 2);
    EXPECT_EQ(deviceB.Unacknowledged(), 1);  // the wink
}

TEST_F(LonIpNodeEndToEnd, AStateTextAsksTheNodeOnce) {
    const auto node = Open();
    EXPECT_COM_ERROR(device->Connect(node, nullptr), static_cast<std::int32_t>(0x80040102));
    const int before = deviceB.Requests(0x51);
    EXPECT_EQ(device->Info()->State(false, false), "Configured/Online");
    // The communication check's Query Status serves the state and the mode that follow it.
    EXPECT_EQ(deviceB.Requests(0x51), before + 1);
}

TEST_F(LonIpNodeEndToEnd, PassesTheLibrarysRequestsThroughAsTheyAre) {
    const auto node = Open();
    std::string code = "6D";
    std::string data = "0100000600";  // read-only data, 6 bytes; the length drops the last byte
    std::int32_t length = 5;
    EXPECT_TRUE(node->SendNetworkMessage(code, data, length));
    EXPECT_EQ(code, "2D");
    EXPECT_EQ(data, "FE7B14AC0746");
    EXPECT_EQ(length, 7);

    code = "6D";
    data = "00400000";  // absolute memory: device B refuses it
    length = 5;
    const ComError failed =
        vx::test::CaughtError([&] { node->SendNetworkMessage(code, data, length); });
    EXPECT_EQ(failed.Number(), kLonErrFailureResponse);
    EXPECT_EQ(failed.Source(), "Vx.Lon");
    EXPECT_EQ(failed.Description(),
              peer.Where().Text(false) + " answered Read Memory with a failure response (0D)");

    for (auto [badCode, badData, badLength] :
         {std::tuple{"6", "00", 2}, std::tuple{"6D", "0G", 2}, std::tuple{"6D", "00", 3}}) {
        std::string c = badCode, d = badData;
        std::int32_t l = badLength;
        EXPECT_COM_ERROR(node->SendNetworkMessage(c, d, l), kLonErrBadRequest);
    }
}

TEST(LonIpNodeSilent, ANodeThatDoesNotAnswerFailsWithinTheRetryBudget) {
    test::ScriptedPeer silent(test::UniqueLoopback());
    LonIpOptions options;
    options.host.local = test::UniqueLoopback();
    options.host.timing = {std::chrono::milliseconds(20), 2};
    const auto node = LonIpNode::Open(silent.Where(), options);
    const auto device = std::make_shared<CDevice>();
    const ComError error = vx::test::CaughtError([&] { device->Connect(node, nullptr); });
    EXPECT_EQ(error.Number(), kLonErrNoAnswer);
    EXPECT_EQ(error.Description(),
              "no answer from " + silent.Where().Text(false) + " after 3 attempts (Query SI)");
    EXPECT_EQ(device->Info()->State(false, false), "Not Communicating");
    EXPECT_FALSE(device->Ping());
    // A wink goes out unacknowledged: the host cannot tell that nobody saw it.
    EXPECT_TRUE(device->Wink());
    EXPECT_TRUE(silent.WaitForReceived(3 + 3 + 3 + 1));
}

}  // namespace
}  // namespace vx::lon
