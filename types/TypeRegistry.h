#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "interfaces/ITypeRegistry.h"
#include "resources/StringTable.h"

namespace vx {

// The error a rejected type definition file raises: 0x80041000, outside the library's string
// table blocks. The description names the file, the entry and what is wrong with it.
inline constexpr std::int32_t kTypeFileError = kObjectErrorBase + 0x1000;
inline constexpr const char* kTypeFileErrorSource = "Vx.TypeRegistry.LoadJson()";

// The type registry: type descriptions by standard type index and by name key. A key is a type
// name ("SNVT_temp_p"), an enumeration name ("hvac_t"), or an alias a type file gives, such as a
// variable name ("nciDeviceConfig") or a variable name immediately followed by a device's program
// ID ("nciDeviceConfig9FFFFF0500000000"). Keys compare without regard to case. Unknown keys and
// indexes give nullptr, never an error.
//
// Safe to use from several threads: lookups share a lock, changes take it alone.
class TypeRegistry final : public ITypeRegistry {
public:
    // An empty registry.
    TypeRegistry() = default;

    // The process-wide registry, made on first use: the standard catalogue plus the family's
    // definitions built into the library. Hosts may add to it or replace entries.
    static std::shared_ptr<TypeRegistry> Standard();
    // A new registry holding what Standard() started with (not later additions).
    static std::shared_ptr<TypeRegistry> CreateStandard();

    TypedefPtr TypeByIndex(std::int32_t index) const override;
    TypedefPtr TypeByName(std::string_view key) const override;

    // Adds `type` under its TypeName() and, when TypeIndex() is above 0, under its index,
    // replacing what was there.
    void Register(const TypedefPtr& type);
    // Adds `type` under `key` only (an alias), replacing what was there.
    void Register(std::string_view key, const TypedefPtr& type);
    // Removes a key; True when it was there. Index entries stay.
    bool Remove(std::string_view key);

    // Registers the definitions of a type file (see docs/types.md), all or nothing: a file that
    // is not valid raises kTypeFileError naming `sourceName` and the entry, and leaves the registry
    // as it was. Types of the file may build on every type the registry already holds.
    void LoadJson(std::string_view json, std::string_view sourceName);
    // Reads the file and loads it as above; a file that cannot be read raises kTypeFileError.
    void LoadJsonFile(const std::filesystem::path& path);

    // Number of name keys, and the keys (as registered, sorted without regard to case).
    std::int32_t Count() const;
    std::vector<std::string> Keys() const;

    // A new registry holding the same entries.
    std::shared_ptr<TypeRegistry> Clone() const;

private:
    struct Entry {
        std::string key;  // as registered
        TypedefPtr type;
    };

    mutable std::shared_mutex m_lock;
    std::unordered_map<std::string, Entry> m_byName;  // folded key -> entry
    std::map<std::int32_t, TypedefPtr> m_byIndex;
};

// Installs the standard registry as the library's type registry and returns it. Programs call
// this once at start-up, before they connect devices.
std::shared_ptr<TypeRegistry> UseStandardTypes();

}  // namespace vx
