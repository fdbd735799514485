#pragma once

// A controller's configuration kept in a file (`vxctl config save`, `restore`, `diff`): the raw
// value of every configuration item and configuration property under the key the library imports
// it by ("3-2" for an item, "nciSetpoints.20" for a property: name, "." and network-variable
// index), with the device it was saved from. Next to each raw value the file shows it as people
// read it: the variable, its type and its engineering value with units. Only the raw bytes are
// restored; the rest is for people and for the checks before a restore.
//
//   {
//     "version": 2,
//     "device": "VX-220 Room 2.14",
//     "programId": "91A5A581020404DC",
//     "neuronId": "05-01-3C-7A-1F-02",
//     "revision": "2.10",
//     "values": [
//       {"key": "nciSndHrtBt.18", "object": 1, "name": "nciSndHrtBt", "type": "SNVT_time_sec",
//        "value": "60 s", "raw": "0258"},
//       ...
//     ]
//   }
//
// Files of version 1 (a "configuration" object of key and raw value, no device name) are read as
// well.

#include <cstdint>
#include <string>
#include <vector>

#include "ValueText.h"

namespace vx::vxctl {

// The members have initializers so that an initializer list may leave the shown ones out.
struct SavedValue {
    std::string key{};
    std::vector<std::uint8_t> raw{};
    // Version 2 only.
    std::int32_t object = -1;
    std::string name{};
    std::string type{};  // "" for a value of no known type, or a version-1 file
    Json value{};        // the engineering value as shown when saved (written, not read back)
};

struct SavedConfigurationFile {
    std::int32_t version = 2;
    std::string deviceName;
    std::string programId;
    std::string neuronId;  // of the controller it was saved from; not checked on restore
    std::string revision;
    std::vector<SavedValue> values;  // in device order
};

// Raises ToolError naming the file when it cannot be written.
void WriteConfigurationFile(const std::string& path, const SavedConfigurationFile& saved);
// Raises FileRefusedError naming the file, and for a malformed file the entry.
SavedConfigurationFile ReadConfigurationFile(const std::string& path);
// The same for a file's text; `path` names it in messages.
SavedConfigurationFile ParseConfigurationFile(const std::string& text, const std::string& path);

}  // namespace vx::vxctl
