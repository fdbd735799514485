// vxctl against a node on the network: vxsim serving the simulated controller on a loopback
// address of this test process's own, vxctl on another (--local), so that test processes running
// side by side never share port 2541 of one address. Each test starts its vxsim and stops it by
// its process ID, also when the test fails.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Connections.h"
#include "VxctlRun.h"
#include "VxsimProcess.h"
#include "interfaces/INodeVariableAccess.h"

namespace vx {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;
using test::VxsimProcess;

const std::string kUnconfiguredSensor =
    std::string(VXCTL_TEST_DATA_DIR) + "/unconfigured-sensor.json";
const std::string kRoomSensor = std::string(VXCTL_TEST_DATA_DIR) + "/room-sensor.json";

// Fourth octets: nodes from 10 up, hosts from 100 up, nothing at 200 and above.
int NextNodeOctet() {
    static int next = 10;
    return next++;
}
int NextHostOctet() {
    static int next = 100;
    return next++;
}

std::string WithoutFirstLine(const std::string& text) {
    const auto end = text.find('\n');
    return end == std::string::npos ? std::string() : text.substr(end + 1);
}

class VxctlOverLonIp : public ::testing::Test {
protected:
    // Starts vxsim serving `device` at the test's node address.
    void Serve(const std::string& device = "default", std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"--listen", node, "--device", device};
        arguments.insert(arguments.end(), more.begin(), more.end());
        vxsim.emplace(arguments);
    }

    // The arguments of a vxctl run on the served node.
    std::vector<std::string> OnNode(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--device", "lonip://" + node, "--local", host});
        return arguments;
    }

    const std::string node = test::TestLoopback(NextNodeOctet());
    const std::string host = test::TestLoopback(NextHostOctet());
    std::optional<VxsimProcess> vxsim;
};

// ---- The same output as in process ------------------------------------------------------------

TEST_F(VxctlOverLonIp, EveryCommandShowsWhatTheInProcessControllerShows) {
    Serve();

    // Only the device's name differs.
    const Finished localInfo = Vxctl({"info"});
    const Finished remoteInfo = Vxctl(OnNode({"info"}));
    ASSERT_EQ(remoteInfo.exitCode, 0) << remoteInfo.err;
    EXPECT_EQ(remoteInfo.out.substr(0, remoteInfo.out.find('\n')),
              "device                lonip://" + node + " (LON/IP node)");
    EXPECT_EQ(WithoutFirstLine(remoteInfo.out), WithoutFirstLine(localInfo.out));
    Json localJson = Json::parse(Vxctl({"--json", "info"}).out);
    Json remoteJson = Json::parse(Vxctl(OnNode({"--json", "info"})).out);
    EXPECT_EQ(remoteJson["device"], "lonip://" + node);
    localJson.erase("device");
    remoteJson.erase("device");
    EXPECT_EQ(remoteJson, localJson);

    // A saved configuration, before anything changes it on the node.
    const fs::path localSaved = test::ScratchFile(".json");
    const fs::path remoteSaved = test::ScratchFile(".json");
    EXPECT_EQ(Vxctl({"config", "save", localSaved.string()}).exitCode, 0);
    EXPECT_EQ(Vxctl(OnNode({"config", "save", remoteSaved.string()})).exitCode, 0);
    EXPECT_EQ(test::ReadFile(remoteSaved), test::ReadFile(localSaved));
    fs::remove(localSaved);
    fs::remove(remoteSaved);

    // In an order in which the node's earlier changes do not show in a later command's output, as
    // the in-process controller starts afresh every run: the level-3 download after the level-2
    // change leaves no checksum mismatch for the commands to report.
    const std::vector<std::vector<std::string>> lines = {
        {"objects", "--values"},
        {"--json", "objects", "--values"},
        {"get", "nciSetpoints.occupied_cool"},
        {"--json", "get", "nvoAlarmMessage"},
        {"--json", "status"},
        {"name"},
        {"wink"},
        {"ping"},
        {"--json", "config", "upload"},
        {"--json", "set", "nciSetpoints.occupied_cool", "24.5"},
        {"set", "nviApplicMode", "heat"},
        {"--json", "config", "download", "--level", "3"},
        {"--json", "command", "keypress", "12"},
        {"command", "clear-log", "9"},  // rejected: the node has no object 9
        {"--json", "request", "2", "disabled"},
        {"request", "7", "RQ_UPDATE_STATUS"},  // no object 7
        {"name", "Hall 3"},
        {"get", "nvoNothing"},
    };
    test::ExpectSameAsInProcess(lines, [this](const auto& line) { return OnNode(line); });
}

// ---- What the node keeps between runs -----------------------------------------------------------

TEST_F(VxctlOverLonIp, AChangeIsSeenByTheNextRunAndSurvivesARestartWithTheStateFile) {
    const fs::path state = test::ScratchFile(".state.json");
    struct Removed {
        fs::path path;
        ~Removed() { fs::remove(path); }
    } removed{state};
    Serve("default", {"--state", state.string()});
    // The status the node answered the last command with, not the empty one of a fresh node.
    ASSERT_EQ(Vxctl(OnNode({"command", "keypress", "12"})).exitCode, 0);
    EXPECT_EQ(Vxctl(OnNode({"command-status"})).out, "command status: command 7, accepted\n");
    ASSERT_EQ(Vxctl(OnNode({"set", "nciSetpoints.occupied_cool", "24.5"})).exitCode, 0);
    ASSERT_EQ(Vxctl(OnNode({"name", "Hall 3"})).exitCode, 0);

    ASSERT_EQ(vxsim->Stop(), 0) << vxsim->Said();
    vxsim.reset();
    Serve("default", {"--state", state.string()});
    EXPECT_EQ(Vxctl(OnNode({"get", "nciSetpoints.occupied_cool"})).out,
              "nciSetpoints.occupied_cool = 24.5 degrees Celsius\n");
    EXPECT_EQ(Vxctl(OnNode({"name"})).out, "Hall 3\n");
}

TEST_F(VxctlOverLonIp, ADownloadOpenedInOneRunIsClosedInTheNext) {
    Serve();
    const Finished opened = Vxctl(OnNode({"command", "open-download", "2", "1"}));
    ASSERT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_EQ(opened.out,
              "open-download sent\ncommand status: command 3, accepted, download open\n");

    // A fresh controller has no download open and rejects the close.
    EXPECT_EQ(Vxctl({"command", "close-download", "2"}).exitCode, 4);
    const Finished closed = Vxctl(OnNode({"command", "close-download", "2"}));
    EXPECT_EQ(closed.exitCode, 0) << closed.err;
    EXPECT_EQ(closed.out.find("rejected"), std::string::npos) << closed.out;
    EXPECT_NE(closed.out.find("command 4, accepted"), std::string::npos) << closed.out;
}

// ---- What the node decides ---------------------------------------------------------------------

std::set<std::string> ItemNames(const NodeConnectionPtr& connection) {
    std::set<std::string> names;
    for (const auto& item : connection->ConfigurationProperties()->Items()) {
        names.insert(dynamic_cast<INodeVariableAccess&>(*item).Name());
    }
    return names;
}

TEST_F(VxctlOverLonIp, TheLayoutOfItemsComesFromTheFileOrTheDefaultControllersProgramId) {
    Serve();
    vxctl::DeviceChoice choice;
    choice.device = "lonip://" + node;
    choice.network.local = host;
    const auto defaultModel = vxctl::OpenConnection(choice);
    EXPECT_EQ(ItemNames(defaultModel.node),
              (std::set<std::string>{"3-1", "3-2", "0-1", "0-2", "0-3", "0-4"}));
    EXPECT_EQ(defaultModel.programId, "91A5A581020404DC");

    // The file's items with an address, and only those.
    choice.layout = kUnconfiguredSensor;
    choice.network.local = test::TestLoopback(NextHostOctet());
    EXPECT_EQ(ItemNames(vxctl::OpenConnection(choice).node), std::set<std::string>{"0-1"});
}

TEST_F(VxctlOverLonIp, ANodeOfAnotherModelHasNoItemsAndNoRevisionUnlessGiven) {
    Serve(kRoomSensor);
    vxctl::DeviceChoice choice;
    choice.device = "lonip://" + node;
    choice.network.local = host;
    EXPECT_EQ(ItemNames(vxctl::OpenConnection(choice).node), std::set<std::string>{});

    const Finished info = Vxctl(OnNode({"--json", "info"}));
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_EQ(Json::parse(info.out)["revisionDescription"], "none");
    const Finished given = Vxctl(OnNode({"--revision", "default", "--json", "info"}));
    EXPECT_EQ(Json::parse(given.out)["revisionDescription"], "built-in");
}

// ---- Discover ----------------------------------------------------------------------------------

std::string Around(const std::string& address, int below, int above) {
    const auto lastDot = address.rfind('.');
    const std::string prefix = address.substr(0, lastDot + 1);
    const int last = std::stoi(address.substr(lastDot + 1));
    return prefix + std::to_string(last - below) + "-" + prefix + std::to_string(last + above);
}

TEST_F(VxctlOverLonIp, DiscoverFindsTheNodeOnARangeAroundIt) {
    Serve();
    const Finished found = Vxctl({"discover", "--range", Around(node, 1, 1), "--local", host});
    ASSERT_EQ(found.exitCode, 0) << found.err;
    EXPECT_EQ(found.err, "");
    EXPECT_NE(found.out.find(node + "  05-01-3C-7A-1F-02  91A5A581020404DC  Configured/Online"),
              std::string::npos)
        << found.out;

    // Whether or not this machine routes multicast, the range's answers stand.
    const Finished broadcast =
        Vxctl({"discover", "--range", Around(node, 0, 0), "--local", host, "--broadcast"});
    EXPECT_EQ(broadcast.exitCode, 0) << broadcast.err;
    EXPECT_NE(broadcast.out.find(node + "  05-01-3C-7A-1F-02"), std::string::npos) << broadcast.out;

    const Finished json =
        Vxctl({"--json", "discover", "--range", Around(node, 2, 0), "--local", host});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(Json::parse(json.out), Json::parse(R"([{"address": ")" + node + R"(",
        "neuronId": "05-01-3C-7A-1F-02", "programId": "91A5A581020404DC",
        "state": "Configured/Online"}])"));
}

TEST_F(VxctlOverLonIp, DiscoverFindsAnUnconfiguredNodeByItsQueryIdAnswer) {
    Serve(kUnconfiguredSensor);
    const Finished found =
        Vxctl({"--json", "discover", "--range", Around(node, 0, 1), "--local", host});
    ASSERT_EQ(found.exitCode, 0) << found.err;
    EXPECT_EQ(Json::parse(found.out), Json::parse(R"([{"address": ")" + node + R"(",
        "neuronId": "01-02-03-04-05-A7", "programId": "9000010600828500",
        "state": "Unconfigured"}])"));

    // A domain-wide broadcast finds it from a range it is not in.
    const Finished broadcast =
        Vxctl({"--json", "discover", "--range", Around(test::TestLoopback(201), 0, 0), "--local",
               host, "--broadcast"});
    ASSERT_EQ(broadcast.exitCode, 0) << broadcast.err;
    EXPECT_NE(broadcast.out.find(R"("neuronId": "01-02-03-04-05-A7")"), std::string::npos)
        << broadcast.out;
}

TEST_F(VxctlOverLonIp, DiscoverSaysWhenNothingAnswered) {
    const std::string nobody = Around(test::TestLoopback(201), 0, 2);
    const Finished run = Vxctl({"discover", "--range", nobody, "--local", host});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "no node answered on " + nobody + "\n");
    EXPECT_EQ(Vxctl({"--json", "discover", "--range", nobody, "--local", host}).out, "[]\n");
}

// ---- Errors ------------------------------------------------------------------------------------

TEST_F(VxctlOverLonIp, AMalformedAddressOrRangeIsAUsageError) {
    const std::vector<std::vector<std::string>> lines = {
        {"--device", "lonip://", "info"},
        {"--device", "lonip://localhost", "info"},
        {"--device", "lonip://127.0.0.2:70000", "info"},
        {"--device", "lonip://127.0.0.2/05013C7A1F", "info"},
        {"--device", "lonip:127.0.0.2", "info"},
        {"--local", "127.0.0", "--device", "lonip://127.0.0.2", "info"},
        {"--timeout", "0", "--device", "lonip://127.0.0.2", "info"},
        {"discover"},
        {"discover", "--range", "127.0.0.9-127.0.0.2"},
        {"discover", "--range", "127.0.0.0-127.0.4.0"},  // 1025 addresses
        {"discover", "--range", "127.0.0.2:2541-127.0.0.3"},
        {"discover", "--range", "::1"},
    };
    for (const auto& line : lines) {
        const Finished run = Vxctl(line);
        EXPECT_EQ(run.exitCode, 2) << ::testing::PrintToString(line) << run.err;
        EXPECT_NE(run.err.find("hint: 'vxctl --help'"), std::string::npos) << run.err;
    }
    const Finished named = Vxctl({"--device", "lonip://localhost", "info"});
    EXPECT_NE(named.err.find("for example lonip://127.0.0.2"), std::string::npos) << named.err;
}

TEST_F(VxctlOverLonIp, ANodeThatDoesNotAnswerIsAFailureNamingTheAttempts) {
    const std::string silent = test::TestLoopback(202);
    const Finished run =
        Vxctl({"--device", "lonip://" + silent, "--local", host, "--timeout", "50", "info"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("(Vx.Lon): no answer from " + silent + " after 4 attempts ("),
              std::string::npos)
        << run.err;

    // The retries given are the attempts after the first.
    const Finished once = Vxctl({"--device", "lonip://" + silent, "--local", host, "--timeout",
                                 "50", "--retries", "0", "ping"});
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_NE(once.err.find("after 1 attempt"), std::string::npos) << once.err;
}

}  // namespace
}  // namespace vx
