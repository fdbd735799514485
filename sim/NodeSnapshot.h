#pragma once

#include <string>
#include <string_view>

#include "SimulatedNode.h"

namespace vx::sim {

// A running node as a state file: a node file (docs/sim.md) with the current values, state, mode,
// reset polls and memory image, plus a "running" object with the command channel, the objects'
// flags and the factory values a memory reset restores. The memory is saved as blocks of its
// non-zero runs; the bytes of configuration items with an address are saved as the items' values.
std::string SaveNodeState(const SimulatedNode& node);

// Rebuilds the node a state file holds; a node file without "running" gives the node as first
// made. A malformed file raises invalid procedure call (5), source "Vx.Sim.LoadNodeState", naming
// the file and the entry as the node file reader does (whose errors pass unchanged).
SimulatedNodePtr LoadNodeState(std::string_view text, const std::string& fileName);

// Replaces the file at `path` with `text` so that it is either the old or the new file whatever
// happens to the program: writes `path` + ".tmp" in the same folder, flushes it to the disk and
// renames it over `path`. Raises invalid procedure call (5), source "Vx.Sim.WriteFile", with the
// system's reason, leaving `path` as it was.
void WriteFileAtomically(const std::string& path, std::string_view text);

}  // namespace vx::sim
