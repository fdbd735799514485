// vxctl run as a program, the way scripts and technicians run it: its JSON output against golden
// files, the documented shape of `objects --json` for every device interface file, and its exit
// codes and messages for errors.
//
// VXCTL_UPDATE_GOLDEN=1 rewrites the golden files from the program's output.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
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
using test::ReadFile;
using test::ScratchFile;
using test::Vxctl;

std::string Xif(const std::string& name) {
    return std::string(VX_SIM_DATA_DIR) + "/xif/" + name;
}

// A room sensor with a formula-scaled temperature, an enumeration, an array field and a text.
const std::string kRoomSensor = std::string(VXCTL_TEST_DATA_DIR) + "/room-sensor.json";

// ---- Golden JSON -------------------------------------------------------------------------------

TEST(VxctlJson, ShowsTheDefaultControllerAsGolden) {
    struct Case {
        std::vector<std::string> arguments;
        const char* golden;
    };
    const std::vector<Case> cases = {
        {{"info", "--json"}, "info.json"},
        {{"--json", "objects", "--values"}, "objects-values.json"},
        {{"get", "nciDeviceConfig", "--json"}, "get-device-config.json"},
        {{"get", "nvoAlarmMessage", "--json"}, "get-alarm-message.json"},
        {{"status", "--json"}, "status.json"},
        {{"request", "2", "disabled", "--json"}, "request-disabled.json"},
        {{"command", "keypress", "12", "--json"}, "command-keypress.json"},
    };
    for (const auto& [arguments, golden] : cases) {
        SCOPED_TRACE(golden);
        const Finished run = Vxctl(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        test::ExpectGolden(run.out, golden);
    }
}

TEST(VxctlJson, ShowsADeviceInterfaceFileAsGolden) {
    const Finished run =
        Vxctl({"--device", Xif("6kEvbMultiSensor.XIF"), "objects", "--values", "--json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    test::ExpectGolden(run.out, "objects-6kEvbMultiSensor.json");
}

TEST(VxctlJson, SetWritesToTheNodeAndShowsWhatItHoldsAfterwards) {
    // Read back from the node: 24.5 degrees is 0x0992, in a level-2 configuration download.
    const Finished setpoint = Vxctl({"--json", "set", "nciSetpoints.occupied_cool", "24.5"});
    EXPECT_EQ(setpoint.exitCode, 0) << setpoint.err;
    test::ExpectGolden(setpoint.out, "set-setpoint.json");

    // An enumeration member by its short name, written to an input directly.
    const Finished mode = Vxctl({"--json", "set", "nviApplicMode", "heat"});
    EXPECT_EQ(mode.exitCode, 0) << mode.err;
    test::ExpectGolden(mode.out, "set-applic-mode.json");
}

TEST(VxctlJson, SavesTheConfigurationAndRestoresItUnchanged) {
    const fs::path saved = ScratchFile(".json");
    const Finished save = Vxctl({"config", "save", saved.string()});
    EXPECT_EQ(save.exitCode, 0) << save.err;
    test::ExpectGolden(ReadFile(saved), "saved-default-configuration.json");

    const Finished restore = Vxctl({"--json", "config", "restore", saved.string()});
    EXPECT_EQ(restore.exitCode, 0) << restore.err;
    const Json result = Json::parse(restore.out);
    EXPECT_EQ(result["changed"], Json::array());
    EXPECT_EQ(result["checked"], 16);
    EXPECT_EQ(result["mismatches"], Json::array());
    fs::remove(saved);
}

TEST(VxctlText, ShowsValuesToPeopleWithUnitsNamesAndInvalidCodes) {
    const Finished run = Vxctl({"--device", kRoomSensor, "objects", "--values"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    test::ExpectGolden(run.out, "room-sensor-objects.txt");
}

TEST(VxctlText, APathNamesFieldsAndArrayEntries) {
    const Finished entry = Vxctl({"--device", kRoomSensor, "get", "nvoAlarm.description[1]"});
    EXPECT_EQ(entry.out, "nvoAlarm.description[1] = 101\n");

    // Only the entry changes: 33 lands in byte 9 + 4 of the alarm.
    const Finished written =
        Vxctl({"--device", kRoomSensor, "--json", "--yes", "set", "nvoAlarm.description[4]", "33"});
    EXPECT_EQ(written.exitCode, 0) << written.err;
    EXPECT_EQ(Json::parse(written.out)["raw"], "21");
    EXPECT_EQ(Json::parse(written.out)["variableRaw"],
              "01020000006401F42A48656C6C21" + std::string(34, '0'));

    const Finished outside = Vxctl({"--device", kRoomSensor, "get", "nvoAlarm.description[22]"});
    EXPECT_EQ(outside.exitCode, 1);
    EXPECT_EQ(outside.err, "vxctl: nvoAlarm.description[22]: the array has entries 0 to 21\n");
    const Finished noField = Vxctl({"--device", kRoomSensor, "get", "nvoTemp.value"});
    EXPECT_EQ(noField.exitCode, 1);
    EXPECT_EQ(noField.err, "vxctl: nvoTemp is no structure: it has no field 'value'\n");
}

// ---- The documented shape of objects --json
// ------------------------------------------------------

// {"objects":[{"id","profile","profileName","functionalProfile","blockName","variables":[{"name",
// "category","configLevel","nvIndex","direction"|"item"[,"value"]}]}]}, with a structure's value an
// object keyed by its field names.
void ExpectObjectsShape(const Json& document, bool withValues) {
    ASSERT_TRUE(document.is_object());
    ASSERT_TRUE(document.contains("objects") && document["objects"].is_array());
    ASSERT_FALSE(document["objects"].empty());
    for (const auto& object : document["objects"]) {
        ASSERT_TRUE(object.is_object());
        EXPECT_EQ(object.size(), 6u) << object.dump();
        EXPECT_TRUE(object["id"].is_number_integer());
        EXPECT_TRUE(object["profile"].is_number_integer());
        EXPECT_TRUE(object["profileName"].is_string());
        // What the node's self-documentation lists for the object; null where it lists nothing.
        EXPECT_TRUE(object["functionalProfile"].is_number_integer() ||
                    object["functionalProfile"].is_null());
        EXPECT_TRUE(object["blockName"].is_string() || object["blockName"].is_null());
        ASSERT_TRUE(object["variables"].is_array());
        for (const auto& variable : object["variables"]) {
            EXPECT_TRUE(variable["name"].is_string());
            EXPECT_TRUE(std::set<int>({1, 2, 256, 512}).contains(variable["category"].get<int>()));
            EXPECT_TRUE(variable["configLevel"].is_number_integer());
            // A network variable has its index and the host's direction, a configuration item
            // its item key.
            if (variable["category"] == 1) {
                EXPECT_TRUE(variable["item"].is_string());
                EXPECT_EQ(variable.size(), withValues ? 5u : 4u) << variable.dump();
            } else {
                EXPECT_TRUE(variable["nvIndex"].is_number_integer());
                EXPECT_TRUE(variable["direction"] == "input" || variable["direction"] == "output");
                EXPECT_EQ(variable.size(), withValues ? 6u : 5u) << variable.dump();
            }
            EXPECT_EQ(variable.contains("value"), withValues);
        }
    }
}

TEST(VxctlShape, ObjectsOfEveryDeviceInterfaceFileHaveTheDocumentedShape) {
    int files = 0;
    for (const auto& entry : fs::directory_iterator(std::string(VX_SIM_DATA_DIR) + "/xif")) {
        std::string extension = entry.path().extension().string();
        for (char& c : extension)
            c = static_cast<char>(std::tolower(c));
        if (extension != ".xif") continue;
        ++files;
        for (const bool withValues : {false, true}) {
            SCOPED_TRACE(entry.path().filename().string() + (withValues ? " --values" : ""));
            std::vector<std::string> arguments = {"--device", entry.path().string(), "--json",
                                                  "objects"};
            if (withValues) arguments.push_back("--values");
            const Finished run = Vxctl(arguments);
            // A file whose connect stops part-way still lists what was loaded (exit code 3).
            EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 3) << run.exitCode << run.err;
            Json document = Json::parse(run.out);
            EXPECT_EQ(document.contains("connectError"), run.exitCode == 3);
            document.erase("connectError");
            ExpectObjectsShape(document, withValues);
        }
    }
    EXPECT_GE(files, 4);
}

TEST(VxctlShape, AStructureValueIsKeyedByFieldName) {
    const Json document = Json::parse(Vxctl({"objects", "--values", "--json"}).out);
    const auto& nodeObject = document["objects"][0];
    EXPECT_EQ(nodeObject["variables"][0]["name"], "nviRequest");
    EXPECT_EQ(nodeObject["variables"][0]["value"],
              Json::parse(R"({"object_id": 0, "object_request": 0})"));
}

// ---- Exit codes and messages -------------------------------------------------------------------

TEST(VxctlErrors, ALibraryErrorGivesItsNumberSourceAndDescriptionAndExitCode1) {
    const Finished library = Vxctl({"get", "nvoSpaceTemp", "--object", "2"});
    EXPECT_EQ(library.exitCode, 1);
    EXPECT_EQ(library.out, "");
    EXPECT_EQ(library.err,
              "vxctl: error 0x80040201 (Vx.CDeviceObjectIOrvexLonObject_Variable.()): "
              "nvoSpaceTemp not found on object 2\n");

    // --json puts it on stdout as well.
    const Finished json = Vxctl({"--json", "get", "nvoSpaceTemp", "--object", "2"});
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_EQ(Json::parse(json.out)["error"]["number"], static_cast<std::int32_t>(0x80040201));
}

TEST(VxctlErrors, AControllerThatDoesNotDoWhatWasAskedGivesExitCode4) {
    const Finished rejected = Vxctl({"command", "clear-log", "9"});  // the node has no object 9
    EXPECT_EQ(rejected.exitCode, 4);
    EXPECT_EQ(rejected.err, "vxctl: the controller rejected the command\n");

    const Finished unknownObject = Vxctl({"request", "7", "RQ_UPDATE_STATUS"});
    EXPECT_EQ(unknownObject.exitCode, 4);
    EXPECT_EQ(unknownObject.err, "vxctl: the controller has no object 7\n");

    const Finished unknownName = Vxctl({"get", "nvoNothing"});
    EXPECT_EQ(unknownName.exitCode, 1);
    EXPECT_NE(unknownName.err.find("no variable 'nvoNothing'"), std::string::npos);
}

TEST(VxctlErrors, ACommandLineThatCannotBeMeantGivesExitCode2AndAHint) {
    const std::vector<std::vector<std::string>> lines = {
        {},
        {"reboot"},
        {"get"},
        {"config", "download", "--level", "4"},
        {"--device", "no-such-file.xif", "info"},
        {"set", "nciSetpoints", "24"},  // a structure needs a field
        {"request", "1", "RQ_NOTHING"},
    };
    for (const auto& line : lines) {
        const Finished run = Vxctl(line);
        EXPECT_EQ(run.exitCode, 2) << ::testing::PrintToString(line);
        EXPECT_NE(run.err.find("hint: 'vxctl --help'"), std::string::npos) << run.err;
    }
}

TEST(VxctlErrors, AConnectThatStopsPartWayShowsWhatWasLoadedAndTheFailure) {
    // The device has no node object: the connect fails after binding its two variables.
    const Finished run = Vxctl({"--device", Xif("bcastSwitch.xif"), "--json", "objects"});
    EXPECT_EQ(run.exitCode, 3);
    const Json document = Json::parse(run.out);
    ASSERT_EQ(document["objects"].size(), 1u);
    EXPECT_EQ(document["objects"][0]["variables"][0]["name"], "nviValue");
    EXPECT_EQ(document["objects"][0]["variables"][1]["name"], "nciDefault");
    EXPECT_EQ(document["connectError"]["hex"], "0x80040102");
    EXPECT_EQ(run.err,
              "vxctl: the connect stopped part-way, error 0x80040102 "
              "(Vx.CDevice.IOrvexDevice_Connect()): Failed to find a mandatory Lonmark network "
              "variable: nviRequest\n"
              "vxctl: shown is what was loaded before it stopped\n");

    // A command that needs what the connect did not reach fails as such.
    const Finished status = Vxctl({"--device", Xif("bcastSwitch.xif"), "status"});
    EXPECT_EQ(status.exitCode, 1);
    EXPECT_EQ(status.out, "");
}

}  // namespace
}  // namespace vx
