// Arbitrary text as the commands of `vxctl run`: numbered lines of words, or a UsageError naming
// the line, never anything else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Batch.h"
#include "ToolErrors.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        const auto lines = vx::vxctl::ParseBatch(text);
        std::size_t last = 0;
        for (const auto& line : lines) {
            if (line.number <= last || line.words.empty()) __builtin_trap();
            last = line.number;
        }
    } catch (const vx::vxctl::UsageError&) {
    }
    return 0;
}
