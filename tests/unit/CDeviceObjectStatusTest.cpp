#include "CDeviceObjectStatus.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "OrvexCommandStatus.h"

namespace vx {
namespace {

BufferPtr BufferOf(std::vector<std::uint8_t> bytes) {
    auto buffer = std::make_shared<CBuffer>();
    buffer->SetBytes(ByteArray(0, std::move(bytes)));
    return buffer;
}

// The names of the flags that read True, in interface order.
std::vector<std::string> SetFlags(CDeviceObjectStatus& status) {
    const std::array<std::pair<const char*, bool>, 23> flags{{
        {"InvalidId", status.InvalidId()},
        {"InvalidRequest", status.InvalidRequest()},
        {"Disabled", status.Disabled()},
        {"OutOfLimits", status.OutOfLimits()},
        {"OpenCircuit", status.OpenCircuit()},
        {"OutOfService", status.OutOfService()},
        {"MechanicalFault", status.MechanicalFault()},
        {"FeedbackFailure", status.FeedbackFailure()},
        {"OverRange", status.OverRange()},
        {"UnderRange", status.UnderRange()},
        {"ElectricalFault", status.ElectricalFault()},
        {"UnableToMeasure", status.UnableToMeasure()},
        {"CommFailure", status.CommFailure()},
        {"FailSelfTest", status.FailSelfTest()},
        {"SelfTestInProgress", status.SelfTestInProgress()},
        {"LockedOut", status.LockedOut()},
        {"ManualControl", status.ManualControl()},
        {"InAlarm", status.InAlarm()},
        {"InOverride", status.InOverride()},
        {"ReportMask", status.ReportMask()},
        {"ProgrammingMode", status.ProgrammingMode()},
        {"ProgrammingFail", status.ProgrammingFail()},
        {"AlarmNotifyDisabled", status.AlarmNotifyDisabled()},
    }};
    std::vector<std::string> names;
    for (const auto& [name, set] : flags) {
        if (set) names.emplace_back(name);
    }
    return names;
}

TEST(CDeviceObjectStatus, DecodesTheObjectAndItsFlagsFromTheLiveBuffer) {
    const auto buffer = BufferOf({0x00, 0x05, 0x80, 0x00, 0x00, 0x00});
    CDeviceObjectStatus status;
    EXPECT_EQ(status.ObjectID(), 0);  // before Init: zero values, no error
    EXPECT_TRUE(SetFlags(status).empty());

    status.Init(buffer);
    EXPECT_EQ(status.ObjectID(), 5);
    EXPECT_EQ(SetFlags(status), (std::vector<std::string>{"InvalidId"}));

    buffer->SetBytes(ByteArray(0, {0x00, 0x00, 0x01, 0x01, 0x02}));
    EXPECT_EQ(SetFlags(status),
              (std::vector<std::string>{"FeedbackFailure", "LockedOut", "AlarmNotifyDisabled"}));

    buffer->SetBytes(ByteArray(0, {0xFF, 0xFE, 0x7F, 0xFF, 0xFF}));
    EXPECT_EQ(status.ObjectID(), 65534);      // unsigned, most significant byte first
    EXPECT_EQ(SetFlags(status).size(), 22u);  // all but InvalidId; byte 4 bit 0 is no flag
}

TEST(OrvexCommandStatus, ReadsTheCommandCodeAndStatusBitsOfByteOne) {
    OrvexCommandStatus status;
    EXPECT_EQ(status.CmdType(), 0);
    EXPECT_FALSE(status.Status(0));

    const auto buffer = BufferOf({0x03, 0b0000'0101, 0x02, 0x00});
    status.Init(buffer);
    EXPECT_EQ(status.CmdType(), 3);
    EXPECT_TRUE(status.Status(0));
    EXPECT_FALSE(status.Status(1));
    EXPECT_TRUE(status.Status(2));
    buffer->SetBytes(ByteArray(0, {0x04, 0x00, 0x00, 0x00}));
    EXPECT_EQ(status.CmdType(), 4);
    EXPECT_FALSE(status.Status(0));
}

}  // namespace
}  // namespace vx
