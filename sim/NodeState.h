#pragma once

// Internal to the simulator: what a simulated node and its item records share, and the node's
// behaviour on it (exchanges, faults, memory requests, the command channel, object requests).

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "NodeActivity.h"
#include "NodeDescription.h"

namespace vx::sim {

// Where the value a host name stands for is held.
struct ValueAt {
    bool isItem = false;  // a configuration item, else a network variable
    std::size_t at = 0;
};

struct ObjectState {
    std::uint32_t flags = 0;
    std::uint32_t supported = kObjDefaultSupported;
};

// A request as the node takes it: its code and data bytes.
struct Message {
    std::uint8_t code = 0;
    std::vector<std::uint8_t> data;
};

inline constexpr std::size_t kMemorySize = 0x10000;

struct SimulatedNodeState {
    NodeDescription node;
    std::unordered_map<std::string, std::size_t> variableAt;
    std::unordered_map<std::string, std::size_t> configItemAt;
    std::vector<std::uint8_t> memory = std::vector<std::uint8_t>(kMemorySize, 0);
    bool answering = true;
    std::int32_t winks = 0;
    std::uint32_t latency = 0;
    std::vector<Fault> faults;

    bool recording = true;
    std::vector<Exchange> exchanges;
    std::vector<std::vector<std::uint8_t>> commandFrames;
    std::vector<ObjectRequest> objectRequests;

    // The node's own variables, found when it is made.
    std::optional<std::size_t> commandAt;        // self-documentation "@0#3001"
    std::optional<std::size_t> commandStatusAt;  // "@0#3002"
    std::optional<std::size_t> alarmAt;          // nvoAlarmMessage
    std::optional<std::size_t> requestAt;        // the node object's request, 3 bytes
    std::optional<std::size_t> objectStatusAt;   // the object status, 6 bytes
    std::optional<ValueAt> checksumAt;
    std::vector<ValueAt> coveredAt;
    // The configuration values as described, which a memory reset restores.
    std::vector<std::pair<ValueAt, std::vector<std::uint8_t>>> factoryValues;

    // The configuration items with an address, by address: their values are that memory.
    std::vector<std::size_t> itemsInMemory;
    // Grows with every change a state file would hold.
    std::uint64_t changes = 0;

    CommandChannel commands;
    std::uint8_t lastCommand = 0;
    std::uint8_t lastResult = 0;
    std::vector<std::uint8_t> alarmBeforeRestart;
    std::vector<ObjectState> objects;

    // Finds the node's own variables, the checksum's values, the objects and the memory image.
    void Prepare();

    std::vector<std::uint8_t>& Value(ValueAt where);
    const std::vector<std::uint8_t>& Value(ValueAt where) const;
    std::optional<ValueAt> Find(const std::string& name) const;

    // One exchange on the network: waits the latency, fails as the node does not answer or as an
    // injected fault says, else runs `answer`; records it either way.
    std::vector<std::uint8_t> Run(const char* operation, const std::string& target,
                                  const std::string& subject, std::vector<std::uint8_t> request,
                                  const std::function<std::vector<std::uint8_t>()>& answer);
    // Raises the first injected fault that matches the call, counting it down.
    void RaiseFault(const char* operation, const std::string& target, const std::string& subject);

    // What the node does with the exchanges that reach it.
    std::vector<std::uint8_t> ReadVariable(std::size_t at);
    void WriteVariable(std::size_t at, const std::vector<std::uint8_t>& value);
    std::vector<std::uint8_t> Respond(const Message& request);

    // The checksum of the covered values now, low byte first; empty without a checksum.
    std::vector<std::uint8_t> CoveredChecksum() const;

    // The memory image as requests see it: the image with the values of the items in memory.
    // The range must lie within the image.
    std::vector<std::uint8_t> ReadMemory(std::size_t address, std::size_t count) const;
    void WriteMemory(std::size_t address, std::span<const std::uint8_t> bytes);
    // The read-only data: the Neuron ID at 0, the program ID at 13, zeros to 31.
    std::vector<std::uint8_t> ReadOnlyData() const;

private:
    void ReceiveCommand(const std::vector<std::uint8_t>& frame);
    bool ActOnCommand(const std::vector<std::uint8_t>& frame);
    void RestartApplication();
    void FinishRestart();
    void PublishCommandStatus();
    void RestoreFactoryValues();
    bool ResetCodeMatches(const std::vector<std::uint8_t>& code) const;

    void ReceiveObjectRequest(const std::vector<std::uint8_t>& frame);
    std::uint32_t AnswerObjectRequest(std::size_t object, std::uint8_t request);
    std::uint32_t Reported(std::size_t object) const;
    std::uint32_t Supported(std::size_t object) const;
};

}  // namespace vx::sim
