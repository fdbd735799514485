#include "Batch.h"

#include <fmt/format.h>

#include "ToolErrors.h"

namespace vx::vxctl {
namespace {

std::vector<std::string> Words(std::string_view line, std::size_t number) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote) {
                quote = 0;
            } else if (c == '\\' && quote == '"' && i + 1 < line.size()) {
                word += line[++i];
            } else {
                word += c;
            }
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\r') {
            if (inWord) words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else if (c == '"' || c == '\'') {
            quote = c;
            inWord = true;
        } else if (c == '\\') {
            if (i + 1 == line.size()) {
                throw UsageError(fmt::format("line {}: a backslash ends the line", number));
            }
            word += line[++i];
            inWord = true;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0) {
        throw UsageError(fmt::format("line {}: the quote {} is not closed", number, quote));
    }
    if (inWord) words.push_back(std::move(word));
    return words;
}

}  // namespace

std::vector<BatchLine> ParseBatch(std::string_view text) {
    std::vector<BatchLine> lines;
    std::size_t number = 0;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        if (line.ends_with('\r')) line.remove_suffix(1);
        const std::size_t first = line.find_first_not_of(" \t");
        if (first == std::string_view::npos || line[first] == '#') continue;
        auto words = Words(line, number);
        if (words.empty()) continue;
        lines.push_back({number, std::string(line), std::move(words)});
    }
    return lines;
}

}  // namespace vx::vxctl
