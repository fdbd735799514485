// Node diagnostics and batches against vxsim on loopback addresses of this test process's own:
// the same output as in process, and what the node keeps from one run to the next.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VxctlRun.h"
#include "VxsimProcess.h"

namespace vx {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;

// Fourth octets apart from the other network tests' (nodes 10 up, hosts 100 up).
int NextNodeOctet() {
    static int next = 60;
    return next++;
}
int NextHostOctet() {
    static int next = 160;
    return next++;
}

class VxctlDiagnosticsOverLonIp : public ::testing::Test {
protected:
    void SetUp() override {
        vxsim.emplace(std::vector<std::string>{"--listen", node, "--device", "default"});
    }
    std::vector<std::string> OnNode(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--device", "lonip://" + node, "--local", host});
        return arguments;
    }

    const std::string node = test::TestLoopback(NextNodeOctet());
    const std::string host = test::TestLoopback(NextHostOctet());
    std::optional<test::VxsimProcess> vxsim;
};

TEST_F(VxctlDiagnosticsOverLonIp, ShowWhatTheInProcessControllerShows) {
    const std::vector<std::vector<std::string>> lines = {
        {"query-status"},
        {"--json", "query-status"},
        {"read-memory", "0x4200", "40"},
        {"--json", "read-memory", "0", "21", "--area", "read-only"},
        {"read-memory", "0xFFF0", "32"},
        {"--json", "mode", "online"},
        {"mode", "reset"},  // not confirmed
    };
    test::ExpectSameAsInProcess(lines, [this](const auto& line) { return OnNode(line); });
}

TEST_F(VxctlDiagnosticsOverLonIp, TheNodeKeepsItsModeBetweenRuns) {
    ASSERT_EQ(Vxctl(OnNode({"mode", "offline"})).exitCode, 0);
    const Json offline = Json::parse(Vxctl(OnNode({"--json", "query-status"})).out);
    EXPECT_EQ(offline["state"], Json::parse(R"({"code": 12,
                                                "name": "configured, application offline"})"));
    const Finished reset = Vxctl(OnNode({"--yes", "mode", "reset"}));
    EXPECT_EQ(reset.exitCode, 0) << reset.err;
    EXPECT_EQ(reset.out, "application reset sent; the controller's state: Configured/Online\n");
}

TEST_F(VxctlDiagnosticsOverLonIp, ABatchChangesTheNodeInOneSession) {
    const fs::path batch = test::ScratchFile(".vxctl");
    std::ofstream(batch) << "set nciSetpoints.occupied_cool 23.5\nset nciMaxFlow 280\n"
                            "config download --level 3\nquery-status\n";
    const Finished local = Vxctl({"run", batch.string()});
    const Finished remote = Vxctl(OnNode({"run", batch.string()}));
    fs::remove(batch);
    ASSERT_EQ(remote.exitCode, 0) << remote.err;
    EXPECT_EQ(remote.out, local.out);

    // The next run finds what the batch left, with a checksum that fits it.
    EXPECT_EQ(Vxctl(OnNode({"get", "nciMaxFlow"})).out, "nciMaxFlow = 280 liters/second\n");
    const Json status = Json::parse(Vxctl(OnNode({"--json", "command-status"})).out);
    EXPECT_EQ(status["checksumMismatch"], false);
}

}  // namespace
}  // namespace vx
