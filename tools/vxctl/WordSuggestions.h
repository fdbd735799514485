#pragma once

// "Did you mean" for command words, options and fixed values: the candidates closest to a
// misspelt word.

#include <string>
#include <string_view>
#include <vector>

namespace vx::vxctl {

// The candidates within a few edits of `word` (a swap of two neighbours is one edit; case does
// not count), closest first, at most three; also those `word` is the start of. Empty when none
// is close.
std::vector<std::string> ClosestWords(std::string_view word,
                                      const std::vector<std::string>& candidates);

// " (did you mean 'set'?)", " (did you mean 'set' or 'get'?)", or "" when nothing is close.
std::string MeantWords(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace vx::vxctl
