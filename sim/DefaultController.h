#pragma once

#include <cstdint>
#include <string_view>

#include "NodeDescription.h"
#include "RevisionJson.h"
#include "interfaces/IOrvexDeviceRevisionIdentify.h"

namespace vx::sim {

// The family's default controller, built into the simulator so that programs need no files: an
// Orvex VX-220 room and VAV controller (sim/data/orvex-vx220.json) and the description of its
// firmware revision (sim/data/orvex-vx220.revision.json).
NodeDescription DefaultController();
RevisionDescription DefaultRevision();
// Registers the default controller's revision with the host's registry.
void ApplyDefaultRevision(IOrvexDeviceRevisionIdentify& registry);

// The two files as they are built in.
std::string_view DefaultControllerJson();
std::string_view DefaultRevisionJson();

// A controller of the family with `networkVariables` network variables (the node object's
// nviRequest and nvoStatus, then functional blocks of 16 variables of mixed standard types, the
// last block possibly shorter) and `configItems` configuration items "0-1".."0-n" spread over the
// blocks, for measuring. The same arguments always give the same node. Raises invalid procedure
// call (5) for fewer than 2 network variables, more than 32767, or a negative or too large item
// count.
NodeDescription SyntheticController(std::int32_t networkVariables, std::int32_t configItems);

}  // namespace vx::sim
