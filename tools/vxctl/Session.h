#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "CDevice.h"
#include "Progress.h"
#include "SimulatedNode.h"
#include "automation/ComError.h"

namespace vx::vxctl {

inline constexpr std::string_view kDefaultDevice = "default";
inline constexpr std::string_view kDefaultRevision = "default";
inline constexpr std::string_view kNoRevision = "none";

// Which controller a run talks to. The host connection this build offers is the simulated
// controller, which lives in the process: every run loads the node afresh.
struct DeviceChoice {
    // "default" (the family's built-in controller), a node description (.json) or a device
    // interface file (.xif).
    std::string device = std::string(kDefaultDevice);
    // "default" (the built-in revision), "none", or a revision file. Empty: the built-in revision
    // for a node with the default controller's program ID, none for any other.
    std::string revision;
};

// The request cannot be met on this device (a name it does not have, a file that cannot be read):
// exit code 1.
class ToolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line asks for something that cannot be meant: exit code 2, with a hint.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A variable and the part of its value a command names: "nciSetpoints.occupied_cool",
// "nvoAlarm.description[3]".
struct VariablePath {
    DeviceVariablePtr variable;
    DataElementPtr element;             // the whole value or the named field
    std::string field;                  // "occupied_cool"; "" for the whole value
    std::optional<std::int32_t> entry;  // the entry of an array field
    std::int32_t object = 0;

    // "nciSetpoints.occupied_cool" as the command line gives it.
    std::string Shown() const;
};

// One controller, connected for the length of a command.
class Session {
public:
    // Loads the node and connects to it. A connect that fails after the objects were loaded leaves
    // the device connected with what was loaded and the error in ConnectError(); any other failure
    // raises.
    Session(const DeviceChoice& choice, Progress& progress);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    CDevice& Device() const { return *m_device; }
    const sim::SimulatedNodePtr& Node() const { return m_node; }
    // "default" or the file the node was loaded from.
    const std::string& DeviceName() const { return m_deviceName; }
    // "built-in", the revision file, or "none".
    const std::string& RevisionSource() const { return m_revisionSource; }
    const std::optional<ComError>& ConnectError() const { return m_connectError; }
    // Where long work is shown.
    Progress& Reporter() const { return m_progress; }

    // Every object's variables in the device's order, and those that hold configuration (items and
    // configuration properties).
    std::vector<DeviceVariablePtr> Variables() const;
    std::vector<DeviceVariablePtr> ConfigurationVariables() const;

    // Resolves "name[.field...][[entry]]" on `object`, or on the one object that has the name.
    VariablePath Find(std::string_view path, std::optional<std::int32_t> object) const;

    // Reads the variables from the node, showing progress. Without `failed` the first failure
    // raises; with it, each failure is handed over and the upload goes on.
    void Upload(const std::vector<DeviceVariablePtr>& variables, std::string label,
                const std::function<void(CDeviceVariable&, const ComError&)>& failed = {});

    // Downloads the changed configuration values of the categories in `mask` at the device's
    // modification level, then closes a download left open for configuration items and waits for
    // the application reset. `object` prefers that object's checksum list at level 3.
    void DownloadConfiguration(std::int32_t mask, std::optional<std::int32_t> object);

private:
    // The object whose checksum list a level-3 download sends: `preferred` when it has one, else
    // the first object that has one. The node keeps one checksum, so another object's empty list
    // would overwrite it with a wrong one.
    std::int32_t ChecksumObject(std::optional<std::int32_t> preferred) const;

    Progress& m_progress;
    std::string m_deviceName;
    sim::SimulatedNodePtr m_node;
    std::shared_ptr<CDevice> m_device;
    std::string m_revisionSource;
    std::optional<ComError> m_connectError;
};

}  // namespace vx::vxctl
