#pragma once

// The commands of vxctl on a connected controller. Each gives its data twice, as JSON for scripts
// and as text for people, from the same reads.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Session.h"
#include "Table.h"
#include "ValueText.h"
#include "Vxctl.h"

namespace vx::vxctl {

// What a command produced. `failure` says what the device did not do although nothing raised (a
// node that does not answer, a rejected command, a value that did not arrive): the data is still
// shown, and the run ends with exit code 1.
struct Outcome {
    Json json = Json::object();
    std::string text;
    std::string failure;
    // The exit code when `failure` is set (Vxctl.h).
    int failureCode = kExitNotDone;
    // Said on stderr whatever the output form; the run still succeeds.
    std::vector<std::string> notes;
};

// The family's device commands as the command line names them; every parameter is a whole number.
struct FamilyCommand {
    std::string name;
    std::string help;
    std::vector<std::string> parameters;
    bool takesData = false;  // up to ten data bytes follow the parameters
};
const std::vector<FamilyCommand>& FamilyCommands();
// "0 to 65535": what a command's parameter may hold; "" when the command takes any number there.
std::string ParameterRangeText(const std::string& command, std::size_t parameter);

// The family keeps the device name at location 20 of the node's configuration values.
inline constexpr std::string_view kNameLocation = "20";

Outcome Info(Session& session);
Outcome Objects(Session& session, bool withValues);
// The value a path names, decoded; a variable without a type shows its bytes.
DecodedValue DecodeTarget(const VariablePath& target);
Outcome Get(Session& session, std::string_view path, std::optional<std::int32_t> object);
// Writes the value to the node: a network variable directly, a configuration value through a
// configuration download at the level its change reached.
Outcome Set(Session& session, std::string_view path, std::string_view value,
            std::optional<std::int32_t> object);
Outcome Wink(Session& session);
Outcome Ping(Session& session);
// Reads the name at `location`; with `text`, writes it first.
Outcome Name(Session& session, const std::string& location, const std::optional<std::string>& text);
Outcome SendCommand(Session& session, const std::string& name,
                    const std::vector<std::int32_t>& arguments);
Outcome CommandStatus(Session& session);
// The status flags of one object, or of every object.
Outcome ObjectStatus(Session& session, std::optional<std::int32_t> object);
Outcome Request(Session& session, std::int32_t object, std::string_view request);

// Helpers the command files share.
std::string Joined(const std::vector<std::string>& texts);
std::int32_t ObjectOf(const CDeviceVariable& variable);
std::string Named(const CDeviceVariable& variable);
// The key the library imports a configuration value by: "3-2", "nciSetpoints.20".
std::string ConfigKey(const CDeviceVariable& variable);
// Rows for the fields of a structure: `leading` cells, the field's branch under `stem`, its value.
void AddFieldRows(Table& table, const std::vector<std::string>& leading, const std::string& stem,
                  const std::vector<DecodedValue>& fields);
// The node's answer to the last command; null when the node has no command status variable.
Json CommandStatusJson(CDevice& device);
// One line for people; "" for a node without a command status variable.
std::string CommandStatusLine(const Json& status);
bool StatusBit(const Json& status, const char* name);

}  // namespace vx::vxctl
