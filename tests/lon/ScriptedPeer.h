#pragma once

// A fake LON/IP node for tests: a UDP socket on a loopback address, served on a thread of its own,
// that answers each datagram it receives with the next step of its script and records everything
// it received.
//
//   test::ScriptedPeer peer(test::UniqueLoopback());
//   peer.Then(test::Silent()).Then(test::Reply({0x31, ...}));
//   ... session.Request(peer.Where(), ...) ...
//   peer.WaitForReceived(2);
//   EXPECT_EQ(peer.Received()[1].bytes, ...);

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "Datagram.h"
#include "Session.h"

namespace vx::lon::test {

using Bytes = std::vector<std::uint8_t>;

// A loopback address of this test process's own: 127.(100 + pid % 100).(pid / 100 % 250 + 1).n
// with n counting up from 1 on each call (wrapping after 254), so that test processes running side
// by side never bind the same address and one process's tests do not meet each other's leftovers.
Endpoint UniqueLoopback(std::uint16_t port = kLonIpPort);

// What the peer received.
struct Incoming {
    Endpoint from;
    Bytes bytes;
    std::optional<Datagram> datagram;  // when it decodes

    // The transaction ID of a decodable TPDU or SPDU, 0 otherwise.
    std::uint8_t Transaction() const { return datagram ? datagram->transaction : 0; }
};

// One datagram the peer sends in answer.
struct Outgoing {
    Bytes bytes;
    // Sent this long after the request arrived (0: at once, in the order listed).
    std::chrono::milliseconds delay{0};
    // Sent from the peer's foreign socket instead of its own address.
    bool fromForeign = false;
};

// What the peer does with one received datagram.
using Step = std::function<std::vector<Outgoing>(const Incoming&)>;

// A node's response as written by hand from the datagram layout: no source address (byte 0 = 00),
// subnet/node implied (format 1), SPDU (byte 1 = 11), header 2t: response with transaction t,
// then the APDU.
Bytes ResponseBytes(std::uint8_t transaction, const Bytes& apdu);
// A transport acknowledgement: 00, format 1 TPDU (10), header 2t: ack with transaction t.
Bytes AckBytes(std::uint8_t transaction);

// Steps. "The answer" is ResponseBytes with the request's transaction ID and `apdu`.
Step Silent();
Step Reply(Bytes apdu);
Step ReplyTwice(Bytes apdu);
Step ReplyLate(Bytes apdu, std::chrono::milliseconds delay);
// The answer with the next transaction ID (15 wraps to 1), then the answer.
Step ReplyWrongTidFirst(Bytes apdu);
// The answer from the foreign socket only.
Step ReplyFromForeign(Bytes apdu);
Step Acknowledge();
// Everything the steps send, in their order.
Step Sequence(std::vector<Step> steps);
// The APDU `serve` returns for the request, as the answer; nothing when it returns an empty one.
Step Serve(std::function<Bytes(const Incoming&)> serve);

class ScriptedPeer {
public:
    // Binds `at` and a foreign socket (by default the same address, an ephemeral port) and starts
    // serving. The serving thread ends by itself after `lifetime` at the latest.
    explicit ScriptedPeer(const Endpoint& at, std::optional<Endpoint> foreign = std::nullopt,
                          std::chrono::milliseconds lifetime = std::chrono::seconds(60));
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    // Appends a step: the next datagram received that finds no earlier step takes it.
    ScriptedPeer& Then(Step step);
    ScriptedPeer& Then(std::size_t times, const Step& step);
    // What datagrams get once the script is spent (Silent unless set).
    ScriptedPeer& Otherwise(Step step);

    Endpoint Where() const { return m_where; }
    Endpoint Foreign() const { return m_foreign; }

    // Everything received so far, in order.
    std::vector<Incoming> Received() const;
    // Waits until `count` datagrams have arrived or `limit` has passed; true when they have.
    bool WaitForReceived(std::size_t count,
                         std::chrono::milliseconds limit = std::chrono::seconds(5)) const;

    // Stops serving and joins the thread; the destructor does it too.
    void Stop();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    Endpoint m_where;
    Endpoint m_foreign;
};

}  // namespace vx::lon::test
