#pragma once

// vxsim run for a test: started with its arguments, waited for until it says it serves, and stopped
// by its process ID when the object goes, whatever the test did. Addresses come from
// TestLoopback, which keeps test processes running side by side apart.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "VxctlRun.h"
#include "fixtures/ChildProcess.h"

namespace vx::test {

// A loopback address of this test process's own: 127.(200 + pid % 50).(pid / 50 % 250 + 1).n.
// The second octet keeps clear of the LON/IP tests' addresses (127.100-199.*.*).
inline std::string TestLoopback(int n) {
    const auto pid = static_cast<unsigned>(getpid());
    return "127." + std::to_string(200 + pid % 50) + "." + std::to_string(pid / 50 % 250 + 1) +
           "." + std::to_string(n);
}

class VxsimProcess {
public:
    static constexpr std::chrono::seconds kStartLimit{10};
    static constexpr std::chrono::seconds kStopLimit{5};

    // Starts vxsim and waits until it serves; raises std::runtime_error with what it said when it
    // does not within kStartLimit (it is stopped then).
    explicit VxsimProcess(const std::vector<std::string>& arguments)
        : m_vxsim(std::make_unique<ChildProcess>(VX_VXSIM_PATH, arguments,
                                                 m_folder.NextOutput("vxsim"))) {
        if (!m_vxsim->Started() || !m_vxsim->AwaitLine("vxsim: serving ", kStartLimit)) {
            Stop();
            throw std::runtime_error("vxsim did not say it serves within " +
                                     std::to_string(kStartLimit.count()) +
                                     " s; it said: " + Said());
        }
    }

    // Ends vxsim as a technician's Ctrl-C does, so that it saves its state; a vxsim that does not
    // end within kStopLimit is killed. Returns its exit status (-1 when it had to be killed or
    // ended by a signal).
    int Stop() {
        m_vxsim->Signal(SIGTERM);
        auto status = m_vxsim->Wait(kStopLimit);
        if (!status) {
            m_vxsim->Signal(SIGKILL);
            status = m_vxsim->Wait(kStopLimit);
        }
        return status && *status < 128 ? *status : -1;
    }

    // What it printed on stdout and stderr so far.
    std::string Said() const { return m_vxsim->Out() + m_vxsim->Err(); }

private:
    ScratchFolder m_folder;
    std::unique_ptr<ChildProcess> m_vxsim;
};

// Each command line gives the same exit code, output and messages over the network (`onNode`
// adds the node's address) as on the simulated controller in the process.
template <typename OnNode>
void ExpectSameAsInProcess(const std::vector<std::vector<std::string>>& lines, OnNode onNode) {
    for (const auto& line : lines) {
        SCOPED_TRACE(::testing::PrintToString(line));
        const Finished local = Vxctl(line);
        const Finished remote = Vxctl(onNode(line));
        EXPECT_EQ(remote.exitCode, local.exitCode) << remote.err;
        EXPECT_EQ(remote.out, local.out);
        EXPECT_EQ(remote.err, local.err);
    }
}

}  // namespace vx::test
