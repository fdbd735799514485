#pragma once

#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// The host's record of one of the node's configuration items that are no network variables (the
// items of the connection's ConfigurationProperties). The host side implements it. The comments
// give each member's interface place (0 is the first member after the dispatch members); places
// 1, 3 and 4 are not used by the library.
class INodeVariableAccess : public virtual Object {
public:
    // 0: where the item belongs and what type it has, as "|"-separated fields:
    //    object index | standard type index | type name [| free text]
    // The object index is the LonMark object (-1 node-wide); the type index is 0 and the type
    // name "" when the item has no such type. "" when the host knows nothing of the item.
    virtual std::string Layout() const = 0;
    // 2: the item's name: its kind and index as decimal numbers joined by "-" ("3-1").
    virtual std::string Name() const = 0;
    // 5: the current raw value read from the node: a Variant holding an array of Byte; raises on
    // failure.
    virtual Variant ReadValue() = 0;
    // 6: writes the raw value (a Variant holding an array of Byte) to the item on the host. The
    // argument is by reference as the host's member declares it; the library does not read it
    // back.
    virtual void WriteValue(Variant& bytes) = 0;
};

using NodeVariableAccessPtr = std::shared_ptr<INodeVariableAccess>;

}  // namespace vx
