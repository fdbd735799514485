#pragma once

#include "interfaces/IOrvexDevice.h"
#include "interfaces/IOrvexDeviceRevisionIdentify.h"

namespace vx {

// The library's entry point: a host makes its devices and its revision registry here.
class VxDef final {
public:
    // A new, unconnected device.
    DevicePtr CreateDeviceManager() const;
    // A new, empty revision registry, to be filled by the host and given to Connect.
    DeviceRevisionIdentifyPtr CreateDeviceRevision() const;
};

}  // namespace vx
