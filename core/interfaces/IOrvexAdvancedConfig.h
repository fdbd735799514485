#pragma once

#include <memory>
#include <vector>

#include "interfaces/IOrvexVariableIdentity.h"

namespace vx {

// The ordered list of variables that make up one LonMark object's advanced configuration.
class IOrvexAdvancedConfig : public virtual Object {
public:
    // The identities in the order they were added (a snapshot: For Each over the list).
    virtual std::vector<VariableIdentityPtr> NewEnum() const = 0;
};

using AdvancedConfigPtr = std::shared_ptr<IOrvexAdvancedConfig>;

}  // namespace vx
