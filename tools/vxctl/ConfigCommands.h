#pragma once

// The configuration commands of vxctl: upload, download, save to a file and restore from one.

#include <cstdint>
#include <optional>
#include <string>

#include "Operations.h"

namespace vx::vxctl {

Outcome ConfigUpload(Session& session);
// Sends the configuration values of levels 2 to `level` (of one object, or all) again as the node
// holds them, so that the node takes its configuration anew; at level 3 with a fresh checksum and
// an application reset.
Outcome ConfigDownload(Session& session, std::int32_t level, std::optional<std::int32_t> object);
Outcome ConfigSave(Session& session, const std::string& path);
// Imports a saved configuration, downloads what changed, and reads the configuration back from
// the node to check that it holds every saved value.
Outcome ConfigRestore(Session& session, const std::string& path);
}  // namespace vx::vxctl
