#pragma once

// LonTalk over UDP (LON/IP, port 2541): one datagram carries one LonTalk packet. Encoding and
// decoding are pure functions over bytes; a datagram that cannot be decoded is an error value,
// never an exception or a read past the bytes given.
//
//   byte 0   version<<4 | flags<<1 | arbitrary-source
//   byte 1   address format<<4 | MCR<<3 | priority<<2 | PDU format
//   [1]      delta backlog, when MCR is set
//   [2..9]   the sender's LonTalk address, when arbitrary-source is set: subnet, D<<7 | node,
//            and when D a domain-length code (0, 1, 2, 3 for 0, 1, 3, 6 bytes) and the domain
//   [..]     the destination, by address format
//   [..]     TPDU/SPDU/AuthPDU: auth<<7 | type<<4 | transaction ID; then the APDU
//            APDU (PDU format 3): the APDU alone, sent unacknowledged

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vx::lon {

inline constexpr std::uint16_t kLonIpPort = 2541;
// The most a LonTalk APDU carries: the code and 228 data bytes.
inline constexpr std::size_t kMaxApdu = 229;
// Header, backlog, a source with a six-byte domain, the longest destination, the PDU header and
// the longest APDU.
inline constexpr std::size_t kMaxDatagram = 2 + 1 + 9 + 7 + 1 + kMaxApdu;

enum class AddressFormat : std::uint8_t {
    kSubnetNode = 1,          // the destination IP address implies the node
    kDomainBroadcast = 2,     //
    kSubnetBroadcast = 3,     // subnet
    kGroup = 4,               // group
    kGroupResponse = 5,       // group, member
    kNeuronId = 6,            // subnet (0), Neuron ID
    kExplicitSubnetNode = 7,  // subnet, G<<7 | node [, group, member]
};

enum class PduFormat : std::uint8_t { kTpdu = 0, kSpdu = 1, kAuthPdu = 2, kApdu = 3 };

// Types of the transport and session headers.
enum class TpduType : std::uint8_t {
    kAcknowledged = 0,
    kUnackRepeated = 1,
    kAck = 2,
    kReminder = 4,
    kReminderMessage = 5,
};
enum class SpduType : std::uint8_t {
    kRequest = 0,
    kResponse = 2,
    kReminder = 4,
    kReminderMessage = 5,
};

using NeuronId = std::array<std::uint8_t, 6>;

// A node's LonTalk address within its domain.
struct LonAddress {
    std::uint8_t subnet = 0;  // 0..255
    std::uint8_t node = 0;    // 0..127
    // The domain ID: 0, 1, 3 or 6 bytes. Only a source address with the D flag carries it.
    std::vector<std::uint8_t> domain;
    bool operator==(const LonAddress&) const = default;
};

struct SourceAddress {
    LonAddress address;
    bool hasDomain = false;  // the D flag: the domain follows
    bool operator==(const SourceAddress&) const = default;
};

struct Destination {
    AddressFormat format = AddressFormat::kSubnetNode;
    std::uint8_t subnet = 0;   // subnet broadcast, Neuron ID (0) and explicit subnet/node
    std::uint8_t node = 0;     // explicit subnet/node, 0..127
    std::uint8_t group = 0;    // group, group response, explicit subnet/node with G
    std::uint8_t member = 0;   // group response, explicit subnet/node with G
    bool groupFields = false;  // explicit subnet/node: G, group and member follow
    NeuronId neuronId{};
    bool operator==(const Destination&) const = default;
};

struct Datagram {
    std::uint8_t version = 0;  // 0: 4-bit transaction IDs
    std::uint8_t flags = 0;    // 3 bits, passed as they are
    std::uint8_t priority = 0;
    std::optional<std::uint8_t> backlog;  // the delta backlog, with MCR
    std::optional<SourceAddress> source;  // with the arbitrary-source flag
    Destination destination;
    PduFormat pduFormat = PduFormat::kSpdu;
    // TPDU, SPDU and AuthPDU only.
    bool authenticated = false;
    std::uint8_t pduType = 0;      // TpduType or SpduType
    std::uint8_t transaction = 0;  // 0..15
    // The APDU: message code and data. Empty only for a TPDU acknowledgement or a reminder.
    std::vector<std::uint8_t> apdu;
    bool operator==(const Datagram&) const = default;
};

enum class DecodeError {
    kNone,
    kEmpty,     // no bytes at all
    kTooShort,  // ends inside the header, an address or the PDU header
    kOversize,  // longer than any LonTalk packet
    kUnsupportedVersion,
    kBadAddressFormat,  // address format 0 or above 7
    kBadDomainLength,   // a domain-length code above 3 or reserved bits set
    kMissingApdu,       // a message PDU without its APDU
    kTrailingBytes,     // bytes after a PDU that carries none (an acknowledgement)
    kBadPduType,        // a transport or session type the protocol does not define
};

// A short English text for a technician ("ends inside the destination address").
std::string DecodeErrorText(DecodeError error);

struct DecodeResult {
    std::optional<Datagram> datagram;
    DecodeError error = DecodeError::kNone;
    explicit operator bool() const { return datagram.has_value(); }
};

DecodeResult Decode(std::span<const std::uint8_t> bytes);

// Encodes `datagram`. Nothing when it cannot be expressed: a field out of range (node above 127,
// transaction above 15, a domain of another length than 0, 1, 3 or 6), an undefined transport or
// session type, an APDU longer than kMaxApdu, a message PDU without an APDU, or an
// acknowledgement with bytes after it.
std::optional<std::vector<std::uint8_t>> Encode(const Datagram& datagram);

// ---- Message codes
// -------------------------------------------------------------------------------

// Network-management and diagnostic requests answer with 0x20 | (code & 0x1F) on success and
// code & 0x1F on failure.
constexpr std::uint8_t SuccessCode(std::uint8_t request) {
    return static_cast<std::uint8_t>(0x20 | (request & 0x1F));
}
constexpr std::uint8_t FailureCode(std::uint8_t request) {
    return static_cast<std::uint8_t>(request & 0x1F);
}

// The first APDU byte of a network-variable message: 1, direction, selector (14 bits).
constexpr bool IsNetworkVariableCode(std::uint8_t code) {
    return (code & 0x80) != 0;
}

}  // namespace vx::lon
