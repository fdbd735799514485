#pragma once

// The host's side of LON/IP exchanges: one UDP socket, the transmit timer and the transaction IDs.
// Everything runs on the caller's thread: a request sends, then waits on the socket for its answer
// with the transmit timer, and sends the same packet again (same transaction ID) until the retries
// are spent.

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Datagram.h"

namespace vx::lon {

// An IPv4 address and UDP port.
struct Endpoint {
    std::array<std::uint8_t, 4> address{};
    std::uint16_t port = kLonIpPort;

    // "127.0.0.2:2541"; the port is left out when it is 2541 and `withPort` is false.
    std::string Text(bool withPort = true) const;
    // "127.0.0.2" or "127.0.0.2:2541" (port 1..65535). Names are not looked up.
    static std::optional<Endpoint> Parse(std::string_view text);
    bool operator==(const Endpoint&) const = default;
};

struct Timing {
    // How long one attempt waits for its answer.
    std::chrono::milliseconds transmitTimer{250};
    // Attempts after the first, each with the same transaction ID.
    int retries = 3;
};

struct HostOptions {
    // The address and port the host sends from and receives on. Unset: the address the system
    // would send from to the node, port 2541 (where devices send their answers); when another
    // program holds that port, an ephemeral port on the same address.
    std::optional<Endpoint> local;
    // The host's own LonTalk address, enclosed in every packet (the arbitrary-source flag), so the
    // host needs no IP address derived from it. Its domain: 0, 1, 3 or 6 bytes.
    LonAddress address{0x7F, 0x7E, {}};
    Timing timing;
};

// A response's APDU, split.
struct Answer {
    std::uint8_t code = 0;
    std::vector<std::uint8_t> data;
};

// One answer to a broadcast or discovery request.
struct Heard {
    Endpoint from;
    Datagram datagram;
};

// What went over the socket, for benchmarks and diagnostics.
struct SessionStats {
    std::uint64_t sent = 0;       // datagrams sent, retries included
    std::uint64_t received = 0;   // datagrams received
    std::uint64_t accepted = 0;   // answers that completed an exchange
    std::uint64_t dropped = 0;    // undecodable, foreign, duplicate or late datagrams
    std::uint64_t retries = 0;    // attempts after the first
    std::uint64_t exchanges = 0;  // requests and acknowledged sends begun
};

class Session {
public:
    // Opens and binds the socket for talking to `node` (the node's address decides the local
    // address when options.local is unset). Raises kLonErrSocket when it cannot.
    Session(const Endpoint& node, HostOptions options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Sends `apdu` as a request (SPDU) to `to` and returns the response: the datagram from `to`
    // that is a response with the request's transaction ID and whose code answers `apdu`'s
    // (SuccessCode or FailureCode of it, or for a network-variable poll a network-variable
    // message). Anything else is dropped. Raises kLonErrNoAnswer ("no answer from 127.0.0.2 after
    // 4 attempts (Query Status)") when the retries are spent; `what` names the request. `fits`,
    // when given, also drops an answer that cannot be this request's (a stale answer whose
    // transaction ID came round again: an NV Fetch answer for another index).
    Answer Request(const Endpoint& to, const Destination& destination,
                   std::span<const std::uint8_t> apdu, std::string_view what,
                   const std::function<bool(const Answer&)>& fits = {});

    // Sends `apdu` acknowledged (TPDU) and waits for the acknowledgement with the same
    // transaction ID from `to`; retries and errors as Request.
    void SendAcknowledged(const Endpoint& to, const Destination& destination,
                          std::span<const std::uint8_t> apdu, std::string_view what);

    // Sends `apdu` once, unacknowledged (a bare APDU). Raises kLonErrSocket when it cannot be sent.
    void SendUnacknowledged(const Endpoint& to, const Destination& destination,
                            std::span<const std::uint8_t> apdu, std::string_view what);

    // Sends `apdu` as a request once to `to` (a unicast or multicast address) and collects every
    // response with its transaction ID that arrives within `window`, from any sender.
    std::vector<Heard> Collect(const Endpoint& to, const Destination& destination,
                               std::span<const std::uint8_t> apdu,
                               std::chrono::milliseconds window);

    const Timing& GetTiming() const;
    void SetTiming(const Timing& timing);
    const LonAddress& HostAddress() const;
    // Where the socket is bound.
    Endpoint Local() const;
    const SessionStats& Stats() const;
    void ResetStats();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace vx::lon
