#pragma once

// What a simulated node records of its exchanges and what tests make it do: injected faults, the
// record of exchanges, the command channel's state and the flags of its LonMark objects.

#include <cstdint>
#include <string>
#include <vector>

namespace vx::sim {

// ---- Fault injection ---------------------------------------------------------------------------

enum class FaultKind {
    kNoAnswer,         // raises kSimErrNoAnswer
    kFailureResponse,  // raises kSimErrFailureResponse
    kHostError,        // raises the host error `number` with `description`
};

// A count that keeps the fault until ClearFaults.
inline constexpr std::int32_t kFaultAlways = -1;

// Makes the next `count` calls of `operation` on `target` fail. Operations: the exchanges
// "ReadValue", "WriteValue" (target: a variable or item name), "SendNetworkMessage" (target: the
// message code, "6D") and "Wink", and the host's own answers "NodeState", "Mode", "NeuronIDText",
// "ProgramIDText", "SelfDocText", "NetworkVariables" and "ConfigurationProperties". An empty target
// matches every call of the operation.
// The members have initializers so that designated initializers may leave any out.
struct Fault {
    std::string operation{};
    std::string target{};
    FaultKind kind = FaultKind::kNoAnswer;
    std::int32_t count = 1;   // 1 or more, or kFaultAlways
    std::int32_t number = 0;  // kHostError: the error's number and description
    std::string description{};
};

// ---- The record
// ----------------------------------------------------------------------------------

// One exchange that went out on the network.
struct Exchange {
    std::string operation;               // "ReadValue", "WriteValue", "SendNetworkMessage", "Wink"
    std::string target;                  // variable or item name, message code; "" for a wink
    std::vector<std::uint8_t> request;   // the value written, the message's data bytes
    std::vector<std::uint8_t> response;  // the value read, the response's data bytes
    std::int32_t outcome = 0;            // 0 answered, else the number of the error raised

    bool operator==(const Exchange&) const = default;
};

// One request written to the node object's request variable.
struct ObjectRequest {
    std::int32_t object = 0;
    std::int32_t request = 0;

    bool operator==(const ObjectRequest&) const = default;
};

// ---- The command channel -----------------------------------------------------------------------

struct TimerReset {
    std::int32_t timer = 0;
    std::int32_t value = 0;

    bool operator==(const TimerReset&) const = default;
};

// What the node's application made of the commands it received.
struct CommandChannel {
    std::int32_t downloadLevel = 0;  // the open configuration download's level; 0 closed
    std::int32_t closes = 0;         // configuration downloads closed
    bool checksumMismatch = false;   // at the last close
    std::int32_t restarts = 0;       // application restarts (close, memory reset)
    bool restarting = false;         // the alarm message still reports the restart
    std::int32_t pollsLeft = 0;      // reads of the alarm message until it ends; -1 never
    bool keypadEnabled = true;
    std::int32_t sendAllScans = 0;
    std::vector<TimerReset> timerResets;
    std::vector<std::int32_t> keypresses;
    std::vector<std::int32_t> clearedLogs;  // object ids

    bool operator==(const CommandChannel&) const = default;
};

// Bits of the command status variable's second byte.
inline constexpr std::uint8_t kCommandAccepted = 0x01;
inline constexpr std::uint8_t kCommandRejected = 0x02;
inline constexpr std::uint8_t kCommandDownloadOpen = 0x04;
inline constexpr std::uint8_t kCommandChecksumMismatch = 0x08;
inline constexpr std::uint8_t kCommandResetting = 0x10;

// ---- Object status ---------------------------------------------------------------------------

// The flags of an object's status as one number: the object status value's bytes 2, 3 and 4
// from the most significant byte down.
inline constexpr std::uint32_t kObjInvalidId = 0x800000;
inline constexpr std::uint32_t kObjInvalidRequest = 0x400000;
inline constexpr std::uint32_t kObjDisabled = 0x200000;
inline constexpr std::uint32_t kObjOutOfLimits = 0x100000;
inline constexpr std::uint32_t kObjOpenCircuit = 0x080000;
inline constexpr std::uint32_t kObjOutOfService = 0x040000;
inline constexpr std::uint32_t kObjMechanicalFault = 0x020000;
inline constexpr std::uint32_t kObjFeedbackFailure = 0x010000;
inline constexpr std::uint32_t kObjOverRange = 0x008000;
inline constexpr std::uint32_t kObjUnderRange = 0x004000;
inline constexpr std::uint32_t kObjElectricalFault = 0x002000;
inline constexpr std::uint32_t kObjUnableToMeasure = 0x001000;
inline constexpr std::uint32_t kObjCommFailure = 0x000800;
inline constexpr std::uint32_t kObjFailSelfTest = 0x000400;
inline constexpr std::uint32_t kObjSelfTestInProgress = 0x000200;
inline constexpr std::uint32_t kObjLockedOut = 0x000100;
inline constexpr std::uint32_t kObjManualControl = 0x000080;
inline constexpr std::uint32_t kObjInAlarm = 0x000040;
inline constexpr std::uint32_t kObjInOverride = 0x000020;
inline constexpr std::uint32_t kObjReportMask = 0x000010;
inline constexpr std::uint32_t kObjProgrammingMode = 0x000008;
inline constexpr std::uint32_t kObjProgrammingFail = 0x000004;
inline constexpr std::uint32_t kObjAlarmNotifyDisabled = 0x000002;

// The flags an object holds; invalid_id, invalid_request and report_mask belong to answers only.
inline constexpr std::uint32_t kObjHeldFlags = 0x3FFFEE;
// What an object reports in answer to a report-mask request until told otherwise.
inline constexpr std::uint32_t kObjDefaultSupported =
    kObjInvalidId | kObjInvalidRequest | kObjDisabled | kObjManualControl | kObjInAlarm |
    kObjInOverride | kObjAlarmNotifyDisabled;

}  // namespace vx::sim
