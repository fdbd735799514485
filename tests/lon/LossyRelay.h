#pragma once

// A relay between one LON/IP host and a node, for fault tests: the host talks to the relay's
// address as if it were the node's, the relay forwards each datagram to the node from a socket of
// its own and the node's answers back to the host that sent the transaction. On the way it loses,
// doubles, delays and reorders datagrams as the test tells it to, while it runs.
//
//   test::LossyRelay relay(test::UniqueLoopback(), vxsimAddress);
//   auto node = LonIpNode::Open(relay.Where(), options);
//   relay.DropNext(test::Direction::kToClient, 2);  // the next two answers are lost
//   relay.GoAway();                                  // the node seems gone until ComeBack()

#include <chrono>
#include <cstdint>
#include <memory>

#include "Session.h"

namespace vx::lon::test {

enum class Direction { kToNode, kToClient };

// What one direction did with the datagrams it received.
struct RelayCounts {
    std::uint64_t passed = 0;      // forwarded (a doubled datagram counts once)
    std::uint64_t dropped = 0;     // lost on purpose
    std::uint64_t duplicated = 0;  // extra copies sent
};

class LossyRelay {
public:
    // Binds `at` for hosts and an ephemeral port of the same address towards `node`, and starts
    // relaying on a thread of its own, which ends by itself after `lifetime` at the latest.
    LossyRelay(const Endpoint& at, const Endpoint& node,
               std::chrono::milliseconds lifetime = std::chrono::seconds(60));
    ~LossyRelay();
    LossyRelay(const LossyRelay&) = delete;
    LossyRelay& operator=(const LossyRelay&) = delete;

    // Where hosts send to reach the node.
    Endpoint Where() const { return m_where; }

    // Faults, each for one direction, in force from the next datagram on. A dropped datagram goes
    // through none of the later faults.
    void DropNext(Direction direction, std::uint32_t count);
    // Loses each datagram with `probability` (0..1), drawn from a generator seeded with `seed`,
    // so that the same datagrams give the same losses.
    void DropAtRandom(Direction direction, double probability, std::uint32_t seed);
    void Duplicate(Direction direction, bool on);
    void Delay(Direction direction, std::chrono::milliseconds delay);
    // Holds each datagram back until the next one of the direction has gone out. Turning it off
    // sends a datagram still held.
    void Reorder(Direction direction, bool on);

    // The node seems gone: everything is lost in both directions until ComeBack.
    void GoAway();
    // Lets `passing` more datagrams of `direction` through, then goes away. A datagram that
    // repeats the last one counted (a retry, or the node's answer to it) passes uncounted.
    void GoAwayAfter(Direction direction, std::uint32_t passing);
    void ComeBack();

    RelayCounts Counts(Direction direction) const;

    // Stops relaying and joins the thread; the destructor does it too.
    void Stop();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    Endpoint m_where;
};

}  // namespace vx::lon::test
