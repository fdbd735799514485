#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "interfaces/IOrvexTypedef.h"

namespace vx {

// Where type descriptions come from: by standard type index or by a name key. A lookup that
// finds nothing gives nullptr (Nothing), never an error.
class ITypeRegistry : public virtual Object {
public:
    virtual TypedefPtr TypeByIndex(std::int32_t index) const = 0;
    virtual TypedefPtr TypeByName(std::string_view key) const = 0;
};

using TypeRegistryPtr = std::shared_ptr<ITypeRegistry>;

// The process-wide registry the library looks types up in. Until one is installed it is an empty
// registry that knows no type; programs install the standard catalogue (types/) at start-up.
TypeRegistryPtr CurrentTypeRegistry();
// Installs `registry` (nullptr restores the empty one); returns the one installed before.
TypeRegistryPtr InstallTypeRegistry(TypeRegistryPtr registry);

}  // namespace vx
