#include "SelfIdentification.h"

#include <gtest/gtest.h>

#include "fixtures/Hex.h"

#include <fstream>
#include <string>
#include <vector>

namespace vx::lon {
namespace {

using Bytes = std::vector<std::uint8_t>;

using vx::test::Hex;

Bytes Text(const std::string& text) {
    Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes joined;
    for (const Bytes& part : parts) {
        joined.insert(joined.end(), part.begin(), part.end());
    }
    return joined;
}

// The whole data as a session file shows it on its "SI data" line.
Bytes SessionSiData(const std::string& file) {
    std::ifstream in(std::string(VX_SHARED_LONIP_DIR) + "/" + file);
    EXPECT_TRUE(in) << "cannot open " << file;
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("SI data", 0) == 0) return Hex(line.substr(line.find(':') + 1));
    }
    ADD_FAILURE() << file << " has no SI data line";
    return {};
}

SelfIdentification Parsed(const Bytes& data) {
    auto result = ParseSelfIdentification(data);
    EXPECT_TRUE(result.data) << result.error;
    EXPECT_TRUE(result.error.empty());
    return result.data.value_or(SelfIdentification{});
}

std::string ErrorOf(const Bytes& data) {
    const auto result = ParseSelfIdentification(data);
    EXPECT_FALSE(result.data);
    return result.error;
}

// Prefix of `data` with its length bytes rewritten to match, so the cut lands inside the body.
Bytes Cut(const Bytes& data, std::size_t size) {
    Bytes cut(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
    if (size >= 2) {
        cut[0] = static_cast<std::uint8_t>(size >> 8);
        cut[1] = static_cast<std::uint8_t>(size & 0xFF);
    }
    return cut;
}

SiVariable Variable(std::uint8_t descriptor, std::uint8_t type, std::string name,
                    std::string selfDoc, std::uint8_t mask) {
    SiVariable variable;
    variable.descriptor = descriptor;
    variable.typeIndex = type;
    variable.name = std::move(name);
    variable.selfDoc = std::move(selfDoc);
    variable.extensionMask = mask;
    return variable;
}

// Device B, as its session shows it: two variables of type 0x2C with names and documentation.
SelfIdentification DeviceB() {
    SelfIdentification data;
    data.version = 1;
    data.messageTags = 0;
    data.nodeSelfDoc = "&3.3@4VoltActuator";
    data.variables = {Variable(0x8E, 0x2C, "nviVolt", "@0|1", 0x30),
                      Variable(0x8E, 0x2C, "nvoVoltFb", "@0|2", 0x30)};
    data.trailer = {0xFF, 0x00, 0x00, 0x00, 0x13, 0x00, 0x02};
    return data;
}

// ---- Real devices

TEST(SelfIdentificationDevice, DeviceBParsesFullyAndIsBuiltByteForByte) {
    const Bytes data = SessionSiData("device-b-session.txt");
    ASSERT_EQ(data.size(), 66u);
    EXPECT_EQ(AnnouncedLength(data), 66);
    EXPECT_EQ(Parsed(data), DeviceB());
    EXPECT_EQ(BuildSelfIdentification(DeviceB()), data);
}

TEST(SelfIdentificationDevice, DeviceAParsesAllNineVariables) {
    // Device A's dump holds exactly the 0x010D = 269 bytes it announces, so it parses as a whole.
    const Bytes data = SessionSiData("device-a-session.txt");
    ASSERT_EQ(data.size(), 269u);
    ASSERT_EQ(AnnouncedLength(data), 269);
    const SelfIdentification parsed = Parsed(data);
    EXPECT_EQ(parsed.version, 1);
    EXPECT_EQ(parsed.messageTags, 0);
    EXPECT_EQ(parsed.nodeSelfDoc, "LON Stack Example 1");
    // Device A's application registers wrong type indexes for two of these (a known defect);
    // these are the indexes it serves, which is what the parser must report.
    struct Expected {
        const char* name;
        const char* selfDoc;
        std::uint8_t type;
    };
    const Expected expected[] = {
        {"heartbeatIn", "Heartbeat Interval Input", 161},
        {"flow1In", "Flow 1 Input", 161},
        {"flow2In", "Flow 2 Input", 53},
        {"temp1In", "Temp 1 Input", 161},
        {"temp2In", "Temp 2 Input", 53},
        {"flow1Out", "Flow 1 Output", 161},
        {"flow2Out", "Flow 2 Output", 53},
        {"temp1Out", "Temp 1 Output", 161},
        {"temp2Out", "Temp 2 Output", 53},
    };
    ASSERT_EQ(parsed.variables.size(), std::size(expected));
    for (std::size_t index = 0; index < std::size(expected); ++index) {
        SCOPED_TRACE(index);
        const SiVariable& variable = parsed.variables[index];
        EXPECT_EQ(variable.descriptor, 0x80);
        EXPECT_EQ(variable.typeIndex, expected[index].type);
        EXPECT_EQ(variable.extensionMask, 0x30);
        EXPECT_EQ(variable.name, expected[index].name);
        EXPECT_EQ(variable.selfDoc, expected[index].selfDoc);
        EXPECT_FALSE(variable.maxRate || variable.rate || variable.arrayCount);
    }
    EXPECT_EQ(parsed.trailer, Hex("ff 00 03"));
    // Its data is in the form we build, so building it gives back the same bytes.
    EXPECT_EQ(BuildSelfIdentification(parsed), data);
}

// ---- The layout's fields

TEST(SelfIdentificationLayout, CountTakesItsHighByteFromOffsetFour) {
    // 0x0100 variables, none extended: 6 + 512 + 1 = 519 = 0x0207 bytes.
    Bytes data = Hex("02 07 00 01 01 00");
    for (int index = 0; index < 0x100; ++index) {
        data.push_back(0x00);
        data.push_back(static_cast<std::uint8_t>(index));
    }
    data.push_back(0);
    const SelfIdentification parsed = Parsed(data);
    ASSERT_EQ(parsed.variables.size(), 0x100u);
    EXPECT_EQ(parsed.variables[255].typeIndex, 255);
    EXPECT_EQ(parsed.messageTags, 0);
    EXPECT_TRUE(parsed.trailer.empty());
}

TEST(SelfIdentificationLayout, ExtensionFieldsFollowTheMaskInOrder) {
    // Variable 0: every field. Variable 1: not extended. Variable 2: only an array count, with the
    // mask's low bits set, which carry no field.
    const Bytes data =
        Join({Hex("00 24 03 02 00 04"), Hex("81 05 02 06 80 07"), Text("node"), Hex("f8 0a 0b"),
              Text("nvA"), Text("docA"), Hex("01 02"), Hex("0f 00 10"), Hex("aa bb")});
    ASSERT_EQ(data.size(), 0x24u);
    const SelfIdentification parsed = Parsed(data);
    EXPECT_EQ(parsed.version, 2);
    EXPECT_EQ(parsed.messageTags, 4);
    EXPECT_EQ(parsed.nodeSelfDoc, "node");
    ASSERT_EQ(parsed.variables.size(), 3u);

    const SiVariable& full = parsed.variables[0];
    EXPECT_EQ(full.descriptor, 0x81);
    EXPECT_EQ(full.typeIndex, 5);
    EXPECT_EQ(full.extensionMask, 0xF8);
    EXPECT_EQ(full.maxRate, 0x0A);
    EXPECT_EQ(full.rate, 0x0B);
    EXPECT_EQ(full.name, "nvA");
    EXPECT_EQ(full.selfDoc, "docA");
    EXPECT_EQ(full.arrayCount, 0x0102);

    const SiVariable& plain = parsed.variables[1];
    EXPECT_EQ(plain.descriptor, 0x02);
    EXPECT_EQ(plain.extensionMask, 0);
    EXPECT_TRUE(plain.name.empty());

    const SiVariable& array = parsed.variables[2];
    EXPECT_EQ(array.extensionMask, 0x0F);
    EXPECT_EQ(array.arrayCount, 0x0010);
    EXPECT_FALSE(array.maxRate || array.rate);
    EXPECT_TRUE(array.name.empty() && array.selfDoc.empty());

    EXPECT_EQ(parsed.trailer, Hex("aa bb"));
}

// ---- Malformed data

TEST(SelfIdentificationMalformed, EveryCutOfDeviceBFailsUntilTheRecordsAreComplete) {
    const Bytes data = SessionSiData("device-b-session.txt");
    // The second record ends at 59; everything after it is the trailer, so from there on a
    // shorter data is a shorter trailer.
    constexpr std::size_t kRecordsEnd = 59;
    for (std::size_t size = 0; size < kRecordsEnd; ++size) {
        SCOPED_TRACE(size);
        EXPECT_FALSE(ErrorOf(Cut(data, size)).empty());
        const Bytes unannounced(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(ErrorOf(unannounced).empty());
    }
    for (std::size_t size = kRecordsEnd; size <= data.size(); ++size) {
        SCOPED_TRACE(size);
        const SelfIdentification parsed = Parsed(Cut(data, size));
        EXPECT_EQ(parsed.variables, DeviceB().variables);
        EXPECT_EQ(parsed.trailer.size(), size - kRecordsEnd);
    }
}

TEST(SelfIdentificationMalformed, ErrorsSayWhereTheDataEnds) {
    const Bytes b = SessionSiData("device-b-session.txt");
    Bytes longer = b;
    longer.push_back(0);
    const Bytes shorter(b.begin(), b.begin() + 60);
    // An extension record of one variable with no name, then `record`.
    const auto withRecord = [](const Bytes& record) {
        Bytes data = Join({Hex("00 00 01 01 00 00 80 01"), Text(""), record});
        data[1] = static_cast<std::uint8_t>(data.size());
        return data;
    };
    const std::string ends = "the self-identification data ends inside ";
    const std::pair<Bytes, std::string> cases[] = {
        {{}, ends + "its length"},
        {Cut(b, 1), ends + "its length"},
        {Cut(b, 4), ends + "its header"},
        {Cut(b, 7), ends + "network variable 0's type index"},
        {Cut(b, 8), ends + "network variable 1's descriptor (2 network variables announced)"},
        {Cut(b, 20), "the node's self-documentation string has no terminating zero"},
        {Cut(b, 29), ends + "network variable 0's extension record"},
        {Cut(b, 33), "network variable 0's name has no terminating zero"},
        {Cut(b, 40), "network variable 0's self-documentation string has no terminating zero"},
        {Cut(b, 50), "network variable 1's name has no terminating zero"},
        {longer, "the self-identification data announces 66 bytes but 67 were given"},
        {shorter, "the self-identification data announces 66 bytes but 60 were given"},
        // Three announced, two descriptor pairs and a node string: the node string is read as
        // the third variable and then no terminating zero is left.
        {Join({Hex("00 0c 03 01 00 00"), Hex("00 01 00 02"), Text("a")}),
         "the node's self-documentation string has no terminating zero"},
        // The second variable's record is missing: the first one's ends the data.
        {Join({Hex("00 0f 02 01 00 00"), Hex("80 01 80 02"), Text(""), Hex("20"), Text("ab")}),
         ends + "network variable 1's extension record"},
        {withRecord(Hex("80")), ends + "network variable 0's maximum rate estimate"},
        {withRecord(Hex("c0 01")), ends + "network variable 0's rate estimate"},
        {withRecord(Hex("08 01")), ends + "network variable 0's array count"},
        {withRecord(Join({Hex("30"), Text("name"), Hex("41 42")})),
         "network variable 0's self-documentation string has no terminating zero"},
    };
    for (const auto& [data, error] : cases) {
        EXPECT_EQ(ErrorOf(data), error);
    }
    // 0xFFFF announced in nine bytes.
    EXPECT_FALSE(ErrorOf(Hex("00 09 ff 01 ff 00 00 01 00")).empty());
}

// ---- Building

TEST(SelfIdentificationBuild, RecordsOnlyForVariablesWithFieldsAndMasksNamingThem) {
    SelfIdentification data;
    data.version = 1;
    data.messageTags = 2;
    data.nodeSelfDoc = "n";
    SiVariable bare = Variable(0x81, 0x10, "", "", 0x30);  // claims a record it has no fields for
    SiVariable full = Variable(0x01, 0x20, "a", "b", 0);
    full.maxRate = 5;
    full.rate = 6;
    full.arrayCount = 0x0102;
    SiVariable docOnly = Variable(0x00, 0x30, "", "d", 0);
    SiVariable arrayOnly = Variable(0x00, 0x40, "", "", 0);
    arrayOnly.arrayCount = 3;
    data.variables = {bare, full, docOnly, arrayOnly};
    data.trailer = {0xFF, 0x00};
    const Bytes expected = Join({Hex("00 21 04 01 00 02"), Hex("01 10 81 20 80 30 80 40"),
                                 Text("n"), Hex("f8 05 06"), Text("a"), Text("b"), Hex("01 02"),
                                 Hex("10"), Text("d"), Hex("08 00 03"), Hex("ff 00")});
    ASSERT_EQ(expected.size(), 0x21u);
    EXPECT_EQ(BuildSelfIdentification(data), expected);
}

TEST(SelfIdentificationBuild, ParsingTheResultGivesTheDataBackWithFlagAndMaskRecomputed) {
    SelfIdentification data = DeviceB();
    data.version = 3;
    data.messageTags = 7;
    data.variables[0].descriptor = 0x0E;  // extension flag missing
    data.variables[0].extensionMask = 0x37;
    data.variables[1].maxRate = 9;
    data.variables[1].arrayCount = 0xFFFF;
    data.variables.push_back(Variable(0x85, 0x01, "", "", 0x30));

    const auto built = BuildSelfIdentification(data);
    ASSERT_TRUE(built);
    SelfIdentification expected = data;
    expected.variables[0].descriptor = 0x8E;
    expected.variables[0].extensionMask = 0x30;
    expected.variables[1].extensionMask = 0xB8;
    expected.variables[2].descriptor = 0x05;
    expected.variables[2].extensionMask = 0;
    EXPECT_EQ(Parsed(*built), expected);
}

TEST(SelfIdentificationBuild, RejectsWhatCannotBeExpressed) {
    const std::string zero(1, '\0');
    SelfIdentification zeros[3] = {DeviceB(), DeviceB(), DeviceB()};
    zeros[0].nodeSelfDoc = "a" + zero + "b";
    zeros[1].variables[1].name = "nvo" + zero;
    zeros[2].variables[0].selfDoc = zero;
    for (const auto& data : zeros)
        EXPECT_FALSE(BuildSelfIdentification(data));

    SelfIdentification longest;
    longest.nodeSelfDoc.assign(0xFFFF - 7, 'x');  // header, text and its zero: 65535 bytes
    EXPECT_TRUE(BuildSelfIdentification(longest));
    longest.nodeSelfDoc.push_back('x');
    EXPECT_FALSE(BuildSelfIdentification(longest));

    SelfIdentification tooMany;
    tooMany.variables.resize(0x10000);
    EXPECT_FALSE(BuildSelfIdentification(tooMany));
}

}  // namespace
}  // namespace vx::lon
