#pragma once

// What vxctl raises when it stops a command itself. The dispatcher turns each into one message on
// stderr (and one JSON document with --json) and the exit code the error carries.

#include <optional>
#include <stdexcept>
#include <string>

#include "Vxctl.h"
#include "automation/ComError.h"

namespace vx::vxctl {

// The request cannot be met on this device (a name it does not have, a file that cannot be read):
// exit code 1 unless a subclass says otherwise. `cause` is the library's error behind it, whose
// number, source and description are shown with the message.
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& message, ExitCode exitCode = kExitFailure,
                       std::optional<ComError> cause = std::nullopt)
        : std::runtime_error(message), m_exitCode(exitCode), m_cause(std::move(cause)) {}

    ExitCode Code() const noexcept { return m_exitCode; }
    const std::optional<ComError>& Cause() const noexcept { return m_cause; }

private:
    ExitCode m_exitCode;
    std::optional<ComError> m_cause;
};

// The command line asks for something that cannot be meant: exit code 2, with a hint.
class UsageError : public ToolError {
public:
    explicit UsageError(const std::string& message, std::optional<ComError> cause = std::nullopt)
        : ToolError(message, kExitUsage, std::move(cause)) {}
};

// One argument's value refused: `argument VALUE "abc": a number is needed`. `problem` says what
// was wrong and, where there is one, the valid range.
class ArgumentError : public UsageError {
public:
    ArgumentError(const std::string& argument, const std::string& value, const std::string& problem,
                  std::optional<ComError> cause = std::nullopt)
        : UsageError(Text(argument, value, problem), std::move(cause)) {}

    static std::string Text(const std::string& argument, const std::string& value,
                            const std::string& problem) {
        return "argument " + argument + " \"" + value + "\": " + problem;
    }
};

// A file that does not fit the device or cannot be read; nothing was sent: exit code 5.
class FileRefusedError : public ToolError {
public:
    explicit FileRefusedError(const std::string& message,
                              std::optional<ComError> cause = std::nullopt)
        : ToolError(message, kExitFileRefused, std::move(cause)) {}
};

// A change of several steps stopped part-way; the message lists what arrived: exit code 6.
class StoppedPartWayError : public ToolError {
public:
    explicit StoppedPartWayError(const std::string& message,
                                 std::optional<ComError> cause = std::nullopt)
        : ToolError(message, kExitStoppedPartWay, std::move(cause)) {}
};

// A change that needs confirmation was not confirmed: exit code 7.
class NotConfirmedError : public ToolError {
public:
    explicit NotConfirmedError(const std::string& message)
        : ToolError(message, kExitNotConfirmed) {}
};

// SIGINT or SIGTERM stopped the command; the message says what was done: exit code 130.
class InterruptedError : public ToolError {
public:
    explicit InterruptedError(const std::string& message) : ToolError(message, kExitInterrupted) {}
};

}  // namespace vx::vxctl
