#pragma once

// Node diagnostics through the host connection's network-management pass-through: the node's
// status block, its memory as a hex dump, and its application mode.

#include <cstdint>
#include <string>
#include <string_view>

#include "Operations.h"

namespace vx::vxctl {

// Where read-memory reads: absolute addresses, or offsets into the read-only data or the
// configuration data, as the node's Read Memory request names them.
enum class MemoryArea : std::uint8_t { kAbsolute = 0, kReadOnly = 1, kConfig = 2 };
inline constexpr std::uint32_t kMostMemoryBytes = 4096;

// What `mode` sets: the application online or offline, or an application reset.
enum class ApplicationMode : std::uint8_t { kOffline = 0, kOnline = 1, kReset = 2 };

// The words the command line gives for the areas and modes.
MemoryArea MemoryAreaNamed(std::string_view word);
ApplicationMode ApplicationModeNamed(std::string_view word);

// The status block: error counters, reset cause, node state, firmware version, last error, model.
Outcome QueryStatus(Session& session);
// `count` bytes from `address` (both checked by the command line), in slices of 16.
Outcome ReadMemory(Session& session, std::uint32_t address, std::uint32_t count, MemoryArea area);
Outcome SetApplicationMode(Session& session, ApplicationMode mode);

}  // namespace vx::vxctl
