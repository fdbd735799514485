#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "automation/Variant.h"
#include "interfaces/IOrvexVariable.h"

namespace vx {

// One LonMark object (functional block) of a node. Members in interface order.
class IOrvexLonObject : public virtual Object {
public:
    // The object's index in the node's list: 0 the node object, -1 the node-wide items.
    virtual std::int32_t ID() const = 0;
    // The profile code derived from the functional-profile number; 0 for an unlisted number.
    virtual std::int32_t Profile() const = 0;
    // The display label of the profile code; "" for code 0.
    virtual std::string ProfileName() const = 0;
    // The variable of that name (without regard to case). While the device is connected an
    // unknown name raises the variable-not-found error (513); while it is not, an unknown name
    // gives a new variable that stays in the object.
    virtual VariablePtr Variable(std::string_view variableName) = 0;
    virtual std::int32_t VariableCount() const = 0;
    // The variables in the order they were added (a snapshot: For Each over the object).
    virtual std::vector<VariablePtr> NewEnum() const = 0;
};

using LonObjectPtr = std::shared_ptr<IOrvexLonObject>;

}  // namespace vx
