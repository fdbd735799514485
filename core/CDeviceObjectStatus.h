#pragma once

#include <cstdint>
#include <memory>

#include "CBuffer.h"
#include "interfaces/IOrvexLonObjectStatus.h"

namespace vx {

// The node object's status value decoded on demand from the status variable's live value buffer:
// nothing is copied, so a later upload of the variable changes what the record reports. Before
// Init every member gives its zero value.
class CDeviceObjectStatus final : public IOrvexLonObjectStatus {
public:
    void Init(BufferPtr buffer) { m_buffer = std::move(buffer); }

    bool InvalidId() override { return Flag(2, 7); }
    bool InvalidRequest() override { return Flag(2, 6); }
    bool Disabled() override { return Flag(2, 5); }
    bool OutOfLimits() override { return Flag(2, 4); }
    bool OpenCircuit() override { return Flag(2, 3); }
    bool OutOfService() override { return Flag(2, 2); }
    bool MechanicalFault() override { return Flag(2, 1); }
    bool FeedbackFailure() override { return Flag(2, 0); }
    bool OverRange() override { return Flag(3, 7); }
    bool UnderRange() override { return Flag(3, 6); }
    bool ElectricalFault() override { return Flag(3, 5); }
    bool UnableToMeasure() override { return Flag(3, 4); }
    bool CommFailure() override { return Flag(3, 3); }
    bool FailSelfTest() override { return Flag(3, 2); }
    bool SelfTestInProgress() override { return Flag(3, 1); }
    bool LockedOut() override { return Flag(3, 0); }
    bool ManualControl() override { return Flag(4, 7); }
    bool InAlarm() override { return Flag(4, 6); }
    bool InOverride() override { return Flag(4, 5); }
    bool ReportMask() override { return Flag(4, 4); }
    bool ProgrammingMode() override { return Flag(4, 3); }
    bool ProgrammingFail() override { return Flag(4, 2); }
    bool AlarmNotifyDisabled() override { return Flag(4, 1); }
    std::int32_t ObjectID() override;

private:
    bool Flag(std::int32_t byteOffset, std::int32_t bitOffset);

    BufferPtr m_buffer;
};

}  // namespace vx
