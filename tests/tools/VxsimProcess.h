#pragma once

// vxsim run for a test: started with its arguments, waited for until it says it serves, and stopped
// by its process ID when the object goes, whatever the test did. Addresses come from
// TestLoopback, which keeps test processes running side by side apart.

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "VxctlRun.h"

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
        : m_errors(ScratchFile(".vxsim.err")) {
        int pipeEnds[2];
        if (pipe(pipeEnds) != 0) throw std::runtime_error("vxsim: no pipe");
        m_output = pipeEnds[0];
        fcntl(m_output, F_SETFD, FD_CLOEXEC);  // vxctl runs need not hold it

        // Everything the child needs is made before the fork: after it, only calls that are safe
        // between fork and exec.
        std::vector<std::string> words = {VX_VXSIM_PATH};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (auto& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        const std::string errors = m_errors.string();
        const pid_t parent = getpid();

        m_pid = fork();
        if (m_pid == 0) {
            // A test process killed from outside (a ctest timeout) takes its vxsim with it.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent) _exit(127);
            const int errorFile = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            const int nothing = open("/dev/null", O_RDONLY);
            if (errorFile < 0 || nothing < 0 || dup2(pipeEnds[1], STDOUT_FILENO) < 0 ||
                dup2(errorFile, STDERR_FILENO) < 0 || dup2(nothing, STDIN_FILENO) < 0) {
                _exit(127);
            }
            close(pipeEnds[0]);
            close(pipeEnds[1]);
            close(errorFile);
            close(nothing);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(pipeEnds[1]);
        if (m_pid < 0) {
            close(m_output);
            throw std::runtime_error("vxsim could not be started: no fork");
        }
        if (!AwaitServing()) {
            Stop();
            throw std::runtime_error("vxsim did not say it serves within " +
                                     std::to_string(kStartLimit.count()) +
                                     " s; it said: " + m_said + ReadFile(m_errors));
        }
    }

    ~VxsimProcess() {
        Stop();
        std::filesystem::remove(m_errors);
    }
    VxsimProcess(const VxsimProcess&) = delete;
    VxsimProcess& operator=(const VxsimProcess&) = delete;

    // Ends vxsim as a technician's Ctrl-C does, so that it saves its state; a vxsim that does not
    // end within kStopLimit is killed. Returns its exit status (-1 when it had to be killed).
    int Stop() {
        if (m_pid <= 0) return m_status;
        kill(m_pid, SIGTERM);
        const auto deadline = std::chrono::steady_clock::now() + kStopLimit;
        int status = 0;
        pid_t ended = 0;
        while ((ended = waitpid(m_pid, &status, WNOHANG)) == 0 &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (ended == 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
            m_status = -1;
        } else {
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        m_pid = -1;
        close(m_output);
        return m_status;
    }

    // What it printed on stdout and stderr so far.
    std::string Said() const { return m_said + ReadFile(m_errors); }

private:
    bool AwaitServing() {
        const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
        char buffer[512];
        for (;;) {
            if (m_said.find("vxsim: serving ") != std::string::npos &&
                m_said.find('\n', m_said.find("vxsim: serving ")) != std::string::npos) {
                return true;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) return false;
            pollfd ready{m_output, POLLIN, 0};
            if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
            const ssize_t got = read(m_output, buffer, sizeof buffer);
            if (got <= 0) return false;  // it ended without serving
            m_said.append(buffer, static_cast<std::size_t>(got));
        }
    }

    std::filesystem::path m_errors;
    pid_t m_pid = -1;
    int m_output = -1;
    int m_status = -1;
    std::string m_said;
};

}  // namespace vx::test
