// Values as a technician gives and reads them with vxctl: a value the type cannot hold is refused
// with what it takes, before anything is written; what the library still does to a value
// (rounding, a unit conversion) is said; units, whole structures and raw bytes; fields with their
// units and their own bytes; device interface files shown as they describe the node; and the
// closest names for a misspelt one. As a program against golden files, in one process where the
// controller can be looked into, and over LON/IP against vxsim.
//
// VXCTL_UPDATE_GOLDEN=1 rewrites the golden files from the program's output.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DefaultController.h"
#include "Golden.h"
#include "Operations.h"
#include "SimulatedNode.h"
#include "VxctlRun.h"
#include "automation/Clock.h"
#include "fixtures/Scenario.h"
#ifdef VX_VXSIM_PATH
#include "VxsimProcess.h"
#endif

namespace vx {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::Finished;
using test::Vxctl;

const std::string kRoomSensor = std::string(VXCTL_TEST_DATA_DIR) + "/room-sensor.json";

std::string Xif(const std::string& name) {
    return std::string(VX_SIM_DATA_DIR) + "/xif/" + name;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// ---- Refused, not changed ---------------------------------------------------------------------

TEST(VxctlRefusals, AValueTheTypeCannotHoldIsRefusedWithWhatItTakes) {
    struct Case {
        std::vector<std::string> arguments;
        std::string said;
    };
    const std::string thirtyOne(31, 'x');
    const std::vector<Case> cases = {
        // Clamped to the largest value, which is the type's invalid code.
        {{"set", "nviSetpoint", "1000"},
         "vxctl: nviSetpoint: 1000 degrees Celsius is outside the range of SNVT_temp_p; it takes "
         "-273.17 to 327.66 degrees Celsius (327.67 is the invalid code: give 'invalid' for it)"},
        {{"set", "nviSetpoint", "-300"}, "outside the range of SNVT_temp_p"},
        {{"set", "nviSetpoint", "327.67"},
         "nviSetpoint: 327.67 degrees Celsius is the invalid code of SNVT_temp_p"},
        {{"set", "nciSetpoints.occupied_cool", "400"}, "it takes -273.17 to 327.66 degrees"},
        {{"set", "nviSetpoint", "warm"}, "nviSetpoint: 'warm' is no number"},
        {{"set", "nviApplicMode", "77"},
         "nviApplicMode: '77' is no member of SNVT_hvac_mode; "
         "members: HVAC_NUL (-1), HVAC_AUTO (0), HVAC_HEAT (1)"},
        {{"set", "nvoStatus.disabled", "maybe"}, "'maybe' is no Boolean"},
        {{"--device", kRoomSensor, "set", "nvoAlarm.description[4]", "300"},
         "nvoAlarm.description[4]: 300 is outside the range of SNVT_alarm_2.description; it "
         "takes 32 to 126"},
        {{"--device", kRoomSensor, "set", "nvoText", thirtyOne},
         "nvoText: '" + thirtyOne + "' has 31 characters; SNVT_str_asc takes at most 30"},
        {{"--device", kRoomSensor, "set", "nvoText", "5 \xE2\x82\xAC"},
         "has characters the controller cannot hold"},
        {{"name", thirtyOne}, "vxctl: the name has 31 characters; the controller keeps at most 30"},
        {{"command", "reset-timer", "1", "70000"},
         "vxctl: argument VALUE \"70000\": out of range; the valid range is 0 to 65535"},
        {{"command", "keypress", "-1"},
         "argument CODE \"-1\": out of range; the valid range is 0 to 65535"},
        {{"command", "clear-log", "256"},
         "argument OBJECT \"256\": out of range; the valid range is 0 to 255"},
        {{"command", "generic", "1", "300"},
         "argument BYTE \"300\": out of range; the valid range is 0 to 255"},
        {{"command", "generic", "1", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"},
         "argument BYTE \"11\": a command takes at most 10 data bytes; 11 were given"},
        {{"set", "nviFanSpeedCmd", "100"},
         "nviFanSpeedCmd: takes 2 values in this order: value state (or a JSON object of its "
         "fields); 1 given"},
        {{"set", "nciServicePin", "0x01"},
         "nciServicePin: '0x01' gives 2 hexadecimal digits; the value has 2 bytes, 4 digits"},
    };
    for (const auto& [arguments, said] : cases) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const Finished run = Vxctl(arguments);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(Contains(run.err, said)) << run.err;
    }
}

class VxctlValuesInOneProcess : public ::testing::Test {
protected:
    sim::SimulatedNodePtr node = sim::SimulatedNode::Create(sim::DefaultController());
    test::ScopedStandardTypes standardTypes;
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScopedClock clockGuard{clock};
    vxctl::Progress quiet{nullptr};
    vxctl::Session session{
        {node, "default", "simulated controller", node->ProgramIDText()}, {}, quiet};
};

TEST_F(VxctlValuesInOneProcess, ARefusedValueLeavesTheControllerAsItWas) {
    const auto setpoint = node->VariableValue("nviSetpoint");
    const auto setpoints = node->VariableValue("nciSetpoints");
    const auto fan = node->VariableValue("nviFanSpeedCmd");
    EXPECT_THROW(vxctl::Set(session, "nviSetpoint", "1000", std::nullopt), vxctl::UsageError);
    EXPECT_THROW(vxctl::Set(session, "nciSetpoints.occupied_heat", "-274", std::nullopt),
                 vxctl::UsageError);
    // One bad field refuses the whole structure: the good one before it is not written either.
    EXPECT_THROW(vxctl::Set(session, "nviFanSpeedCmd", "50 7", std::nullopt), vxctl::UsageError);
    EXPECT_THROW(vxctl::Set(session, "nviFanSpeedCmd", R"({"value": 50, "stat": 1})", std::nullopt),
                 vxctl::UsageError);
    EXPECT_EQ(node->VariableValue("nviSetpoint"), setpoint);
    EXPECT_EQ(node->VariableValue("nciSetpoints"), setpoints);
    EXPECT_EQ(node->VariableValue("nviFanSpeedCmd"), fan);
}

TEST_F(VxctlValuesInOneProcess, UnitsWholeStructuresAndRawBytesReachTheControllerExactly) {
    using Bytes = std::vector<std::uint8_t>;
    // 72 F is 22.2222 degrees Celsius, stored as 22.22: raw 2222.
    const auto units = vxctl::Set(session, "nviSetpoint", "72 F", std::nullopt);
    EXPECT_EQ(node->VariableValue("nviSetpoint"), (Bytes{0x08, 0xAE}));
    EXPECT_EQ(units.json["notes"][0],
              "nviSetpoint: 72 F is 22.22222 degrees Celsius; 22.22222 is stored as 22.22 degrees "
              "Celsius (the resolution of SNVT_temp_p is 0.01)");
    vxctl::Set(session, "nviSetpoint", "295.15 K", std::nullopt);
    EXPECT_EQ(node->VariableValue("nviSetpoint"), (Bytes{0x08, 0x98}));  // 22.00

    // value 0.5 % steps: 100 % is raw 200.
    vxctl::Set(session, "nviFanSpeedCmd", "100 1", std::nullopt);
    EXPECT_EQ(node->VariableValue("nviFanSpeedCmd"), (Bytes{200, 1}));
    // A JSON object changes the fields it names only.
    vxctl::Set(session, "nviFanSpeedCmd", R"({"value": "25 %"})", std::nullopt);
    EXPECT_EQ(node->VariableValue("nviFanSpeedCmd"), (Bytes{50, 1}));
    vxctl::Set(session, "nciSetpoints", R"({"occupied_cool": "77 F", "standby_cool": 26.5})",
               std::nullopt);
    EXPECT_EQ(Bytes(node->VariableValue("nciSetpoints").begin(),
                    node->VariableValue("nciSetpoints").begin() + 4),
              (Bytes{0x09, 0xC4, 0x0A, 0x5A}));  // 25.00 (77 F) and 26.50

    vxctl::Set(session, "nciServicePin", "0x0102", std::nullopt);
    EXPECT_EQ(vxctl::Get(session, "nciServicePin", std::nullopt).json["raw"], "0102");
    // The invalid code only when asked for by name.
    vxctl::Set(session, "nviSetpoint", "invalid", std::nullopt);
    EXPECT_EQ(node->VariableValue("nviSetpoint"), (Bytes{0x7F, 0xFF}));
}

TEST(VxctlValues, WhatTheLibraryStillChangesIsSaidInTextAndJson) {
    const Finished text = Vxctl({"set", "nviSetpoint", "21.005"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out,
              "nviSetpoint = 21 degrees Celsius\n"
              "note: nviSetpoint: 21.005 is stored as 21 degrees Celsius (the resolution of "
              "SNVT_temp_p is 0.01)\n"
              "written to the node\n");
    const Finished json = Vxctl({"--json", "set", "nviSetpoint", "21.005"});
    EXPECT_EQ(Json::parse(json.out)["notes"],
              Json::array({"nviSetpoint: 21.005 is stored as 21 degrees Celsius (the resolution "
                           "of SNVT_temp_p is 0.01)"}));
}

// ---- What is shown ----------------------------------------------------------------------------

TEST(VxctlValues, FieldsShowTheirUnitsTheirOwnBytesAndTextsAsText) {
    Json setpoint = Json::parse(Vxctl({"--json", "get", "nciSetpoints.occupied_cool"}).out);
    EXPECT_EQ(setpoint["units"], "degrees Celsius");
    EXPECT_EQ(setpoint["raw"], "0960");  // 24.00, the field's two bytes
    EXPECT_EQ(setpoint["variableRaw"], "09600A280AF00834076C0640");
    EXPECT_TRUE(
        Contains(Vxctl({"get", "nciSetpoints"}).out, "occupied_cool    24 degrees Celsius"));

    Json alarm = Json::parse(Vxctl({"--device", kRoomSensor, "--json", "get", "nvoAlarm"}).out);
    EXPECT_EQ(alarm["value"]["description"], "Hello");
    EXPECT_EQ(Vxctl({"--device", kRoomSensor, "get", "nvoAlarm.description"}).out,
              "nvoAlarm.description = \"Hello\"\n");
    Json written = Json::parse(Vxctl({"--device", kRoomSensor, "--json", "--yes", "set",
                                      "nvoAlarm.description", "Fire 2.14"})
                                   .out);
    EXPECT_EQ(written["value"], "Fire 2.14");
    EXPECT_EQ(written["raw"], "4669726520322E3134" + std::string(26, '0'));

    // A 32-bit field, whose limits the element cannot hold in its Long, is written all the same.
    Json time = Json::parse(Vxctl({"--device", kRoomSensor, "--json", "--yes", "set",
                                   "nvoAlarm.alarm_time", "2147483647"})
                                .out);
    EXPECT_EQ(time["raw"], "7FFFFFFF");
    EXPECT_TRUE(Contains(
        Vxctl({"--device", kRoomSensor, "set", "nvoAlarm.alarm_time", "4294967295"}).err,
        "4294967295 is outside the range of SNVT_alarm_2.alarm_time; it takes 0 to 2147483647"));

    // Configuration items carry their item key, network variables their index.
    Json objects = Json::parse(Vxctl({"--json", "objects"}).out);
    Json room = objects["objects"][1]["variables"];
    EXPECT_EQ(room[17]["name"], "nciConfigCRC");
    EXPECT_EQ(room[17]["item"], "3-1");
    EXPECT_FALSE(room[17].contains("nvIndex"));
    EXPECT_EQ(room[1]["nvIndex"], 7);
}

TEST(VxctlDeviceFiles, ShowInputsProfilesAndBlocksAsTheFileDescribesThem) {
    const Finished text = Vxctl({"--device", Xif("6kEvbMultiSensor.XIF"), "objects"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_TRUE(Contains(text.out, "├─ nviRequest        input            level 0  nv 1\n"));
    EXPECT_TRUE(Contains(text.out, "├─ object 2: profile 4 Lamp\n"));
    EXPECT_TRUE(Contains(text.out, "└─ object 7: profile 1 Joystick\n"));

    Json json =
        Json::parse(Vxctl({"--device", Xif("6kEvbMultiSensor.XIF"), "--json", "objects"}).out);
    EXPECT_EQ(json["objects"][3]["functionalProfile"], 2);
    EXPECT_EQ(json["objects"][3]["blockName"], "Switch");
    EXPECT_EQ(json["objects"][3]["variables"][0]["direction"], "input");
    EXPECT_EQ(json["objects"][3]["variables"][0]["category"], 512);  // the library's own reading

    // The node has every object it lists, counted blocks too.
    Json status =
        Json::parse(Vxctl({"--device", Xif("6kEvbMultiSensor.XIF"), "--json", "status"}).out);
    ASSERT_EQ(status["objects"].size(), 8u);
    for (const auto& object : status["objects"])
        EXPECT_EQ(object["flags"], Json::array()) << object.dump();

    // Blocks without variables are listed too: the library holds objects with variables only.
    Json info = Json::parse(Vxctl({"--device", Xif("NM_DynamicC.xif"), "--json", "info"}).out);
    EXPECT_EQ(info["objects"], Json::parse("[0]"));
    ASSERT_EQ(info["functionalBlocks"].size(), 65u);
    EXPECT_EQ(
        info["functionalBlocks"][64],
        Json::parse(R"({"object": 64, "functionalProfile": 20008, "blockName": "webServer"})"));
    EXPECT_TRUE(Contains(Vxctl({"--device", Xif("NM_DynamicC.xif"), "info"}).out,
                         "functional blocks     0: profile 0 nodeObject, 1-64: profile 20008 "
                         "webServer\n"));
}

TEST(VxctlDeviceFiles, AConnectThatStopsNamesTheVariableItStoppedAt) {
    const Finished text = Vxctl({"--device", Xif("VAV_sim.XIF"), "info"});
    EXPECT_EQ(text.exitCode, 3);
    EXPECT_TRUE(Contains(text.err,
                         "vxctl: the connect stopped part-way, error 9 = 0x00000009 "
                         "(Vx): Subscript out of range\n"
                         "vxctl: it stopped at network variable nvoVersion (nv 14, "
                         "self-documentation \"\"), which the library could not give "
                         "an object\n"))
        << text.err;
    Json json = Json::parse(Vxctl({"--device", Xif("VAV_sim.XIF"), "--json", "info"}).out);
    EXPECT_EQ(json["connectError"]["number"], 9);
    EXPECT_TRUE(Contains(json["connectError"]["stoppedAt"], "nvoVersion (nv 14"));
    // A connect that stops for another reason names the library's variable itself.
    EXPECT_FALSE(Contains(Vxctl({"--device", Xif("bcastSwitch.xif"), "info"}).err, "stopped at"));
}

TEST(VxctlValues, AMisspeltVariableFieldOrMemberIsAnsweredWithTheClosestNames) {
    EXPECT_EQ(Vxctl({"get", "nviSetpiont"}).err,
              "vxctl: the device has no variable 'nviSetpiont' (did you mean nviSetpoint?); vxctl "
              "objects lists them\n");
    EXPECT_TRUE(Contains(Vxctl({"get", "nciSetpoints.ocupied_cool"}).err,
                         "has no field 'ocupied_cool' (did you mean occupied_cool?)"));
    EXPECT_TRUE(Contains(Vxctl({"set", "nviApplicMode", "haet"}).err, "(did you mean HEAT?)"));
    EXPECT_TRUE(Contains(Vxctl({"set", "nviFanSpeedCmd", R"({"stat": 1})"}).err,
                         "SNVT_switch has no field 'stat' (did you mean state?)"));
    // Nothing close: no guess.
    EXPECT_EQ(Vxctl({"get", "humidity"}).err,
              "vxctl: the device has no variable 'humidity'; vxctl objects lists them\n");
}

// ---- Golden JSON, in process and over LON/IP ---------------------------------------------------

struct GoldenLine {
    std::vector<std::string> arguments;
    const char* golden;
};

const std::vector<GoldenLine>& ValueLines() {
    static const std::vector<GoldenLine> lines = {
        {{"--json", "set", "nviSetpoint", "72 F"}, "set-units.json"},
        {{"--json", "set", "nviFanSpeedCmd", "100 1"}, "set-structure.json"},
        {{"--json", "get", "nciSetpoints.standby_heat"}, "get-field.json"},
        {{"--json", "set", "nciServicePin", "0x0102"}, "set-raw.json"},
        // Last: over the network the node keeps it, and the level-2 download leaves its checksum
        // mismatch for the later commands to report.
        {{"--json", "set", "nciSetpoints", R"({"occupied_cool": "77 F", "unoccupied_heat": 15})"},
         "set-structure-json.json"},
    };
    return lines;
}

TEST(VxctlValues, ValuesWithUnitsStructuresAndRawBytesAsGolden) {
    for (const auto& [arguments, golden] : ValueLines()) {
        SCOPED_TRACE(golden);
        const Finished run = Vxctl(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        test::ExpectGolden(run.out, golden);
    }
}

#ifdef VX_VXSIM_PATH
// Fourth octets of their own, apart from the other network tests'.
int NextOctet() {
    static int next = 60;
    return next++;
}

TEST(VxctlValuesOverLonIp, ValuesGoOverTheNetworkAsInProcess) {
    const std::string node = test::TestLoopback(NextOctet());
    const std::string host = test::TestLoopback(NextOctet() + 100);
    const test::VxsimProcess vxsim({"--listen", node, "--device", "default"});
    for (const auto& [arguments, golden] : ValueLines()) {
        SCOPED_TRACE(golden);
        std::vector<std::string> remote = {"--device", "lonip://" + node, "--local", host};
        remote.insert(remote.end(), arguments.begin(), arguments.end());
        const Finished run = Vxctl(remote);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        test::ExpectGolden(run.out, golden);
    }
    // Refusals are the same, and leave the node's value alone.
    std::vector<std::string> refused = {"--device", "lonip://" + node, "--local", host,
                                        "set",      "nviSetpoint",     "1000"};
    EXPECT_EQ(Vxctl(refused).exitCode, 2);
    Json held = Json::parse(
        Vxctl({"--device", "lonip://" + node, "--local", host, "--json", "get", "nviSetpoint"})
            .out);
    EXPECT_EQ(held["raw"], "08AE");  // 72 F from the first line
}
#endif

}  // namespace
}  // namespace vx
