#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vx {

// The platform's run-time error numbers that the library raises or lets through.
enum RuntimeErrorNumber : std::int32_t {
    kErrInvalidProcedureCall = 5,
    kErrOverflow = 6,
    kErrSubscriptOutOfRange = 9,
    kErrDivisionByZero = 11,
    kErrTypeMismatch = 13,
    kErrObjectNotSet = 91,
    kErrInvalidUseOfNull = 94,
    kErrResourceNotFound = 326,
    kErrDuplicateKey = 457,
};

// The automation error object: what a host sees as Err.Number, Err.Source, Err.Description.
class ComError : public std::runtime_error {
public:
    ComError(std::int32_t number, std::string source, std::string description,
             std::string helpFile = {}, std::int32_t helpContext = 0);

    std::int32_t Number() const noexcept { return m_number; }
    const std::string& Source() const noexcept { return m_source; }
    const std::string& Description() const noexcept { return m_description; }
    const std::string& HelpFile() const noexcept { return m_helpFile; }
    std::int32_t HelpContext() const noexcept { return m_helpContext; }

private:
    std::int32_t m_number;
    std::string m_source;
    std::string m_description;
    std::string m_helpFile;
    std::int32_t m_helpContext;
};

// The source a run-time error carries when the library itself raises it: the project name.
inline constexpr const char* kRuntimeErrorSource = "Vx";

// The platform's standard text for a run-time error number ("Overflow", ...).
std::string RuntimeErrorText(std::int32_t number);

// Builds the platform run-time error `number` with its standard description.
ComError RuntimeError(std::int32_t number, std::string source = kRuntimeErrorSource);

[[noreturn]] void RaiseRuntimeError(std::int32_t number, std::string source = kRuntimeErrorSource);

}  // namespace vx
