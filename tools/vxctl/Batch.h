#pragma once

// The commands of `vxctl run`: one command line per line, as a shell would split it.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vx::vxctl {

struct BatchLine {
    std::size_t number = 0;  // 1 for the first line of the text
    std::string text;        // as written, without the line end
    std::vector<std::string> words;
};

// The command lines of `text`: blank lines and comment lines (starting with '#' after any
// blanks) are left out. Words are separated by blanks and tabs; "..." and '...' keep blanks in a
// word, and outside
// '...' a backslash takes the next character as it is. An unterminated quote or a trailing
// backslash raises UsageError naming the line.
std::vector<BatchLine> ParseBatch(std::string_view text);

}  // namespace vx::vxctl
