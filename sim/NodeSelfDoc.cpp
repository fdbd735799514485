#include "NodeSelfDoc.h"

#include <charconv>

namespace vx::sim {
namespace {

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

// Reads a decimal number at the front of `text` and moves past it.
std::optional<std::int64_t> TakeNumber(std::string_view& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

}  // namespace

std::vector<FunctionalBlock> FunctionalBlocks(std::string_view selfDoc, std::size_t maxBlocks) {
    std::vector<FunctionalBlock> blocks;
    const auto at = selfDoc.find('@');
    if (at == std::string_view::npos) return blocks;
    std::string_view list = selfDoc.substr(at + 1);
    list = list.substr(0, list.find(';'));
    for (;;) {
        const auto comma = list.find(',');
        std::string_view entry = Trimmed(list.substr(0, comma));
        FunctionalBlock block;
        std::int64_t count = 1;
        if (const auto profile = TakeNumber(entry);
            profile && *profile >= INT32_MIN && *profile <= INT32_MAX) {
            block.profile = static_cast<std::int32_t>(*profile);
        }
        if (block.profile && entry.starts_with('[')) {
            entry.remove_prefix(1);
            if (const auto given = TakeNumber(entry); given && *given >= 0) count = *given;
            if (entry.starts_with(']')) entry.remove_prefix(1);
        }
        block.name = std::string(Trimmed(entry));
        for (std::int64_t i = 0; i < count && blocks.size() < maxBlocks; ++i)
            blocks.push_back(block);
        if (comma == std::string_view::npos || blocks.size() >= maxBlocks) break;
        list.remove_prefix(comma + 1);
    }
    return blocks;
}

}  // namespace vx::sim
