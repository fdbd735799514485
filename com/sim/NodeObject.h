#pragma once

#include <windows.h>

#include <ole2.h>

namespace vx::com {

// A new, empty simulated node (VxSim.Node): one reference, for the caller.
IUnknown* MakeNode();

}  // namespace vx::com
