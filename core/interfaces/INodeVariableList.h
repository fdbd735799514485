#pragma once

#include <cstdint>
#include <memory>
#include <utility>
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

// A list of records made once, for hosts that hand out the same records on every call.
class FixedNodeVariableList final : public INodeVariableList {
public:
    explicit FixedNodeVariableList(std::vector<ObjectPtr> items) : m_items(std::move(items)) {}
    std::int32_t Count() const override { return static_cast<std::int32_t>(m_items.size()); }
    std::vector<ObjectPtr> Items() const override { return m_items; }

private:
    std::vector<ObjectPtr> m_items;
};

}  // namespace vx
