// Feeds arbitrary node self-documentation strings to the functional-block parser: each input gives
// a list of at most the cap's blocks, never a crash or an exception.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "NodeSelfDoc.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kCap = 512;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (vx::sim::FunctionalBlocks(text, kCap).size() > kCap) std::abort();
    return 0;
}
