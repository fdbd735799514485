#pragma once

#include <memory>

#include "automation/Variant.h"

namespace vx {

class IOrvexVariable;

// How a variable tells its sink (the device) that its value was modified.
class IVarEvents : public virtual Object {
public:
    virtual void Modified(const std::shared_ptr<IOrvexVariable>& variable) = 0;
};

using VarEventsPtr = std::shared_ptr<IVarEvents>;

}  // namespace vx
