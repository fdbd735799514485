#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"
#include "interfaces/INodeVariableList.h"

namespace vx {

// The host's network-services connection to one node. The host owns the network and implements
// this; the library only calls it, one call at a time, on the caller's thread. The comments give
// each member's interface place (0 is the first member after the dispatch members); the places in
// between are members the library never calls.
class INodeConnection : public virtual Object {
public:
    // 2: the node's configuration items that are no network variables (INodeVariableAccess).
    virtual NodeVariableListPtr ConfigurationProperties() = 0;
    // 3: the node's network variables (INodeVariable), in the host's index order.
    virtual NodeVariableListPtr NetworkVariables() = 0;
    // 6: 1 application online, 0 application offline; other values are possible.
    virtual std::int32_t Mode() = 0;
    // 8: the 48-bit Neuron ID as 12 hexadecimal digits, no separators.
    virtual std::string NeuronIDText() = 0;
    // 10: the 8-byte program ID as 16 hexadecimal digits.
    virtual std::string ProgramIDText() = 0;
    // 11: the node's self-documentation string.
    virtual std::string SelfDocText() = 0;
    // 12: the node state code of the network-management protocol (2 unconfigured,
    // 3 applicationless, 4 configured, 6 hard offline, others).
    virtual std::int32_t NodeState() = 0;
    // 21: makes the node show itself (a light, a beep).
    virtual void Wink() = 0;
    // 23: sends one network-management request and waits for its response. `code` is the message
    // code as two upper-case hexadecimal digits ("51", "6D", "6E"), `data` the request's data
    // bytes as hexadecimal text and `length` the request's length in bytes, code byte included.
    // On return `data` holds the response's data bytes in the same form. Raises when the request
    // is not answered or fails; returns the exchange's Succeeded flag otherwise.
    virtual bool SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) = 0;
};

using NodeConnectionPtr = std::shared_ptr<INodeConnection>;

}  // namespace vx
