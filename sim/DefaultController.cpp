#include "DefaultController.h"

#include <array>
#include <string>

#include "NodeJson.h"
#include "SimErrors.h"
#include "automation/ComError.h"

namespace vx::sim {

// Generated from the files in sim/data (see sim/CMakeLists.txt).
std::string_view DefaultControllerJsonText();
std::string_view DefaultRevisionJsonText();

namespace {

enum class Role { kInput, kOutput, kProperty };

// One member of a synthetic functional block: a space comfort controller's variables.
struct Member {
    const char* stem;
    Role role;
    std::int32_t number;  // profile member, or the property's standard property type
    std::int32_t typeIndex;
    std::size_t size;
};

constexpr std::array<Member, 16> kBlockMembers = {{
    {"nviSpaceTemp", Role::kInput, 1, 105, 2},
    {"nviSetpoint", Role::kInput, 2, 105, 2},
    {"nviOccManCmd", Role::kInput, 6, 109, 1},
    {"nviApplicMode", Role::kInput, 8, 108, 1},
    {"nviFanSpeedCmd", Role::kInput, 10, 95, 2},
    {"nviSpaceIAQ", Role::kInput, 22, 29, 2},
    {"nvoSpaceTemp", Role::kOutput, 26, 105, 2},
    {"nvoUnitStatus", Role::kOutput, 27, 112, 12},
    {"nvoEffectSetpt", Role::kOutput, 28, 105, 2},
    {"nvoEffectOccup", Role::kOutput, 29, 109, 1},
    {"nvoFanSpeed", Role::kOutput, 33, 95, 2},
    {"nvoTerminalLoad", Role::kOutput, 37, 81, 2},
    {"nvoAirflow", Role::kOutput, 52, 15, 2},
    {"nciSndHrtBt", Role::kProperty, 49, 107, 2},
    {"nciSetpoints", Role::kProperty, 60, 106, 12},
    {"nciLocation", Role::kProperty, 17, 36, 31},
}};

constexpr std::array<std::int32_t, 4> kBlockProfiles = {8500, 8501, 8502, 8505};

struct ItemType {
    std::int32_t typeIndex;
    const char* name;
    std::size_t size;
};

constexpr std::array<ItemType, 6> kItemTypes = {{
    {105, "SNVT_temp_p", 2},
    {107, "SNVT_time_sec", 2},
    {15, "SNVT_flow", 2},
    {81, "SNVT_lev_percent", 2},
    {108, "SNVT_hvac_mode", 1},
    {95, "SNVT_switch", 2},
}};

constexpr std::int32_t kMaxCount = 32767;

void PutWord(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint32_t word) {
    bytes[at] = static_cast<std::uint8_t>((word >> 8) & 0xFF);
    bytes[at + 1] = static_cast<std::uint8_t>(word & 0xFF);
}

// A plausible value of the type that varies with `seed`.
std::vector<std::uint8_t> SampleValue(std::int32_t typeIndex, std::size_t size,
                                      std::uint32_t seed) {
    std::vector<std::uint8_t> value(size, 0);
    switch (typeIndex) {
        case 105:  // 18.00 .. 25.99 degC
            PutWord(value, 0, 1800 + seed * 37 % 800);
            break;
        case 106: {  // cool 24 / 26 / 28, heat 21 / 19 / 16 degC
            std::size_t at = 0;
            for (const std::uint32_t setpoint : {2400u, 2600u, 2800u, 2100u, 1900u, 1600u}) {
                PutWord(value, at, setpoint);
                at += 2;
            }
            break;
        }
        case 107:  // 60.0 s
            PutWord(value, 0, 600);
            break;
        case 108:
        case 109:
            value[0] = static_cast<std::uint8_t>(seed % 4);
            break;
        case 95:  // a level in half percent, on
            value[0] = static_cast<std::uint8_t>(seed % 201);
            value[1] = 1;
            break;
        case 29:  // 400 .. 999 ppm
            PutWord(value, 0, 400 + seed % 600);
            break;
        case 81:  // 0 .. 100 % in steps of 0.005 %
            PutWord(value, 0, seed * 113 % 20001);
            break;
        case 15:  // 0 .. 399 l/s
            PutWord(value, 0, seed % 400);
            break;
        case 112:  // heating, primary output 35 %
            value[0] = 1;
            PutWord(value, 1, 7000);
            break;
        case 36: {
            const std::string text = "Zone " + std::to_string(seed);
            std::copy(text.begin(), text.end(), value.begin());
            break;
        }
        default:
            break;
    }
    return value;
}

VariableRecord NodeObjectVariable(const char* name, std::int32_t member, std::int32_t typeIndex,
                                  std::size_t size, bool isOutput, std::int32_t index) {
    VariableRecord variable;
    variable.name = name;
    variable.index = index;
    variable.isOutput = isOutput;
    variable.selfDoc = "@0|" + std::to_string(member) + (isOutput ? "" : std::string(";") + name);
    variable.typeIndex = typeIndex;
    variable.value.assign(size, 0);
    return variable;
}

}  // namespace

std::string_view DefaultControllerJson() {
    return DefaultControllerJsonText();
}

std::string_view DefaultRevisionJson() {
    return DefaultRevisionJsonText();
}

NodeDescription DefaultController() {
    static const NodeDescription controller =
        ReadNodeJson(DefaultControllerJson(), "orvex-vx220.json");
    return controller;
}

RevisionDescription DefaultRevision() {
    static const RevisionDescription revision =
        ReadRevisionJson(DefaultRevisionJson(), "orvex-vx220.revision.json");
    return revision;
}

void ApplyDefaultRevision(IOrvexDeviceRevisionIdentify& registry) {
    RegisterRevision(DefaultRevision(), registry);
}

NodeDescription SyntheticController(std::int32_t networkVariables, std::int32_t configItems) {
    if (networkVariables < 2 || networkVariables > kMaxCount || configItems < 0 ||
        configItems > kMaxCount) {
        throw ComError(kErrInvalidProcedureCall, kSimSource,
                       "a synthetic controller has 2.." + std::to_string(kMaxCount) +
                           " network variables and 0.." + std::to_string(kMaxCount) +
                           " configuration items");
    }
    const auto perBlock = static_cast<std::int32_t>(kBlockMembers.size());
    const std::int32_t blocks = (networkVariables - 2 + perBlock - 1) / perBlock;

    NodeDescription node;
    node.neuronId = "05013C7A0000";
    node.programId = "91A5A58102040400";
    node.selfDoc = "&3.4@0";
    for (std::int32_t block = 1; block <= blocks; ++block) {
        node.selfDoc +=
            "," + std::to_string(
                      kBlockProfiles[static_cast<std::size_t>(block - 1) % kBlockProfiles.size()]);
    }
    node.selfDoc += ";Orvex synthetic controller, Orvex firmware version 1.00";

    node.variables.reserve(static_cast<std::size_t>(networkVariables));
    node.variables.push_back(NodeObjectVariable("nviRequest", 1, 92, 3, false, 0));
    node.variables.push_back(NodeObjectVariable("nvoStatus", 2, 93, 6, true, 1));
    for (std::int32_t index = 2; index < networkVariables; ++index) {
        const std::int32_t block = 1 + (index - 2) / perBlock;
        const Member& member = kBlockMembers[static_cast<std::size_t>((index - 2) % perBlock)];
        const std::string blockText = std::to_string(block);
        VariableRecord variable;
        variable.name = std::string(member.stem) + "_" + blockText;
        variable.index = index;
        variable.typeIndex = member.typeIndex;
        switch (member.role) {
            case Role::kInput:
                variable.selfDoc =
                    "@" + blockText + "|" + std::to_string(member.number) + ";" + variable.name;
                break;
            case Role::kOutput:
                variable.isOutput = true;
                variable.selfDoc = "@" + blockText + "|" + std::to_string(member.number);
                break;
            case Role::kProperty:
                variable.isConfigClass = true;
                variable.selfDoc = "&1," + blockText + ",0," + std::to_string(member.number);
                break;
        }
        variable.value =
            SampleValue(member.typeIndex, member.size, static_cast<std::uint32_t>(index));
        node.variables.push_back(std::move(variable));
    }

    node.configItems.reserve(static_cast<std::size_t>(configItems));
    for (std::int32_t i = 1; i <= configItems; ++i) {
        const ItemType& type = kItemTypes[static_cast<std::size_t>(i - 1) % kItemTypes.size()];
        const std::int32_t object = blocks > 0 ? 1 + (i - 1) % blocks : 0;
        ConfigItemRecord item;
        item.name = "0-" + std::to_string(i);
        item.layout = std::to_string(object) + "|" + std::to_string(type.typeIndex) + "|" +
                      type.name + "|synthetic item " + std::to_string(i);
        item.value = SampleValue(type.typeIndex, type.size, static_cast<std::uint32_t>(i));
        node.configItems.push_back(std::move(item));
    }
    return node;
}

}  // namespace vx::sim
