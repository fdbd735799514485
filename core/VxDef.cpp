#include "VxDef.h"

#include "CDevice.h"
#include "CDeviceRevision.h"

namespace vx {

DevicePtr VxDef::CreateDeviceManager() const {
    return std::make_shared<CDevice>();
}

DeviceRevisionIdentifyPtr VxDef::CreateDeviceRevision() const {
    return std::make_shared<CDeviceRevision>();
}

}  // namespace vx
