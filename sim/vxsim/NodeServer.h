#pragma once

// A NodeService on a UDP socket: the loop of the vxsim program, also run on a thread of its own by
// tests and benchmarks that need a node on loopback in their own process.

#include <functional>
#include <memory>
#include <string>

#include "NodeService.h"
#include "Session.h"

namespace vx::vxsim {

struct NodeServerOptions {
    // Where the node is saved whenever a datagram changed it, before the answer goes out, so what
    // the node acknowledged survives the program; "" saves nothing.
    std::string stateFile;
    // Gets one line per datagram (the exchange, and what went wrong sending its answer).
    std::function<void(const std::string&)> log;
    // Stops Run on SIGINT and SIGTERM (for a program, not for a thread in a test).
    bool stopOnSignals = false;
    // Also takes the domain-wide broadcasts of LON/IP (the multicast group 239.192.0.0, on the
    // listening address's interface), as a node on the network does; where the group cannot be
    // joined, the log says so and the node answers unicast alone.
    bool domainBroadcasts = false;
};

class NodeServer {
public:
    // Binds `listen` without address reuse, so that a second server on the same address fails
    // rather than sharing the requests: kLonErrSocket "127.0.0.2:2541 is in use (is another vxsim
    // running there?)", or the system's reason.
    NodeServer(NodeService& service, const lon::Endpoint& listen, NodeServerOptions options = {});
    ~NodeServer();
    NodeServer(const NodeServer&) = delete;
    NodeServer& operator=(const NodeServer&) = delete;

    // Serves until Stop, a signal (with stopOnSignals) or a socket that keeps failing; false for
    // the last.
    bool Run();
    // Serves on a thread of its own until Stop or destruction.
    void Start();
    // From any thread.
    void Stop();

    lon::Endpoint Where() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace vx::vxsim
