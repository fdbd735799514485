#pragma once

// The standard catalogue as objects, made from the compiled table. Internal to the type library.

#include <string_view>
#include <vector>

#include "CatalogueType.h"

namespace vx::snvt {

struct StandardTypes {
    // Every row of the table in table order: standard types, enumerations and field types.
    std::vector<CatalogueTypePtr> all;
    // What the registry lists: the standard types (index above 0) and the enumerations.
    std::vector<CatalogueTypePtr> registered;
};

// Made once, on first use; the objects are immutable and shared by every registry.
const StandardTypes& Catalogue();

}  // namespace vx::snvt

namespace vx {

// The family's type file, built into the library (data/orvex_types.json).
std::string_view FamilyTypesJson();

}  // namespace vx
