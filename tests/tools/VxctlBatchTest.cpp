// vxctl run: several commands on one connection, from a file or standard input. The lines are
// split as a shell splits them, every line is checked before the first runs, and the batch stops
// at the first that fails, saying which ran and which did not.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Batch.h"
#include "ToolErrors.h"
#include "VxctlRun.h"

namespace vx {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;

// ---- Splitting lines ----------------------------------------------------------------------------

std::vector<std::vector<std::string>> WordsOf(const std::string& text) {
    std::vector<std::vector<std::string>> words;
    for (const auto& line : vxctl::ParseBatch(text))
        words.push_back(line.words);
    return words;
}

TEST(VxctlBatchParse, SplitsWordsAsAShellDoesAndSkipsBlankAndCommentLines) {
    EXPECT_EQ(
        WordsOf("set nciMaxFlow 280\n\n  # a comment\nname \"Hall 3\"\r\n"),
        (std::vector<std::vector<std::string>>{{"set", "nciMaxFlow", "280"}, {"name", "Hall 3"}}));
    EXPECT_EQ(WordsOf("name 'it''s' a\\ b \"q\\\"x\" ''\tlast"),
              (std::vector<std::vector<std::string>>{{"name", "its", "a b", "q\"x", "", "last"}}));
    EXPECT_EQ(WordsOf("name 'a\\b'"), (std::vector<std::vector<std::string>>{{"name", "a\\b"}}));
    EXPECT_TRUE(WordsOf("").empty());
    EXPECT_TRUE(WordsOf("\n\n#\n   \n").empty());

    const auto lines = vxctl::ParseBatch("\n# first\n  info  \nping");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].number, 3u);
    EXPECT_EQ(lines[0].text, "  info  ");
    EXPECT_EQ(lines[1].number, 4u);
}

TEST(VxctlBatchParse, AnUnclosedQuoteOrTrailingBackslashNamesItsLine) {
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {"info\nname \"Hall 3\n", "line 2: the quote \" is not closed"},
             {"name 'x", "line 1: the quote ' is not closed"},
             {"info\n\nname x\\", "line 3: a backslash ends the line"},
         }) {
        try {
            vxctl::ParseBatch(text);
            ADD_FAILURE() << text;
        } catch (const vxctl::UsageError& error) {
            EXPECT_EQ(error.what(), message);
        }
    }
}

// ---- Running a batch ----------------------------------------------------------------------------

class VxctlBatch : public ::testing::Test {
protected:
    std::string Batch(const std::string& text) {
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }
    void TearDown() override { fs::remove(file); }

    fs::path file = test::ScratchFile(".vxctl");
};

constexpr const char* kSiteChanges =
    "# the site's values, and one level-3 download for all of them\n"
    "set nciSetpoints.occupied_cool 23.5\n"
    "set nciMaxFlow 280\n"
    "config download --level 3\n"
    "get nciSetpoints.occupied_cool\n";

TEST_F(VxctlBatch, RunsEveryLineOnOneConnectionSoThatChangesLastForTheBatch) {
    // The controller in process starts afresh every run: the last line sees the first's change
    // only because all of them share one connection.
    const Finished run = Vxctl({"run", Batch(kSiteChanges)});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_NE(run.out.find("# line 2 (set nciSetpoints.occupied_cool 23.5)\n"), std::string::npos);
    EXPECT_NE(run.out.find("# line 5 (get nciSetpoints.occupied_cool)\n"
                           "nciSetpoints.occupied_cool = 23.5"),
              std::string::npos)
        << run.out;

    const Finished json = Vxctl({"--json", "run", Batch(kSiteChanges)});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const Json document = Json::parse(json.out);
    ASSERT_EQ(document["commands"].size(), 4u);
    EXPECT_EQ(document["notRun"], Json::array());
    EXPECT_FALSE(document.contains("error"));
    EXPECT_EQ(document["commands"][2]["command"], "config download --level 3");
    EXPECT_EQ(document["commands"][2]["result"]["level"], 3);
    EXPECT_EQ(document["commands"][2]["result"]["commandStatus"]["checksumMismatch"], false);
    EXPECT_EQ(document["commands"][3]["result"]["value"], 23.5);
}

TEST_F(VxctlBatch, ReadsTheCommandsFromStandardInput) {
    const std::string input = "set nviApplicMode heat\nget nviApplicMode\n";
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"run"}, {"run", "-"}, {"--json", "run", "-"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const Finished run = test::Vxctl(arguments, input);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        if (arguments.front() == "--json") {
            EXPECT_EQ(Json::parse(run.out)["commands"][1]["result"]["raw"], "01") << run.out;
        } else {
            EXPECT_TRUE(run.out.ends_with("nviApplicMode = HVAC_HEAT\n")) << run.out;
        }
    }
    // Nothing to do is no failure.
    EXPECT_EQ(test::Vxctl({"run"}, "# nothing yet\n").exitCode, 0);
}

TEST_F(VxctlBatch, AMistakeOnAnyLineStopsTheBatchBeforeTheFirstLineRuns) {
    struct Case {
        std::string text;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"set nciMaxFlow 280\nsett nciMaxFlow 300\n",
         "line 2 (sett nciMaxFlow 300): unknown command 'sett' (did you mean 'set'?)"},
        {"set nciMaxFlow 280\ncommand reset-timer 1 70000\n",
         "line 2 (command reset-timer 1 70000): argument VALUE \"70000\": out of range; the "
         "valid range is 0 to 65535"},
        {"set nciMaxFlow 280\n--device default info\n",
         "line 2 (--device default info): --device is given to 'vxctl run' for every line, "
         "not on a line"},
        {"info --json\n",
         "line 1 (info --json): --json is given to 'vxctl run' for every line, "
         "not on a line"},
        {"info\nrun other.vxctl\n", "line 2 (run other.vxctl): 'run' cannot be a line of a batch"},
        {"info\nname \"Hall\n", "line 2: the quote \" is not closed"},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(text);
        const Finished run = Vxctl({"--json", "run", Batch(text)});
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err.substr(0, run.err.find('\n')).substr(0, 7 + message.size()),
                  "vxctl: " + message);
        const Json document = Json::parse(run.out);
        EXPECT_EQ(document["error"]["kind"], "usage");
        EXPECT_FALSE(document.contains("commands"));  // nothing ran
    }
    const Finished missing = Vxctl({"run", "no-such-batch.vxctl"});
    EXPECT_EQ(missing.exitCode, 5);
    EXPECT_EQ(missing.err, "vxctl: cannot read the commands of no-such-batch.vxctl\n");
}

TEST_F(VxctlBatch, StopsAtTheFirstLineThatFailsAndListsWhatDidNotRun) {
    const std::string batch = Batch(
        "set nciMaxFlow 280\n"
        "get nvoNothing\n"
        "command clear-log 1\n"
        "set nciMaxFlow 300\n");
    const Finished run = Vxctl({"--json", "run", batch});
    EXPECT_EQ(run.exitCode, 1);
    const Json document = Json::parse(run.out);
    ASSERT_EQ(document["commands"].size(), 2u);
    EXPECT_EQ(document["commands"][0]["exitCode"], 0);
    EXPECT_EQ(document["commands"][1]["exitCode"], 1);
    EXPECT_EQ(document["commands"][1]["error"]["kind"], "failed");
    EXPECT_EQ(document["notRun"], Json::parse(R"([{"line": 3, "command": "command clear-log 1"},
                                                  {"line": 4, "command": "set nciMaxFlow 300"}])"));
    EXPECT_EQ(document["error"], document["commands"][1]["error"]);
    EXPECT_TRUE(run.err.starts_with(
        "vxctl: line 2 (get nvoNothing): the device has no variable 'nvoNothing'"))
        << run.err;
    EXPECT_TRUE(run.err.ends_with("\nvxctl: the batch stopped; 2 of 4 commands not run\n"))
        << run.err;

    // A controller that does not do what was asked stops it too, with that line's exit code.
    const Finished rejected = Vxctl({"run", Batch("command clear-log 9\ninfo\n")});
    EXPECT_EQ(rejected.exitCode, 4);
    EXPECT_EQ(rejected.err,
              "vxctl: line 1 (command clear-log 9): the controller rejected the command\n"
              "vxctl: the batch stopped; 1 of 2 commands not run\n");
}

TEST_F(VxctlBatch, ConfirmationsAreAskedBeforeTheFirstLineRuns) {
    const std::string text = "set nciMaxFlow 280\nmode reset\n";
    // From standard input there is nobody to ask: refused before anything is sent.
    const Finished fromInput = test::Vxctl({"--json", "run"}, text);
    EXPECT_EQ(fromInput.exitCode, 7);
    const Json document = Json::parse(fromInput.out);
    EXPECT_EQ(document["commands"], Json::array());
    EXPECT_EQ(document["notRun"].size(), 2u);
    EXPECT_EQ(document["error"]["message"],
              "line 2 (mode reset): not confirmed: reset the controller's application; --yes "
              "confirms it (there is no terminal to ask on)");

    EXPECT_EQ(test::Vxctl({"run", "--yes"}, text).exitCode, 0);
    EXPECT_EQ(test::Vxctl({"run"}, "set nciMaxFlow 280\nmode reset --yes\n").exitCode, 0);
}

}  // namespace
}  // namespace vx
