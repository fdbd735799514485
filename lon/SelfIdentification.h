#pragma once

// A node's self-identification data, read with Query SI: the node's network variables with their
// standard types, names and self-documentation, and the node's self-documentation string.
//
//   0  length of the whole data, 2 bytes, most significant first
//   2  network-variable count, low byte      3  version      4  count, high byte
//   5  message-tag count
//   6  per network variable: a descriptor byte and its standard type index
//      the node's self-documentation string, zero-terminated
//      per network variable whose descriptor has the extension flag (0x80): an extension
//      record: a mask byte, then the fields it names, in this order: 0x80 maximum rate
//      estimate (1 byte), 0x40 rate estimate (1 byte), 0x20 name (zero-terminated), 0x10
//      self-documentation (zero-terminated), 0x08 array count (2 bytes)
//      then the alias and binding fields, kept as they are

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vx::lon {

struct SiVariable {
    std::uint8_t descriptor = 0;  // flags; 0x80: an extension record follows
    std::uint8_t typeIndex = 0;   // standard type index, 0 for none
    std::uint8_t extensionMask = 0;
    std::optional<std::uint8_t> maxRate;
    std::optional<std::uint8_t> rate;
    std::string name;     // "" when the record has none
    std::string selfDoc;  // one byte per character
    std::optional<std::uint16_t> arrayCount;
    bool operator==(const SiVariable&) const = default;
};

struct SelfIdentification {
    std::uint8_t version = 1;
    std::uint8_t messageTags = 0;
    std::string nodeSelfDoc;
    std::vector<SiVariable> variables;
    std::vector<std::uint8_t> trailer;  // alias and binding fields
    bool operator==(const SelfIdentification&) const = default;
};

// The length the first two bytes announce; nothing for fewer than 2 bytes.
std::optional<std::uint16_t> AnnouncedLength(std::span<const std::uint8_t> data);

struct SiParseResult {
    std::optional<SelfIdentification> data;
    std::string error;  // what is wrong, when data is unset ("ends inside variable 3's name")
};

// Parses the whole data (exactly the announced length; shorter or longer is an error).
SiParseResult ParseSelfIdentification(std::span<const std::uint8_t> data);

// The bytes a node serves. A variable gets an extension record exactly when it has a field for
// one (a name or self-documentation, mask 0x30, or a rate or array count); the record's mask
// names exactly those fields, and the descriptor's extension flag is set exactly then, whatever
// `descriptor` and `extensionMask` say. So parsing the result gives `data` back with those two
// recomputed. Nothing when it cannot be expressed (longer than 65535 bytes, a text with a zero
// byte, more than 65535 variables).
std::optional<std::vector<std::uint8_t>> BuildSelfIdentification(const SelfIdentification& data);

}  // namespace vx::lon
