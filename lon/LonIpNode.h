#pragma once

// The host's connection to one node over LON/IP: the library's INodeConnection, its variable
// lists and records, over the network-management client. What it reads from the node and when:
//   - the network variables (names, self-documentation, types) from the self-identification
//     data, once, on the first call of NetworkVariables;
//   - the Neuron ID and program ID from the read-only data, once, on the first identity call;
//   - state and mode from Query Status, on every call (one answer serves a state and a mode read
//     that follow each other within a second);
//   - a value on every ReadValue (NV Fetch) and WriteValue (NV update; the variable's selector is
//     read once, with Query NV Config, before its first write);
//   - configuration items through memory, at the addresses the caller's layout gives.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NodeClient.h"
#include "Session.h"
#include "interfaces/INodeConnection.h"

namespace vx::lon {

// A configuration item that is no network variable, where the node keeps it in its memory.
struct ConfigItemLayout {
    std::string name;    // "3-1": kind and index
    std::string layout;  // "object|type index|type name[|text]", as the library reads it
    std::uint16_t address = 0;
    std::uint8_t length = 0;  // 1..228 bytes
};

struct LonIpOptions {
    HostOptions host;
    // Address the node by its Neuron ID instead of by the subnet/node its IP address implies.
    std::optional<NeuronId> neuronId;
    // The configuration items the caller knows the node to keep in memory (from a device
    // description); without it the node lists none.
    std::vector<ConfigItemLayout> configItems;
};

// Parses "lonip://HOST[:PORT][/NEURONID]" (NEURONID: 12 hexadecimal digits); raises
// kLonErrBadAddress naming what is wrong.
struct LonIpUrl {
    Endpoint endpoint;
    std::optional<NeuronId> neuronId;
};
LonIpUrl ParseLonIpUrl(std::string_view text);

class LonIpNode final : public INodeConnection {
public:
    // Opens the host's socket (kLonErrSocket when it cannot); sends nothing yet.
    static std::shared_ptr<LonIpNode> Open(const Endpoint& node, LonIpOptions options);

    // ---- INodeConnection ---------------------------------------------------------------------
    NodeVariableListPtr ConfigurationProperties() override;
    NodeVariableListPtr NetworkVariables() override;
    std::int32_t Mode() override;
    std::string NeuronIDText() override;
    std::string ProgramIDText() override;
    std::string SelfDocText() override;
    std::int32_t NodeState() override;
    void Wink() override;
    // Sends the request as it is and returns the response's code, data and length; a failure
    // response raises kLonErrFailureResponse, no answer kLonErrNoAnswer, a code, data or length
    // that cannot be sent kLonErrBadRequest.
    bool SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) override;

    // Gives the configuration items' layout once the caller knows the node (from its program ID,
    // say), before the library first asks for ConfigurationProperties; a layout that cannot be
    // used raises kLonErrBadAddress, and so does a change after the list was handed out.
    void SetConfigItems(std::vector<ConfigItemLayout> items);

    NodeClient& Client();
    const SessionStats& Stats() const;
    const NodeTarget& Target() const;

    ~LonIpNode() override;

    // What the node and its records share (opaque outside the connection).
    struct State;

private:
    explicit LonIpNode(std::shared_ptr<State> state);
    std::shared_ptr<State> m_state;
    NodeVariableListPtr m_variables;
    NodeVariableListPtr m_configItems;
};

using LonIpNodePtr = std::shared_ptr<LonIpNode>;

}  // namespace vx::lon
