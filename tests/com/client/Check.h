// A small check framework for the COM client: named cases, counted checks, one line per failure
// with file:line and what was expected, and the closing "N passed, M failed" line the runner
// looks for. No test library is available for the Windows targets, hence this.
#pragma once

#include <windows.h>

#include <ole2.h>

#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace check {

// Thrown by REQUIRE: the rest of the case depends on what failed, so the case stops there.
struct Abort {};

// Runs one case; a failed REQUIRE ends it, and any other exception counts as a failure.
void RunCase(const char* name, void (*body)());
// Counts one check; prints the failure. Returns whether it passed.
bool Record(bool passed, const char* file, int line, const std::string& failure);
// Prints the closing line; the process's exit code (0 only when nothing failed).
int Finish();

std::string Narrow(const wchar_t* text);
inline std::string Narrow(const std::wstring& text) {
    return Narrow(text.c_str());
}
std::string Hex(HRESULT result);

inline std::string Show(const std::string& value) {
    return "\"" + value + "\"";
}
inline std::string Show(const char* value) {
    return Show(std::string(value));
}
inline std::string Show(const std::wstring& value) {
    return Show(Narrow(value));
}
inline std::string Show(const wchar_t* value) {
    return Show(Narrow(value));
}
inline std::string Show(bool value) {
    return value ? "true" : "false";
}
template <typename T>
std::string Show(const T& value) {
    std::ostringstream text;
    if constexpr (std::is_floating_point_v<T>) text.precision(9);  // every digit of a float
    if constexpr (std::is_enum_v<T>) {
        text << static_cast<std::underlying_type_t<T>>(value);
    } else {
        text << value;
    }
    return text.str();
}

template <typename T>
std::string Show(const std::vector<T>& values) {
    std::string text = "{";
    for (const auto& value : values)
        text += (text.size() > 1 ? ", " : "") + Show(value);
    return text + "}";
}

template <typename Actual, typename Expected>
bool Equal(const Actual& actual, const Expected& expected, const char* file, int line,
           const char* expression) {
    if (actual == expected) return Record(true, file, line, {});
    return Record(
        false, file, line,
        std::string(expression) + ": expected " + Show(expected) + ", got " + Show(actual));
}

// An HRESULT compared as such, shown in hexadecimal with the error text the thread holds.
bool Result(HRESULT actual, HRESULT expected, const char* file, int line, const char* expression);

}  // namespace check

#define CHECK(condition) \
    ::check::Record(static_cast<bool>(condition), __FILE__, __LINE__, "CHECK(" #condition ")")
#define CHECK_EQ(actual, expected) ::check::Equal((actual), (expected), __FILE__, __LINE__, #actual)
#define CHECK_HR(call, expected) ::check::Result((call), (expected), __FILE__, __LINE__, #call)
#define CHECK_OK(call) CHECK_HR(call, S_OK)

// As CHECK and CHECK_OK, but the case cannot go on without it.
#define REQUIRE(condition) \
    if (!CHECK(condition)) throw ::check::Abort()
#define REQUIRE_OK(call) \
    if (!CHECK_OK(call)) throw ::check::Abort()
