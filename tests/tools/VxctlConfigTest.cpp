// Saved configurations against a controller in this process, where what the node holds and every
// frame it received can be checked: a restore refuses a file that does not fit before it sends
// anything, reports which values reached the node when the network fails part-way, closes the
// download phase it opened, and says so when a signal stops it or a restart never ends. The
// library's waits run on a virtual clock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ConfigCommands.h"
#include "ConfigFile.h"
#include "DefaultController.h"
#include "Interrupt.h"
#include "SavedConfiguration.h"
#include "SimulatedNode.h"
#include "Vxctl.h"
#include "Watch.h"
#include "automation/Clock.h"
#include "fixtures/Scenario.h"

namespace vx::vxctl {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

// Sleeps on a virtual clock and, at the sleep numbered `at` (from 1), acts as a Ctrl-C would.
class SignallingClock final : public Clock {
public:
    explicit SignallingClock(std::uint32_t at) : m_at(at) {}
    void Sleep(std::uint32_t milliseconds) override {
        if (++m_calls == m_at) RequestInterrupt(SIGINT);
        m_inner.Sleep(milliseconds);
    }
    std::chrono::system_clock::time_point Now() override { return m_inner.Now(); }

private:
    VirtualClock m_inner;
    std::uint32_t m_at;
    std::uint32_t m_calls = 0;
};

class VxctlConfig : public ::testing::Test {
protected:
    void TearDown() override {
        AcknowledgeInterrupt();  // a signal a test raised ends with it
        fs::remove(file);
        fs::remove(nodeFile);
    }

    static sim::SimulatedNodePtr DefaultNode() {
        return sim::SimulatedNode::Create(sim::DefaultController());
    }
    static Connection Over(const sim::SimulatedNodePtr& node) {
        return {node, "default", "simulated controller", node->ProgramIDText()};
    }
    static std::map<std::string, Bytes> Held(const sim::SimulatedNode& node) {
        return sim::SavedConfiguration::Save(node)->Values();
    }

    // The default controller's configuration as saved, with `changes` applied to the raw values.
    SavedConfigurationFile SavedWith(const std::map<std::string, Bytes>& changes) {
        const auto node = DefaultNode();
        Session session(Over(node), {}, quiet);
        EXPECT_EQ(ConfigSave(session, file.string()).failure, "");
        SavedConfigurationFile saved = ReadConfigurationFile(file.string());
        for (auto& value : saved.values) {
            if (const auto change = changes.find(value.key); change != changes.end()) {
                value.raw = change->second;
            }
        }
        return saved;
    }

    // The default controller as a node file, with `resetPolls` reads of its restart.
    std::string NodeFileWithResetPolls(int resetPolls) {
        auto description = Json::parse(sim::DefaultControllerJson());
        description["resetPolls"] = resetPolls;
        std::ofstream(nodeFile) << description.dump();
        return nodeFile.string();
    }

    test::ScopedStandardTypes standardTypes;
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScopedClock clockGuard{clock};
    Progress quiet{nullptr};
    fs::path file = fs::temp_directory_path() / ("vxctl-config-" + std::to_string(getpid()));
    fs::path nodeFile =
        fs::temp_directory_path() / ("vxctl-node-" + std::to_string(getpid()) + ".json");
};

// ---- Checked before anything is sent -----------------------------------------------------------

TEST_F(VxctlConfig, AFileThatDoesNotFitIsRefusedBeforeAnythingIsSent) {
    // Items come first in the node's order of changes; the wrong length is the last value.
    SavedConfigurationFile saved = SavedWith(
        {{"3-2", Bytes(24, 1)}, {"0-1", {0x02, 0x00}}, {"nciMaxFlow.30", {0x01, 0x18, 0x00}}});
    WriteConfigurationFile(file.string(), saved);
    const auto node = DefaultNode();
    const auto before = Held(*node);
    Session session(Over(node), {}, quiet);
    node->ClearRecord();
    try {
        ConfigRestore(session, file.string());
        ADD_FAILURE() << "restored";
    } catch (const FileRefusedError& error) {
        EXPECT_NE(std::string(error.what())
                      .find("nciMaxFlow.30 is 2 bytes long on the controller, 3 in the file"),
                  std::string::npos)
            << error.what();
    }
    EXPECT_EQ(Held(*node), before);
    EXPECT_TRUE(node->CommandFrames().empty());
    for (const auto& exchange : node->Exchanges())
        EXPECT_NE(exchange.operation, "WriteValue");

    // Another type under the same key, and another model, alike.
    saved = SavedWith({});
    saved.values[0].type = "SNVT_temp_p";
    WriteConfigurationFile(file.string(), saved);
    EXPECT_THROW(ConfigRestore(session, file.string()), FileRefusedError);
    saved.programId = "9FFFFF0501840460";
    WriteConfigurationFile(file.string(), saved);
    EXPECT_THROW(ConfigRestore(session, file.string()), FileRefusedError);
    EXPECT_EQ(Held(*node), before);
}

TEST_F(VxctlConfig, UnknownKeysAreRefusedOrSkippedAndAlwaysNamed) {
    SavedConfigurationFile saved = SavedWith({{"nciMaxFlow.30", {0x01, 0x18}}});
    saved.values.push_back({"nciGhost.77", {0x01}});
    saved.values.push_back({"9-9", {0x02}});
    WriteConfigurationFile(file.string(), saved);
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    try {
        ConfigRestore(session, file.string());
        ADD_FAILURE() << "restored";
    } catch (const FileRefusedError& error) {
        EXPECT_NE(std::string(error.what())
                      .find("holds 2 values this controller does not have, nothing was sent: "
                            "nciGhost.77, 9-9 (--skip-unknown restores the others)"),
                  std::string::npos)
            << error.what();
    }
    EXPECT_EQ(node->VariableValue("nciMaxFlow"), (Bytes{0x01, 0x2C}));

    const Outcome restored = ConfigRestore(session, file.string(), {.skipUnknown = true});
    EXPECT_EQ(restored.failure, "");
    EXPECT_EQ(restored.json["skipped"], Json::parse(R"(["nciGhost.77", "9-9"])"));
    EXPECT_EQ(restored.json["changed"], Json::parse(R"(["nciMaxFlow.30"])"));
    EXPECT_EQ(restored.json["checked"], 16);
    EXPECT_NE(restored.text.find("skipped 2 values this controller does not have"),
              std::string::npos);
    EXPECT_EQ(node->VariableValue("nciMaxFlow"), (Bytes{0x01, 0x18}));
}

TEST_F(VxctlConfig, ADryRunShowsEachChangedFieldAndSendsNothing) {
    WriteConfigurationFile(
        file.string(),
        SavedWith({{"nciMaxFlow.30", {0x01, 0x18}},
                   {"nciSetpoints.20",
                    {0x0A, 0x28, 0x0A, 0x28, 0x0A, 0xF0, 0x08, 0x34, 0x07, 0x6C, 0x06, 0x40}}}));
    const auto node = DefaultNode();
    const auto before = Held(*node);
    Session session(Over(node), {}, quiet);
    node->ClearRecord();
    const Outcome dry = ConfigRestore(session, file.string(), {.dryRun = true});
    EXPECT_EQ(dry.failure, "");
    EXPECT_EQ(Held(*node), before);
    for (const auto& exchange : node->Exchanges())
        EXPECT_NE(exchange.operation, "WriteValue");
    const Json& differences = dry.json["differences"];
    ASSERT_EQ(differences.size(), 2u) << differences.dump(1);
    // Fields are shown in their engineering units, whichever the catalogue gives them.
    const Json& setpoint = differences[0];
    EXPECT_EQ(setpoint["key"], "nciSetpoints.20");
    EXPECT_EQ(setpoint["controllerRaw"], "09600A280AF00834076C0640");
    EXPECT_EQ(setpoint["fileRaw"], "0A280A280AF00834076C0640");
    ASSERT_EQ(setpoint["fields"].size(), 1u);
    EXPECT_EQ(setpoint["fields"][0]["field"], "occupied_cool");
    EXPECT_TRUE(setpoint["fields"][0]["controller"].get<std::string>().starts_with("24"));
    EXPECT_TRUE(setpoint["fields"][0]["file"].get<std::string>().starts_with("26"));
    EXPECT_EQ(differences[1], Json::parse(R"({"key": "nciMaxFlow.30", "object": 2,
        "name": "nciMaxFlow", "fields": [{"field": "", "controller": "300 liters/second",
        "file": "280 liters/second"}], "controllerRaw": "012C", "fileRaw": "0118"})"));
    EXPECT_NE(dry.text.find("nothing was sent (--dry-run)"), std::string::npos);

    // The diff shows the same, from the controller's side.
    const Outcome diff = ConfigDiff(session, file.string());
    EXPECT_EQ(diff.json["differences"], dry.json["differences"]);
}

TEST_F(VxctlConfig, AFileOfTheFirstFormatStillRestores) {
    std::ofstream(file) << R"({"version": 1, "programId": "91A5A581020404DC",
        "configuration": {"nciMaxFlow.30": "0118", "0-1": "0200"}})";
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    const Outcome restored = ConfigRestore(session, file.string());
    EXPECT_EQ(restored.failure, "");
    EXPECT_EQ(restored.json["changed"], Json::parse(R"(["0-1", "nciMaxFlow.30"])"));
    EXPECT_EQ(restored.json["notInFile"].size(), 14u);
    EXPECT_EQ(node->VariableValue("nciMaxFlow"), (Bytes{0x01, 0x18}));
    EXPECT_EQ(node->ConfigItemValue("0-1"), (Bytes{0x02, 0x00}));
}

// ---- When the network or the technician stops it ----------------------------------------------

TEST_F(VxctlConfig, ANetworkFailurePartWayListsWhatArrivedAndClosesThePhase) {
    WriteConfigurationFile(file.string(), SavedWith({{"0-1", {0x02, 0x00}},
                                                     {"nciMinFlow.29", {0x00, 0x46}},
                                                     {"nciMaxFlow.30", {0x01, 0x18}}}));
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    node->InjectFault(
        {.operation = "WriteValue", .target = "nciMaxFlow", .count = sim::kFaultAlways});
    const Outcome outcome = ConfigRestore(session, file.string());
    EXPECT_EQ(outcome.failureCode, kExitStoppedPartWay);
    EXPECT_EQ(outcome.json["arrived"], Json::parse(R"(["0-1", "nciMinFlow.29"])"));
    EXPECT_EQ(outcome.json["notArrived"], Json::parse(R"(["nciMaxFlow.30"])"));
    EXPECT_EQ(outcome.json["unknown"], Json::array());
    EXPECT_EQ(outcome.json["downloadClosed"], true);
    EXPECT_EQ(outcome.json["error"]["number"], static_cast<std::int32_t>(0x80042001));
    EXPECT_EQ(node->Commands().downloadLevel, 0);  // the phase it opened is closed
    EXPECT_NE(outcome.text.find("2 of 3 changed values reached the controller"), std::string::npos)
        << outcome.text;
}

TEST_F(VxctlConfig, ASignalDuringTheDownloadClosesThePhaseAndSaysWhatArrived) {
    WriteConfigurationFile(file.string(), SavedWith({{"nciMaxFlow.30", {0x01, 0x18}}}));
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    // The first sleep is the pause after the download opened.
    ScopedClock signalling(std::make_shared<SignallingClock>(1));
    const InterruptibleClockGuard interruptible;
    const Outcome outcome = ConfigRestore(session, file.string());
    EXPECT_EQ(outcome.failureCode, kExitInterrupted);
    EXPECT_EQ(outcome.json["interrupted"], "SIGINT");
    EXPECT_EQ(outcome.json["notArrived"], Json::parse(R"(["nciMaxFlow.30"])"));
    EXPECT_EQ(outcome.json["downloadClosed"], true);
    EXPECT_EQ(node->Commands().downloadLevel, 0);
    EXPECT_EQ(node->CommandFrames().back(), test::Frame({4, 2}));
}

TEST_F(VxctlConfig, ASignalEndsAnyCommandWithCode130AndWhatIsLeftOpen) {
    // Sleeps 1 and 2 are the open's and the close's pauses, 3 the first of the reset wait.
    for (const std::uint32_t at : {1u, 3u}) {
        SCOPED_TRACE(at);
        ScopedClock signalling(std::make_shared<SignallingClock>(at));
        std::ostringstream out, err;
        EXPECT_EQ(vxctl::Run({"config", "download", "--level", "3"}, out, err), kExitInterrupted);
        EXPECT_NE(err.str().find("vxctl: interrupted by SIGINT\nvxctl: no configuration "
                                 "download is left open on the controller\n"),
                  std::string::npos)
            << err.str();
        AcknowledgeInterrupt();
    }
}

TEST_F(VxctlConfig, ARestartThatNeverEndsIsReportedAsNotDone) {
    const std::string device = NodeFileWithResetPolls(-1);
    std::ostringstream out, err;
    EXPECT_EQ(vxctl::Run({"--device", device, "config", "download", "--level", "3"}, out, err),
              kExitNotDone);
    EXPECT_NE(err.str().find("still reported its application reset after the wait of 90 s"),
              std::string::npos)
        << err.str();

    std::ostringstream endsOut, endsErr;
    EXPECT_EQ(
        vxctl::Run({"--device", NodeFileWithResetPolls(2), "config", "download", "--level", "3"},
                   endsOut, endsErr),
        kExitSuccess)
        << endsErr.str();
}

// ---- Watch ---------------------------------------------------------------------------------

// Sleeps on a virtual clock; before the sleep numbered `at` (from 1) runs `action`.
class ActingClock final : public Clock {
public:
    ActingClock(std::uint32_t at, std::function<void()> action)
        : m_at(at), m_action(std::move(action)) {}
    void Sleep(std::uint32_t milliseconds) override {
        if (++m_calls == m_at) m_action();
        m_inner.Sleep(milliseconds);
    }
    std::chrono::system_clock::time_point Now() override { return m_inner.Now(); }

private:
    VirtualClock m_inner;
    std::uint32_t m_at;
    std::function<void()> m_action;
    std::uint32_t m_calls = 0;
};

TEST_F(VxctlConfig, WatchPrintsAValueAtTheFirstReadAndThenOnlyWhenItChanges) {
    const auto node = DefaultNode();
    Session session(Over(node), {}, quiet);
    // 2.5 s between reads; the temperature changes before the second read, the setpoints never.
    ScopedClock acting(std::make_shared<ActingClock>(1, [&] {
        node->SetVariableValue("nvoSpaceTemp", {0x08, 0x98});
    }));
    node->ClearRecord();
    std::ostringstream out;
    const Outcome outcome =
        Watch(session,
              {.names = {"nvoSpaceTemp", "nciSetpoints.occupied_cool", "nciSetpoints.standby_cool"},
               .intervalSeconds = 2.5,
               .count = 3},
              out, false);
    EXPECT_EQ(outcome.failure, "");
    const std::string setpoints = "1970-01-01T00:00:00.000Z  nciSetpoints.";
    EXPECT_EQ(out.str().substr(0, out.str().find('\n') + 1),
              "1970-01-01T00:00:00.000Z  nvoSpaceTemp = 21.35 degrees Celsius\n");
    EXPECT_NE(out.str().find(setpoints + "occupied_cool = 24"), std::string::npos);
    EXPECT_NE(out.str().find(setpoints + "standby_cool = 26"), std::string::npos);
    EXPECT_TRUE(
        out.str().ends_with("1970-01-01T00:00:02.500Z  nvoSpaceTemp = 22 degrees Celsius\n"))
        << out.str();
    const std::string shown = out.str();
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 4);
    // Two values a round, the setpoints once for both of their fields.
    EXPECT_EQ(node->Exchanges().size(), 6u);

    // A read that fails is a line of its own, and so is the value when it is back.
    node->InjectFault({.operation = "ReadValue", .target = "nvoSpaceTemp"});
    std::ostringstream failing;
    Watch(session, {.names = {"nvoSpaceTemp"}, .count = 3, .format = "csv"}, failing, false);
    const std::string csv = failing.str();
    EXPECT_TRUE(csv.starts_with("time,name,value,raw\n")) << csv;
    EXPECT_NE(csv.find(",nvoSpaceTemp,error: error 0x80040301"), std::string::npos) << csv;
    EXPECT_TRUE(csv.ends_with(",nvoSpaceTemp,22 degrees Celsius,0898\n")) << csv;
}

// ---- The file --------------------------------------------------------------------------------

TEST_F(VxctlConfig, TheSavedFileShowsEngineeringValuesBesideTheRawBytes) {
    SavedWith({});
    const auto file2 = Json::parse(std::ifstream(file));
    EXPECT_EQ(file2["device"], "VX-220 Room 2.14");
    EXPECT_EQ(file2["version"], 2);
    const auto& first = file2["values"][0];
    EXPECT_EQ(first, Json::parse(R"({"key": "nciSndHrtBt.18", "object": 1, "name": "nciSndHrtBt",
        "type": "SNVT_time_sec", "value": "60 seconds", "raw": "0258"})"));
}

TEST_F(VxctlConfig, AMalformedFileIsRefusedNamingTheEntry) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{", "not a saved configuration: no JSON"},
        {R"({"configuration": {}})", "\"programId\" is missing"},
        {R"({"programId": "91A5A581020404DC", "configuration": {"3-1": "49G0"}})",
         "configuration \"3-1\": the value is not 1 to 255 bytes in hexadecimal"},
        {R"({"programId": "91A5A581020404DC", "configuration": {}, "values": {}})",
         "unknown key \"values\""},
        {R"({"version": 3, "programId": "91A5A581020404DC", "configuration": {}})",
         "version 3 is not known"},
        {R"({"version": 2, "programId": "91A5A581020404DC", "values": [{"raw": "00"}]})",
         "values[0]: \"key\" is missing"},
        {R"({"version": 2, "programId": "91A5A581020404DC",
             "values": [{"key": "0-1", "raw": "00"}, {"key": "0-1", "raw": "01"}]})",
         "values[1]: key \"0-1\" is given twice"},
        {R"({"version": 2, "programId": "91A5A581020404DC", "values": [{"key": "0-1"}]})",
         "values[0]: \"raw\" is missing"},
        {R"({"programId": "91A5A581020404DC", "configuration": {"0-1": "00", "0-1": "01"}})",
         "configuration \"0-1\": key \"0-1\" is given twice"},
        {R"({"programId": "91A5A581020404DC", "programId": "91A5A581020404DC"})",
         "\"programId\" is given twice"},
        {R"({"version": 2, "programId": "91A5A581020404DC", "values": [7]})",
         "values[0]: no JSON object"},
    };
    for (const auto& [content, message] : cases) {
        std::ofstream(file) << content;
        try {
            ReadConfigurationFile(file.string());
            ADD_FAILURE() << content;
        } catch (const FileRefusedError& error) {
            EXPECT_NE(std::string(error.what()).find(file.string() + ": "), std::string::npos);
            EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
        }
    }
}

}  // namespace
}  // namespace vx::vxctl
