// A second opinion on our encodings from an independent decoder: Wireshark's command-line tool
// reads LonTalk inside CN/IP (UDP 1628), not the UDP 2541 header, so this test re-wraps datagrams
// we encoded as native LonTalk frames in CN/IP data packets, writes them to a capture file and
// reads tshark's decode back. Skipped where tshark is not installed.
#include "Datagram.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace vx::lon {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr const char* kTshark = "/usr/bin/tshark";

// The host's address and domain, and the node a subnet/node datagram's IP address stands for.
constexpr std::uint8_t kHostSubnet = 0x23;
constexpr std::uint8_t kHostNode = 0x7E;
constexpr std::uint8_t kHostDomain = 0x51;
constexpr std::uint8_t kImpliedSubnet = 0x23;
constexpr std::uint8_t kImpliedNode = 0x0C;

void PutBig(Bytes& out, std::uint32_t value, int size) {
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void PutLittle(Bytes& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

// Test-only translation of one encoded UDP 2541 datagram into a native LonTalk frame: the header
// bytes are read again and rewritten in the native address formats; the PDU is copied as we
// encoded it. Empty when the datagram uses something this translation does not cover.
Bytes NativeFrame(const Bytes& datagram) {
    std::size_t at = 2;
    auto next = [&]() -> std::uint8_t { return at < datagram.size() ? datagram[at++] : 0; };
    const bool arbitrarySource = (datagram[0] & 0x01) != 0;
    const int format = datagram[1] >> 4;
    const std::uint8_t backlog = (datagram[1] & 0x08) != 0 ? next() : 0;
    const int priority = (datagram[1] >> 2) & 0x01;
    const int pduFormat = datagram[1] & 0x03;

    std::uint8_t sourceSubnet = kHostSubnet;
    std::uint8_t sourceNode = kHostNode;
    Bytes domain = {kHostDomain};
    if (arbitrarySource) {
        sourceSubnet = next();
        const std::uint8_t nodeByte = next();
        sourceNode = nodeByte & 0x7F;
        if ((nodeByte & 0x80) != 0) {
            constexpr std::size_t kLengths[] = {0, 1, 3, 6};
            domain.resize(kLengths[next() & 0x03]);
            for (auto& byte : domain)
                byte = next();
        }
    }
    int nativeFormat = 0;
    Bytes destination;
    switch (format) {
        case 1:  // subnet/node, implied by the IP address
            nativeFormat = 2;
            destination = {kImpliedSubnet, static_cast<std::uint8_t>(0x80 | kImpliedNode)};
            break;
        case 2:  // domain broadcast
            destination = {0};
            break;
        case 3:  // subnet broadcast
            destination = {next()};
            break;
        case 4:  // group
            nativeFormat = 1;
            destination = {next()};
            break;
        case 6:  // Neuron ID
            nativeFormat = 3;
            for (int index = 0; index < 7; ++index)
                destination.push_back(next());
            break;
        case 7: {  // explicit subnet/node
            nativeFormat = 2;
            const std::uint8_t subnet = next();
            const std::uint8_t nodeByte = next();
            if ((nodeByte & 0x80) != 0) return {};
            destination = {subnet, static_cast<std::uint8_t>(0x80 | nodeByte)};
            break;
        }
        default:
            return {};
    }
    constexpr std::size_t kDomainLengths[] = {0, 1, 3, 6};
    int domainCode = 0;
    while (domainCode < 3 && kDomainLengths[domainCode] != domain.size())
        ++domainCode;

    Bytes frame;
    frame.push_back(static_cast<std::uint8_t>(priority << 7 | (backlog & 0x3F)));
    frame.push_back(static_cast<std::uint8_t>(pduFormat << 4 | nativeFormat << 2 | domainCode));
    frame.push_back(sourceSubnet);
    frame.push_back(static_cast<std::uint8_t>(0x80 | sourceNode));
    frame.insert(frame.end(), destination.begin(), destination.end());
    frame.insert(frame.end(), domain.begin(), domain.end());
    frame.insert(frame.end(), datagram.begin() + static_cast<std::ptrdiff_t>(at), datagram.end());
    return frame;
}

// A capture of raw IPv4 packets, each UDP 1628 -> 1628 carrying one CN/IP data packet.
Bytes Capture(const std::vector<Bytes>& frames) {
    Bytes file;
    PutLittle(file, 0xA1B2C3D4);
    PutLittle(file, 0x00040002);  // version 2.4
    PutLittle(file, 0);           // time zone
    PutLittle(file, 0);           // accuracy
    PutLittle(file, 0xFFFF);      // snapshot length
    PutLittle(file, 101);         // raw IP
    std::uint32_t sequence = 0;
    for (const Bytes& frame : frames) {
        Bytes cnip;
        PutBig(cnip, static_cast<std::uint32_t>(20 + frame.size()), 2);
        cnip.insert(cnip.end(), {0x01, 0x01, 0x00, 0x00});  // version 1, data packet
        PutBig(cnip, 0, 2);                                 // vendor
        PutBig(cnip, 0x1234, 4);                            // session
        PutBig(cnip, sequence, 4);
        PutBig(cnip, 0, 4);  // time stamp
        cnip.insert(cnip.end(), frame.begin(), frame.end());

        Bytes packet;
        // Reserved up front: g++ 12 at -O3 misreads the growth of a short vector as writing out
        // of bounds.
        packet.reserve(28 + cnip.size());
        packet.insert(packet.end(), {0x45, 0x00});
        PutBig(packet, static_cast<std::uint32_t>(28 + cnip.size()), 2);
        PutBig(packet, sequence, 2);
        packet.insert(packet.end(), {0x00, 0x00, 64, 17, 0x00, 0x00, 127, 0, 0, 1, 127, 0, 0, 2});
        PutBig(packet, 1628, 2);
        PutBig(packet, 1628, 2);
        PutBig(packet, static_cast<std::uint32_t>(8 + cnip.size()), 2);
        PutBig(packet, 0, 2);  // no checksum
        packet.insert(packet.end(), cnip.begin(), cnip.end());

        PutLittle(file, sequence);  // seconds
        PutLittle(file, 0);
        PutLittle(file, static_cast<std::uint32_t>(packet.size()));
        PutLittle(file, static_cast<std::uint32_t>(packet.size()));
        file.insert(file.end(), packet.begin(), packet.end());
        ++sequence;
    }
    return file;
}

// tshark's detailed decode, one text per frame.
std::vector<std::string> DecodeWithTshark(const std::filesystem::path& capture) {
    const std::string command =
        "timeout 60 " + std::string(kTshark) + " -r '" + capture.string() + "' -V 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    if (pipe == nullptr) return {};
    std::string output;
    char buffer[4096];
    while (const std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) {
        output.append(buffer, got);
    }
    EXPECT_EQ(pclose(pipe), 0) << "tshark failed";
    std::vector<std::string> frames;
    std::size_t start = output.find("Frame ");
    while (start != std::string::npos) {
        const std::size_t end = output.find("\nFrame ", start + 1);
        frames.push_back(output.substr(start, end == std::string::npos ? end : end - start));
        start = end == std::string::npos ? end : end + 1;
    }
    return frames;
}

Datagram Message(AddressFormat format, PduFormat pdu, std::uint8_t type, std::uint8_t transaction,
                 Bytes apdu) {
    Datagram datagram;
    datagram.destination.format = format;
    datagram.pduFormat = pdu;
    datagram.pduType = type;
    datagram.transaction = transaction;
    datagram.apdu = std::move(apdu);
    return datagram;
}

struct Check {
    const char* what;
    Datagram datagram;
    std::vector<std::string> expected;  // lines or parts of lines of tshark's decode
};

std::vector<Check> Checks() {
    constexpr auto kRequest = static_cast<std::uint8_t>(SpduType::kRequest);
    constexpr auto kResponse = static_cast<std::uint8_t>(SpduType::kResponse);
    constexpr auto kAckd = static_cast<std::uint8_t>(TpduType::kAcknowledged);
    std::vector<Check> checks;

    Datagram bySubnetNode =
        Message(AddressFormat::kExplicitSubnetNode, PduFormat::kSpdu, kRequest, 1, {0x51});
    bySubnetNode.destination.subnet = 0x23;
    bySubnetNode.destination.node = 0x0C;
    bySubnetNode.source = SourceAddress{{0x23, 0x7E, {0x51}}, true};
    checks.push_back({"Query Status by subnet/node",
                      bySubnetNode,
                      {"SPDU type: REQUEST (0x0)", "Transaction number: 0x1",
                       "Code: ND_QUERY_STATUS (0x51)", "Source subnet: 0x23", "Source node: 0x7e",
                       "Destination subnet: 0x23", "Destination node: 0x0c", "Domain: 51"}});

    Datagram byNeuronId = Message(AddressFormat::kNeuronId, PduFormat::kSpdu, kRequest, 2, {0x51});
    byNeuronId.destination.neuronId = {0x02, 0x4C, 0x4F, 0x4E, 0x00, 0x0C};
    checks.push_back({"Query Status by Neuron ID",
                      byNeuronId,
                      {"Address type 3", "Unique node ID: 024c4f4e000c", "SPDU type: REQUEST (0x0)",
                       "Transaction number: 0x2", "Code: ND_QUERY_STATUS (0x51)"}});

    checks.push_back(
        {"Query ID to the whole domain",
         Message(AddressFormat::kDomainBroadcast, PduFormat::kSpdu, kRequest, 15, {0x61, 0x00}),
         {"Address type 0", "Destination subnet: 0x00", "Transaction number: 0xf",
          "Code: NM_QUERY_ID (0x61)"}});

    Datagram response = Message(AddressFormat::kExplicitSubnetNode, PduFormat::kSpdu, kResponse, 5,
                                {0x31, 0x00, 0x03});
    response.destination.subnet = 0x23;
    response.destination.node = 0x7E;
    checks.push_back({"a response",
                      response,
                      {"SPDU type: RESPONSE (0x2)", "Transaction number: 0x5", "Code: 0x31",
                       "Destination node: 0x7e"}});

    checks.push_back(
        {"acknowledged TPDU",
         Message(AddressFormat::kSubnetNode, PduFormat::kTpdu, kAckd, 6, {0x51}),
         {"TPDU type: ACKD (0x0)", "Transaction number: 0x6", "Code: ND_QUERY_STATUS (0x51)"}});

    checks.push_back({"its acknowledgement",
                      Message(AddressFormat::kSubnetNode, PduFormat::kTpdu,
                              static_cast<std::uint8_t>(TpduType::kAck), 6, {}),
                      {"TPDU type: ACK (0x2)", "Transaction number: 0x6"}});

    checks.push_back({"unacknowledged wink",
                      Message(AddressFormat::kSubnetNode, PduFormat::kApdu, 0, 0, {0x70}),
                      {"PDU format: APDU (0x3)", "Code: NM_WINK (0x70)"}});

    Datagram toGroup =
        Message(AddressFormat::kGroup, PduFormat::kApdu, 0, 0, {0x81, 0x23, 0x01, 0x02});
    toGroup.destination.group = 9;
    checks.push_back({"NV update to a group",
                      toGroup,
                      {"Destination group: 0x09", "Network Variable: 0x8123", "NV direction: 0x0",
                       "NV selector: 0x0123", "Data: 0102"}});

    Datagram toSubnet =
        Message(AddressFormat::kSubnetBroadcast, PduFormat::kApdu, 0, 0, {0xC0, 0x05, 0x7F});
    toSubnet.destination.subnet = 0x23;
    checks.push_back({"NV update, input direction, to a subnet",
                      toSubnet,
                      {"Address type 0", "Destination subnet: 0x23", "NV direction: 0x1",
                       "NV selector: 0x0005"}});
    return checks;
}

TEST(TsharkCheck, IndependentDecoderReadsOurEncodingsAsIntended) {
    if (!std::filesystem::exists(kTshark)) GTEST_SKIP() << kTshark << " is not installed";
    const std::vector<Check> checks = Checks();
    std::vector<Bytes> frames;
    for (const Check& check : checks) {
        const auto encoded = Encode(check.datagram);
        ASSERT_TRUE(encoded) << check.what;
        frames.push_back(NativeFrame(*encoded));
        ASSERT_FALSE(frames.back().empty()) << check.what;
    }
    const auto capture = std::filesystem::temp_directory_path() /
                         ("vx-tshark-" + std::to_string(std::random_device()()) + ".pcap");
    {
        const Bytes bytes = Capture(frames);
        std::ofstream out(capture, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
        ASSERT_TRUE(out.good());
    }
    const std::vector<std::string> decoded = DecodeWithTshark(capture);
    std::filesystem::remove(capture);
    ASSERT_EQ(decoded.size(), checks.size());
    for (std::size_t index = 0; index < checks.size(); ++index) {
        SCOPED_TRACE(checks[index].what);
        ASSERT_NE(decoded[index].find("Local Operating Network"), std::string::npos)
            << decoded[index];
        for (const std::string& expected : checks[index].expected) {
            EXPECT_NE(decoded[index].find(expected), std::string::npos)
                << "tshark does not show \"" << expected << "\":\n"
                << decoded[index];
        }
    }
}

}  // namespace
}  // namespace vx::lon
