// What vxctl does with a command line before and around a command: the words it cannot take and
// what it says about them, the exit code of each kind of failure, one JSON document for every
// outcome with --json, the object request's arguments, confirmations, and shell completion.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DefaultController.h"
#include "ErrorReport.h"
#include "Operations.h"
#include "SimulatedNode.h"
#include "VxctlRun.h"
#include "WordSuggestions.h"
#include "fixtures/Scenario.h"

namespace vx {
namespace {

using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;

constexpr const char* kHint = "hint: 'vxctl --help'";

// ---- Misspelt words --------------------------------------------------------------------------

TEST(VxctlSuggest, OffersTheClosestWordsAndNothingForAWordFarFromAll) {
    const std::vector<std::string> commands = {
        "get", "set", "status", "request", "config", "command", "command-status", "query-status"};
    EXPECT_EQ(vxctl::ClosestWords("sett", commands), std::vector<std::string>{"set"});
    EXPECT_EQ(vxctl::ClosestWords("stauts", commands),
              std::vector<std::string>{"status"});  // a swap
    EXPECT_EQ(vxctl::ClosestWords("CONFIG", commands), std::vector<std::string>{"config"});
    EXPECT_EQ(vxctl::ClosestWords("comand", commands).front(), "command");
    EXPECT_EQ(vxctl::ClosestWords("query", commands), std::vector<std::string>{"query-status"});
    EXPECT_TRUE(vxctl::ClosestWords("xyzzy", commands).empty());
    EXPECT_TRUE(vxctl::ClosestWords("", commands).empty());
    EXPECT_TRUE(vxctl::ClosestWords(std::string(100000, 's'), commands).empty());
    EXPECT_EQ(vxctl::MeantWords("gt", {"get", "set"}), " (did you mean 'get'?)");
    EXPECT_EQ(vxctl::MeantWords("xet", {"get", "set"}), " (did you mean 'get' or 'set'?)");
}

// The words a message lists after `lead`.
std::set<std::string> ListedAfter(const std::string& message, const std::string& lead) {
    std::set<std::string> words;
    const auto at = message.find(lead);
    if (at == std::string::npos) return words;
    std::istringstream list(message.substr(at + lead.size()));
    for (std::string word; std::getline(list, word, ',');) {
        word.erase(0, word.find_first_not_of(' '));
        words.insert(word);
    }
    return words;
}

TEST(VxctlUsage, AnUnknownWordIsNamedWithWhatWasMeantAndExitCode2) {
    struct Case {
        std::vector<std::string> line;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"sett", "nciMaxFlow", "280"},
         "unknown command 'sett' (did you mean 'set'?); the commands: info, objects, get, set, "},
        {{"config", "downlod"},
         "unknown command 'downlod' of 'config' (did you mean 'download'?); 'config' takes: "
         "upload, download, save, restore"},
        {{"--jsn", "info"}, "unknown option '--jsn' of 'info' (did you mean '--json'?)\n"},
        {{"status", "--objet", "2"},
         "unknown option '--objet' of 'status' (did you mean '--object'?)\n"},
        {{"get", "nciMaxFlow", "extra"}, "unexpected argument 'extra' of 'get'\n"},
        {{}, "a command is needed: info, objects, "},
        {{"config"}, "'config' needs a command: upload, download, save, restore"},
        {{"get"}, "get: argument NAME is missing\n"},
    };
    const std::string hint =
        std::string(kHint) + " lists the commands, 'vxctl COMMAND --help' describes one\n";
    for (const auto& [line, message] : cases) {
        SCOPED_TRACE(::testing::PrintToString(line));
        const Finished run = Vxctl(line);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.substr(0, 7 + message.size()), "vxctl: " + message);
        EXPECT_TRUE(run.err.ends_with(hint)) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 2) << run.err;
    }

    // The commands listed are every command of the level the word was given at.
    const std::string unknown = Vxctl({"sett"}).err;
    const auto listed = ListedAfter(unknown.substr(0, unknown.find('\n')), "the commands: ");
    for (const char* command : {"info", "objects", "get", "set", "wink", "ping", "name", "command",
                                "command-status", "status", "request", "config", "query-status",
                                "read-memory", "mode", "run", "discover", "completion"}) {
        EXPECT_TRUE(listed.contains(command)) << command;
    }
    EXPECT_FALSE(listed.contains("restore"));
}

TEST(VxctlUsage, ANumberOutsideItsRangeIsRefusedWithTheRangeBeforeAnythingIsSent) {
    struct Case {
        std::vector<std::string> line;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"command", "reset-timer", "1", "70000"},
         R"(argument VALUE "70000": out of range; the valid range is 0 to 65535)"},
        {{"command", "reset-timer", "x1", "7"},
         R"(argument TIMER "x1": a whole number is needed; the valid range is 0 to 65535)"},
        {{"command", "clear-log", "256"},
         R"(argument OBJECT "256": out of range; the valid range is 0 to 255)"},
        {{"command", "open-download", "4", "1"},
         R"(argument LEVEL "4": out of range; the valid range is 2 to 3)"},
        {{"command", "generic", "1", "0x100"},
         R"(argument BYTE "0x100": out of range; the valid range is 0 to 255)"},
        {{"command", "generic", "1", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"},
         R"(argument BYTE "11": a command takes at most 10 data bytes; 11 were given)"},
        {{"--timeout", "0", "info"},
         R"(argument --timeout "0": out of range; the valid range is 1 to 10000)"},
        {{"config", "download", "--level", "4"},
         R"(argument --level "4": out of range; the valid range is 2 to 3)"},
        {{"read-memory", "0x10000", "1"},
         R"(argument ADDR "0x10000": out of range; the valid range is 0 to 65535)"},
        {{"mode", "restart"},
         R"(argument MODE "restart": one of online, offline, reset is needed)"},
        {{"mode", "ofline"},
         R"(argument MODE "ofline": one of online, offline, reset is needed (did you mean )"
         R"('online' or 'offline'?))"},
        {{"--device", "no-such-file.xif", "info"},
         R"(argument --device "no-such-file.xif": no such file (or one of: default))"},
        {{"config", "restore", "no-such-file.json"},
         R"(argument FILE "no-such-file.json": no such file)"},
    };
    for (const auto& [line, message] : cases) {
        SCOPED_TRACE(::testing::PrintToString(line));
        const Finished run = Vxctl(line);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err.substr(0, run.err.find('\n')), "vxctl: " + message);
    }
    // A hexadecimal number is taken as such.
    EXPECT_EQ(Vxctl({"command", "reset-timer", "0x1", "0xFFFF"}).exitCode, 0);
}

TEST(VxctlUsage, TextWhereTheValueTakesANumberIsARefusalNamingIt) {
    const Finished text = Vxctl({"set", "nciMaxFlow", "warm"});
    EXPECT_EQ(text.exitCode, 2);
    const std::string said = text.err.substr(0, text.err.find('\n'));
    EXPECT_NE(said.find("warm"), std::string::npos) << said;
    EXPECT_NE(said, "vxctl: error 13 = 0x0000000D (Vx): Type mismatch");
}

TEST(VxctlUsage, ALibraryConversionErrorBecomesARefusalOfItsArgumentKeepingTheNumber) {
    const auto refusal = [](std::int32_t number) -> vxctl::Failure {
        try {
            vxctl::RethrowForArgument(RuntimeError(number), "VALUE", "warm");
        } catch (const vxctl::ToolError& error) {
            return vxctl::FailureOf(error);
        } catch (const ComError& error) {
            return vxctl::FailureOf(error);
        }
        return {};
    };
    const vxctl::Failure mismatch = refusal(kErrTypeMismatch);
    EXPECT_EQ(mismatch.code, vxctl::kExitUsage);
    EXPECT_EQ(vxctl::FailureText(mismatch), R"(argument VALUE "warm": a number is needed here )"
                                            R"((error 13 = 0x0000000D (Vx): Type mismatch))");
    const auto json = vxctl::FailureJson(mismatch);
    EXPECT_EQ(json["kind"], "usage");
    EXPECT_EQ(json["number"], 13);
    EXPECT_EQ(json["description"], "Type mismatch");

    const vxctl::Failure overflow = refusal(kErrOverflow);
    EXPECT_EQ(overflow.code, vxctl::kExitUsage);
    EXPECT_EQ(vxctl::FailureText(overflow),
              R"(argument VALUE "warm": the number is too large for the value )"
              R"((error 6 = 0x00000006 (Vx): Overflow))");

    // Any other error is no fault of the argument: it stays the library's.
    const vxctl::Failure other = refusal(kErrObjectNotSet);
    EXPECT_EQ(other.code, vxctl::kExitFailure);
    EXPECT_EQ(vxctl::FailureText(other),
              "error 91 = 0x0000005B (Vx): Object variable or With block variable not set");
}

// ---- The object request names the object the technician named -------------------------------

TEST(VxctlRequest, AnObjectOutsideTheRequestsRangeIsRefusedNotSentToAnother) {
    const Finished request = Vxctl({"request", "-1", "RQ_DISABLED"});
    EXPECT_EQ(request.exitCode, 2);
    EXPECT_EQ(request.err.substr(0, request.err.find('\n')),
              R"(vxctl: argument OBJECT "-1": out of range; the valid range is 0 to 65535)");
    EXPECT_EQ(Vxctl({"request", "65536", "RQ_DISABLED"}).exitCode, 2);
    const Finished status = Vxctl({"status", "--object", "-1"});
    EXPECT_EQ(status.exitCode, 2);
    EXPECT_EQ(status.out, "");
    EXPECT_EQ(Vxctl({"request", "2", "256"}).exitCode, 2);

    // Called directly, the command refuses too, and the node receives nothing.
    test::ScopedStandardTypes types;
    const auto node = sim::SimulatedNode::Create(sim::DefaultController());
    vxctl::Progress quiet(nullptr);
    vxctl::Session session({node, "default", "simulated controller", node->ProgramIDText()}, {},
                           quiet);
    node->ClearRecord();
    EXPECT_THROW(vxctl::Request(session, -1, "RQ_DISABLED"), vxctl::UsageError);
    EXPECT_THROW(vxctl::ObjectStatus(session, -1), vxctl::UsageError);
    EXPECT_TRUE(node->ObjectRequests().empty());
}

TEST(VxctlRequest, TheReportMaskIsWhatTheObjectCanReportNotItsStatus) {
    const Finished mask = Vxctl({"--json", "request", "2", "RQ_REPORT_MASK"});
    ASSERT_EQ(mask.exitCode, 0) << mask.err;
    EXPECT_EQ(mask.err, "");
    const Json document = Json::parse(mask.out);
    EXPECT_FALSE(document.contains("error"));
    EXPECT_FALSE(document.contains("flags"));
    const auto supported = document["supported"].get<std::set<std::string>>();
    EXPECT_TRUE(supported.contains("disabled"));
    EXPECT_TRUE(supported.contains("invalid_id"));
    EXPECT_FALSE(supported.contains("report_mask"));
    EXPECT_NE(Vxctl({"request", "2", "RQ_REPORT_MASK"}).out.find("\nreports: "), std::string::npos);

    // An object the node does not have answers without the mask's mark.
    const Finished missing = Vxctl({"request", "7", "RQ_REPORT_MASK"});
    EXPECT_EQ(missing.exitCode, 4);
    EXPECT_EQ(missing.err, "vxctl: the controller has no object 7\n");
}

// ---- One JSON document whatever happens -------------------------------------------------------

TEST(VxctlJsonErrors, EveryKindOfFailureIsOneDocumentWithItsKindAndExitCode) {
    struct Case {
        std::vector<std::string> line;
        int exitCode;
        const char* kind;
    };
    const std::vector<Case> cases = {
        {{"--json", "reboot"}, 2, "usage"},
        {{"--json"}, 2, "usage"},
        {{"reboot", "--json"}, 2, "usage"},
        {{"--json", "--timeout", "x", "info"}, 2, "usage"},
        {{"--json", "get", "nvoSpaceTemp", "--object", "2"}, 1, "failed"},
        {{"--json", "get", "nvoNothing"}, 1, "failed"},
        {{"--json", "command", "clear-log", "9"}, 4, "notDone"},
        {{"--json", "mode", "reset"}, 7, "notConfirmed"},
        {{"--json", "run", "no-such-batch.txt"}, 5, "fileRefused"},
        {{"--json", "request", "-1", "RQ_DISABLED"}, 2, "usage"},
    };
    for (const auto& [line, exitCode, kind] : cases) {
        SCOPED_TRACE(::testing::PrintToString(line));
        const Finished run = Vxctl(line);
        EXPECT_EQ(run.exitCode, exitCode) << run.err;
        Json document;
        ASSERT_NO_THROW(document = Json::parse(run.out)) << run.out;
        ASSERT_TRUE(document.contains("error")) << run.out;
        const Json& error = document["error"];
        EXPECT_EQ(error["kind"], kind);
        EXPECT_EQ(error["exitCode"], exitCode);
        for (const char* key : {"message", "number", "hex", "source", "description"})
            EXPECT_TRUE(error.contains(key)) << key;
        // The message is what stderr says.
        EXPECT_EQ(run.err.substr(0, run.err.find('\n')),
                  "vxctl: " + error["message"].get<std::string>());
    }
}

TEST(VxctlJsonErrors, ALibraryErrorKeepsItsNumberSourceAndDescription) {
    const Finished run = Vxctl({"--json", "get", "nvoSpaceTemp", "--object", "2"});
    EXPECT_EQ(Json::parse(run.out), Json::parse(R"json({"error": {
        "kind": "failed",
        "message": "error 0x80040201 (Vx.CDeviceObjectIOrvexLonObject_Variable.()): nvoSpaceTemp not found on object 2",
        "exitCode": 1, "number": -2147220991, "hex": "0x80040201",
        "source": "Vx.CDeviceObjectIOrvexLonObject_Variable.()",
        "description": "nvoSpaceTemp not found on object 2"}})json"));

    // A refusal without a library error behind it has the same keys.
    const Json refused = Json::parse(Vxctl({"--json", "set", "nciMaxFlow", "warm"}).out)["error"];
    EXPECT_EQ(refused["kind"], "usage");
    EXPECT_TRUE(refused.contains("number"));
}

TEST(VxctlJsonErrors, HelpAndAControllerThatDidNotDoItAreOneDocumentToo) {
    const Finished help = Vxctl({"--json", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(Json::parse(help.out)["help"].get<std::string>().find("Exit codes:"),
              std::string::npos);

    // The data the controller gave, with what it did not do.
    const Json rejected = Json::parse(Vxctl({"--json", "command", "clear-log", "9"}).out);
    EXPECT_EQ(rejected["status"]["rejected"], true);
    EXPECT_EQ(rejected["error"]["message"], "the controller rejected the command");
}

// ---- Confirmations ------------------------------------------------------------------------------

TEST(VxctlConfirm, AChangeThatAsksFirstIsRefusedWithoutATerminalAndDoneWithYes) {
    const std::vector<std::vector<std::string>> asking = {
        {"command", "reset-memory", "1"},
        {"mode", "reset"},
        {"set", "nvoSpaceTemp", "21"},  // an output
        {"set", "nciConfigCRC", "5"},   // the configuration checksum
    };
    for (const auto& line : asking) {
        SCOPED_TRACE(::testing::PrintToString(line));
        const Finished refused = Vxctl(line);  // stdin is /dev/null: no terminal to ask on
        EXPECT_EQ(refused.exitCode, 7);
        EXPECT_EQ(refused.out, "");
        EXPECT_NE(refused.err.find("not confirmed: "), std::string::npos) << refused.err;
        EXPECT_NE(refused.err.find("--yes confirms it"), std::string::npos) << refused.err;

        std::vector<std::string> confirmed = line;
        confirmed.push_back("--yes");
        const Finished done = Vxctl(confirmed);
        EXPECT_EQ(done.exitCode, 0) << done.err;
    }
    // What does not ask goes on without --yes.
    EXPECT_EQ(Vxctl({"set", "nciMaxFlow", "280"}).exitCode, 0);
    EXPECT_EQ(Vxctl({"mode", "offline"}).exitCode, 0);
}

TEST(VxctlConfirm, OnATerminalTheAnswerDecides) {
    test::ScopedStandardTypes types;
    for (const auto& [answer, exitCode] :
         std::vector<std::pair<std::string, int>>{{"y\n", 0}, {"yes\n", 0}, {"n\n", 7}, {"", 7}}) {
        SCOPED_TRACE(answer);
        std::istringstream in(answer);
        std::ostringstream out;
        std::ostringstream err;
        const vxctl::Console console{&in, true, false};
        EXPECT_EQ(vxctl::Run({"mode", "reset"}, out, err, console), exitCode) << err.str();
        EXPECT_EQ(err.str().substr(0, err.str().find('?')),
                  "vxctl: reset the controller's application");
    }
}

// ---- Shell completion ---------------------------------------------------------------------------

// What bash offers after `words` (the last one being completed), with the installed script.
std::set<std::string> Completed(const std::vector<std::string>& words) {
    std::string line = "source " + test::ShellQuoted(VXCTL_COMPLETION_SCRIPT) + "; COMP_WORDS=(" +
                       test::ShellQuoted(VXCTL_PROGRAM);
    for (const auto& word : words)
        line.append(" ").append(test::ShellQuoted(word));
    line += "); COMP_CWORD=" + std::to_string(words.size()) +
            "; _vxctl; printf '%s\\n' \"${COMPREPLY[@]}\"";
    const auto out = test::ScratchFile(".completion");
    const std::string command =
        "bash --norc -c " + test::ShellQuoted(line) + " >" + out.string() + " 2>/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::istringstream said(test::ReadFile(out));
    std::filesystem::remove(out);
    std::set<std::string> offered;
    for (std::string word; std::getline(said, word);) {
        if (!word.empty()) offered.insert(word);
    }
    return offered;
}

TEST(VxctlCompletion, BashOffersTheCommandsOptionsAndFixedValuesOfTheProgram) {
    EXPECT_EQ(Completed({"con"}), (std::set<std::string>{"config"}));
    const auto config = Completed({"config", ""});
    for (const char* word :
         {"upload", "download", "save", "restore", "--help", "--device", "--revision", "--layout",
          "--timeout", "--retries", "--local", "--json", "--yes"}) {
        EXPECT_TRUE(config.contains(word)) << word;
    }
    EXPECT_FALSE(config.contains("info"));  // a command of the level above
    EXPECT_EQ(Completed({"mode", "o"}), (std::set<std::string>{"online", "offline"}));
    EXPECT_EQ(Completed({"--device", ""}), (std::set<std::string>{"default", "lonip://"}));
    EXPECT_EQ(Completed({"read-memory", "--a"}), (std::set<std::string>{"--area"}));
    EXPECT_EQ(Completed({"command", "reset-"}),
              (std::set<std::string>{"reset-timer", "reset-memory"}));
    EXPECT_TRUE(Completed({"--json", "q"}).contains("query-status"));

    // The script vxctl prints is the one installed.
    EXPECT_EQ(Vxctl({"completion", "bash"}).out, test::ReadFile(VXCTL_COMPLETION_SCRIPT));
}

}  // namespace
}  // namespace vx
