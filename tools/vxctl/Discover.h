#pragma once

// vxctl discover: the LON/IP nodes that answer on a range of addresses, and with a broadcast those
// that answer a domain-wide Query ID.

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "Connections.h"
#include "Operations.h"

namespace vx::vxctl {

// A range of IPv4 addresses, both ends included.
struct AddressRange {
    std::array<std::uint8_t, 4> first{};
    std::array<std::uint8_t, 4> last{};

    std::uint32_t Count() const;
    // "127.0.0.2-127.0.0.20", or the one address.
    std::string Text() const;
};

// Asking each address costs a few transmit timers, so a range stays small.
inline constexpr std::uint32_t kMostDiscoverAddresses = 1024;

// Quick timers: on a range, most addresses have no node to wait for.
inline constexpr lon::Timing kDiscoverTiming{std::chrono::milliseconds(100), 1};

// "FIRST-LAST" or one address, IPv4 without ports. UsageError for anything else, for a last
// address below the first and for more than kMostDiscoverAddresses addresses.
AddressRange ParseAddressRange(std::string_view text);

// Asks every address of `range` with one session: a Query ID for unconfigured nodes, then Query
// Status (every node answers it) for the state, and the identity from the read-only data where
// the Query ID got no answer. With `broadcast`, also one domain-wide Query ID; where it cannot be
// sent, a note says so and the range's results stand.
Outcome Discover(const AddressRange& range, const NetworkChoice& network, bool broadcast);

}  // namespace vx::vxctl
