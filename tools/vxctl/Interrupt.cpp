#include "Interrupt.h"

#include <algorithm>
#include <atomic>
#include <csignal>

namespace vx::vxctl {
namespace {

// Signals counted by the handler, and how many of them were acknowledged.
std::atomic<int> g_signals{0};
std::atomic<int> g_acknowledged{0};
std::atomic<int> g_lastSignal{SIGINT};
static_assert(std::atomic<int>::is_always_lock_free, "the handler may only touch lock-free data");

extern "C" void OnSignal(int signal) {
    g_lastSignal.store(signal);
    g_signals.fetch_add(1);
}

// The longest a sleep goes without looking for a signal.
constexpr std::uint32_t kSleepStepMs = 50;

class InterruptibleClock final : public Clock {
public:
    explicit InterruptibleClock(std::shared_ptr<Clock> inner) : m_inner(std::move(inner)) {}

    void Sleep(std::uint32_t milliseconds) override {
        ThrowIfInterrupted();
        while (milliseconds > 0) {
            const std::uint32_t step = std::min(milliseconds, kSleepStepMs);
            m_inner->Sleep(step);
            milliseconds -= step;
            ThrowIfInterrupted();
        }
    }
    std::chrono::system_clock::time_point Now() override { return m_inner->Now(); }

private:
    std::shared_ptr<Clock> m_inner;
};

}  // namespace

Interrupted::Interrupted(int signal)
    : std::runtime_error("interrupted by " + SignalName(signal)), m_signal(signal) {}

void InstallInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // interrupted system calls go on; the flag is polled
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void RequestInterrupt(int signal) {
    OnSignal(signal);
}

bool InterruptPending() noexcept {
    return g_signals.load() > g_acknowledged.load();
}

void ThrowIfInterrupted() {
    if (InterruptPending()) throw Interrupted(g_lastSignal.load());
}

void AcknowledgeInterrupt() noexcept {
    g_acknowledged.store(g_signals.load());
}

std::string SignalName(int signal) {
    switch (signal) {
        case SIGINT:
            return "SIGINT";
        case SIGTERM:
            return "SIGTERM";
        default:
            return "signal " + std::to_string(signal);
    }
}

InterruptibleClockGuard::InterruptibleClockGuard() {
    m_previous = InstallClock(nullptr);
    InstallClock(std::make_shared<InterruptibleClock>(m_previous));
}

InterruptibleClockGuard::~InterruptibleClockGuard() {
    InstallClock(m_previous);
}

}  // namespace vx::vxctl
