#pragma once

#include <cstdint>
#include <string>

#include "automation/ComError.h"

namespace vx::lon {

// Errors of the LON/IP host, as a network-services host reports its failures: numbers in a block
// of their own (beside the simulated host's 0x800420xx), the source below and a description that
// tells a technician what happened ("no answer from 127.0.0.2 after 4 attempts (Query Status)").
inline constexpr const char* kLonSource = "Vx.Lon";

// The node sent no answer within the retry budget.
inline constexpr std::int32_t kLonErrNoAnswer = static_cast<std::int32_t>(0x80043001u);
// The node answered the request with a failure response.
inline constexpr std::int32_t kLonErrFailureResponse = static_cast<std::int32_t>(0x80043002u);
// A value written does not have the length of the variable or item it is written to.
inline constexpr std::int32_t kLonErrWrongLength = static_cast<std::int32_t>(0x80043003u);
// A request whose code, data or length cannot be sent.
inline constexpr std::int32_t kLonErrBadRequest = static_cast<std::int32_t>(0x80043004u);
// The host's socket could not be opened, bound or used.
inline constexpr std::int32_t kLonErrSocket = static_cast<std::int32_t>(0x80043005u);
// The node's answer cannot be what the request asked for (too short, malformed
// self-identification data, a value of another length).
inline constexpr std::int32_t kLonErrBadAnswer = static_cast<std::int32_t>(0x80043006u);
// An address, Neuron ID or option that cannot be used.
inline constexpr std::int32_t kLonErrBadAddress = static_cast<std::int32_t>(0x80043007u);
// The node has no such item, or it cannot be reached through the network.
inline constexpr std::int32_t kLonErrUnknownItem = static_cast<std::int32_t>(0x80043008u);

inline ComError LonError(std::int32_t number, std::string description) {
    return ComError(number, kLonSource, std::move(description));
}

}  // namespace vx::lon
