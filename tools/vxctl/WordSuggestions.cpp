#include "WordSuggestions.h"

#include <algorithm>
#include <cctype>

namespace vx::vxctl {
namespace {

char Folded(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// Optimal string alignment distance, without regard to case.
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t cost = Folded(a[i - 1]) == Folded(b[j - 1]) ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
            if (i > 1 && j > 1 && Folded(a[i - 1]) == Folded(b[j - 2]) &&
                Folded(a[i - 2]) == Folded(b[j - 1])) {
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
            }
        }
    }
    return d[a.size()][b.size()];
}

bool StartsWith(std::string_view text, std::string_view start) {
    if (start.size() > text.size()) return false;
    return std::equal(start.begin(), start.end(), text.begin(),
                      [](char x, char y) { return Folded(x) == Folded(y); });
}

}  // namespace

std::vector<std::string> ClosestWords(std::string_view word,
                                      const std::vector<std::string>& candidates) {
    constexpr std::size_t kMostShown = 3;
    constexpr std::size_t kLettersPerEdit = 3;
    // Very long words are no misspelling of a command; comparing them would only cost time.
    constexpr std::size_t kLongestCompared = 64;
    if (word.empty() || word.size() > kLongestCompared) return {};
    const std::size_t allowed = std::max<std::size_t>(1, word.size() / kLettersPerEdit);
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const auto& candidate : candidates) {
        const std::size_t distance = Distance(word, candidate);
        if (distance <= allowed) {
            near.emplace_back(distance, candidate);
        } else if (word.size() >= 2 && StartsWith(candidate, word)) {
            near.emplace_back(allowed + 1, candidate);
        }
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<std::string> closest;
    for (const auto& [distance, candidate] : near) {
        if (closest.size() == kMostShown) break;
        if (std::find(closest.begin(), closest.end(), candidate) == closest.end())
            closest.push_back(candidate);
    }
    return closest;
}

std::string MeantWords(std::string_view word, const std::vector<std::string>& candidates) {
    const auto closest = ClosestWords(word, candidates);
    if (closest.empty()) return {};
    std::string text = " (did you mean '" + closest.front() + "'";
    for (std::size_t i = 1; i < closest.size(); ++i)
        text += (i + 1 == closest.size() ? " or '" : ", '") + closest[i] + "'";
    return text + "?)";
}

}  // namespace vx::vxctl
