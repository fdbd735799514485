#pragma once

#include <memory>

#include "automation/Variant.h"
#include "interfaces/INodeConnection.h"

namespace vx {

// The host's process-wide test of whether a node answers, consulted first by the device state.
class CommunicationCheck : public virtual Object {
public:
    // 3: whether the node behind the connection answers. Never raises.
    virtual bool IsCommunicating(const NodeConnectionPtr& connection) = 0;
};

using CommunicationCheckPtr = std::shared_ptr<CommunicationCheck>;

// Sends Query Status to the node: the exchange's Succeeded flag, or false when it raises.
bool QueryStatus(INodeConnection& connection);

// The process-wide check. Until one is installed it is the default, which asks the node with a
// Query Status request: a node answers when the request returns Succeeded.
CommunicationCheckPtr CurrentCommunicationCheck();
// Installs `check` (nullptr restores the default); returns the one installed before.
CommunicationCheckPtr InstallCommunicationCheck(CommunicationCheckPtr check);

}  // namespace vx
