#include "Progress.h"

#include <algorithm>

#include <fmt/format.h>

namespace vx::vxctl {
namespace {

constexpr std::uint64_t kBarWidth = 30;

class ProgressClock final : public Clock {
public:
    ProgressClock(std::shared_ptr<Clock> inner, Progress& progress)
        : m_inner(std::move(inner)), m_progress(progress) {}

    void Sleep(std::uint32_t milliseconds) override {
        m_inner->Sleep(milliseconds);
        m_progress.Slept(milliseconds);
    }
    std::chrono::system_clock::time_point Now() override { return m_inner->Now(); }

private:
    std::shared_ptr<Clock> m_inner;
    Progress& m_progress;
};

}  // namespace

void Progress::Begin(std::string label, std::uint64_t total) {
    Start(std::move(label), total, false);
}

void Progress::BeginWait(std::string label, std::uint64_t limitMs) {
    Start(std::move(label), limitMs, true);
}

void Progress::Start(std::string label, std::uint64_t total, bool waiting) {
    m_label = std::move(label);
    m_done = 0;
    m_total = total;
    m_waiting = waiting;
    m_active = true;
    Draw();
}

void Progress::Advance(std::uint64_t steps) {
    if (!m_active) return;
    m_done = std::min(m_total, m_done + steps);
    Draw();
}

void Progress::Slept(std::uint32_t milliseconds) {
    if (m_waiting) Advance(milliseconds);
}

void Progress::End() {
    if (m_active && m_terminal) *m_terminal << "\r\033[K" << std::flush;  // clears the line
    m_active = false;
    m_waiting = false;
}

void Progress::Draw() {
    if (!m_terminal || m_total == 0) return;
    const std::uint64_t filled = m_done * kBarWidth / m_total;
    const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '.');
    const std::string count =
        m_waiting ? fmt::format("{} s", m_done / 1000) : fmt::format("{}/{}", m_done, m_total);
    *m_terminal << fmt::format("\r\033[K{} [{}] {}", m_label, bar, count) << std::flush;
}

ProgressClockGuard::ProgressClockGuard(Progress& progress) {
    // Installing gives back the clock that was there, which the new one then sleeps on.
    m_previous = InstallClock(nullptr);
    InstallClock(std::make_shared<ProgressClock>(m_previous, progress));
}

ProgressClockGuard::~ProgressClockGuard() {
    InstallClock(m_previous);
}

}  // namespace vx::vxctl
