#pragma once

// "Did you mean" for names a technician mistypes: the known names closest to what was typed.

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "automation/Collection.h"

namespace vx::vxctl {

// Edits (insert, delete, replace, swap of neighbours) between two names, compared without regard
// to case.
inline std::size_t EditDistance(std::string_view a, std::string_view b) {
    const std::string x = FoldKey(a);
    const std::string y = FoldKey(b);
    std::vector<std::vector<std::size_t>> d(x.size() + 1, std::vector<std::size_t>(y.size() + 1));
    for (std::size_t i = 0; i <= x.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= y.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= x.size(); ++i) {
        for (std::size_t j = 1; j <= y.size(); ++j) {
            const std::size_t cost = x[i - 1] == y[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
            if (i > 1 && j > 1 && x[i - 1] == y[j - 2] && x[i - 2] == y[j - 1]) {
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
            }
        }
    }
    return d[x.size()][y.size()];
}

// The candidates at the smallest distance from `typed`, in their given order, if that distance is
// small enough to be a slip (a third of the name, at least one edit); none otherwise.
inline std::vector<std::string> ClosestNames(std::string_view typed,
                                             const std::vector<std::string>& candidates) {
    const std::size_t allowed = std::max<std::size_t>(1, typed.size() / 3);
    std::size_t best = allowed + 1;
    std::vector<std::string> closest;
    for (const auto& candidate : candidates) {
        const std::size_t distance = EditDistance(typed, candidate);
        if (distance > allowed || distance > best) continue;
        if (distance < best) closest.clear();
        best = distance;
        if (std::find(closest.begin(), closest.end(), candidate) == closest.end()) {
            closest.push_back(candidate);
        }
    }
    return closest;
}

// " (did you mean nviSetpoint?)", " (did you mean a or b?)", or "" when nothing is close.
inline std::string DidYouMean(std::string_view typed, const std::vector<std::string>& candidates) {
    const auto closest = ClosestNames(typed, candidates);
    if (closest.empty()) return {};
    std::string text = " (did you mean ";
    for (std::size_t i = 0; i < closest.size(); ++i) {
        if (i > 0) text += i + 1 == closest.size() ? " or " : ", ";
        text += closest[i];
    }
    return text + "?)";
}

}  // namespace vx::vxctl
