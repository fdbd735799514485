#pragma once

// Long work shown on a terminal: a bar on stderr for counted steps (variables uploaded) and for
// the library's waits (the pauses of a configuration download, the application reset), measured
// on the library's clock. Off the terminal nothing is shown, so that output stays the same.

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "automation/Clock.h"

namespace vx::vxctl {

class Progress {
public:
    // `terminal` is where the bar is drawn; nullptr shows nothing.
    explicit Progress(std::ostream* terminal) : m_terminal(terminal) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Counted work of `total` steps.
    void Begin(std::string label, std::uint64_t total);
    // A wait on the library's clock that ends at the latest after `limitMs`.
    void BeginWait(std::string label, std::uint64_t limitMs);
    void Advance(std::uint64_t steps = 1);
    // What the library slept while a wait is shown.
    void Slept(std::uint32_t milliseconds);
    void End();

private:
    void Start(std::string label, std::uint64_t total, bool waiting);
    void Draw();

    std::ostream* m_terminal;
    std::string m_label;
    std::uint64_t m_done = 0;
    std::uint64_t m_total = 0;
    bool m_waiting = false;
    bool m_active = false;
};

// Begins on construction and ends on destruction, also when the work raises.
class ProgressScope {
public:
    ProgressScope(Progress& progress, std::string label, std::uint64_t total)
        : m_progress(progress) {
        m_progress.Begin(std::move(label), total);
    }
    ~ProgressScope() { m_progress.End(); }
    ProgressScope(const ProgressScope&) = delete;
    ProgressScope& operator=(const ProgressScope&) = delete;

    void Advance() { m_progress.Advance(); }

protected:
    explicit ProgressScope(Progress& progress) : m_progress(progress) {}
    Progress& m_progress;
};

class WaitScope : public ProgressScope {
public:
    WaitScope(Progress& progress, std::string label, std::uint64_t limitMs)
        : ProgressScope(progress) {
        m_progress.BeginWait(std::move(label), limitMs);
    }
};

// Installs, for its lifetime, a clock that sleeps on the clock installed before and shows the
// time slept in the running wait.
class ProgressClockGuard {
public:
    explicit ProgressClockGuard(Progress& progress);
    ~ProgressClockGuard();
    ProgressClockGuard(const ProgressClockGuard&) = delete;
    ProgressClockGuard& operator=(const ProgressClockGuard&) = delete;

private:
    std::shared_ptr<Clock> m_previous;
};

}  // namespace vx::vxctl
