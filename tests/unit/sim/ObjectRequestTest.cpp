#include <gtest/gtest.h>

#include "DefaultController.h"
#include "SimErrors.h"
#include "SimTestSupport.h"
#include "fixtures/ErrorMatchers.h"

namespace vx::sim {
namespace {

using test::Bytes;

class SimObjectRequest : public ::testing::Test {
protected:
    // Writes the request as the library does and gives the status the node answers with.
    Bytes Request(std::uint16_t object, std::uint8_t request) {
        test::WriteVariable(*node, "nviRequest",
                            {static_cast<std::uint8_t>(object >> 8),
                             static_cast<std::uint8_t>(object & 0xFF), request});
        return node->VariableValue("nvoStatus");
    }

    SimulatedNodePtr node = SimulatedNode::Create(DefaultController());
};

// Request codes.
constexpr std::uint8_t kNormal = 0, kDisabled = 1, kUpdate = 2, kSelfTest = 3, kReportMask = 5,
                       kOverride = 6, kEnable = 7, kRemoveOverride = 8, kClearStatus = 9,
                       kClearAlarm = 10, kNotifyOn = 11, kNotifyOff = 12, kManual = 13,
                       kRemote = 14;

TEST_F(SimObjectRequest, RequestsChangeTheObjectsFlagsAndTheNodeObjectReportsThemAll) {
    ASSERT_EQ(node->ObjectCount(), 3);
    EXPECT_EQ(Request(1, kDisabled), (Bytes{0, 1, 0x20, 0, 0x00, 0}));
    EXPECT_EQ(Request(2, kOverride), (Bytes{0, 2, 0x00, 0, 0x20, 0}));
    EXPECT_EQ(Request(0, kUpdate), (Bytes{0, 0, 0x20, 0, 0x20, 0}));  // what any object reports
    EXPECT_EQ(Request(1, kManual), (Bytes{0, 1, 0x20, 0, 0x80, 0}));
    EXPECT_EQ(Request(1, kNormal),
              (Bytes{0, 1, 0x00, 0, 0x00, 0}));  // enabled, remote, no override
    EXPECT_EQ(Request(2, kRemoveOverride), (Bytes{0, 2, 0, 0, 0, 0}));
    EXPECT_EQ(Request(2, kNotifyOff), (Bytes{0, 2, 0, 0, 0x02, 0}));
    EXPECT_EQ(Request(2, kNotifyOn), (Bytes{0, 2, 0, 0, 0x00, 0}));
    EXPECT_EQ(Request(2, kManual), (Bytes{0, 2, 0, 0, 0x80, 0}));
    EXPECT_EQ(Request(2, kRemote), (Bytes{0, 2, 0, 0, 0x00, 0}));

    // Flags the tests set: an alarm and faults, which the requests clear apart.
    node->SetObjectFlags(1, kObjInAlarm | kObjCommFailure | kObjOutOfLimits | kObjDisabled);
    EXPECT_EQ(Request(1, kSelfTest), (Bytes{0, 1, 0x30, 0x08, 0x40, 0}));
    EXPECT_EQ(Request(1, kClearStatus), (Bytes{0, 1, 0x20, 0x00, 0x40, 0}));
    EXPECT_EQ(Request(1, kClearAlarm), (Bytes{0, 1, 0x20, 0x00, 0x00, 0}));
    EXPECT_EQ(Request(1, kEnable), (Bytes{0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(node->ObjectFlags(1), 0u);
}

TEST_F(SimObjectRequest, RequestsToTheNodeObjectActOnEveryObject) {
    EXPECT_EQ(Request(0, kDisabled), (Bytes{0, 0, 0x20, 0, 0, 0}));
    EXPECT_EQ(node->ObjectFlags(1), kObjDisabled);
    EXPECT_EQ(node->ObjectFlags(2), kObjDisabled);
    EXPECT_EQ(Request(0, kEnable), (Bytes{0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(node->ObjectFlags(2), 0u);
}

TEST_F(SimObjectRequest, ReportMaskUnknownRequestsAndUnknownObjects) {
    // invalid_id, invalid_request, disabled; manual, alarm, override, report_mask, notify.
    EXPECT_EQ(Request(1, kReportMask), (Bytes{0, 1, 0xE0, 0, 0xF2, 0}));
    node->SetObjectSupportedFlags(2, kObjInAlarm | kObjFailSelfTest);
    EXPECT_EQ(Request(2, kReportMask), (Bytes{0, 2, 0x00, 0x04, 0x50, 0}));
    EXPECT_EQ(Request(0, kReportMask), (Bytes{0, 0, 0xE0, 0x04, 0xF2, 0}));

    node->SetObjectFlags(1, kObjInOverride);
    EXPECT_EQ(Request(1, 4), (Bytes{0, 1, 0x40, 0, 0x20, 0}));  // with the object's status
    EXPECT_EQ(Request(1, 15), (Bytes{0, 1, 0x40, 0, 0x20, 0}));
    EXPECT_EQ(Request(3, kUpdate), (Bytes{0, 3, 0x80, 0, 0, 0}));
    EXPECT_EQ(Request(0x0100, kDisabled), (Bytes{1, 0, 0x80, 0, 0, 0}));
    EXPECT_EQ(node->ObjectFlags(1), kObjInOverride);  // nothing acted on

    EXPECT_EQ(
        node->ObjectRequests(),
        (std::vector<ObjectRequest>{{1, 5}, {2, 5}, {0, 5}, {1, 4}, {1, 15}, {3, 2}, {0x100, 1}}));
}

TEST_F(SimObjectRequest, ControlsRefuseUnknownObjectsAndFlagsOfAnswersOnly) {
    EXPECT_COM_ERROR(node->SetObjectFlags(3, kObjInAlarm), kSimErrUnknownName);
    EXPECT_COM_ERROR(node->ObjectFlags(-1), kSimErrUnknownName);
    EXPECT_COM_ERROR(node->SetObjectFlags(1, kObjReportMask), kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(node->SetObjectFlags(1, kObjInvalidId), kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(node->SetObjectSupportedFlags(1, 0x01), kErrInvalidProcedureCall);
    EXPECT_EQ(node->ObjectFlags(1), 0u);
}

}  // namespace
}  // namespace vx::sim
