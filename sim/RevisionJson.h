#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/IOrvexDeviceRevisionIdentify.h"

namespace vx::sim {

// What a host registers about one device revision (docs/sim.md), as read from a revision file.
struct RevisionDescription {
    // The name of the configuration item "<scope>-<index>".
    struct ItemName {
        std::int32_t scope = 0;
        std::int32_t index = 0;
        std::string name;
    };
    struct CrcEntry {
        std::string name;
        std::int32_t after =
            0;  // insert after this 1-based position of the entries so far; 0 appends
    };
    struct AdvancedEntry {
        std::string name;
        std::int32_t object = 0;  // the object that holds the variable
    };
    struct Object {
        std::int32_t object = 0;
        std::map<std::int32_t, std::vector<std::string>> levels;  // configuration level -> names
        std::vector<CrcEntry> crc;
        std::vector<AdvancedEntry> advanced;
    };

    std::vector<ItemName> itemNames;
    std::vector<Object> objects;
};

// Reads a revision file. Anything malformed raises invalid procedure call (5), source
// "Vx.Sim.ReadRevisionJson", with a description naming the file and the line or the entry
// ("rev.json: objects[1] (object 2): crc[3]: ...").
RevisionDescription ReadRevisionJson(std::string_view text, const std::string& fileName);

// Registers the description with the host's calls: each scope's item names, each object's
// configuration levels, checksum list and advanced configuration. Errors of the registry pass.
void RegisterRevision(const RevisionDescription& revision, IOrvexDeviceRevisionIdentify& registry);

// Reads the file and registers it.
void LoadRevisionJson(const std::filesystem::path& path, IOrvexDeviceRevisionIdentify& registry);

}  // namespace vx::sim
