#pragma once

#include <cstdint>
#include <string>

#include "interfaces/IOrvexVariableIdentity.h"

namespace vx {

// A variable named by its name and the LonMark object it lives on.
class CDeviceVariableIdentity final : public IOrvexVariableIdentity {
public:
    std::string Name() const override { return m_name; }
    std::int32_t LonObject() const override { return m_lonObject; }

    // Library-internal: sets both at once.
    void Init(std::string name, std::int32_t lonObject);

private:
    std::string m_name;
    std::int32_t m_lonObject = 0;
};

}  // namespace vx
