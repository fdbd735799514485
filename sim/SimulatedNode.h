#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "NodeDescription.h"
#include "interfaces/INodeConnection.h"

namespace vx::sim {

struct SimulatedNodeState;  // what the node and its item records share

// A controller on a simulated network, seen through the host's connection to it: the node's
// identity, state and self-documentation, its network variables and configuration items with
// their values, wink and network-management requests.
//
// The item records the lists hand out share the node's values with it, not the node itself: a
// library may keep them after the node is gone and they go on working. Like a host connection, the
// node takes one call at a time.
class SimulatedNode final : public INodeConnection {
public:
    // Raises invalid procedure call (5) for a description a host could not hold: two network
    // variables or two configuration items of one name, two network variables of one index, an
    // index outside 0..32767 or a value longer than 255 bytes.
    static std::shared_ptr<SimulatedNode> Create(NodeDescription description);

    // ---- INodeConnection ---------------------------------------------------------------------
    // Both lists are made once; every call returns the same list.
    NodeVariableListPtr ConfigurationProperties() override;
    NodeVariableListPtr NetworkVariables() override;
    std::int32_t Mode() override;
    std::string NeuronIDText() override;
    std::string ProgramIDText() override;
    std::string SelfDocText() override;
    std::int32_t NodeState() override;
    void Wink() override;
    // Query Status ("51") answers with the node's status block (code "31"); any other code gets a
    // failure response (kSimErrFailureResponse).
    bool SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) override;

    // ---- Controls for tests and tools --------------------------------------------------------
    void SetNodeState(std::int32_t state);
    void SetMode(std::int32_t mode);
    // A node that does not answer fails every exchange (value reads and writes, wink, requests)
    // with kSimErrNoAnswer; identity, state and mode still give what the host last knew.
    void SetAnswering(bool answering);
    bool Answering() const;
    // How often the node was winked.
    std::int32_t WinkCount() const;

    // What the node holds, by name. An unknown name raises kSimErrUnknownName; a value of another
    // length than the item's raises kSimErrWrongLength and changes nothing.
    const std::vector<std::uint8_t>& VariableValue(const std::string& name) const;
    void SetVariableValue(const std::string& name, std::vector<std::uint8_t> value);
    const std::vector<std::uint8_t>& ConfigItemValue(const std::string& name) const;
    void SetConfigItemValue(const std::string& name, std::vector<std::uint8_t> value);
    // The node as it is now: the description it was made from with the current values, state and
    // mode.
    const NodeDescription& Description() const;

private:
    explicit SimulatedNode(std::shared_ptr<SimulatedNodeState> state);

    std::shared_ptr<SimulatedNodeState> m_state;
    NodeVariableListPtr m_variables;
    NodeVariableListPtr m_configItems;
};

using SimulatedNodePtr = std::shared_ptr<SimulatedNode>;

}  // namespace vx::sim
