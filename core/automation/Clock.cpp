#include "automation/Clock.h"

#include <thread>

namespace vx {
namespace {

std::shared_ptr<Clock>& InstalledClock() {
    static std::shared_ptr<Clock> clock = std::make_shared<RealClock>();
    return clock;
}

}  // namespace

void RealClock::Sleep(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::chrono::system_clock::time_point RealClock::Now() {
    return std::chrono::system_clock::now();
}

void VirtualClock::Sleep(std::uint32_t milliseconds) {
    m_now += std::chrono::milliseconds(milliseconds);
    m_slept += milliseconds;
    ++m_calls;
}

Clock& CurrentClock() {
    return *InstalledClock();
}

std::shared_ptr<Clock> InstallClock(std::shared_ptr<Clock> clock) {
    auto previous = InstalledClock();
    InstalledClock() = clock ? std::move(clock) : std::make_shared<RealClock>();
    return previous;
}

}  // namespace vx
