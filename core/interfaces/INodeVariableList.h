#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "automation/Variant.h"

namespace vx {

// One of the host's collections of a node's items: the network variables (each item an
// INodeVariable) or the other configuration items (each an INodeVariableAccess).
class INodeVariableList : public virtual Object {
public:
    // 0: the number of items.
    virtual std::int32_t Count() const = 0;
    // For Each over the list: the items in the host's order.
    virtual std::vector<ObjectPtr> Items() const = 0;
};

using NodeVariableListPtr = std::shared_ptr<INodeVariableList>;

}  // namespace vx
