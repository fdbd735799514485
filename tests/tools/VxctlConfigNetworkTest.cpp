// Configuration files, watch and signals as a technician meets them: vxctl as a program against
// vxsim on loopback addresses of this test process's own (see VxctlNetworkTest.cpp), where what a
// run changed stays on the node for the next run to see.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "Golden.h"
#include "VxctlRun.h"
#include "VxsimProcess.h"

namespace vx {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;

// Fourth octets of their own, apart from VxctlNetworkTest's (10.. and 100..).
int NextNodeOctet() {
    static int next = 50;
    return next++;
}
int NextHostOctet() {
    static int next = 150;
    return next++;
}

// Times differ from run to run; the rest of a line does not.
std::string WithoutTimes(const std::string& text) {
    static const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");
    return std::regex_replace(text, time, "TIME");
}

class VxctlConfigOverLonIp : public ::testing::Test {
protected:
    void Serve(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"--listen", node, "--device", "default"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        vxsim.emplace(arguments);
    }
    // A vxctl run on the node; every run its own host address, so that runs side by side do not
    // share a port.
    std::vector<std::string> OnNode(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--device", "lonip://" + node, "--local",
                                             test::TestLoopback(NextHostOctet())});
        return arguments;
    }
    // vxctl as a child this test signals.
    std::unique_ptr<test::ChildProcess> Start(const std::vector<std::string>& arguments) {
        return std::make_unique<test::ChildProcess>(VXCTL_PROGRAM, OnNode(arguments),
                                                    folder.NextOutput("vxctl"));
    }
    // The node's configuration as saved, written back in the first format (which every restore
    // reads) with `changes` to its raw values; a change of a key the node does not have adds it.
    fs::path SavedFile(const std::map<std::string, std::string>& changes) {
        const fs::path path = folder.NextOutput("saved").string() + ".json";
        const Finished save = Vxctl(OnNode({"config", "save", path.string()}));
        EXPECT_EQ(save.exitCode, 0) << save.err;
        const Json saved = Json::parse(test::ReadFile(path));
        Json configuration = saved.value("configuration", Json::object());
        for (const auto& value : saved.value("values", Json::array()))
            configuration[value["key"].get<std::string>()] = value["raw"];
        for (const auto& [key, raw] : changes)
            configuration[key] = raw;
        std::ofstream(path) << Json{
            {"version", 1},
            {"programId", saved["programId"]},
            {"configuration",
             configuration}}.dump(2);
        return path;
    }

    const std::string node = test::TestLoopback(NextNodeOctet());
    test::ScratchFolder folder;
    std::optional<test::VxsimProcess> vxsim;
};

// ---- Restore -----------------------------------------------------------------------------------

TEST_F(VxctlConfigOverLonIp, AFileThatDoesNotFitIsRefusedAndTheNodeKeepsItsConfiguration) {
    Serve();
    const fs::path original = SavedFile({});
    // An item, which would be written first, and a value one byte too long.
    const fs::path wrong = SavedFile({{"3-2", std::string(48, '1')}, {"nciMaxFlow.30", "011800"}});
    const Finished refused = Vxctl(OnNode({"config", "restore", wrong.string()}));
    EXPECT_EQ(refused.exitCode, 5) << refused.err;
    EXPECT_NE(refused.err.find("does not fit this controller, nothing was sent: nciMaxFlow.30 is "
                               "2 bytes long on the controller, 3 in the file"),
              std::string::npos)
        << refused.err;
    const Finished diff = Vxctl(OnNode({"config", "diff", original.string()}));
    EXPECT_EQ(diff.out, "the controller holds the file's configuration\n") << diff.out;
    EXPECT_EQ(Vxctl(OnNode({"command-status"})).out.find("download open"), std::string::npos);

    // Keys the controller does not have are named, and nothing is restored without
    // --skip-unknown.
    const fs::path unknown = SavedFile({{"nciMaxFlow.30", "0118"}, {"nciGhost.77", "01"}});
    const Finished named = Vxctl(OnNode({"--json", "config", "restore", unknown.string()}));
    EXPECT_EQ(named.exitCode, 5);
    EXPECT_NE(named.err.find("holds 1 values this controller does not have, nothing was sent: "
                             "nciGhost.77"),
              std::string::npos)
        << named.err;
    EXPECT_EQ(Vxctl(OnNode({"get", "nciMaxFlow"})).out, "nciMaxFlow = 300 liters/second\n");
    const Finished skipped =
        Vxctl(OnNode({"--json", "config", "restore", "--skip-unknown", unknown.string()}));
    EXPECT_EQ(skipped.exitCode, 0) << skipped.err;
    EXPECT_EQ(Json::parse(skipped.out)["skipped"], Json::parse(R"(["nciGhost.77"])"));
    EXPECT_EQ(Vxctl(OnNode({"get", "nciMaxFlow"})).out, "nciMaxFlow = 280 liters/second\n");
}

TEST_F(VxctlConfigOverLonIp, ARestoreTheNetworkStopsListsWhatArrivedAndClosesThePhase) {
    Serve({"--fault", "WriteValue:nciMaxFlow=-1"});
    const fs::path file =
        SavedFile({{"0-1", "0200"}, {"nciMinFlow.29", "0046"}, {"nciMaxFlow.30", "0118"}});
    const Finished run =
        Vxctl(OnNode({"--json", "--timeout", "50", "config", "restore", file.string()}));
    EXPECT_EQ(run.exitCode, 6) << run.err;
    const Json result = Json::parse(run.out);
    EXPECT_EQ(result["arrived"], Json::parse(R"(["0-1", "nciMinFlow.29"])"));
    EXPECT_EQ(result["notArrived"], Json::parse(R"(["nciMaxFlow.30"])"));
    EXPECT_EQ(result["downloadClosed"], true);
    EXPECT_NE(run.err.find("stopped part-way"), std::string::npos) << run.err;
    EXPECT_EQ(Vxctl(OnNode({"command-status"})).out.find("download open"), std::string::npos);
    EXPECT_EQ(Vxctl(OnNode({"get", "nciMinFlow"})).out, "nciMinFlow = 70 liters/second\n");
}

TEST_F(VxctlConfigOverLonIp, ADryRunShowsTheChangesAndTheNodeKeepsItsValues) {
    Serve();
    const fs::path file = SavedFile({{"nciMaxFlow.30", "0118"}});
    const Finished dry = Vxctl(OnNode({"config", "restore", "--dry-run", file.string()}));
    EXPECT_EQ(dry.exitCode, 0) << dry.err;
    EXPECT_EQ(dry.out,
              "a restore would change 1 values:\n"
              "value                     field  now                restored\n"
              "nciMaxFlow.30 (object 2)  -      300 liters/second  280 liters/second\n"
              "nothing was sent (--dry-run)\n");
    EXPECT_EQ(Vxctl(OnNode({"get", "nciMaxFlow"})).out, "nciMaxFlow = 300 liters/second\n");

    // For scripts, the same as the diff gives; the file's path aside.
    const fs::path changed =
        SavedFile({{"nciMaxFlow.30", "0118"}, {"nciSetpoints.20", "0A280A280AF00834076C0640"}});
    const Finished json = Vxctl(OnNode({"--json", "config", "diff", changed.string()}));
    EXPECT_EQ(json.exitCode, 0) << json.err;
    auto diff = nlohmann::ordered_json::parse(json.out);  // in the order vxctl gives
    diff.erase("file");
    test::ExpectGolden(diff.dump(2) + "\n", "config-diff.json");
    const auto dryRun = nlohmann::ordered_json::parse(
        Vxctl(OnNode({"--json", "config", "restore", "--dry-run", changed.string()})).out);
    EXPECT_EQ(dryRun["differences"], diff["differences"]);
}

// ---- Signals -----------------------------------------------------------------------------------

TEST_F(VxctlConfigOverLonIp, CtrlCDuringTheResetWaitSaysThePhaseIsClosedAndExits130) {
    const fs::path state = folder.NextOutput("state").string() + ".json";
    Serve({"--reset-polls", "-1", "--state", state.string()});
    const auto run = Start({"config", "download", "--level", "3"});
    // The node says in its state file when it restarts: vxctl is waiting for the restart then.
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (test::ReadFile(state).find("\"restarting\": true") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
    }
    ASSERT_NE(test::ReadFile(state).find("\"restarting\": true"), std::string::npos);
    run->Signal(SIGINT);
    EXPECT_EQ(run->Wait(10s), 130);
    EXPECT_EQ(run->Err(),
              "vxctl: interrupted by SIGINT\n"
              "vxctl: no configuration download is left open on the controller\n");
}

TEST_F(VxctlConfigOverLonIp, WatchShowsEachChangeAnotherRunMakesAndEndsOnCtrlC) {
    Serve();
    const auto watch = Start({"watch", "nviSetpoint", "--interval", "0.05", "--format", "jsonl"});
    ASSERT_TRUE(watch->AwaitLine("{\"time\":")) << watch->Err();
    ASSERT_EQ(Vxctl(OnNode({"set", "nviSetpoint", "22.5"})).exitCode, 0);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (watch->Out().find("22.5") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
    }
    watch->Signal(SIGINT);
    EXPECT_EQ(watch->Wait(10s), 130);
    std::vector<Json> lines;
    std::istringstream out(watch->Out());
    for (std::string line; std::getline(out, line);)
        lines.push_back(Json::parse(line));
    ASSERT_EQ(lines.size(), 2u) << watch->Out();
    EXPECT_EQ(lines[1]["name"], "nviSetpoint");
    EXPECT_EQ(lines[1]["value"], 22.5);
    EXPECT_EQ(lines[1]["raw"], "08CA");
    EXPECT_NE(watch->Err().find("vxctl: the watch ended by SIGINT after "), std::string::npos);
}

TEST_F(VxctlConfigOverLonIp, WatchGivesTheSameLinesOverTheNetworkAsInProcess) {
    Serve();
    const std::vector<std::string> line = {"--json",
                                           "watch",
                                           "nvoSpaceTemp",
                                           "nciSetpoints.occupied_cool",
                                           "nvoUnitStatus",
                                           "--count",
                                           "2",
                                           "--interval",
                                           "0.05"};
    const Finished local = Vxctl(line);
    const Finished remote = Vxctl(OnNode(line));
    EXPECT_EQ(remote.exitCode, 0) << remote.err;
    EXPECT_EQ(WithoutTimes(remote.out), WithoutTimes(local.out));
    test::ExpectGolden(WithoutTimes(remote.out), "watch.json");
    const Json watched = Json::parse(WithoutTimes(remote.out));
    EXPECT_EQ(watched["polls"], 2);
    ASSERT_EQ(watched["changes"].size(), 3u);  // each value once: none changed
    EXPECT_EQ(watched["changes"][0], Json::parse(R"({"time": "TIME", "name": "nvoSpaceTemp",
        "object": 1, "value": 21.35, "text": "21.35 degrees Celsius", "raw": "0857"})"));

    const Finished csv =
        Vxctl(OnNode({"watch", "nvoSpaceTemp", "--count", "1", "--format", "csv"}));
    EXPECT_EQ(WithoutTimes(csv.out),
              "time,name,value,raw\nTIME,nvoSpaceTemp,21.35 degrees Celsius,0857\n");
}

}  // namespace
}  // namespace vx
