#include "Datagram.h"
#include "ByteReader.h"

namespace vx::lon {
namespace {

constexpr std::array<std::size_t, 4> kDomainLengths = {0, 1, 3, 6};

std::optional<std::uint8_t> DomainLengthCode(std::size_t length) {
    for (std::size_t code = 0; code < kDomainLengths.size(); ++code) {
        if (kDomainLengths[code] == length) return static_cast<std::uint8_t>(code);
    }
    return std::nullopt;
}

DecodeResult Fail(DecodeError error) {
    return {std::nullopt, error};
}

bool ValidPduType(PduFormat format, std::uint8_t type) {
    switch (format) {
        case PduFormat::kTpdu:
            return type == 0 || type == 1 || type == 2 || type == 4 || type == 5;
        case PduFormat::kSpdu:
            return type == 0 || type == 2 || type == 4 || type == 5;
        case PduFormat::kAuthPdu:
            return type == 0 || type == 1;  // challenge, reply
        case PduFormat::kApdu:
            return true;
    }
    return false;
}

// Acknowledgements and reminders carry no APDU; reminder-with-message and everything else does.
bool CarriesNoApdu(PduFormat format, std::uint8_t type) {
    return (format == PduFormat::kTpdu && (type == 2 || type == 4)) ||
           (format == PduFormat::kSpdu && type == 4);
}

}  // namespace

std::string DecodeErrorText(DecodeError error) {
    switch (error) {
        case DecodeError::kNone:
            return "no error";
        case DecodeError::kEmpty:
            return "an empty datagram";
        case DecodeError::kTooShort:
            return "the datagram ends inside its header or addresses";
        case DecodeError::kOversize:
            return "the datagram is longer than any LonTalk packet";
        case DecodeError::kUnsupportedVersion:
            return "the datagram has a version other than 0";
        case DecodeError::kBadAddressFormat:
            return "the datagram has an undefined address format";
        case DecodeError::kBadDomainLength:
            return "the source address has an undefined domain length";
        case DecodeError::kMissingApdu:
            return "a message without its application data";
        case DecodeError::kTrailingBytes:
            return "bytes follow an acknowledgement";
        case DecodeError::kBadPduType:
            return "an undefined transport or session type";
    }
    return "an undecodable datagram";
}

DecodeResult Decode(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return Fail(DecodeError::kEmpty);
    if (bytes.size() > kMaxDatagram) return Fail(DecodeError::kOversize);
    ByteReader in(bytes);
    Datagram datagram;
    std::uint8_t byte0 = 0;
    std::uint8_t byte1 = 0;
    in.Take(byte0);
    if (!in.Take(byte1)) return Fail(DecodeError::kTooShort);
    datagram.version = static_cast<std::uint8_t>(byte0 >> 4);
    if (datagram.version != 0) return Fail(DecodeError::kUnsupportedVersion);
    datagram.flags = static_cast<std::uint8_t>((byte0 >> 1) & 0x07);
    const bool arbitrarySource = (byte0 & 0x01) != 0;
    const auto format = static_cast<std::uint8_t>(byte1 >> 4);
    if (format < 1 || format > 7) return Fail(DecodeError::kBadAddressFormat);
    datagram.destination.format = static_cast<AddressFormat>(format);
    const bool mcr = (byte1 & 0x08) != 0;
    datagram.priority = static_cast<std::uint8_t>((byte1 >> 2) & 0x01);
    datagram.pduFormat = static_cast<PduFormat>(byte1 & 0x03);

    if (mcr) {
        std::uint8_t backlog = 0;
        if (!in.Take(backlog)) return Fail(DecodeError::kTooShort);
        datagram.backlog = backlog;
    }
    if (arbitrarySource) {
        SourceAddress source;
        std::uint8_t nodeByte = 0;
        if (!in.Take(source.address.subnet) || !in.Take(nodeByte)) {
            return Fail(DecodeError::kTooShort);
        }
        source.address.node = static_cast<std::uint8_t>(nodeByte & 0x7F);
        source.hasDomain = (nodeByte & 0x80) != 0;
        if (source.hasDomain) {
            std::uint8_t lengthCode = 0;
            if (!in.Take(lengthCode)) return Fail(DecodeError::kTooShort);
            if (lengthCode > 3) return Fail(DecodeError::kBadDomainLength);
            source.address.domain.resize(kDomainLengths[lengthCode]);
            if (!in.Take(source.address.domain)) return Fail(DecodeError::kTooShort);
        }
        datagram.source = std::move(source);
    }

    Destination& to = datagram.destination;
    bool complete = true;
    switch (to.format) {
        case AddressFormat::kSubnetNode:
        case AddressFormat::kDomainBroadcast:
            break;
        case AddressFormat::kSubnetBroadcast:
            complete = in.Take(to.subnet);
            break;
        case AddressFormat::kGroup:
            complete = in.Take(to.group);
            break;
        case AddressFormat::kGroupResponse:
            complete = in.Take(to.group) && in.Take(to.member);
            break;
        case AddressFormat::kNeuronId:
            complete = in.Take(to.subnet) && in.Take(to.neuronId);
            break;
        case AddressFormat::kExplicitSubnetNode: {
            std::uint8_t nodeByte = 0;
            complete = in.Take(to.subnet) && in.Take(nodeByte);
            if (complete) {
                to.node = static_cast<std::uint8_t>(nodeByte & 0x7F);
                to.groupFields = (nodeByte & 0x80) != 0;
                if (to.groupFields) complete = in.Take(to.group) && in.Take(to.member);
            }
            break;
        }
    }
    if (!complete) return Fail(DecodeError::kTooShort);

    if (datagram.pduFormat != PduFormat::kApdu) {
        std::uint8_t header = 0;
        if (!in.Take(header)) return Fail(DecodeError::kTooShort);
        datagram.authenticated = (header & 0x80) != 0;
        datagram.pduType = static_cast<std::uint8_t>((header >> 4) & 0x07);
        datagram.transaction = static_cast<std::uint8_t>(header & 0x0F);
        if (!ValidPduType(datagram.pduFormat, datagram.pduType)) {
            return Fail(DecodeError::kBadPduType);
        }
    }
    const auto rest = in.Rest();
    if (datagram.pduFormat != PduFormat::kApdu &&
        CarriesNoApdu(datagram.pduFormat, datagram.pduType)) {
        // A reminder carries its member list; an acknowledgement carries nothing.
        if (datagram.pduType == 2 && !rest.empty()) return Fail(DecodeError::kTrailingBytes);
    } else if (rest.empty()) {
        return Fail(DecodeError::kMissingApdu);
    }
    if (rest.size() > kMaxApdu) return Fail(DecodeError::kOversize);
    datagram.apdu.assign(rest.begin(), rest.end());
    return {std::move(datagram), DecodeError::kNone};
}

std::optional<std::vector<std::uint8_t>> Encode(const Datagram& datagram) {
    const auto format = static_cast<std::uint8_t>(datagram.destination.format);
    const auto pdu = static_cast<std::uint8_t>(datagram.pduFormat);
    if (datagram.version != 0 || datagram.flags > 7 || datagram.priority > 1 || format < 1 ||
        format > 7 || pdu > 3 || datagram.transaction > 15 || datagram.pduType > 7 ||
        datagram.apdu.size() > kMaxApdu) {
        return std::nullopt;
    }
    if (datagram.pduFormat != PduFormat::kApdu &&
        !ValidPduType(datagram.pduFormat, datagram.pduType)) {
        return std::nullopt;
    }
    const bool ack = datagram.pduFormat != PduFormat::kApdu &&
                     CarriesNoApdu(datagram.pduFormat, datagram.pduType);
    if (!ack && datagram.apdu.empty()) return std::nullopt;
    // Bytes after an acknowledgement would make the datagram undecodable.
    if (ack && datagram.pduType == 2 && !datagram.apdu.empty()) return std::nullopt;

    std::vector<std::uint8_t> out;
    out.reserve(20 + datagram.apdu.size());
    out.push_back(static_cast<std::uint8_t>(datagram.version << 4 | datagram.flags << 1 |
                                            (datagram.source ? 1 : 0)));
    out.push_back(static_cast<std::uint8_t>(format << 4 | (datagram.backlog ? 0x08 : 0) |
                                            datagram.priority << 2 | pdu));
    if (datagram.backlog) out.push_back(*datagram.backlog);
    if (datagram.source) {
        const SourceAddress& source = *datagram.source;
        if (source.address.node > 127) return std::nullopt;
        out.push_back(source.address.subnet);
        out.push_back(
            static_cast<std::uint8_t>((source.hasDomain ? 0x80 : 0) | source.address.node));
        if (source.hasDomain) {
            const auto code = DomainLengthCode(source.address.domain.size());
            if (!code) return std::nullopt;
            out.push_back(*code);
            out.insert(out.end(), source.address.domain.begin(), source.address.domain.end());
        } else if (!source.address.domain.empty()) {
            return std::nullopt;
        }
    }
    const Destination& to = datagram.destination;
    switch (to.format) {
        case AddressFormat::kSubnetNode:
        case AddressFormat::kDomainBroadcast:
            break;
        case AddressFormat::kSubnetBroadcast:
            out.push_back(to.subnet);
            break;
        case AddressFormat::kGroup:
            out.push_back(to.group);
            break;
        case AddressFormat::kGroupResponse:
            out.push_back(to.group);
            out.push_back(to.member);
            break;
        case AddressFormat::kNeuronId:
            out.push_back(to.subnet);
            out.insert(out.end(), to.neuronId.begin(), to.neuronId.end());
            break;
        case AddressFormat::kExplicitSubnetNode:
            if (to.node > 127) return std::nullopt;
            out.push_back(to.subnet);
            out.push_back(static_cast<std::uint8_t>((to.groupFields ? 0x80 : 0) | to.node));
            if (to.groupFields) {
                out.push_back(to.group);
                out.push_back(to.member);
            }
            break;
    }
    if (datagram.pduFormat != PduFormat::kApdu) {
        out.push_back(static_cast<std::uint8_t>((datagram.authenticated ? 0x80 : 0) |
                                                datagram.pduType << 4 | datagram.transaction));
    }
    out.insert(out.end(), datagram.apdu.begin(), datagram.apdu.end());
    return out;
}

}  // namespace vx::lon
