// Arbitrary text as a saved configuration (vxctl config restore, diff): the reader gives a file
// or refuses it with FileRefusedError, nothing else, and what it gives holds only values a node can
// hold, each key once.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "ConfigFile.h"
#include "ToolErrors.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    vx::vxctl::SavedConfigurationFile saved;
    try {
        saved = vx::vxctl::ParseConfigurationFile(text, "fuzz.json");
    } catch (const vx::vxctl::FileRefusedError&) {
        return 0;
    }
    if (saved.version != 1 && saved.version != 2) __builtin_trap();
    std::set<std::string> keys;
    for (const auto& value : saved.values) {
        if (value.raw.empty() || value.raw.size() > 255) __builtin_trap();
        if (!keys.insert(value.key).second) __builtin_trap();
    }
    return 0;
}
