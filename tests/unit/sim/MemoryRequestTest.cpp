#include <gtest/gtest.h>

#include "DefaultController.h"
#include "SimErrors.h"
#include "SimTestSupport.h"
#include "fixtures/ErrorMatchers.h"

namespace vx::sim {
namespace {

using test::Bytes;
using test::Send;

class SimMemory : public ::testing::Test {
protected:
    SimulatedNodePtr node = SimulatedNode::Create(DefaultController());
};

// The 31 bytes 01 .. 1F as hexadecimal text.
std::string Counting31() {
    std::string text;
    for (int i = 1; i <= 31; ++i) {
        text += "0123456789ABCDEF"[i / 16];
        text += "0123456789ABCDEF"[i % 16];
    }
    return text;
}

TEST_F(SimMemory, WritesAndReadsRoundTripThroughTheImage) {
    // Mode 0, address 5000, 31 bytes, form 4, the bytes: 37 bytes with the code.
    const auto written = Send(*node, "6E", "0050001F04" + Counting31(), 37);
    EXPECT_EQ(written.code, "2E");
    EXPECT_EQ(written.data, "");
    EXPECT_EQ(written.length, 1);
    EXPECT_EQ(node->MemoryBytes(0x4FFF, 3), (Bytes{0x00, 0x01, 0x02}));
    EXPECT_EQ(node->MemoryBytes(0x501E, 2), (Bytes{0x1F, 0x00}));

    const auto read = Send(*node, "6D", "0050001F", 5);
    EXPECT_EQ(read.code, "2D");
    EXPECT_EQ(read.data, Counting31());
    EXPECT_EQ(read.length, 32);
    EXPECT_EQ(Send(*node, "6D", "004FFF03", 5).data, "000102");

    // The highest bytes of the image, 64 at once.
    node->SetMemoryBytes(0xFFFF, {0xA5});
    const auto top = Send(*node, "6D", "00FFC040", 5);
    EXPECT_EQ(top.data, std::string(126, '0') + "A5");
    EXPECT_COM_ERROR(node->MemoryBytes(0xFFFF, 2), kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(node->SetMemoryBytes(-1, {0}), kErrInvalidProcedureCall);
}

TEST_F(SimMemory, MalformedRequestsGetAFailureResponseAndChangeNothing) {
    const Bytes before = node->MemoryBytes(0x5000, 64);
    const auto failed = [&](const std::string& code, const std::string& data, std::int32_t length) {
        return ::vx::test::CaughtError([&] { Send(*node, code, data, length); }).Number();
    };
    EXPECT_EQ(failed("6D", "02000001", 5), kSimErrFailureResponse);    // configuration relative
    EXPECT_EQ(failed("6D", "01500001", 5), kSimErrFailureResponse);    // past the read-only data
    EXPECT_EQ(failed("6D", "00500000", 5), kSimErrFailureResponse);    // no bytes
    EXPECT_EQ(failed("6D", "00500041", 5), kSimErrFailureResponse);    // 65 bytes
    EXPECT_EQ(failed("6D", "00FFC240", 5), kSimErrFailureResponse);    // past FFFF
    EXPECT_EQ(failed("6D", "00500001", 4), kSimErrFailureResponse);    // count not sent
    EXPECT_EQ(failed("6D", "0050000100", 6), kSimErrFailureResponse);  // a byte too many
    const std::string bytes = "0050001F04" + Counting31();
    EXPECT_EQ(failed("6E", "0150001F04" + Counting31(), 37), kSimErrFailureResponse);
    EXPECT_EQ(failed("6E", "0100000104AA", 7), kSimErrFailureResponse);  // read-only data
    EXPECT_EQ(failed("6E", bytes, 36), kSimErrFailureResponse);  // one byte short of the count
    EXPECT_EQ(failed("6E", "0050000204" + Counting31(), 37), kSimErrFailureResponse);
    EXPECT_EQ(failed("6E", "00FFF01F04" + Counting31(), 37), kSimErrFailureResponse);
    EXPECT_EQ(failed("6E", "00500000", 5), kSimErrFailureResponse);  // no form, no bytes
    EXPECT_EQ(node->MemoryBytes(0x5000, 64), before);
    EXPECT_EQ(node->MemoryBytes(0xFFF0, 16), Bytes(16, 0));

    // What the host cannot send at all is refused before it goes out.
    EXPECT_EQ(failed("6D", "0050", 5), kSimErrBadRequest);
}

TEST_F(SimMemory, TheFileDirectoryLeadsToTheDeviceName) {
    // The directory address is in bytes 1 and 2 of nvoFileDirectory.
    const Bytes directory = test::ReadVariable(*node, "nvoFileDirectory");
    ASSERT_EQ(directory, (Bytes{0x00, 0x40, 0x00, 0x00}));
    // Directory + 10 holds the base of the configuration values; location 20 holds the name.
    EXPECT_EQ(Send(*node, "6D", "00400A02", 5).data, "4100");
    const auto name = Send(*node, "6D", "0041201F", 5);
    std::string text;
    for (std::size_t i = 0; i < name.data.size(); i += 2) {
        text += static_cast<char>(std::stoi(name.data.substr(i, 2), nullptr, 16));
    }
    EXPECT_EQ(text, std::string("VX-220 Room 2.14              ") + '\0');
    EXPECT_EQ(node->MemoryBytes(0x4000, 2), (Bytes{0x01, 0x03}));  // directory version, files
    EXPECT_EQ(node->MemoryBytes(0x0FFF, 1), Bytes{0});             // nothing below 1000
}

TEST_F(SimMemory, ModeOneReadsTheReadOnlyDataWithTheNodesIdentity) {
    // Neuron ID 05013C7A1F02 at 0-5, program ID 91A5A581020404DC at 13-20, zeros to 31.
    const std::string readOnly =
        "05013C7A1F02" + std::string(14, '0') + "91A5A581020404DC" + std::string(22, '0');
    const auto all = Send(*node, "6D", "01000020", 5);
    EXPECT_EQ(all.code, "2D");
    EXPECT_EQ(all.data, readOnly);
    EXPECT_EQ(all.length, 33);
    EXPECT_EQ(Send(*node, "6D", "01000D08", 5).data, "91A5A581020404DC");
    EXPECT_EQ(Send(*node, "6D", "01000502", 5).data, "0200");
    EXPECT_EQ(Send(*node, "6D", "01001F01", 5).data, "00");

    const auto failed = [&](const std::string& data) {
        return ::vx::test::CaughtError([&] { Send(*node, "6D", data, 5); }).Number();
    };
    EXPECT_EQ(failed("01001F02"), kSimErrFailureResponse);  // offset 32
    EXPECT_EQ(failed("01002001"), kSimErrFailureResponse);
    EXPECT_EQ(failed("01010001"), kSimErrFailureResponse);  // the address's high byte counts

    // The identity is the node's own, not the default controller's.
    auto description = DefaultController();
    description.neuronId = "0102030405A6";
    description.programId = "8000010203040506";
    const auto other = SimulatedNode::Create(description);
    EXPECT_EQ(Send(*other, "6D", "01000015", 5).data,
              "0102030405A6" + std::string(14, '0') + "8000010203040506");
}

// The default controller's items from 4200: 3-1 (49 00), 3-2 (24 bytes from 08 34), 0-1 (03 20)
// at 421A, 0-2 (FF E2) at 421C, 0-3 (03 84) at 421E, 0-4 (00 00) at 4220.
TEST_F(SimMemory, ConfigurationItemsAreReadThroughMemory) {
    EXPECT_EQ(Send(*node, "6D", "0041FF05", 5).data, "0049000834");
    EXPECT_EQ(Send(*node, "6D", "00421808", 5).data, "A0000320FFE20384");
    EXPECT_EQ(node->MemoryBytes(0x4220, 3), (Bytes{0x00, 0x00, 0x00}));

    // Every way an item changes shows in memory at once.
    node->SetConfigItemValue("0-1", {0x01, 0x02});
    test::WriteItem(*node, "0-2", {0x03, 0x04});
    EXPECT_EQ(Send(*node, "6D", "00421A04", 5).data, "01020304");
    test::WriteVariable(*node, "nviCommand", {12, 1, 0x07, 0x1E, 0x46, 0xDD, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(Send(*node, "6D", "00421A04", 5).data, "0320FFE2");  // memory reset: factory values
}

TEST_F(SimMemory, WritesIntoItemsChangeTheirValuesAndTheRestGoesToTheImage) {
    // From 421B: the second byte of 0-1, both of 0-2, 0-3, 0-4, then two bytes after the items.
    const auto written = Send(*node, "6E",
                              "00421B0904"
                              "AABBCCDDEEFF112233",
                              15);
    EXPECT_EQ(written.code, "2E");
    EXPECT_EQ(node->ConfigItemValue("0-1"), (Bytes{0x03, 0xAA}));
    EXPECT_EQ(node->ConfigItemValue("0-2"), (Bytes{0xBB, 0xCC}));
    EXPECT_EQ(node->ConfigItemValue("0-3"), (Bytes{0xDD, 0xEE}));
    EXPECT_EQ(node->ConfigItemValue("0-4"), (Bytes{0xFF, 0x11}));
    EXPECT_EQ(node->MemoryBytes(0x4222, 3), (Bytes{0x22, 0x33, 0x00}));
    EXPECT_EQ(test::ItemRecordOf(*node, "0-2")->ReadValue().Get<ByteArray>()->Values(),
              (Bytes{0xBB, 0xCC}));

    // The control writes the same way; the checksum sees what memory wrote.
    node->SetMemoryBytes(0x4200, {0x12, 0x34, 0x09});
    EXPECT_EQ(node->ConfigItemValue("3-1"), (Bytes{0x12, 0x34}));
    EXPECT_EQ(node->ConfigItemValue("3-2")[0], 0x09);
    auto restored = node->ConfigItemValue("3-2");
    restored[0] = 0x08;
    node->SetConfigItemValue("3-2", restored);
    node->SetMemoryBytes(0x421A, {0x03, 0x20, 0xFF, 0xE2});
    EXPECT_EQ(node->CoveredChecksum(), (Bytes{0x49, 0x00}));
}

}  // namespace
}  // namespace vx::sim
