#pragma once

// How vxctl reports a command that did not end well: one line on stderr, and with --json one
// document on stdout, {"error": {...}}, whose fields a script can rely on:
//   kind         "failed", "usage", "connect", "notDone", "fileRefused", "stoppedPartWay",
//                "notConfirmed", "interrupted" (one per exit code)
//   message      what stopped, as printed on stderr without the "vxctl: " prefix
//   exitCode     the exit code of the run
//   number, hex, source, description
//                the library's or the network's error behind it; null when there is none

#include <optional>
#include <string>
#include <vector>

#include "ToolErrors.h"
#include "ValueText.h"
#include "Vxctl.h"

namespace vx::vxctl {

struct Failure {
    ExitCode code = kExitFailure;
    std::string message;
    std::optional<ComError> library;
    // Lines said on stderr after the message (what may be left open), and members added to the
    // JSON error ("downloadClosed").
    std::vector<std::string> followUp = {};
    Json details = Json::object();
};

// The failure an exception stands for.
Failure FailureOf(const ComError& error);
Failure FailureOf(const ToolError& error);

// "usage", "notDone", ... for an exit code.
std::string KindOf(ExitCode code);

// The line for stderr (without "vxctl: "): the message and the library's error behind it.
std::string FailureText(const Failure& failure);
// The "error" member of the JSON document.
Json FailureJson(const Failure& failure);

// Turns a conversion error of the library (text where a number goes, a number too large) into a
// refusal of the argument that gave the value; other errors pass unchanged.
[[noreturn]] void RethrowForArgument(const ComError& error, const std::string& argument,
                                     const std::string& value);

}  // namespace vx::vxctl
