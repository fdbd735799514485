#pragma once

// A controller's configuration kept in a file (`vxctl config save`, `vxctl config restore`): the
// raw value of every configuration item and configuration property, under the key the library
// imports it by ("3-2" for an item, "nciSetpoints.20" for a property: name, "." and network
// variable index), with the program ID it belongs to.
//
//   {
//     "version": 1,
//     "programId": "91A5A581020404DC",
//     "neuronId": "05-01-3C-7A-1F-02",
//     "revision": "2.10",
//     "configuration": { "nciSndHrtBt.18": "0258", ..., "3-1": "4900" }
//   }

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vx::vxctl {

struct SavedConfigurationFile {
    std::string programId;
    std::string neuronId;  // of the controller it was saved from; not checked on restore
    std::string revision;
    std::vector<std::pair<std::string, std::vector<std::uint8_t>>> values;  // in device order
};

// Both raise ToolError naming the file, and for a malformed file the entry.
void WriteConfigurationFile(const std::string& path, const SavedConfigurationFile& saved);
SavedConfigurationFile ReadConfigurationFile(const std::string& path);

}  // namespace vx::vxctl
