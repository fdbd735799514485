#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "NodeDescription.h"

namespace vx::sim {

// Reads a node description in the simulator's JSON format (docs/sim.md): identity, state, self-
// documentation, network variables and configuration items with their values. Anything malformed
// (no JSON, unknown keys, wrong types, bad hexadecimal, duplicate names or indexes, values longer
// than 255 bytes) raises invalid procedure call (5), source "Vx.Sim.ReadNodeJson", with a
// description naming the file and the line or the entry:
//   "node.json line 3: not valid JSON (...)"
//   "node.json: variables[3] (nvoFoo): value is not hexadecimal (...)"
NodeDescription ReadNodeJson(std::string_view text, const std::string& fileName);
NodeDescription LoadNodeJson(const std::filesystem::path& path);

// A node from a JSON description (".json") or a device interface file (".xif"), by the file's
// extension in either case; any other extension raises invalid procedure call (5).
NodeDescription LoadNode(const std::filesystem::path& path);

}  // namespace vx::sim
