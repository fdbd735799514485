#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

namespace vx {

// All waiting and time-keeping of the library goes through one process-wide clock, so that tests
// can replace real pauses by a virtual clock.
class Clock {
public:
    virtual ~Clock() = default;
    virtual void Sleep(std::uint32_t milliseconds) = 0;
    virtual std::chrono::system_clock::time_point Now() = 0;
};

// Sleeps the calling thread for real.
class RealClock final : public Clock {
public:
    void Sleep(std::uint32_t milliseconds) override;
    std::chrono::system_clock::time_point Now() override;
};

// Time that passes only when someone sleeps on it; it records the total slept.
class VirtualClock final : public Clock {
public:
    explicit VirtualClock(std::chrono::system_clock::time_point start = {}) : m_now(start) {}
    void Sleep(std::uint32_t milliseconds) override;
    std::chrono::system_clock::time_point Now() override { return m_now; }
    std::uint64_t SleptMilliseconds() const noexcept { return m_slept; }
    std::uint32_t SleepCalls() const noexcept { return m_calls; }

private:
    std::chrono::system_clock::time_point m_now;
    std::uint64_t m_slept = 0;
    std::uint32_t m_calls = 0;
};

// The installed clock (a RealClock until something else is installed).
Clock& CurrentClock();
// Installs a clock; nullptr restores the real one. Returns the clock that was installed before.
std::shared_ptr<Clock> InstallClock(std::shared_ptr<Clock> clock);

// Installs a clock for the lifetime of the guard (tests).
class ScopedClock {
public:
    explicit ScopedClock(std::shared_ptr<Clock> clock)
        : m_previous(InstallClock(std::move(clock))) {}
    ~ScopedClock() { InstallClock(std::move(m_previous)); }
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;

private:
    std::shared_ptr<Clock> m_previous;
};

}  // namespace vx
