// Node diagnostics on the controller in process: the status block, memory as a hex dump, and the
// application's mode, as a technician reads them and as a script gets them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Golden.h"
#include "VxctlRun.h"

namespace vx {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;

TEST(VxctlDiagnostics, QueryStatusShowsTheStatusBlock) {
    const Finished json = Vxctl({"--json", "query-status"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    test::ExpectGolden(json.out, "query-status.json");

    const Finished text = Vxctl({"query-status"});
    EXPECT_NE(text.out.find("reset cause                power-up (0x01)\n"), std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("state                      configured, application online (0x04)\n"),
              std::string::npos)
        << text.out;
}

TEST(VxctlDiagnostics, ReadMemoryDumpsBytesInLinesOfSixteenWithTheirText) {
    // The default controller keeps its configuration items from 4200 on; 3-1 (the checksum) first.
    const Finished dump = Vxctl({"read-memory", "0x4200", "20"});
    ASSERT_EQ(dump.exitCode, 0) << dump.err;
    test::ExpectGolden(dump.out, "read-memory-4200.txt");
    const Json json = Json::parse(Vxctl({"--json", "read-memory", "16896", "2"}).out);
    EXPECT_EQ(json, Json::parse(R"({"area": "absolute", "address": "4200", "count": 2,
                                     "bytes": "4900"})"));

    // The read-only data starts with the Neuron ID and holds the program ID at 13.
    const Json readOnly =
        Json::parse(Vxctl({"--json", "read-memory", "13", "8", "--area", "read-only"}).out);
    EXPECT_EQ(readOnly["bytes"], "91A5A581020404DC");

    const Finished past = Vxctl({"read-memory", "0xFFF0", "32"});
    EXPECT_EQ(past.exitCode, 2);
    EXPECT_EQ(past.err.substr(0, past.err.find('\n')),
              R"(vxctl: argument COUNT "32": reaches past the end of the memory at 0xFFFF; at )"
              R"(most 16 bytes from 0xFFF0)");
    EXPECT_EQ(Vxctl({"read-memory", "0", "4097"}).exitCode, 2);
    EXPECT_EQ(Vxctl({"read-memory", "0", "0"}).exitCode, 2);

    // A request the node refuses is the network's error, with how far the dump got.
    const Finished refused = Vxctl({"read-memory", "0xF0", "32", "--area", "read-only"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err.substr(0, refused.err.find(" (error ")),
              "vxctl: reading 32 bytes at 00F0 stopped at 00F0, after 0 bytes");
}

TEST(VxctlDiagnostics, TheModeTakesTheApplicationOfflineAndBack) {
    const fs::path batch = test::ScratchFile(".vxctl");
    std::ofstream(batch) << "mode offline\nquery-status\ninfo\nmode online\nquery-status\n";
    const Finished run = Vxctl({"--json", "run", batch.string()});
    fs::remove(batch);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Json commands = Json::parse(run.out)["commands"];
    EXPECT_EQ(commands[0]["result"], Json::parse(R"({"mode": "offline",
                                                     "state": "Configured/Offline"})"));
    EXPECT_EQ(commands[1]["result"]["state"]["code"], 0x0C);
    EXPECT_EQ(commands[2]["result"]["state"], "Configured/Offline");
    EXPECT_EQ(commands[3]["result"]["state"], "Configured/Online");
    EXPECT_EQ(commands[4]["result"]["state"]["code"], 0x04);

    const Finished reset = Vxctl({"mode", "reset", "--yes"});
    EXPECT_EQ(reset.exitCode, 0) << reset.err;
    EXPECT_EQ(reset.out, "application reset sent; the controller's state: Configured/Online\n");
}

}  // namespace
}  // namespace vx
