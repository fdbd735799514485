#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// The host's record of one network variable of the node, as the library consumes it. The host
// side (a network-services adapter, the simulated controller) implements it. Members are in their
// interface places (0 is the first member after the dispatch members).
class INodeVariable : public virtual Object {
public:
    // 0: the programmatic name ("nvoStatus").
    virtual std::string Name() const = 0;
    // 1: the host's index of the network variable (0 .. count-1 in the node's list).
    virtual std::int16_t Index() const = 0;
    // 2: the variable's own self-documentation string ("@0|2", "&2,4.1,0,17;text", or "").
    virtual std::string SelfDoc() const = 0;
    // 3: the standard type index of the value; 0 or below when the type is no standard one.
    virtual std::int32_t TypeIndex() const = 0;
    // 4: a second name text of the variable (searched beside Name for well-known variables).
    virtual std::string SelfDocName() const = 0;
    // 5: the length of the value in bytes as the host knows it; 0 when unknown.
    virtual std::int32_t ByteLength() const = 0;
    // 6: the host's direction flag: True for an output of the node.
    virtual bool IsOutput() const = 0;
    // 7: the current raw value read from the node: a Variant holding an array of Byte. Any
    // failure to get it (no answer, failure response) raises.
    virtual Variant ReadValue() = 0;
    // 8: writes the raw value (a Variant holding an array of Byte) to the node; raises on failure.
    virtual void WriteValue(const Variant& bytes) = 0;
};

using NodeVariablePtr = std::shared_ptr<INodeVariable>;

}  // namespace vx
