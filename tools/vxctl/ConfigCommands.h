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
// Writes every configuration value with the device's name and identity: raw bytes, and beside
// them the engineering value with units.
Outcome ConfigSave(Session& session, const std::string& path);
// The file against the controller, field by field; sends nothing.
Outcome ConfigDiff(Session& session, const std::string& path);

struct RestoreOptions {
    bool dryRun = false;       // show what would change and send nothing
    bool skipUnknown = false;  // restore a file that holds values the device does not have
};
// Checks the whole file against the device first and refuses it (FileRefusedError) before anything
// is sent; then writes what differs, downloads it, and reads the changed values back. A failure or
// a signal on the way ends in an outcome that lists which values reached the controller.
Outcome ConfigRestore(Session& session, const std::string& path, RestoreOptions options = {});
}  // namespace vx::vxctl
