#include "NodeChecks.h"

#include <algorithm>
#include <array>

#include "Hex.h"
#include "NodeState.h"

namespace vx::sim {
namespace {

// An address as the files give it, 4 hexadecimal digits.
std::string Address(std::int32_t address) {
    if (address < 0 || address > 0xFFFF) return std::to_string(address);
    const std::array<std::uint8_t, 2> bytes = {static_cast<std::uint8_t>(address >> 8),
                                               static_cast<std::uint8_t>(address & 0xFF)};
    return ToHex(bytes);
}

}  // namespace

const std::vector<std::uint8_t>* NamedValue(const NodeDescription& node, const std::string& name) {
    for (const auto& item : node.configItems) {
        if (item.name == name) return &item.value;
    }
    for (const auto& variable : node.variables) {
        if (variable.name == name) return &variable.value;
    }
    return nullptr;
}

std::string MemoryProblem(const NodeDescription& node) {
    std::vector<const MemoryBlock*> blocks;
    for (const auto& block : node.memory) {
        const std::string at = "memory block at " + Address(block.address);
        if (block.address < 0 || static_cast<std::size_t>(block.address) >= kMemorySize) {
            return at + ": the address is outside 0..65535";
        }
        if (block.bytes.empty() ||
            block.bytes.size() > kMemorySize - static_cast<std::size_t>(block.address)) {
            return at + ": it must hold 1 byte at least and end at 65535 at the latest";
        }
        blocks.push_back(&block);
    }
    std::sort(blocks.begin(), blocks.end(),
              [](const MemoryBlock* a, const MemoryBlock* b) { return a->address < b->address; });
    for (std::size_t i = 1; i < blocks.size(); ++i) {
        const auto previousEnd =
            static_cast<std::size_t>(blocks[i - 1]->address) + blocks[i - 1]->bytes.size();
        if (static_cast<std::size_t>(blocks[i]->address) < previousEnd) {
            return "memory block at " + Address(blocks[i]->address) +
                   ": it overlaps the block at " + Address(blocks[i - 1]->address);
        }
    }
    return "";
}

std::string ItemMemoryProblem(const NodeDescription& node) {
    // Items and blocks as ranges, each with what an overlap message calls it.
    struct Range {
        std::size_t first = 0;
        std::size_t end = 0;
        std::string what;
    };
    std::vector<Range> ranges;
    for (const auto& item : node.configItems) {
        if (item.address < 0) continue;
        const std::string what = "configuration item " + item.name + " at " + Address(item.address);
        if (static_cast<std::size_t>(item.address) >= kMemorySize) {
            return what + ": the address is outside 0..65535";
        }
        if (static_cast<std::size_t>(item.address) + item.value.size() > kMemorySize) {
            return what + ": its " + std::to_string(item.value.size()) + " bytes end past 65535";
        }
        const auto first = static_cast<std::size_t>(item.address);
        ranges.push_back({first, first + item.value.size(), what});
    }
    if (ranges.empty()) return "";
    for (const auto& block : node.memory) {
        const auto first = static_cast<std::size_t>(block.address);
        ranges.push_back(
            {first, first + block.bytes.size(), "the memory block at " + Address(block.address)});
    }
    // Blocks overlapping one another are MemoryProblem's; of a clash, the item is named first.
    std::stable_sort(ranges.begin(), ranges.end(),
                     [](const Range& a, const Range& b) { return a.first < b.first; });
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        const Range& previous = ranges[i - 1];
        const Range& range = ranges[i];
        if (range.first >= previous.end) continue;
        const bool rangeIsItem = range.what.starts_with("configuration item");
        const Range& item = rangeIsItem ? range : previous;
        const Range& other = rangeIsItem ? previous : range;
        return item.what + ": it overlaps " + other.what;
    }
    return "";
}

std::string ChecksumProblem(const NodeDescription& node) {
    if (node.checksumItem.empty()) {
        return node.checksumCovers.empty() ? "" : "covered values without an item";
    }
    const auto* item = NamedValue(node, node.checksumItem);
    if (!item || item->size() != 2) {
        return node.checksumItem + " is no value of two bytes of the node";
    }
    if (node.checksumCovers.empty()) return "it covers no values";
    for (const auto& name : node.checksumCovers) {
        if (!NamedValue(node, name)) return "the node has no value named " + name;
    }
    return "";
}

std::string ResetPollsProblem(std::int32_t polls) {
    return polls < -1 ? "reset polls: " + std::to_string(polls) + " is below -1" : "";
}

}  // namespace vx::sim
