#include "SelfIdentification.h"
#include "ByteReader.h"

#include <algorithm>
#include <string>
#include <utility>

namespace vx::lon {
namespace {

constexpr std::size_t kHeaderSize = 6;
constexpr std::uint8_t kExtensionFlag = 0x80;

// Extension mask bits, in the order their fields follow the mask byte.
constexpr std::uint8_t kMaxRateField = 0x80;
constexpr std::uint8_t kRateField = 0x40;
constexpr std::uint8_t kNameField = 0x20;
constexpr std::uint8_t kSelfDocField = 0x10;
constexpr std::uint8_t kArrayCountField = 0x08;

SiParseResult Fail(std::string text) {
    return {std::nullopt, std::move(text)};
}

std::string EndsInside(const std::string& what) {
    return "the self-identification data ends inside " + what;
}

std::string Variable(std::size_t index) {
    return "network variable " + std::to_string(index);
}

// The fields a variable's extension record carries; 0 when it needs none.
std::uint8_t ExtensionFields(const SiVariable& variable) {
    std::uint8_t mask = 0;
    if (variable.maxRate) mask |= kMaxRateField;
    if (variable.rate) mask |= kRateField;
    if (!variable.name.empty()) mask |= kNameField;
    if (!variable.selfDoc.empty()) mask |= kSelfDocField;
    if (variable.arrayCount) mask |= kArrayCountField;
    return mask;
}

// The error text when the record cannot be read; empty when it was read.
std::string ReadExtension(ByteReader& in, std::size_t index, SiVariable& variable) {
    const std::string who = Variable(index);
    if (!in.Take(variable.extensionMask)) return EndsInside(who + "'s extension record");
    const std::uint8_t mask = variable.extensionMask;
    if ((mask & kMaxRateField) != 0) {
        std::uint8_t value = 0;
        if (!in.Take(value)) return EndsInside(who + "'s maximum rate estimate");
        variable.maxRate = value;
    }
    if ((mask & kRateField) != 0) {
        std::uint8_t value = 0;
        if (!in.Take(value)) return EndsInside(who + "'s rate estimate");
        variable.rate = value;
    }
    if ((mask & kNameField) != 0 && !in.TakeText(variable.name)) {
        return who + "'s name has no terminating zero";
    }
    if ((mask & kSelfDocField) != 0 && !in.TakeText(variable.selfDoc)) {
        return who + "'s self-documentation string has no terminating zero";
    }
    if ((mask & kArrayCountField) != 0) {
        std::uint16_t value = 0;
        if (!in.TakeWord(value)) return EndsInside(who + "'s array count");
        variable.arrayCount = value;
    }
    // The mask's low bits name no field we know of; the record has nothing for them.
    return {};
}

void PutWord(std::vector<std::uint8_t>& out, std::uint16_t word) {
    out.push_back(static_cast<std::uint8_t>(word >> 8));
    out.push_back(static_cast<std::uint8_t>(word & 0xFF));
}

bool PutText(std::vector<std::uint8_t>& out, const std::string& text) {
    // A zero inside would end the text early for every reader.
    if (text.find('\0') != std::string::npos) return false;
    out.insert(out.end(), text.begin(), text.end());
    out.push_back(0);
    return true;
}

}  // namespace

std::optional<std::uint16_t> AnnouncedLength(std::span<const std::uint8_t> data) {
    if (data.size() < 2) return std::nullopt;
    return static_cast<std::uint16_t>(data[0] << 8 | data[1]);
}

SiParseResult ParseSelfIdentification(std::span<const std::uint8_t> data) {
    const auto announced = AnnouncedLength(data);
    if (!announced) return Fail(EndsInside("its length"));
    if (*announced != data.size()) {
        return Fail("the self-identification data announces " + std::to_string(*announced) +
                    " bytes but " + std::to_string(data.size()) + " were given");
    }
    if (data.size() < kHeaderSize) return Fail(EndsInside("its header"));

    SelfIdentification result;
    const std::size_t count = static_cast<std::size_t>(data[4] << 8 | data[2]);
    result.version = data[3];
    result.messageTags = data[5];
    ByteReader in(data.subspan(kHeaderSize));

    result.variables.reserve(std::min(count, in.Rest().size() / 2));
    for (std::size_t index = 0; index < count; ++index) {
        SiVariable variable;
        if (!in.Take(variable.descriptor)) {
            return Fail(EndsInside(Variable(index) + "'s descriptor (" + std::to_string(count) +
                                   " network variables announced)"));
        }
        if (!in.Take(variable.typeIndex))
            return Fail(EndsInside(Variable(index) + "'s type index"));
        result.variables.push_back(variable);
    }
    if (!in.TakeText(result.nodeSelfDoc)) {
        return Fail("the node's self-documentation string has no terminating zero");
    }
    for (std::size_t index = 0; index < count; ++index) {
        SiVariable& variable = result.variables[index];
        if ((variable.descriptor & kExtensionFlag) == 0) continue;
        if (auto error = ReadExtension(in, index, variable); !error.empty()) {
            return Fail(std::move(error));
        }
    }
    const auto trailer = in.Rest();
    result.trailer.assign(trailer.begin(), trailer.end());
    return {std::move(result), {}};
}

std::optional<std::vector<std::uint8_t>> BuildSelfIdentification(const SelfIdentification& data) {
    if (data.variables.size() > 0xFFFF) return std::nullopt;
    const auto count = static_cast<std::uint16_t>(data.variables.size());

    std::vector<std::uint8_t> out(kHeaderSize, 0);
    out[2] = static_cast<std::uint8_t>(count & 0xFF);
    out[3] = data.version;
    out[4] = static_cast<std::uint8_t>(count >> 8);
    out[5] = data.messageTags;
    for (const SiVariable& variable : data.variables) {
        const bool extended = ExtensionFields(variable) != 0;
        out.push_back(static_cast<std::uint8_t>((variable.descriptor & ~kExtensionFlag) |
                                                (extended ? kExtensionFlag : 0)));
        out.push_back(variable.typeIndex);
    }
    if (!PutText(out, data.nodeSelfDoc)) return std::nullopt;
    for (const SiVariable& variable : data.variables) {
        const std::uint8_t mask = ExtensionFields(variable);
        if (mask == 0) continue;
        out.push_back(mask);
        if (variable.maxRate) out.push_back(*variable.maxRate);
        if (variable.rate) out.push_back(*variable.rate);
        if ((mask & kNameField) != 0 && !PutText(out, variable.name)) return std::nullopt;
        if ((mask & kSelfDocField) != 0 && !PutText(out, variable.selfDoc)) return std::nullopt;
        if (variable.arrayCount) PutWord(out, *variable.arrayCount);
    }
    out.insert(out.end(), data.trailer.begin(), data.trailer.end());
    if (out.size() > 0xFFFF) return std::nullopt;
    const auto length = static_cast<std::uint16_t>(out.size());
    out[0] = static_cast<std::uint8_t>(length >> 8);
    out[1] = static_cast<std::uint8_t>(length & 0xFF);
    return out;
}

}  // namespace vx::lon
