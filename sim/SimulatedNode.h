#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NodeActivity.h"
#include "NodeDescription.h"
#include "interfaces/INodeConnection.h"

namespace vx::sim {

struct SimulatedNodeState;  // what the node and its item records share

// What a running node holds beside its description's values, so that a state file
// (NodeSnapshot.h) can rebuild it exactly.
struct RunningState {
    struct Object {
        std::uint32_t flags = 0;
        std::uint32_t supported = kObjDefaultSupported;

        bool operator==(const Object&) const = default;
    };
    using NamedValues = std::vector<std::pair<std::string, std::vector<std::uint8_t>>>;

    CommandChannel commands;
    // What the command status reports: the code of the last command and its result bits.
    std::uint8_t lastCommand = 0;
    std::uint8_t lastResult = 0;
    // What the alarm message held when the running application restart began.
    std::vector<std::uint8_t> alarmBeforeRestart;
    std::vector<Object> objects;  // object 0 first
    // The values a memory reset restores, by name: those of the description the node was first
    // made from, which a node rebuilt from its current values must not lose.
    NamedValues factoryVariables;
    NamedValues factoryItems;

    bool operator==(const RunningState&) const = default;
};

// A controller on a simulated network, seen through the host's connection to it: the node's
// identity, state and self-documentation, its network variables and configuration items with
// their values, wink, network-management requests on its memory image, the command channel
// (configuration download, application restart, memory reset, keypad, timers), object requests
// and status, injected faults and latency, and a record of every exchange (docs/sim.md).
//
// The item records the lists hand out share the node's values with it, not the node itself: a
// library may keep them after the node is gone and they go on working. Like a host connection, the
// node takes one call at a time.
class SimulatedNode final : public INodeConnection {
public:
    // Raises invalid procedure call (5) for a description a host could not hold: two network
    // variables or two configuration items of one name, two network variables of one index, an
    // index outside 0..32767, a value longer than 255 bytes, memory blocks that overlap or leave
    // the 64 KiB image, a configuration item in memory that leaves the image or overlaps another
    // item or a memory block, a checksum that names no two-byte value or covers unknown names, or
    // reset polls below -1.
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
    // Query Status ("51") answers with the node's status block (code "31"), Read Memory ("6D")
    // and Write Memory ("6E") work on the memory image (absolute addressing; Read Memory also on
    // the read-only data), where configuration items with an address hold their values; a
    // malformed memory request and any other code get a failure response
    // (kSimErrFailureResponse).
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
    // Every exchange (value read or write, request, wink) waits this long on the installed clock
    // (the installed vx::Clock) before it is answered or fails.
    void SetLatency(std::uint32_t milliseconds);

    // Faults are matched in the order injected; the first that matches a call makes it fail and
    // counts down. Raises invalid procedure call (5) for an unknown operation, a target on an
    // operation that takes none, or a count of 0 or below -1.
    void InjectFault(Fault fault);
    void ClearFaults();

    // The record of exchanges in the order they went out, including failed ones (a call the host
    // refuses before sending, for a wrong length or a malformed request, is not sent and not
    // recorded), and two views of it: the frames received by the command variable and the
    // requests received by the node object's request variable, each as the node took it.
    const std::vector<Exchange>& Exchanges() const;
    const std::vector<std::vector<std::uint8_t>>& CommandFrames() const;
    const std::vector<ObjectRequest>& ObjectRequests() const;
    void ClearRecord();
    // Recording is on from the start; a program that runs the node for long switches it off.
    void SetRecording(bool recording);

    // The command channel's state and the number of alarm-message reads an application restart
    // lasts (-1 never finishes; below -1 raises 5).
    const CommandChannel& Commands() const;
    void SetResetPolls(std::int32_t polls);
    // The checksum of the values the checksum covers as they are now, low byte first; empty for a
    // node without a checksum.
    std::vector<std::uint8_t> CoveredChecksum() const;

    // The node's LonMark objects (the profile list of its self-documentation, object 0 first):
    // their held flags (kObj..., within kObjHeldFlags) and the flags they report as supported.
    // An object outside the list raises kSimErrUnknownName, flags outside the set raise 5.
    std::int32_t ObjectCount() const;
    std::uint32_t ObjectFlags(std::int32_t object) const;
    void SetObjectFlags(std::int32_t object, std::uint32_t flags);
    void SetObjectSupportedFlags(std::int32_t object, std::uint32_t flags);

    // What the node holds, by name. An unknown name raises kSimErrUnknownName; a value of another
    // length than the item's raises kSimErrWrongLength and changes nothing.
    const std::vector<std::uint8_t>& VariableValue(const std::string& name) const;
    void SetVariableValue(const std::string& name, std::vector<std::uint8_t> value);
    const std::vector<std::uint8_t>& ConfigItemValue(const std::string& name) const;
    void SetConfigItemValue(const std::string& name, std::vector<std::uint8_t> value);
    // The memory image now, configuration items with an address showing their values (a write
    // into an item changes its value); a range past 0xFFFF raises invalid procedure call (5).
    std::vector<std::uint8_t> MemoryBytes(std::int32_t address, std::int32_t count) const;
    void SetMemoryBytes(std::int32_t address, const std::vector<std::uint8_t>& bytes);
    // The node as it is now: the description it was made from with the current values, state,
    // mode and reset polls; its memory blocks are the image as it was loaded (MemoryBytes gives
    // the image now).
    const NodeDescription& Description() const;

    // ---- State files ---------------------------------------------------------------------------
    // Grows with every change of what a state file holds (values, memory, state, mode, reset
    // polls, the command channel, the objects' flags), so that a program saves only when it moved.
    std::uint64_t ChangeCount() const;
    // What the node holds beside Description(); SetRunning puts it back on a node made from the
    // same description. Raises invalid procedure call (5), changing nothing, for a state that does
    // not fit the node: another number of objects, flags outside their sets, a download level
    // other than 0, 2 or 3, counts below 0 (polls below -1), a restart without an alarm message,
    // an alarm value or factory value of another length, a factory value of a name the node does
    // not restore.
    RunningState Running() const;
    void SetRunning(const RunningState& running);

private:
    explicit SimulatedNode(std::shared_ptr<SimulatedNodeState> state);

    std::shared_ptr<SimulatedNodeState> m_state;
    NodeVariableListPtr m_variables;
    NodeVariableListPtr m_configItems;
};

using SimulatedNodePtr = std::shared_ptr<SimulatedNode>;

}  // namespace vx::sim
