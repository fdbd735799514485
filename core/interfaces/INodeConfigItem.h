#pragma once

#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// The host's record of one of the node's configuration items that are no network variables (the
// items of the connection's configuration-property collection). The host side implements it.
// Members are in their interface places (0 is the first member after the dispatch members).
class INodeConfigItem : public virtual Object {
public:
    // 0: the item's name: its kind and index as decimal numbers joined by "-" ("3-1").
    virtual std::string Name() const = 0;
    // 1: where the item belongs and what type it has, as "|"-separated fields:
    //    object index | standard type index | type name [| free text]
    // The object index is the LonMark object (-1 node-wide); the type index is 0 and the type
    // name "" when the item has no such type. "" when the host knows nothing of the item.
    virtual std::string Layout() const = 0;
    // 2: the current raw value read from the node: a Variant holding an array of Byte; raises on
    // failure.
    virtual Variant ReadValue() = 0;
    // 3: writes the raw value (a Variant holding an array of Byte) to the item on the host. The
    // argument is by reference as the host's member declares it; the library does not read it
    // back.
    virtual void WriteValue(Variant& bytes) = 0;
};

using NodeConfigItemPtr = std::shared_ptr<INodeConfigItem>;

}  // namespace vx
