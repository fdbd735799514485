#include <gtest/gtest.h>

#include <array>
#include <string_view>

#include "CDeviceObject.h"
#include "Crc16.h"
#include "DefaultController.h"
#include "SimTestSupport.h"
#include "fixtures/ErrorMatchers.h"

namespace vx::sim {
namespace {

using test::Bytes;

// The checksum the library computes over the node's values (low byte first).
Bytes LibraryChecksum(const SimulatedNode& node) {
    std::array<std::uint8_t, 2> state = {255, 255};
    for (const auto& name : node.Description().checksumCovers) {
        const bool isItem = name.find('-') != std::string::npos;
        CDeviceObject::CrcUpdate(state,
                                 isItem ? node.ConfigItemValue(name) : node.VariableValue(name));
    }
    return {static_cast<std::uint8_t>(255 - state[0]), static_cast<std::uint8_t>(255 - state[1])};
}

TEST(SimChecksum, AgreesWithTheLibraryAndTheDefaultController) {
    constexpr std::string_view kCheck = "123456789";
    const Bytes check(kCheck.begin(), kCheck.end());
    Crc16X25 crc;
    crc.Add(check);
    EXPECT_EQ(crc.Value(), 0x906E);  // the standard check value
    EXPECT_EQ(crc.StoredBytes(), (std::array<std::uint8_t, 2>{0x6E, 0x90}));

    std::array<std::uint8_t, 2> library = {255, 255};
    CDeviceObject::CrcUpdate(library, check);
    EXPECT_EQ(library, (std::array<std::uint8_t, 2>{255 - 0x6E, 255 - 0x90}));

    const auto node = SimulatedNode::Create(DefaultController());
    EXPECT_EQ(node->CoveredChecksum(), node->ConfigItemValue("3-1"));
    EXPECT_EQ(node->CoveredChecksum(), LibraryChecksum(*node));
    node->SetConfigItemValue("3-2", Bytes(24, 0x5A));
    EXPECT_EQ(node->CoveredChecksum(), LibraryChecksum(*node));
    EXPECT_NE(node->CoveredChecksum(), node->ConfigItemValue("3-1"));
}

class SimCommand : public ::testing::Test {
protected:
    // Writes a command frame (the bytes given, then zeros) as the library does.
    void Command(Bytes head) {
        head.resize(12, 0);
        test::WriteVariable(*node, "nviCommand", head);
    }
    Bytes Status() const { return node->VariableValue("nvoCommandStatus"); }
    // Reads the alarm message as the library polls it, up to its first zero byte.
    std::string PollAlarm() {
        const Bytes value = test::ReadVariable(*node, "nvoAlarmMessage");
        std::string text;
        for (std::size_t i = 0; i < value.size() && value[i] != 0; ++i) {
            text += static_cast<char>(value[i]);
        }
        return text;
    }
    void Open(std::uint8_t level) { Command({3, level, 1}); }
    void Close(std::uint8_t level) { Command({4, level}); }

    SimulatedNodePtr node = SimulatedNode::Create(DefaultController());
};

TEST_F(SimCommand, EachCommandIsRecordedActedOnAndAnswered) {
    struct Case {
        Bytes head;
        Bytes status;
    };
    const std::vector<Case> cases = {
        {{5}, {5, 0x01, 0, 0}},
        {{6, 0x00, 0x02, 0x01, 0x2C}, {6, 0x01, 0, 0}},  // timer 2 to 300
        {{7, 0x01, 0x31}, {7, 0x01, 0, 0}},
        {{8}, {8, 0x01, 0, 0}},
        {{10, 2}, {10, 0x01, 0, 0}},
        {{10, 3}, {10, 0x02, 0, 0}},  // the node has objects 0..2
        {{11}, {11, 0x02, 0, 0}},     // no such command
        {{0x20, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {0x20, 0x02, 0, 0}},
        {{5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, {5, 0x02, 0, 0}},  // a stray byte after it
        {{0}, {0, 0x02, 0, 0}},
    };
    std::vector<Bytes> frames;
    for (const auto& [head, status] : cases) {
        Command(head);
        frames.push_back(head);
        frames.back().resize(12, 0);
        EXPECT_EQ(Status(), status) << "command " << int(head[0]);
    }
    EXPECT_EQ(node->CommandFrames(), frames);
    const auto& commands = node->Commands();
    EXPECT_EQ(commands.sendAllScans, 1);
    EXPECT_EQ(commands.timerResets, (std::vector<TimerReset>{{2, 300}}));
    EXPECT_EQ(commands.keypresses, (std::vector<std::int32_t>{0x131}));
    EXPECT_EQ(commands.clearedLogs, (std::vector<std::int32_t>{2}));
    EXPECT_FALSE(commands.keypadEnabled);
    Command({9});
    EXPECT_TRUE(node->Commands().keypadEnabled);
    EXPECT_EQ(node->Commands().restarts, 0);
}

TEST_F(SimCommand, ADownloadClosedWithAMatchingChecksumRestartsTheApplication) {
    Open(2);
    EXPECT_EQ(Status(), (Bytes{3, 0x05, 2, 0}));  // accepted, open, level 2
    test::WriteVariable(*node, "nciSndHrtBt", {0x01, 0x2C});
    test::WriteItem(*node, "0-1", {0x03, 0x52});
    test::WriteItem(*node, "3-1", LibraryChecksum(*node));
    Close(2);
    EXPECT_EQ(Status(), (Bytes{4, 0x11, 0, 0}));  // accepted, resetting
    EXPECT_EQ(node->Commands().closes, 1);
    EXPECT_FALSE(node->Commands().checksumMismatch);
    EXPECT_EQ(node->Commands().restarts, 1);

    Bytes resetting(31, 0);
    const std::string_view text = "0 Application Resetting";
    std::copy(text.begin(), text.end(), resetting.begin());
    EXPECT_EQ(node->VariableValue("nvoAlarmMessage"), resetting);
    EXPECT_EQ(PollAlarm(), text);
    EXPECT_EQ(Status(), (Bytes{4, 0x11, 0, 0}));
    EXPECT_EQ(PollAlarm(), text);
    EXPECT_EQ(Status(), (Bytes{4, 0x01, 0, 0}));  // the restart ended with its last poll
    EXPECT_EQ(PollAlarm(), "0 Normal");
    EXPECT_EQ(PollAlarm(), "0 Normal");
    EXPECT_EQ(node->ConfigItemValue("0-1"), (Bytes{0x03, 0x52}));  // the download stays
}

TEST_F(SimCommand, AMismatchIsReportedUntilAClosingMatches) {
    Open(3);
    EXPECT_EQ(Status(), (Bytes{3, 0x05, 3, 0}));
    test::WriteVariable(*node, "nciMinOutTm", {0x00, 0x14});  // the checksum left as it was
    Close(3);
    EXPECT_EQ(Status(), (Bytes{4, 0x19, 0, 0}));  // accepted, mismatch, resetting
    EXPECT_TRUE(node->Commands().checksumMismatch);
    PollAlarm();
    PollAlarm();
    EXPECT_EQ(Status(), (Bytes{4, 0x09, 0, 0}));

    Open(2);
    EXPECT_EQ(Status(), (Bytes{3, 0x0D, 2, 0}));  // the last close's mismatch still shows
    test::WriteItem(*node, "3-1", LibraryChecksum(*node));
    Close(2);
    EXPECT_EQ(Status(), (Bytes{4, 0x11, 0, 0}));
    EXPECT_EQ(node->Commands().closes, 2);
}

TEST_F(SimCommand, OpeningAndClosingRefuseBadParameters) {
    for (const Bytes& head : {Bytes{3, 4, 1}, Bytes{3, 1, 1}, Bytes{3, 2, 0}, Bytes{3, 2, 2}}) {
        Command(head);
        EXPECT_EQ(Status(), (Bytes{3, 0x02, 0, 0})) << int(head[1]) << " " << int(head[2]);
    }
    Close(2);
    EXPECT_EQ(Status(), (Bytes{4, 0x02, 0, 0}));  // nothing open
    Open(2);
    Close(3);
    EXPECT_EQ(Status(), (Bytes{4, 0x06, 2, 0}));  // rejected, still open at level 2
    EXPECT_EQ(node->Commands().downloadLevel, 2);
    EXPECT_EQ(node->Commands().restarts, 0);
    EXPECT_EQ(PollAlarm(), "0 Normal");
}

TEST_F(SimCommand, TheRestartLastsTheConfiguredPolls) {
    node->SetResetPolls(0);
    Open(2);
    Close(2);
    EXPECT_EQ(Status(), (Bytes{4, 0x01, 0, 0}));
    EXPECT_EQ(PollAlarm(), "0 Normal");
    EXPECT_EQ(node->Commands().restarts, 1);

    // An alarm raised before the restart is what the application reports after it.
    const Bytes alarm = {'1', ' ', 'F', 'r', 'o', 's', 't', 0, 0, 0, 0, 0, 0, 0, 0, 0,
                         0,   0,   0,   0,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 0};
    node->SetVariableValue("nvoAlarmMessage", alarm);
    node->SetResetPolls(-1);  // never finishes
    Open(2);
    Close(2);
    for (int poll = 0; poll < 50; ++poll) {
        ASSERT_EQ(PollAlarm(), "0 Application Resetting");
    }
    EXPECT_EQ(Status(), (Bytes{4, 0x11, 0, 0}));
    EXPECT_EQ(node->Commands().pollsLeft, -1);

    node->SetResetPolls(1);  // a restart during the restart takes the new count
    Open(3);
    Close(3);
    EXPECT_EQ(PollAlarm(), "0 Application Resetting");
    EXPECT_EQ(PollAlarm(), "1 Frost");
    EXPECT_EQ(node->Commands().restarts, 3);
    EXPECT_COM_ERROR(node->SetResetPolls(-2), kErrInvalidProcedureCall);
}

TEST_F(SimCommand, AMemoryResetNeedsTheNodesCodeAndRestoresTheConfiguration) {
    test::WriteVariable(*node, "nciSndHrtBt", {0x01, 0x2C});
    test::WriteItem(*node, "0-1", {0x03, 0x52});
    test::WriteItem(*node, "3-1", {0x12, 0x34});
    test::WriteVariable(*node, "nviSetpoint", {0x08, 0x98});
    Open(2);

    // Neuron ID 05 01 3C 7A 1F 02: 05^02, 01^1F, 3C^7A, sum 0xDD.
    Command({12, 1, 0x07, 0x1E, 0x46, 0xDE});
    EXPECT_EQ(Status(), (Bytes{12, 0x06, 2, 0}));  // rejected, download still open
    EXPECT_EQ(node->VariableValue("nciSndHrtBt"), (Bytes{0x01, 0x2C}));
    EXPECT_EQ(node->Commands().restarts, 0);

    Command({12, 1, 0x07, 0x1E, 0x46, 0xDD});
    EXPECT_EQ(Status(), (Bytes{12, 0x11, 0, 0}));  // accepted, resetting, download ended
    EXPECT_EQ(node->VariableValue("nciSndHrtBt"), (Bytes{0x02, 0x58}));
    EXPECT_EQ(node->ConfigItemValue("0-1"), (Bytes{0x03, 0x20}));
    EXPECT_EQ(node->ConfigItemValue("3-1"), (Bytes{0x49, 0x00}));
    EXPECT_EQ(node->VariableValue("nviSetpoint"), (Bytes{0x08, 0x98}));  // no configuration
    EXPECT_EQ(node->Commands().restarts, 1);
    EXPECT_EQ(node->Commands().downloadLevel, 0);
    EXPECT_EQ(PollAlarm(), "0 Application Resetting");
}

}  // namespace
}  // namespace vx::sim
