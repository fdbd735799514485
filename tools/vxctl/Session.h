#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "CDevice.h"
#include "Connections.h"
#include "Progress.h"
#include "ToolErrors.h"
#include "automation/ComError.h"

namespace vx::vxctl {

// A configuration download that stopped part-way, on a network failure or a signal, after the
// session tried to close the download phase it may have left open.
class DownloadStopped : public std::runtime_error {
public:
    DownloadStopped(std::optional<ComError> error, int signal, std::int32_t level, bool closed);

    // The network's or the library's error; nothing when a signal stopped it.
    const std::optional<ComError>& Error() const noexcept { return m_error; }
    int Signal() const noexcept { return m_signal; }  // 0 unless a signal stopped it
    std::int32_t Level() const noexcept { return m_level; }
    // The phase is closed (or was never opened); else it may still be open on the controller.
    bool PhaseClosed() const noexcept { return m_closed; }
    // What may be left open and how to close it, for people.
    std::string PhaseText() const;

private:
    std::optional<ComError> m_error;
    int m_signal;
    std::int32_t m_level;
    bool m_closed;
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
    // Opens the connection the choice names and connects to the node. A connect that fails after
    // the objects were loaded leaves the device connected with what was loaded and the error in
    // ConnectError(); any other failure raises.
    Session(const DeviceChoice& choice, Progress& progress);
    // Connects to the node behind `connection`; `revision` as DeviceChoice::revision.
    Session(Connection connection, const std::string& revision, Progress& progress);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    CDevice& Device() const { return *m_device; }
    // "default", the file the node was loaded from, or its lonip:// address.
    const std::string& DeviceName() const { return m_connection.name; }
    // "simulated controller" or "LON/IP node".
    const std::string& DeviceKind() const { return m_connection.kind; }
    // The host connection the device talks through.
    const NodeConnectionPtr& HostConnection() const { return m_connection.node; }
    // "built-in", the revision file, or "none".
    const std::string& RevisionSource() const { return m_revisionSource; }
    const std::optional<ComError>& ConnectError() const { return m_connectError; }
    // The network variable the connect stopped at when it could not give it an object ("network
    // variable nvoVersion (nv 14, self-documentation \"\")"); "" when that is not why it stopped.
    const std::string& ConnectStoppedAt() const { return m_connectStoppedAt; }
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
    // the application reset. `object` prefers that object's checksum list at level 3. A failure
    // or a signal on the way closes the phase where the controller says it is open, and raises
    // DownloadStopped.
    void DownloadConfiguration(std::int32_t mask, std::optional<std::int32_t> object);
    // A download of this session waited for the application reset in vain: the controller still
    // reported it after the wait.
    bool ResetUnfinished() const noexcept { return m_resetUnfinished; }

private:
    // The first network variable of the host's list that no object holds.
    std::string FirstUnboundVariable() const;

    // The object whose checksum list a level-3 download sends: `preferred` when it has one, else
    // the first object that has one. The node keeps one checksum, so another object's empty list
    // would overwrite it with a wrong one.
    std::int32_t ChecksumObject(std::optional<std::int32_t> preferred) const;
    // After a download stopped: closes the phase when the controller reports it open (or cannot
    // say); true when it is closed afterwards.
    bool ClosePhase(std::int32_t level);
    // Whether the node's alarm message still reports the application reset.
    bool StillResetting() const;

    Progress& m_progress;
    Connection m_connection;
    std::shared_ptr<CDevice> m_device;
    std::string m_revisionSource;
    std::optional<ComError> m_connectError;
    std::string m_connectStoppedAt;
    bool m_resetUnfinished = false;
};

}  // namespace vx::vxctl
