// vxsim run as a program on a loopback address of this test process's own: it answers over UDP,
// refuses an address another vxsim holds, keeps its node in a state file and stops cleanly on
// SIGTERM. Every process started here is stopped and reaped by its own pid.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include "fixtures/Hex.h"

#include <asio.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Hex.h"
#include "NodeSnapshot.h"
#include "ScriptedPeer.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using asio::ip::udp;
using vx::lon::Endpoint;
using Bytes = std::vector<std::uint8_t>;

constexpr auto kPatience = 10s;

using vx::test::Hex;

std::string ReadFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::stringstream content;
    content << stream.rdbuf();
    return content.str();
}

// A state file path of this test's own, removed at the end.
struct ScratchState {
    fs::path path = fs::temp_directory_path() /
                    ("vxsim-test-" + std::to_string(getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json");
    ~ScratchState() { fs::remove(path); }
};

// One vxsim process with its standard output and error on pipes. The destructor stops it
// (SIGTERM, then SIGKILL when it does not end in time) and reaps it, whatever the test did.
class Vxsim {
public:
    explicit Vxsim(const std::vector<std::string>& arguments) {
        int out[2] = {-1, -1};
        int err[2] = {-1, -1};
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
        std::vector<std::string> argv = {VX_VXSIM_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (auto& argument : argv)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        if (posix_spawn(&m_pid, VX_VXSIM_PATH, &actions, nullptr, pointers.data(), environ) != 0) {
            m_pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        close(err[1]);
        m_out = out[0];
        m_err = err[0];
    }

    ~Vxsim() {
        Terminate();
        if (m_pid > 0 && !WaitForExit()) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_out >= 0) close(m_out);
        if (m_err >= 0) close(m_err);
    }

    Vxsim(const Vxsim&) = delete;
    Vxsim& operator=(const Vxsim&) = delete;

    // The first line of its standard output, without the newline; nothing when none came in time.
    std::optional<std::string> FirstLine(std::chrono::milliseconds limit = kPatience) {
        std::string line;
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            pollfd ready{m_out, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (poll(&ready, 1, static_cast<int>(std::max<long>(left.count(), 0))) <= 0) break;
            char c = 0;
            if (read(m_out, &c, 1) != 1) break;
            if (c == '\n') return line;
            line += c;
        }
        return std::nullopt;
    }

    void Terminate() {
        if (m_pid > 0 && !m_exitCode) kill(m_pid, SIGTERM);
    }

    // Its exit code (-1 for a signal); nothing while it still runs after `limit`.
    std::optional<int> WaitForExit(std::chrono::milliseconds limit = kPatience) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!m_exitCode && m_pid > 0) {
            int status = 0;
            const pid_t done = waitpid(m_pid, &status, WNOHANG);
            if (done == m_pid) {
                m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            } else if (done < 0 || std::chrono::steady_clock::now() >= deadline) {
                break;
            } else {
                std::this_thread::sleep_for(10ms);
            }
        }
        return m_exitCode;
    }

    // Everything it wrote to its standard error; call once it has ended.
    std::string ErrorOutput() const {
        std::string text;
        char buffer[4096];
        for (ssize_t size = 0; (size = read(m_err, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<std::size_t>(size));
        return text;
    }

private:
    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    std::optional<int> m_exitCode;
};

// Sends one datagram from an ephemeral port of 127.0.0.1 and waits for one answer.
std::optional<Bytes> Exchange(const Endpoint& node, const Bytes& request) {
    asio::io_context io;
    udp::socket socket(io, udp::endpoint(asio::ip::address_v4::loopback(), 0));
    socket.send_to(asio::buffer(request),
                   udp::endpoint(asio::ip::address_v4(node.address), node.port));
    Bytes buffer(1500);
    std::optional<Bytes> answer;
    socket.async_receive(
        asio::buffer(buffer), [&](const asio::error_code& error, std::size_t size) {
            if (!error) answer = Bytes(buffer.begin(), buffer.begin() + static_cast<long>(size));
        });
    io.run_for(kPatience);
    return answer;
}

std::string ServingLine(const Endpoint& at) {
    return "vxsim: serving the default controller (Neuron ID 05013C7A1F02, LonTalk address 1/1) "
           "on " +
           at.Text();
}

TEST(VxsimProcess, AnswersOverUdpRefusesASecondVxsimAndStopsCleanlyOnSigterm) {
    const Endpoint at = vx::lon::test::UniqueLoopback();
    Vxsim vxsim({"--listen", at.Text(), "--device", "default", "--verbose"});
    ASSERT_EQ(vxsim.FirstLine(), ServingLine(at));

    Vxsim second({"--listen", at.Text(), "--device", "default"});
    EXPECT_EQ(second.WaitForExit(), 1);
    EXPECT_EQ(second.ErrorOutput(),
              "vxsim: " + at.Text() + " is in use (is another vxsim running there?)\n");

    // The first goes on serving.
    EXPECT_EQ(Exchange(at, Hex("00 11 03 51")),
              Hex("00 11 23 31 00 00 00 00 00 00 00 00 00 00 01 04 10 00 00"));
    vxsim.Terminate();
    EXPECT_EQ(vxsim.WaitForExit(), 0);
    EXPECT_THAT(vxsim.ErrorOutput(),
                ::testing::HasSubstr("Query Status, request TID 3: answered 31, 15 bytes"));
}

TEST(VxsimProcess, KeepsItsNodeInTheStateFileAcrossRuns) {
    const ScratchState scratch;
    const fs::path& state = scratch.path;
    const Endpoint at = vx::lon::test::UniqueLoopback();
    const std::vector<std::string> arguments = {"--listen", at.Text(), "--device",
                                                "default",  "--state", state.string()};
    {
        Vxsim vxsim(arguments);
        ASSERT_EQ(vxsim.FirstLine(), ServingLine(at));
        EXPECT_FALSE(fs::exists(state));
        // nviSetpoint (index 7, selector 3FF8) := 09 99, acknowledged.
        EXPECT_EQ(Exchange(at, Hex("00 10 01 BF F8 09 99")), Hex("00 10 21"));
        // Saved before the acknowledgement went out.
        ASSERT_TRUE(fs::exists(state));
        EXPECT_EQ(
            vx::sim::LoadNodeState(ReadFile(state), state.string())->VariableValue("nviSetpoint"),
            Hex("09 99"));
        vxsim.Terminate();
        EXPECT_EQ(vxsim.WaitForExit(), 0);
    }
    Vxsim again(arguments);
    const auto line = again.FirstLine();
    ASSERT_TRUE(line.has_value());
    EXPECT_THAT(*line, ::testing::HasSubstr("the state file " + state.string()));
    EXPECT_EQ(Exchange(at, Hex("00 11 02 73 07")), Hex("00 11 22 33 07 09 99"));
}

TEST(VxsimProcess, RefusesAStateFileItCannotReadAndLeavesIt) {
    const ScratchState scratch;
    const fs::path& state = scratch.path;
    std::ofstream(state, std::ios::binary) << "{ not a node";

    Vxsim vxsim({"--listen", vx::lon::test::UniqueLoopback().Text(), "--device", "default",
                 "--state", state.string()});
    EXPECT_EQ(vxsim.WaitForExit(), 1);
    const std::string error = vxsim.ErrorOutput();
    EXPECT_THAT(error, ::testing::StartsWith("vxsim: "));
    EXPECT_THAT(error, ::testing::HasSubstr(state.string() + " is left as it is"));
    EXPECT_EQ(ReadFile(state), "{ not a node");
}

}  // namespace
