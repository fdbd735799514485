#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vx::sim {

// One network variable of a simulated node, as the host's network services see it.
struct VariableRecord {
    std::string name;
    std::int32_t index = 0;
    bool isOutput = false;
    bool isConfigClass = false;  // a configuration network variable (nci)
    bool polled = false;
    std::int32_t arrayCount = 0;
    std::string selfDoc;         // one byte per character, escapes already decoded
    std::string selfDocName;     // the host's second name text; "" when it has none
    std::int32_t typeIndex = 0;  // standard type index, 0 for none
    std::vector<std::uint8_t> value;

    bool operator==(const VariableRecord&) const = default;
};

// One configuration item of a node, named "<kind>-<index>".
struct ConfigItemRecord {
    std::string name;
    // "object|type index|type name[|text]" as the host reports it (object -1 node-wide, type index
    // 0 and type name "" for none); "" when the host knows nothing of the item.
    std::string layout;
    std::vector<std::uint8_t> value;
    // Where the value lives in the memory image (0 .. 0xFFFF), so that memory requests read and
    // write it; -1 for an item outside memory.
    std::int32_t address = -1;

    bool operator==(const ConfigItemRecord&) const = default;
};

// A run of bytes of the node's memory image.
struct MemoryBlock {
    std::int32_t address = 0;  // 0 .. 0xFFFF; the block ends at 0xFFFF at the latest
    std::vector<std::uint8_t> bytes;

    bool operator==(const MemoryBlock&) const = default;
};

// Everything a simulated node needs to answer as a controller on the network.
struct NodeDescription {
    std::string neuronId;   // 12 hexadecimal digits
    std::string programId;  // 16 hexadecimal digits
    std::string selfDoc;
    std::int32_t nodeState = 4;  // configured
    std::int32_t mode = 1;       // application online
    std::vector<VariableRecord> variables;
    std::vector<ConfigItemRecord> configItems;
    // The memory image; addresses no block covers hold 0.
    std::vector<MemoryBlock> memory;
    // The configuration checksum: the item (or network variable) of two bytes that holds the
    // CRC-16/X-25 of the values `checksumCovers` names, in that order, low byte first. The node
    // checks it when a configuration download closes; "" for a node without one.
    std::string checksumItem;
    std::vector<std::string> checksumCovers;
    // How many reads of the alarm message report the application restart; -1 for a restart that
    // never finishes.
    std::int32_t resetPolls = 2;

    bool operator==(const NodeDescription&) const = default;
};

}  // namespace vx::sim
