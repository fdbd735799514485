#pragma once

// Network-management and diagnostic requests to one node, with typed results. A failure response
// raises kLonErrFailureResponse naming the request ("127.0.0.2 answered Read Memory with a failure
// response (0D)"); an answer too short for what was asked raises kLonErrBadAnswer.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Datagram.h"
#include "Session.h"

namespace vx::lon {

// Message codes of the requests the client sends.
enum class Request : std::uint8_t {
    kQueryStatus = 0x51,
    kQueryId = 0x61,
    kUpdateDomain = 0x63,
    kQueryDomain = 0x6A,
    kQueryNvConfig = 0x68,
    kSetNodeMode = 0x6C,
    kReadMemory = 0x6D,
    kWriteMemory = 0x6E,
    kWink = 0x70,
    kQuerySi = 0x72,
    kNvFetch = 0x73,
};

// "Query Status", "Read Memory", ...; "request 5A" for a code the client does not name.
std::string RequestName(std::uint8_t code);

// How a node is reached: its IP endpoint and how its packets are addressed.
struct NodeTarget {
    Endpoint endpoint;
    // Neuron-ID addressing (format 6, subnet 0); unset: subnet/node implied by the IP address
    // (format 1).
    std::optional<NeuronId> neuronId;

    Destination ToDestination() const;
};

// The 15-byte answer to Query Status.
struct StatusBlock {
    std::array<std::uint8_t, 15> bytes{};

    std::uint8_t ResetCause() const { return bytes[10]; }
    // The node state byte: 2 unconfigured, 3 applicationless, 4 configured, 6 hard offline; a
    // configured node whose application is offline reports 0x0C.
    std::uint8_t NodeStateByte() const { return bytes[11]; }
    std::uint8_t Version() const { return bytes[12]; }
    std::uint8_t LastError() const { return bytes[13]; }
    std::uint8_t Model() const { return bytes[14]; }
    // The state without the offline bit, and the application mode: 1 online, 0 offline.
    std::int32_t NodeState() const { return NodeStateByte() & 0x07; }
    std::int32_t Mode() const { return (NodeStateByte() & 0x08) != 0 ? 0 : 1; }
};

struct NodeIdentity {
    NeuronId neuronId{};
    std::array<std::uint8_t, 8> programId{};
};

enum class MemoryMode : std::uint8_t { kAbsolute = 0, kReadOnlyRelative = 1, kConfigRelative = 2 };

enum class NodeMode : std::uint8_t { kOffline = 0, kOnline = 1, kReset = 2, kChangeState = 3 };

// One entry of the node's network-variable configuration table.
struct NvConfig {
    bool priority = false;
    bool output = false;         // direction: the node's output
    std::uint16_t selector = 0;  // 14 bits
    bool turnaround = false;
    std::uint8_t service = 0;  // 0 acknowledged, 1 repeated, 2 unacknowledged
    bool authenticated = false;
    std::uint8_t addressIndex = 0;
};

// Read-only data offsets of the identity (both are there on every node).
inline constexpr std::uint16_t kReadOnlyNeuronId = 0;
inline constexpr std::uint16_t kReadOnlyProgramId = 13;

class NodeClient {
public:
    NodeClient(Session& session, NodeTarget target);

    const NodeTarget& Target() const { return m_target; }
    Session& GetSession() const { return m_session; }

    // Query ID with `selector` (0 unconfigured nodes, 1 selected nodes, 2 selected and
    // unconfigured, 3 all); nothing when the node does not answer (it does not match).
    std::optional<NodeIdentity> QueryId(std::uint8_t selector);
    StatusBlock QueryStatus();
    // The identity from the read-only data: one Read Memory of 21 bytes.
    NodeIdentity ReadIdentity();
    std::vector<std::uint8_t> ReadMemory(MemoryMode mode, std::uint16_t address,
                                         std::uint8_t count);
    // `form` says what the node does after the write (0 nothing, 4 recompute its configuration
    // checksum, ...).
    void WriteMemory(MemoryMode mode, std::uint16_t address, std::span<const std::uint8_t> bytes,
                     std::uint8_t form);
    void SetNodeMode(NodeMode mode, std::uint8_t state = 0);
    // Unacknowledged: no answer is awaited.
    void Wink();
    // The whole self-identification data, read in the largest slices the node accepts; the slice
    // size found is kept for later reads.
    std::vector<std::uint8_t> QuerySelfIdentification();
    NvConfig QueryNvConfig(std::uint16_t index);
    // The value of the network variable with this index.
    std::vector<std::uint8_t> FetchNv(std::uint16_t index);
    // Writes an input network variable by its selector, acknowledged.
    void UpdateNv(std::uint16_t selector, std::span<const std::uint8_t> value);
    // Any request: the success response's data, or the failure raised as above. `fits` as in
    // Session::Request.
    Answer Send(std::uint8_t code, std::span<const std::uint8_t> data,
                const std::function<bool(const Answer&)>& fits = {});

    // The largest Query SI slice the node accepted so far (0 before the first).
    std::uint8_t SelfIdentificationSlice() const { return m_slice; }

private:
    std::vector<std::uint8_t> Expect(std::uint8_t code, std::span<const std::uint8_t> data,
                                     std::size_t minimumLength,
                                     const std::function<bool(const Answer&)>& fits = {});

    Session& m_session;
    NodeTarget m_target;
    std::uint8_t m_slice = 0;
};

}  // namespace vx::lon
