#pragma once

// vxctl watch: values read again every interval, one line for each value that changed since the
// last poll, with the time of the poll.

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Operations.h"

namespace vx::vxctl {

// The members have initializers so that designated initializers may leave any out.
struct WatchOptions {
    std::vector<std::string> names{};  // variable[.field...][[entry]]
    std::optional<std::int32_t> object{};
    double intervalSeconds = 1.0;
    std::optional<std::int32_t> count{};  // polls; none polls until a signal
    std::string format = "text";          // "text", "csv" or "jsonl"
};

// The valid intervals, in seconds.
inline constexpr double kShortestWatchInterval = 0.05;
inline constexpr double kLongestWatchInterval = 3600;

// Writes each change to `out` as it is seen. With `collect`, the lines are kept instead and given
// as one JSON document at the end ({"changes": [...]}). A signal ends the watch after the poll it
// interrupts, with exit code 130 and how many polls were made.
Outcome Watch(Session& session, const WatchOptions& options, std::ostream& out, bool collect);

}  // namespace vx::vxctl
