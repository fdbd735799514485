#pragma once

// Reading type definition files (JSON, schema in docs/types.md). Internal to the type library; the
// registry's LoadJson is the public entry.

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CatalogueType.h"

namespace vx::typefile {

// What a file defines: its types in file order (each registered under its name and, when it has
// one, its index) and the aliases it gives them.
struct Definitions {
    std::vector<CatalogueTypePtr> types;
    std::vector<std::pair<std::string, TypedefPtr>> aliases;
};

// Looks a type up among those already registered; nullptr when unknown.
using Resolver = std::function<TypedefPtr(std::string_view name)>;

// Parses and checks a whole file. Raises kTypeFileError (see TypeRegistry.h) with a description
// "<sourceName>: <entry>: <problem>" at the first problem.
Definitions Parse(std::string_view json, std::string_view sourceName, const Resolver& resolve);

// The layout rules every structure obeys (fields inside the value, no two fields on one bit,
// bit fields inside one byte, whole-byte values on a byte boundary). Returns "" when the layout is
// sound, else what is wrong. Also applied to the standard catalogue by the tests.
std::string CheckLayout(const CatalogueType& type);

}  // namespace vx::typefile
