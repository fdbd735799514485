// Arbitrary text as a device interface file: a node description or a ComError, nothing else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "XifReader.h"
#include "automation/ComError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto node = vx::sim::ReadXif(
            std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.xif");
        for (const auto& variable : node.variables) {
            if (variable.value.size() > 255) __builtin_trap();
        }
    } catch (const vx::ComError&) {
    }
    return 0;
}
