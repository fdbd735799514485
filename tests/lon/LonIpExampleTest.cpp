// The example of docs/lon.md, as a tool developer would write it, run against the default
// controller served on loopback.
#include <gtest/gtest.h>

#include "DefaultController.h"
#include "NodeServer.h"
#include "NodeService.h"
#include "ScriptedPeer.h"

#include <CDevice.h>
#include <LonIpNode.h>
#include <TypeRegistry.h>
#include <VxDef.h>

namespace {

// ---- docs/lon.md, with the node's address as an argument -------------------------------------
int ReadTheNode(const std::string& address, const vx::lon::LonIpOptions& options) {
    vx::UseStandardTypes();  // values decode with the standard types
    vx::VxDef factory;
    auto device = factory.CreateDeviceManager();
    auto node = vx::lon::LonIpNode::Open(*vx::lon::Endpoint::Parse(address), options);
    device->Connect(node, nullptr);  // reads the node's self-identification data
    std::string state = device->Info()->State(false, false);                  // "Configured/Online"
    std::string neuronId = device->Info()->NeuronID();                        // "05-01-3C-7A-1F-02"
    auto temperature = device->Object(1)->Variable("nvoSpaceTemp")->Value();  // NV Fetch
    bool answers = device->Ping();                                            // Query Status
    device->Disconnect();
    return answers && !state.empty() && !neuronId.empty() && !temperature.IsEmpty() ? 0 : 1;
}
// -----------------------------------------------------------------------------------------------

TEST(LonIpExample, ReadsTheDefaultController) {
    const auto previous = vx::CurrentTypeRegistry();
    auto node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());
    vx::vxsim::NodeService service(node);
    vx::vxsim::NodeServer server(service, vx::lon::test::UniqueLoopback());
    server.Start();
    vx::lon::LonIpOptions options;
    options.host.local = vx::lon::test::UniqueLoopback();  // beside the other tests of this run
    EXPECT_EQ(ReadTheNode(server.Where().Text(), options), 0);
    vx::InstallTypeRegistry(previous);
}

}  // namespace
