#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vx {

// Ids of the string table, in blocks of 256 by area.
enum StringId : std::int32_t {
    kIdUnsupportedConnection = 256,
    kIdDeviceStateUnknown = 257,
    kIdMissingLonmarkVariable = 258,
    kIdMissingLonmarkProperty = 259,
    kIdMissingOrvexVariable = 260,
    kIdMissingOrvexProperty = 261,
    kIdNoCrcList = 512,
    kIdVariableNotFound = 513,
    kIdBufferLoadFailed = 768,
    kIdVariableLoadTimeout = 769,
    kIdMissingCommandVariable = 1024,
    kIdMissingCommandStatusVariable = 1025,
    kIdMissingCrcProperty = 1026,
};

// Base of the library's error numbers (the platform's object-error base, vbObjectError).
inline constexpr std::int32_t kObjectErrorBase = static_cast<std::int32_t>(0x80040000u);

// The library error number of a string id (0x80040000 + id).
constexpr std::int32_t LibraryErrorNumber(std::int32_t id) noexcept {
    return kObjectErrorBase + id;
}

// The text of a string id, or nothing for an id the table does not hold.
std::optional<std::string_view> LoadLibraryString(std::int32_t id) noexcept;

}  // namespace vx
