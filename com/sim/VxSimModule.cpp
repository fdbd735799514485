// VxSim.dll: its registration and its one creatable class, Node.
#include <windows.h>

#include <ole2.h>

#include "Module.h"
#include "NodeObject.h"
#include "Server.h"
#include "VxSim.h"

namespace vx::com {

// The node's type library refers to Vx.dll's, so Vx.dll is registered first.
const ServerDescription& ModuleServer() {
    static const ServerDescription server{
        CLSID_Node, L"VxSim.Node", L"VxSim: a simulated Orvex controller", LIBID_VxSim, 1, 0,
    };
    return server;
}

IUnknown* MakeModuleInstance() {
    return MakeNode();
}

}  // namespace vx::com
