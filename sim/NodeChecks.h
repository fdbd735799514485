#pragma once

// Internal to the simulator: the checks a node description passes both when a file is read and
// when a node is made from it, so that every description a reader gives makes a node.

#include <cstdint>
#include <string>
#include <vector>

#include "NodeDescription.h"

namespace vx::sim {

// The value a host name stands for: a configuration item of that name, else a network variable;
// nullptr for neither.
const std::vector<std::uint8_t>* NamedValue(const NodeDescription& node, const std::string& name);

// What is wrong with the memory blocks (outside the 64 KiB image, empty, overlapping), the
// checksum (an item that is no two-byte value, no covered values, a name the node does not have;
// the text names no part, the caller does) or the reset polls (below -1); "" when nothing is.
std::string MemoryProblem(const NodeDescription& node);
// What is wrong with the configuration items in memory: one that leaves the 64 KiB image or
// overlaps another item or a memory block (the text names the item); "" when nothing is.
std::string ItemMemoryProblem(const NodeDescription& node);
std::string ChecksumProblem(const NodeDescription& node);
std::string ResetPollsProblem(std::int32_t polls);

}  // namespace vx::sim
