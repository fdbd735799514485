#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "NodeDescription.h"

namespace vx::sim {

// Reads a device interface file (XIF): the program ID, the node self-documentation and every
// network variable with its index, direction, self-documentation, standard type and a zeroed value
// of the size its element lines give. A malformed file raises a ComError whose description names
// the file and the line.
NodeDescription ReadXif(std::string_view text, const std::string& fileName);
NodeDescription LoadXif(const std::filesystem::path& path);

}  // namespace vx::sim
