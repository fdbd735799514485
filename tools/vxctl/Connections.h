#pragma once

// Where vxctl's controller is: the host connection a --device argument names. vxctl reaches a
// node only through the connection this gives; what it knows of the node comes from the node
// itself (program ID, values, status) or from files the technician names.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "LonIpNode.h"
#include "interfaces/INodeConnection.h"

namespace vx::vxctl {

inline constexpr std::string_view kDefaultDevice = "default";
inline constexpr std::string_view kDefaultRevision = "default";
inline constexpr std::string_view kNoRevision = "none";
inline constexpr std::string_view kLonIpScheme = "lonip://";

// How LON/IP exchanges are timed and where the host sits; unset parts take the command's
// defaults. The in-process controller ignores all of it.
struct NetworkChoice {
    std::optional<std::chrono::milliseconds> timeout;  // the transmit timer
    std::optional<int> retries;                        // attempts after the first
    std::string local;                                 // "ADDR[:PORT]"; "" the session's choice
};

// Which controller a run talks to.
struct DeviceChoice {
    // "default" (the family's built-in controller, in process), a node description (.json) or a
    // device interface file (.xif) simulated in process, or "lonip://HOST[:PORT][/NEURONID]".
    std::string device = std::string(kDefaultDevice);
    // "default" (the built-in revision), "none", or a revision file. Empty: the built-in revision
    // for a node with the default controller's program ID, none for any other.
    std::string revision;
    // For a network node: a node file (.json/.xif) whose configuration items with a memory address
    // the node keeps. Empty: the default controller's items for a node with its program ID, none
    // for any other.
    std::string layout;
    NetworkChoice network;
};

// A connection to one node and what a session says about it.
struct Connection {
    NodeConnectionPtr node;
    std::string name;       // "default", the file, or the lonip:// address as given
    std::string kind;       // "simulated controller", "LON/IP node"
    std::string programId;  // 16 hexadecimal digits, as the node reports it
};

// The default controller's program ID, for which vxctl knows the revision and the item layout.
bool IsDefaultControllersProgramId(std::string_view programId);

// Opens the connection `choice.device` names. For a network node this asks the node for its
// identity (and raises the network's error when it does not answer). A malformed lonip:// address
// raises UsageError; a file that cannot be loaded, the simulator's error.
Connection OpenConnection(const DeviceChoice& choice);

// The part of a command line that names a network node; empty for anything else.
bool IsLonIpAddress(std::string_view device);
// The parsed address; UsageError with the library's explanation when it is malformed.
lon::LonIpUrl ParseDeviceAddress(std::string_view device);

// The host's options for the network choice: `defaults` where nothing was chosen. UsageError for
// a --local that is no IPv4 address with an optional port.
lon::HostOptions HostOptionsFor(const NetworkChoice& network, const lon::Timing& defaults);

}  // namespace vx::vxctl
