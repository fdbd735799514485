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
    EXPECT_EQ(failed("6D", "01500001", 5), kSimErrFailureResponse);    // not absolute addressing
    EXPECT_EQ(failed("6D", "00500000", 5), kSimErrFailureResponse);    // no bytes
    EXPECT_EQ(failed("6D", "00500041", 5), kSimErrFailureResponse);    // 65 bytes
    EXPECT_EQ(failed("6D", "00FFC240", 5), kSimErrFailureResponse);    // past FFFF
    EXPECT_EQ(failed("6D", "00500001", 4), kSimErrFailureResponse);    // count not sent
    EXPECT_EQ(failed("6D", "0050000100", 6), kSimErrFailureResponse);  // a byte too many
    const std::string bytes = "0050001F04" + Counting31();
    EXPECT_EQ(failed("6E", "0150001F04" + Counting31(), 37), kSimErrFailureResponse);
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

}  // namespace
}  // namespace vx::sim
