#include "Datagram.h"

#include <gtest/gtest.h>

#include "fixtures/Hex.h"

#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace vx::lon {
namespace {

using Bytes = std::vector<std::uint8_t>;

using vx::test::Hex;

DecodeError ErrorOf(const Bytes& bytes) {
    return Decode(bytes).error;
}

Datagram Decoded(const Bytes& bytes) {
    auto result = Decode(bytes);
    EXPECT_TRUE(result) << DecodeErrorText(result.error);
    return result ? *result.datagram : Datagram{};
}

// ---- The recorded sessions ----------------------------------------------------------------------
//
// Each record is a "raw=" line followed by the recorder's own decode of the same bytes:
//   hdr={'udpver': 0, ..., 'src': (35, 126), 'src_domain': '51', 'dest': '237e', 'pdu': 'SPDU
//   RESPONSE', 'auth': 0, 'tid': 1}  APDU code=0x31 data=00 03 ...

struct SessionRecord {
    std::string where;  // file and line, for failure messages
    Bytes raw;
    std::map<std::string, std::string> fields;  // quotes and parentheses stripped
    std::optional<Bytes> apdu;                  // code and data, when the record shows them
};

std::vector<SessionRecord> ReadSession(const std::string& file) {
    std::ifstream in(std::string(VX_SHARED_LONIP_DIR) + "/" + file);
    EXPECT_TRUE(in) << "cannot open " << file;
    const std::regex field(R"('(\w+)': ('([^']*)'|\(([^)]*)\)|(-?\d+)))");
    const std::regex apduPart(R"(APDU code=0x([0-9A-Fa-f]{2}) data=([0-9a-f ]*))");
    std::vector<SessionRecord> records;
    std::string line;
    int lineNumber = 0;
    while (std::getline(in, line)) {
        ++lineNumber;
        const auto raw = line.find("raw=");
        if (raw != std::string::npos) {
            records.push_back({file + ":" + std::to_string(lineNumber),
                               Hex(line.substr(raw + 4)),
                               {},
                               std::nullopt});
            continue;
        }
        if (line.find("hdr={") == std::string::npos || records.empty()) continue;
        SessionRecord& record = records.back();
        for (std::sregex_iterator it(line.begin(), line.end(), field), end; it != end; ++it) {
            const auto& match = *it;
            const std::string value = match[3].matched   ? match[3].str()
                                      : match[4].matched ? match[4].str()
                                                         : match[5].str();
            record.fields[match[1].str()] = value;
        }
        std::smatch apdu;
        if (std::regex_search(line, apdu, apduPart)) {
            record.apdu = Hex(apdu[1].str() + " " + apdu[2].str());
        }
    }
    return records;
}

int Number(const SessionRecord& record, const std::string& key) {
    const auto it = record.fields.find(key);
    if (it == record.fields.end()) {
        ADD_FAILURE() << record.where << ": no '" << key << "'";
        return -1;
    }
    return std::stoi(it->second);
}

// The recorder's PDU names.
struct PduName {
    const char* name;
    PduFormat format;
    std::uint8_t type;
};
constexpr PduName kPduNames[] = {
    {"TPDU ACKD", PduFormat::kTpdu, 0},     {"TPDU UNACK_RPT", PduFormat::kTpdu, 1},
    {"TPDU ACK", PduFormat::kTpdu, 2},      {"SPDU REQUEST", PduFormat::kSpdu, 0},
    {"SPDU RESPONSE", PduFormat::kSpdu, 2}, {"APDU", PduFormat::kApdu, 0},
};

void ExpectMatchesRecorder(const SessionRecord& record, const Datagram& datagram) {
    SCOPED_TRACE(record.where);
    EXPECT_EQ(datagram.version, Number(record, "udpver"));
    EXPECT_EQ(datagram.flags, Number(record, "flags"));
    EXPECT_EQ(datagram.source.has_value(), Number(record, "arb") == 1);
    EXPECT_EQ(static_cast<int>(datagram.destination.format), Number(record, "addrfmt"));
    EXPECT_EQ(datagram.backlog.has_value(), Number(record, "mcr") == 1);
    EXPECT_EQ(datagram.priority, Number(record, "prio"));
    EXPECT_EQ(static_cast<int>(datagram.pduFormat), Number(record, "pdufmt"));

    if (datagram.source) {
        EXPECT_EQ(std::to_string(datagram.source->address.subnet) + ", " +
                      std::to_string(datagram.source->address.node),
                  record.fields.at("src"));
        const auto domain = record.fields.find("src_domain");
        EXPECT_EQ(datagram.source->hasDomain, domain != record.fields.end());
        if (domain != record.fields.end()) {
            EXPECT_EQ(datagram.source->address.domain, Hex(domain->second));
        }
    }

    // The recorder shows the destination bytes as they stand in the datagram.
    const Bytes dest = Hex(record.fields.at("dest"));
    const Destination& to = datagram.destination;
    switch (to.format) {
        case AddressFormat::kSubnetNode:
        case AddressFormat::kDomainBroadcast:
            EXPECT_TRUE(dest.empty());
            break;
        case AddressFormat::kNeuronId:
            ASSERT_EQ(dest.size(), 7u);
            EXPECT_EQ(to.subnet, dest[0]);
            EXPECT_EQ(Bytes(to.neuronId.begin(), to.neuronId.end()),
                      Bytes(dest.begin() + 1, dest.end()));
            break;
        case AddressFormat::kExplicitSubnetNode:
            ASSERT_EQ(dest.size(), 2u);
            EXPECT_EQ(to.subnet, dest[0]);
            EXPECT_EQ(to.node, dest[1] & 0x7F);
            EXPECT_FALSE(to.groupFields);
            break;
        default:
            ADD_FAILURE() << "the sessions hold no address format " << static_cast<int>(to.format);
    }

    const std::string& pdu = record.fields.at("pdu");
    const PduName* name = nullptr;
    for (const PduName& candidate : kPduNames) {
        if (pdu == candidate.name) name = &candidate;
    }
    ASSERT_NE(name, nullptr) << "unknown PDU name " << pdu;
    EXPECT_EQ(datagram.pduFormat, name->format);
    if (datagram.pduFormat != PduFormat::kApdu) {
        EXPECT_EQ(datagram.pduType, name->type);
        EXPECT_EQ(datagram.authenticated, Number(record, "auth") == 1);
        EXPECT_EQ(datagram.transaction, Number(record, "tid"));
    }
    EXPECT_EQ(datagram.apdu, record.apdu.value_or(Bytes{}));
}

class RecordedSession : public testing::TestWithParam<std::pair<const char*, std::size_t>> {};

TEST_P(RecordedSession, EveryDatagramDecodesAsRecordedAndEncodesBackByteForByte) {
    const auto [file, expectedCount] = GetParam();
    const auto records = ReadSession(file);
    EXPECT_EQ(records.size(), expectedCount) << "records read from " << file;
    for (const SessionRecord& record : records) {
        const auto result = Decode(record.raw);
        ASSERT_TRUE(result) << record.where << ": " << DecodeErrorText(result.error);
        ExpectMatchesRecorder(record, *result.datagram);
        EXPECT_EQ(Encode(*result.datagram), record.raw) << record.where;
    }
}

INSTANTIATE_TEST_SUITE_P(Devices, RecordedSession,
                         testing::Values(std::make_pair("device-a-session.txt", 49u),
                                         std::make_pair("device-b-session.txt", 14u),
                                         std::make_pair("device-b-arbitrary-source.txt", 17u)));

// ---- Addresses

Destination To(AddressFormat format, std::uint8_t subnet = 0, std::uint8_t node = 0) {
    Destination destination;
    destination.format = format;
    destination.subnet = subnet;
    destination.node = node;
    return destination;
}

Destination ToGroup(AddressFormat format, std::uint8_t group, std::uint8_t member = 0) {
    Destination destination = To(format);
    destination.group = group;
    destination.member = member;
    return destination;
}

// Formats 1, 2, 6 and 7 are in the recorded sessions.
TEST(DatagramAddress, DestinationFormatsDecodeAndEncodeBack) {
    struct Case {
        const char* bytes;
        Destination destination;
    };
    Destination withGroup = To(AddressFormat::kExplicitSubnetNode, 0x23, 0x7E);
    withGroup.groupFields = true;
    withGroup.group = 9;
    withGroup.member = 4;
    const Case cases[] = {
        {"00 31 07 02 51", To(AddressFormat::kSubnetBroadcast, 7)},
        {"00 41 09 03 51", ToGroup(AddressFormat::kGroup, 9)},
        {"00 51 09 04 23 31", ToGroup(AddressFormat::kGroupResponse, 9, 4)},
        {"00 71 23 fe 09 04 24 31", withGroup},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.bytes);
        const Bytes bytes = Hex(test.bytes);
        const Datagram datagram = Decoded(bytes);
        EXPECT_EQ(datagram.destination, test.destination);
        EXPECT_EQ(Encode(datagram), bytes);
    }
}

TEST(DatagramAddress, ArbitrarySourceCarriesEveryDomainLength) {
    struct Case {
        const char* bytes;
        Bytes domain;
    };
    const Case cases[] = {
        {"01 11 23 fe 00 01 51", {}},
        {"01 11 23 fe 02 aa bb 00 01 51", {0xAA, 0xBB, 0x00}},
        {"01 11 23 fe 03 01 02 03 04 05 06 01 51", {1, 2, 3, 4, 5, 6}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.bytes);
        const Bytes bytes = Hex(test.bytes);
        const Datagram datagram = Decoded(bytes);
        ASSERT_TRUE(datagram.source);
        EXPECT_EQ(datagram.source->address.subnet, 0x23);
        EXPECT_EQ(datagram.source->address.node, 0x7E);
        EXPECT_TRUE(datagram.source->hasDomain);
        EXPECT_EQ(datagram.source->address.domain, test.domain);
        EXPECT_EQ(datagram.apdu, Bytes{0x51});
        EXPECT_EQ(Encode(datagram), bytes);
    }
    // Without D, no domain follows and the node byte is the node.
    const Datagram plain = Decoded(Hex("01 11 23 7e 01 51"));
    ASSERT_TRUE(plain.source);
    EXPECT_FALSE(plain.source->hasDomain);
    EXPECT_TRUE(plain.source->address.domain.empty());
    EXPECT_EQ(plain.source->address.node, 0x7E);
}

TEST(DatagramHeader, BacklogPriorityAndFlagsSitWhereTheHeaderSays) {
    // MCR: the backlog byte comes before the arbitrary source.
    const Bytes withBacklog = Hex("01 1d 05 23 7e 01 51");
    const Datagram datagram = Decoded(withBacklog);
    EXPECT_EQ(datagram.backlog, 5);
    EXPECT_EQ(datagram.priority, 1);
    ASSERT_TRUE(datagram.source);
    EXPECT_EQ(datagram.source->address.subnet, 0x23);
    EXPECT_EQ(datagram.transaction, 1);
    EXPECT_EQ(Encode(datagram), withBacklog);

    const Bytes flagged = Hex("0e 11 01 51");
    const Datagram withFlags = Decoded(flagged);
    EXPECT_EQ(withFlags.flags, 7);
    EXPECT_FALSE(withFlags.source);
    EXPECT_EQ(Encode(withFlags), flagged);
}

// ---- PDUs

// Beyond the recorded sessions' requests, responses, acknowledged messages and bare APDUs.
TEST(DatagramPdu, TransportSessionAndAuthentication) {
    struct Case {
        const char* bytes;
        PduFormat format;
        std::uint8_t type;
        std::uint8_t transaction;
        bool authenticated;
        const char* apdu;
    };
    const Case cases[] = {
        {"00 10 1f 51", PduFormat::kTpdu, 1, 15, false, "51"},
        {"00 10 43 01 0f", PduFormat::kTpdu, 4, 3, false, "01 0f"},  // with its member list
        {"00 10 53 01 0f 51", PduFormat::kTpdu, 5, 3, false, "01 0f 51"},
        {"00 11 85 51", PduFormat::kSpdu, 0, 5, true, "51"},
        {"00 11 46", PduFormat::kSpdu, 4, 6, false, ""},
        {"00 11 56 01 0f 51", PduFormat::kSpdu, 5, 6, false, "01 0f 51"},
        {"00 12 05 01 02 03 04 05 06 07 08", PduFormat::kAuthPdu, 0, 5, false,
         "01 02 03 04 05 06 07 08"},
        {"00 12 15 08 07 06 05 04 03 02 01", PduFormat::kAuthPdu, 1, 5, false,
         "08 07 06 05 04 03 02 01"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.bytes);
        const Bytes bytes = Hex(test.bytes);
        const Datagram datagram = Decoded(bytes);
        EXPECT_EQ(datagram.pduFormat, test.format);
        EXPECT_EQ(datagram.pduType, test.type);
        EXPECT_EQ(datagram.transaction, test.transaction);
        EXPECT_EQ(datagram.authenticated, test.authenticated);
        EXPECT_EQ(datagram.apdu, Hex(test.apdu));
        EXPECT_EQ(Encode(datagram), bytes);
    }
}

TEST(DatagramPdu, LongestApduFitsAndOneMoreByteDoesNot) {
    // A Neuron ID destination and a six-byte source domain: the longest header there is.
    Bytes longest = Hex("01 69 05 23 fe 03 01 02 03 04 05 06 00 02 4c 4f 4e 00 0c 01");
    longest.resize(longest.size() + kMaxApdu, 0x5A);
    ASSERT_EQ(longest.size(), kMaxDatagram);
    const Datagram datagram = Decoded(longest);
    EXPECT_EQ(datagram.apdu.size(), kMaxApdu);
    EXPECT_EQ(Encode(datagram), longest);

    Bytes shortHeader = Hex("00 13");
    shortHeader.resize(shortHeader.size() + kMaxApdu + 1, 0x5A);
    EXPECT_EQ(ErrorOf(shortHeader), DecodeError::kOversize) << "an APDU longer than any";
    longest.push_back(0x5A);
    EXPECT_EQ(ErrorOf(longest), DecodeError::kOversize);
}

// ---- Decode errors

TEST(DatagramDecodeError, EveryCutInsideHeaderAndAddressesIsTooShort) {
    // Every optional part present: backlog, source with a six-byte domain, explicit destination
    // with group fields, SPDU header, one APDU byte.
    const Bytes full = Hex("01 79 05 23 fe 03 01 02 03 04 05 06 0c 8c 09 04 01 51");
    ASSERT_TRUE(Decode(full));
    EXPECT_EQ(ErrorOf({}), DecodeError::kEmpty);
    for (std::size_t size = 1; size + 1 < full.size(); ++size) {
        EXPECT_EQ(ErrorOf(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(size))),
                  DecodeError::kTooShort)
            << size << " bytes";
    }
    EXPECT_EQ(ErrorOf(Bytes(full.begin(), full.end() - 1)), DecodeError::kMissingApdu);

    const Bytes byNeuronId = Hex("00 61 00 02 4c 4f 4e 00 0c 03 51");
    for (std::size_t size = 2; size + 1 < byNeuronId.size(); ++size) {
        EXPECT_EQ(ErrorOf(Bytes(byNeuronId.begin(),
                                byNeuronId.begin() + static_cast<std::ptrdiff_t>(size))),
                  DecodeError::kTooShort)
            << size << " bytes";
    }
    EXPECT_EQ(ErrorOf(Hex("00 51 09")), DecodeError::kTooShort) << "group response without member";
    EXPECT_EQ(ErrorOf(Hex("00 41")), DecodeError::kTooShort) << "group without the group";
}

TEST(DatagramDecodeError, HeaderAndPduFieldsOutsideTheProtocol) {
    EXPECT_EQ(ErrorOf(Bytes(kMaxDatagram + 1, 0)), DecodeError::kOversize);
    const std::pair<const char*, DecodeError> cases[] = {
        {"10 11 01 51", DecodeError::kUnsupportedVersion},
        {"f0 11 01 51", DecodeError::kUnsupportedVersion},
        {"00 01 01 51", DecodeError::kBadAddressFormat},
        {"00 81 01 51", DecodeError::kBadAddressFormat},
        {"01 11 23 fe 04 01 51", DecodeError::kBadDomainLength},
        {"01 11 23 fe 81 51 01 51", DecodeError::kBadDomainLength},
        {"00 10 21 00", DecodeError::kTrailingBytes},  // an ack with a byte after it
        {"00 10 01", DecodeError::kMissingApdu},
        {"00 11 01", DecodeError::kMissingApdu},
        {"00 10 51", DecodeError::kMissingApdu},  // a reminder with its message
        {"00 11 21", DecodeError::kMissingApdu},
        {"00 12 05", DecodeError::kMissingApdu},
        {"00 13", DecodeError::kMissingApdu},
        {"00 71 23 7e", DecodeError::kTooShort},  // no PDU header at all
        {"00 10 31 51", DecodeError::kBadPduType},
        {"00 10 61 51", DecodeError::kBadPduType},
        {"00 10 71 51", DecodeError::kBadPduType},
        {"00 11 11 51", DecodeError::kBadPduType},
        {"00 11 31 51", DecodeError::kBadPduType},
        {"00 11 61 51", DecodeError::kBadPduType},
        {"00 12 31 51", DecodeError::kBadPduType},
    };
    for (const auto& [bytes, error] : cases) {
        EXPECT_EQ(ErrorOf(Hex(bytes)), error) << bytes;
    }
}

// ---- Encode

Datagram QueryStatusByNeuronId() {
    Datagram datagram;
    datagram.destination.format = AddressFormat::kNeuronId;
    datagram.destination.neuronId = {0x02, 0x4C, 0x4F, 0x4E, 0x00, 0x0C};
    datagram.pduFormat = PduFormat::kSpdu;
    datagram.pduType = static_cast<std::uint8_t>(SpduType::kRequest);
    datagram.transaction = 3;
    datagram.apdu = {0x51};
    return datagram;
}

TEST(DatagramEncode, RejectsWhatNoNodeCouldDecode) {
    const std::pair<const char*, std::function<void(Datagram&)>> cases[] = {
        {"source node above 127",
         [](Datagram& d) {
             d.source = SourceAddress{{1, 128, {}}, false};
         }},
        {"destination node above 127",
         [](Datagram& d) { d.destination = To(AddressFormat::kExplicitSubnetNode, 1, 128); }},
        {"another version", [](Datagram& d) { d.version = 1; }},
        {"transaction 16", [](Datagram& d) { d.transaction = 16; }},
        {"two-byte domain",
         [](Datagram& d) {
             d.source = SourceAddress{{1, 2, {0x51, 0x52}}, true};
         }},
        {"a domain the D flag does not announce",
         [](Datagram& d) {
             d.source = SourceAddress{{1, 2, {0x51}}, false};
         }},
        {"an APDU too long", [](Datagram& d) { d.apdu.assign(kMaxApdu + 1, 0x5A); }},
        {"a request without its APDU", [](Datagram& d) { d.apdu.clear(); }},
        {"a bare empty APDU",
         [](Datagram& d) {
             d.pduFormat = PduFormat::kApdu;
             d.apdu.clear();
         }},
        {"an acknowledgement with bytes after it",
         [](Datagram& d) {
             d.pduFormat = PduFormat::kTpdu;
             d.pduType = static_cast<std::uint8_t>(TpduType::kAck);
         }},
        {"an undefined session type", [](Datagram& d) { d.pduType = 3; }},
    };
    for (const auto& [what, change] : cases) {
        Datagram datagram = QueryStatusByNeuronId();
        change(datagram);
        EXPECT_FALSE(Encode(datagram)) << what;
    }
    Datagram ack = QueryStatusByNeuronId();
    ack.pduFormat = PduFormat::kTpdu;
    ack.pduType = static_cast<std::uint8_t>(TpduType::kAck);
    ack.apdu.clear();
    EXPECT_TRUE(Encode(ack)) << "an acknowledgement carries nothing";
}

}  // namespace
}  // namespace vx::lon
