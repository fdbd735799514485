#include "CDeviceVariableIdentity.h"

#include <utility>

namespace vx {

void CDeviceVariableIdentity::Init(std::string name, std::int32_t lonObject) {
    m_name = std::move(name);
    m_lonObject = lonObject;
}

}  // namespace vx
