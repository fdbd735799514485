#include "Watch.h"

#include <chrono>
#include <cmath>
#include <unordered_map>

#include <fmt/format.h>

#include "Interrupt.h"
#include "SupportRoutines.h"
#include "Vxctl.h"

namespace vx::vxctl {
namespace {

// "2026-11-25T15:33:01.123Z": the poll's time on the library's clock, in UTC.
std::string TimeText(std::chrono::system_clock::time_point time) {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const auto seconds = std::chrono::sys_seconds(std::chrono::seconds(
        static_cast<std::int64_t>(std::floor(static_cast<double>(milliseconds) / 1000.0))));
    const auto day = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(seconds - day);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                       ((milliseconds % 1000) + 1000) % 1000);
}

std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

// What one watched name showed at a poll.
struct Seen {
    Json value;        // null after a failed read
    std::string text;  // for people; the error after a failed read
    std::string raw;   // the variable's bytes; "" after a failed read
    bool operator==(const Seen&) const = default;
};

Seen Read(const VariablePath& target) {
    const DecodedValue decoded = DecodeTarget(target);
    return {decoded.json, ValueWithUnits(decoded), RawHex(*target.variable)};
}

}  // namespace

Outcome Watch(Session& session, const WatchOptions& options, std::ostream& out, bool collect) {
    std::vector<VariablePath> targets;
    for (const auto& name : options.names)
        targets.push_back(session.Find(name, options.object));
    const auto intervalMs =
        static_cast<std::uint32_t>(std::lround(options.intervalSeconds * 1000.0));

    Json changes = Json::array();
    const auto emit = [&](const std::string& time, const VariablePath& target, const Seen& seen) {
        Json line = {{"time", time}, {"name", target.Shown()}, {"object", target.object}};
        if (seen.raw.empty()) {
            line["error"] = seen.text;
        } else {
            line["value"] = seen.value;
            line["text"] = seen.text;
            line["raw"] = seen.raw;
        }
        if (collect) {
            changes.push_back(std::move(line));
        } else if (options.format == "jsonl") {
            out << line.dump() << "\n";
        } else if (options.format == "csv") {
            out << fmt::format("{},{},{},{}\n", time, CsvField(target.Shown()),
                               CsvField(seen.raw.empty() ? "error: " + seen.text : seen.text),
                               seen.raw);
        } else {
            out << fmt::format("{}  {} {} {}\n", time, target.Shown(), seen.raw.empty() ? "!" : "=",
                               seen.text);
        }
        out.flush();
    };
    if (!collect && options.format == "csv") out << "time,name,value,raw\n";

    std::vector<std::optional<Seen>> last(targets.size());
    std::int32_t polls = 0;
    std::optional<Interrupted> stop;
    try {
        while (!options.count || polls < *options.count) {
            if (polls > 0) Sleep(intervalMs);
            ThrowIfInterrupted();
            const std::string time = TimeText(Now());
            // Each variable once per poll, however many of its fields are watched.
            std::unordered_map<const CDeviceVariable*, std::optional<ComError>> read;
            for (std::size_t i = 0; i < targets.size(); ++i) {
                CDeviceVariable* variable = targets[i].variable.get();
                if (!read.contains(variable)) {
                    try {
                        variable->Upload();
                        read.emplace(variable, std::nullopt);
                    } catch (const ComError& error) {
                        read.emplace(variable, error);
                    }
                }
                const auto& failed = read.at(variable);
                const Seen seen = failed ? Seen{nullptr, ErrorText(*failed), ""} : Read(targets[i]);
                if (last[i] != seen) emit(time, targets[i], seen);
                last[i] = seen;
            }
            ++polls;
        }
    } catch (const Interrupted& signal) {
        AcknowledgeInterrupt();
        stop = signal;
    }

    Outcome outcome;
    if (collect) outcome.json = {{"polls", polls}, {"changes", std::move(changes)}};
    if (stop) {
        outcome.failure =
            fmt::format("the watch ended by {} after {} polls", SignalName(stop->Signal()), polls);
        outcome.failureCode = kExitInterrupted;
        if (collect) outcome.json["interrupted"] = SignalName(stop->Signal());
    }
    return outcome;
}

}  // namespace vx::vxctl
