#pragma once

// Ctrl-C and SIGTERM. The handlers only count the signal; long work polls the count between its
// steps, and every wait on the library's clock polls it while it sleeps, so that a stop comes
// within a fraction of a second and the command can say what it did and close what it opened.
// A second signal while the command cleans up stops the cleaning too.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "automation/Clock.h"

namespace vx::vxctl {

// Raised at the first poll after a signal that nobody has acknowledged yet.
class Interrupted : public std::runtime_error {
public:
    explicit Interrupted(int signal);
    int Signal() const noexcept { return m_signal; }

private:
    int m_signal;
};

// Installs the SIGINT and SIGTERM handlers (the program's main; tests that run commands in their
// own process leave them out and call RequestInterrupt).
void InstallInterruptHandlers();
// As if the signal had arrived.
void RequestInterrupt(int signal);
// Whether a signal arrived that was not acknowledged yet.
bool InterruptPending() noexcept;
// Raises Interrupted when one is pending.
void ThrowIfInterrupted();
// Acknowledges the signals so far: cleaning up after one goes on until the next one.
void AcknowledgeInterrupt() noexcept;
// "SIGINT", "SIGTERM".
std::string SignalName(int signal);

// Installs, for its lifetime, a clock that sleeps on the one installed before in short steps and
// raises Interrupted from a sleep when a signal is pending.
class InterruptibleClockGuard {
public:
    InterruptibleClockGuard();
    ~InterruptibleClockGuard();
    InterruptibleClockGuard(const InterruptibleClockGuard&) = delete;
    InterruptibleClockGuard& operator=(const InterruptibleClockGuard&) = delete;

private:
    std::shared_ptr<Clock> m_previous;
};

}  // namespace vx::vxctl
