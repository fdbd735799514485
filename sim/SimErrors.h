#pragma once

#include <cstdint>
#include <string>

#include "automation/ComError.h"

namespace vx::sim {

// Errors the simulated host raises, as a network-services host reports its failures: numbers in a
// block of their own (away from the library's 0x800401xx-0x800404xx and 0x80041000), the source
// below and a description that names the item.
inline constexpr const char* kSimSource = "Vx.Sim";

// The node sent no response (it is switched off, disconnected or too busy).
inline constexpr std::int32_t kSimErrNoAnswer = static_cast<std::int32_t>(0x80042001u);
// The node answered the request with a failure response.
inline constexpr std::int32_t kSimErrFailureResponse = static_cast<std::int32_t>(0x80042002u);
// A value written does not have the length of the item it is written to.
inline constexpr std::int32_t kSimErrWrongLength = static_cast<std::int32_t>(0x80042003u);
// A network-management request whose code, data or length cannot be sent.
inline constexpr std::int32_t kSimErrBadRequest = static_cast<std::int32_t>(0x80042004u);
// A name the node does not have (the controls of the simulated node).
inline constexpr std::int32_t kSimErrUnknownName = static_cast<std::int32_t>(0x80042005u);

inline ComError SimError(std::int32_t number, std::string description) {
    return ComError(number, kSimSource, std::move(description));
}

}  // namespace vx::sim
