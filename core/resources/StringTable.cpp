#include "resources/StringTable.h"

#include <array>
#include <utility>

namespace vx {
namespace {

constexpr std::pair<std::int32_t, std::string_view> kStrings[] = {
#define VX_STRING(id, text) {id, text},
#include "resources/StringTable.def"
#undef VX_STRING
};

}  // namespace

std::optional<std::string_view> LoadLibraryString(std::int32_t id) noexcept {
    for (const auto& [entryId, text] : kStrings) {
        if (entryId == id) return text;
    }
    return std::nullopt;
}

}  // namespace vx
