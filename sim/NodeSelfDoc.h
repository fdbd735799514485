#pragma once

// The functional blocks a node's self-documentation lists: `&3.4@0NodeObject,4[2Lamp,1010;text`
// is a node object (profile 0), two lamps (profile 4, objects 1 and 2) and a block of profile
// 1010. Each entry of the list is a profile number, an optional "[" and a count of blocks of that
// profile, and an optional name.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vx::sim {

struct FunctionalBlock {
    std::optional<std::int32_t> profile;  // nothing when the entry starts with no number
    std::string name;                     // "" when the entry names none
};

// One block per object, object 0 first, with each entry's count expanded; empty for a string
// without "@". A count is capped at `maxBlocks` blocks in all, so a hostile count cannot exhaust
// memory.
std::vector<FunctionalBlock> FunctionalBlocks(std::string_view selfDoc,
                                              std::size_t maxBlocks = 4096);

}  // namespace vx::sim
