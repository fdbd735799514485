// vxsim run as a program on a loopback address of this test process's own: it answers over UDP,
// refuses an address another vxsim holds, keeps its node in a state file and stops cleanly on
// SIGTERM. Every process started here is stopped and reaped by its own pid.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio.hpp>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "NodeSnapshot.h"
#include "ScriptedPeer.h"
#include "fixtures/ChildProcess.h"
#include "fixtures/Hex.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using asio::ip::udp;
using vx::lon::Endpoint;
using Bytes = std::vector<std::uint8_t>;

constexpr auto kPatience = 10s;

using vx::test::ChildProcess;
using vx::test::Hex;
using vx::test::ReadFile;
using vx::test::ScratchFolder;

std::unique_ptr<ChildProcess> Vxsim(ScratchFolder& folder,
                                    const std::vector<std::string>& arguments) {
    return std::make_unique<ChildProcess>(VX_VXSIM_PATH, arguments, folder.NextOutput("vxsim"));
}

// Its first line of output, once there.
std::string FirstLine(ChildProcess& vxsim) {
    vxsim.AwaitLine("vxsim: ");
    const std::string out = vxsim.Out();
    return out.substr(0, out.find('\n'));
}

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
    ScratchFolder folder;
    const Endpoint at = vx::lon::test::UniqueLoopback();
    const auto vxsim = Vxsim(folder, {"--listen", at.Text(), "--device", "default", "--verbose"});
    ASSERT_EQ(FirstLine(*vxsim), ServingLine(at));

    const auto second = Vxsim(folder, {"--listen", at.Text(), "--device", "default"});
    EXPECT_EQ(second->Wait(kPatience), 1);
    EXPECT_EQ(second->Err(),
              "vxsim: " + at.Text() + " is in use (is another vxsim running there?)\n");

    // The first goes on serving.
    EXPECT_EQ(Exchange(at, Hex("00 11 03 51")),
              Hex("00 11 23 31 00 00 00 00 00 00 00 00 00 00 01 04 10 00 00"));
    vxsim->Signal(SIGTERM);
    EXPECT_EQ(vxsim->Wait(kPatience), 0);
    EXPECT_THAT(vxsim->Err(),
                ::testing::HasSubstr("Query Status, request TID 3: answered 31, 15 bytes"));
}

TEST(VxsimProcess, KeepsItsNodeInTheStateFileAcrossRuns) {
    ScratchFolder folder;
    const fs::path state = folder / "state.json";
    const Endpoint at = vx::lon::test::UniqueLoopback();
    const std::vector<std::string> arguments = {"--listen", at.Text(), "--device",
                                                "default",  "--state", state.string()};
    {
        const auto vxsim = Vxsim(folder, arguments);
        ASSERT_EQ(FirstLine(*vxsim), ServingLine(at));
        EXPECT_FALSE(fs::exists(state));
        // nviSetpoint (index 7, selector 3FF8) := 09 99, acknowledged.
        EXPECT_EQ(Exchange(at, Hex("00 10 01 BF F8 09 99")), Hex("00 10 21"));
        // Saved before the acknowledgement went out.
        ASSERT_TRUE(fs::exists(state));
        EXPECT_EQ(
            vx::sim::LoadNodeState(ReadFile(state), state.string())->VariableValue("nviSetpoint"),
            Hex("09 99"));
        vxsim->Signal(SIGTERM);
        EXPECT_EQ(vxsim->Wait(kPatience), 0);
    }
    const auto again = Vxsim(folder, arguments);
    EXPECT_THAT(FirstLine(*again), ::testing::HasSubstr("the state file " + state.string()));
    EXPECT_EQ(Exchange(at, Hex("00 11 02 73 07")), Hex("00 11 22 33 07 09 99"));
}

TEST(VxsimProcess, RefusesAStateFileItCannotReadAndLeavesIt) {
    ScratchFolder folder;
    const fs::path state = folder / "state.json";
    std::ofstream(state, std::ios::binary) << "{ not a node";

    const auto vxsim = Vxsim(folder, {"--listen", vx::lon::test::UniqueLoopback().Text(),
                                      "--device", "default", "--state", state.string()});
    EXPECT_EQ(vxsim->Wait(kPatience), 1);
    const std::string error = vxsim->Err();
    EXPECT_THAT(error, ::testing::StartsWith("vxsim: "));
    EXPECT_THAT(error, ::testing::HasSubstr(state.string() + " is left as it is"));
    EXPECT_EQ(ReadFile(state), "{ not a node");
}

}  // namespace
