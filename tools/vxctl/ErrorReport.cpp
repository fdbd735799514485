#include "ErrorReport.h"

#include <fmt/format.h>

namespace vx::vxctl {

Failure FailureOf(const ComError& error) {
    return {kExitFailure, ErrorText(error), error};
}

Failure FailureOf(const ToolError& error) {
    return {error.Code(), error.what(), error.Cause()};
}

std::string KindOf(ExitCode code) {
    switch (code) {
        case kExitSuccess:
            return "none";
        case kExitFailure:
            return "failed";
        case kExitUsage:
            return "usage";
        case kExitPartial:
            return "connect";
        case kExitNotDone:
            return "notDone";
        case kExitFileRefused:
            return "fileRefused";
        case kExitStoppedPartWay:
            return "stoppedPartWay";
        case kExitNotConfirmed:
            return "notConfirmed";
        case kExitInterrupted:
            return "interrupted";
    }
    return "failed";
}

std::string FailureText(const Failure& failure) {
    if (!failure.library || failure.message == ErrorText(*failure.library)) return failure.message;
    return fmt::format("{} ({})", failure.message, ErrorText(*failure.library));
}

Json FailureJson(const Failure& failure) {
    Json json = {{"kind", KindOf(failure.code)},
                 {"message", FailureText(failure)},
                 {"exitCode", static_cast<int>(failure.code)},
                 {"number", nullptr},
                 {"hex", nullptr},
                 {"source", nullptr},
                 {"description", nullptr}};
    if (failure.library) {
        const Json library = ErrorJson(*failure.library);
        for (const char* key : {"number", "hex", "source", "description"})
            json[key] = library[key];
    }
    for (const auto& [key, value] : failure.details.items())
        json[key] = value;
    return json;
}

void RethrowForArgument(const ComError& error, const std::string& argument,
                        const std::string& value) {
    switch (error.Number()) {
        case kErrTypeMismatch:
            throw ArgumentError(argument, value, "a number is needed here", error);
        case kErrOverflow:
            throw ArgumentError(argument, value, "the number is too large for the value", error);
        case kErrInvalidProcedureCall:
            throw ArgumentError(argument, value, "the value cannot take this", error);
        default:
            throw error;
    }
}

}  // namespace vx::vxctl
