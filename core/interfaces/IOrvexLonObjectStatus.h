#pragma once

#include <cstdint>
#include <memory>

#include "automation/Variant.h"

namespace vx {

// A LonMark object-status value seen as flags and the object's ID. Members in interface order.
// Each reads the status value as it is at the moment of the call.
class IOrvexLonObjectStatus : public virtual Object {
public:
    virtual bool InvalidId() = 0;
    virtual bool InvalidRequest() = 0;
    virtual bool Disabled() = 0;
    virtual bool OutOfLimits() = 0;
    virtual bool OpenCircuit() = 0;
    virtual bool OutOfService() = 0;
    virtual bool MechanicalFault() = 0;
    virtual bool FeedbackFailure() = 0;
    virtual bool OverRange() = 0;
    virtual bool UnderRange() = 0;
    virtual bool ElectricalFault() = 0;
    virtual bool UnableToMeasure() = 0;
    virtual bool CommFailure() = 0;
    virtual bool FailSelfTest() = 0;
    virtual bool SelfTestInProgress() = 0;
    virtual bool LockedOut() = 0;
    virtual bool ManualControl() = 0;
    virtual bool InAlarm() = 0;
    virtual bool InOverride() = 0;
    virtual bool ReportMask() = 0;
    virtual bool ProgrammingMode() = 0;
    virtual bool ProgrammingFail() = 0;
    virtual bool AlarmNotifyDisabled() = 0;
    // The object the status is about: 0 to 65535.
    virtual std::int32_t ObjectID() = 0;
};

using LonObjectStatusPtr = std::shared_ptr<IOrvexLonObjectStatus>;

}  // namespace vx
