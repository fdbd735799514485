#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// Names one variable by its name and the index of the LonMark object it lives on.
class IOrvexVariableIdentity : public virtual Object {
public:
    virtual std::string Name() const = 0;
    virtual std::int32_t LonObject() const = 0;
};

using VariableIdentityPtr = std::shared_ptr<IOrvexVariableIdentity>;

}  // namespace vx
