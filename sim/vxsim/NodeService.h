#pragma once

// One simulated controller answering LON/IP datagrams as a node on the network: the node model
// of sim/ behind the datagram codec of lon/. Pure request handling: a datagram and its sender in,
// the datagram to send back out. The program vxsim adds the socket (docs/sim.md).

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Datagram.h"
#include "ReceiveRecords.h"
#include "Session.h"
#include "SimulatedNode.h"
#include "interfaces/INodeVariable.h"

namespace vx::vxsim {

// The most self-identification data one Query SI answer carries: a full APDU less its code.
inline constexpr std::size_t kMaxSiSlice = lon::kMaxApdu - 1;

struct NodeServiceOptions {
    // The node's own LonTalk address: subnet 1..255, node 1..127, domain of length 0.
    lon::LonAddress address{1, 1, {}};
    // How long a transaction is remembered, so that its retries are answered without acting.
    std::chrono::milliseconds receiveTimer{2000};
    // The largest slice of self-identification data one Query SI may ask for, 1..kMaxSiSlice.
    std::size_t siSliceLimit = kMaxSiSlice;
};

class NodeService {
public:
    // Raises invalid procedure call (5) for options out of range or a node of nullptr.
    NodeService(sim::SimulatedNodePtr node, NodeServiceOptions options = {});

    // Takes one datagram received from `from` at `now` and returns the datagram to send back to
    // `from`; nothing when the node sends nothing (the datagram is no request for this node, it
    // asks for no answer, or the node does not answer).
    std::optional<std::vector<std::uint8_t>> Handle(std::span<const std::uint8_t> datagram,
                                                    const lon::Endpoint& from,
                                                    std::chrono::steady_clock::time_point now);

    // One line on the last datagram handled: the sender, what it asked and what the node did
    // ("127.0.0.1:40001 Query Status, request TID 3: answered 31, 15 bytes").
    const std::string& LastExchange() const { return m_lastExchange; }

    const sim::SimulatedNodePtr& Node() const { return m_node; }
    const NodeServiceOptions& Options() const { return m_options; }
    // The self-identification data Query SI serves, made once from the node's description:
    // empty when the node's cannot be expressed (longer than 65535 bytes), and Query SI fails.
    const std::vector<std::uint8_t>& SelfIdentificationData() const { return m_selfIdentification; }

private:
    struct Outcome;

    static Outcome Answered(std::vector<std::uint8_t> apdu, std::string note = {});
    static Outcome Silent(std::string note);
    static Outcome Failure(std::uint8_t code, std::string note);

    // What the node makes of an APDU; `asRequest` when the sender waits for an answer.
    Outcome Act(std::span<const std::uint8_t> apdu, bool asRequest);
    Outcome ActOnCode(std::span<const std::uint8_t> apdu, bool asRequest);
    // The handlers below take the request's data, the bytes after its code.
    Outcome PassToNode(std::span<const std::uint8_t> apdu);
    Outcome QueryId(std::span<const std::uint8_t> data);
    Outcome SetNodeMode(std::span<const std::uint8_t> data);
    Outcome Wink(std::span<const std::uint8_t> data);
    Outcome QuerySelfIdentification(std::span<const std::uint8_t> data);
    Outcome QueryVariableConfig(std::span<const std::uint8_t> data);
    Outcome FetchVariable(std::span<const std::uint8_t> data);
    Outcome NetworkVariableMessage(std::span<const std::uint8_t> apdu, bool asRequest);

    bool AddressedToUs(const lon::Destination& destination) const;
    NodeVariablePtr VariableAt(std::int32_t index) const;
    // The Neuron ID and the program ID, as Query ID answers them.
    std::vector<std::uint8_t> Identity();

    sim::SimulatedNodePtr m_node;
    NodeServiceOptions m_options;
    ReceiveRecords m_records;
    std::optional<lon::NeuronId> m_neuronId;
    std::vector<std::uint8_t> m_selfIdentification;
    std::map<std::int32_t, NodeVariablePtr> m_variablesByIndex;
    std::string m_lastExchange;
};

}  // namespace vx::vxsim
