#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "CDeviceObject.h"
#include "CDeviceVariable.h"
#include "automation/Collection.h"
#include "automation/SafeArray.h"
#include "interfaces/IVarEvents.h"

namespace vx {

class CDevice;

// The node-object variables a device needs by role, filled while the variables are bound. Slots
// 0-5 by type index on the node object (object request, object status, alarm, time stamp, file
// request, file position), 6 and 7 the command and command status variables (member group 3,
// members 1 and 2 of the node object), 8 the CRC configuration property (scope 3, member 1).
using WellKnownVariables = std::array<DeviceVariablePtr, 9>;

enum WellKnownSlot : std::size_t {
    kSlotObjectRequest = 0,
    kSlotObjectStatus = 1,
    kSlotAlarm = 2,
    kSlotTimeStamp = 3,
    kSlotFileRequest = 4,
    kSlotFilePosition = 5,
    kSlotCommand = 6,
    kSlotCommandStatus = 7,
    kSlotCrcProperty = 8,
};

// A device's LonMark objects, learned from the node: the node self-documentation gives the
// functional profile of each object index, and every network variable and configuration item
// the host lists becomes a variable bound to the object its own self-documentation names.
// Objects exist only once some variable was bound to them; node-wide items go to object -1.
class CDeviceObjects final {
public:
    CDeviceObjects() = default;
    CDeviceObjects(const CDeviceObjects&) = delete;
    CDeviceObjects& operator=(const CDeviceObjects&) = delete;

    // The object with that index; nullptr when there is none (never raises).
    DeviceObjectPtr Item(std::int32_t index) const;
    // The objects in the order they were created.
    std::vector<DeviceObjectPtr> NewEnum() const;
    std::int32_t Count() const { return m_objects.Count(); }

    // Keeps the device and reads the profile list from its self-documentation. The parse ends
    // quietly at the first entry that is no number; a text without "@" leaves the list unsized,
    // so that the first object made later raises subscript out of range (9).
    void ParseSelfDoc(const std::shared_ptr<CDevice>& device);
    // One variable per network variable of the node, then the waiting properties of network
    // variables are given to the objects those variables went to.
    void BindNetworkVariables(WellKnownVariables& record, const VarEventsPtr& eventSink);
    // One variable per configuration item of the node; ends quietly at the first failure.
    void BindConfigItems(WellKnownVariables& record, const VarEventsPtr& eventSink);
    // Makes and binds the variable of one host record.
    DeviceVariablePtr CreateVariable(const ObjectPtr& hostItem, WellKnownVariables& record,
                                     const VarEventsPtr& eventSink);
    // The object with that index, made (with its listed profile, -1 beyond the list) if absent.
    DeviceObjectPtr ObjectByIndex(std::int32_t index);
    // Teardown: drops the device and releases every object and waiting variable.
    void ReleaseAll();

private:
    std::weak_ptr<CDevice> m_device;
    Collection<DeviceObjectPtr> m_objects;
    std::vector<DeviceVariablePtr> m_pending;
    SafeArray<std::int32_t> m_profiles;
    std::vector<std::int32_t> m_variableToObject;
};

using DeviceObjectsPtr = std::shared_ptr<CDeviceObjects>;

}  // namespace vx
