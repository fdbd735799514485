// Connects to the family's default controller on the simulated network and shows what a service
// tool sees first: identity, state, the LonMark objects and the values of their variables.
#include <cstdio>
#include <memory>

#include "CDevice.h"
#include "DefaultController.h"
#include "SimulatedNode.h"
#include "TypeRegistry.h"
#include "VxDef.h"
#include "automation/ComError.h"
#include "automation/Conversions.h"

int main() {
    vx::UseStandardTypes();
    const vx::VxDef factory;
    const auto revision = factory.CreateDeviceRevision();
    vx::sim::ApplyDefaultRevision(*revision);
    const auto node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());

    const auto device = factory.CreateDeviceManager();
    try {
        device->Connect(node, revision);
    } catch (const vx::ComError& error) {
        std::fprintf(stderr, "connect failed: %s (%s)\n", error.Description().c_str(),
                     error.Source().c_str());
        return 1;
    }

    const auto info = device->Info();
    std::printf("Neuron ID %s, program ID %s, maker %s, revision %s\nstate: %s\n",
                info->NeuronID().c_str(), info->ProgID().c_str(), info->MfgID().c_str(),
                info->Revision().c_str(), info->State(false, false).c_str());
    for (const auto& object : device->NewEnum()) {
        std::printf("\nobject %d (%s)\n", object->ID(), object->ProfileName().c_str());
        for (const auto& variable : object->NewEnum()) {
            std::string value;
            try {
                value = vx::CStr(variable->Value());
            } catch (const vx::ComError& error) {
                value = "(" + error.Description() + ")";
            }
            std::printf("  %-20s category %3d  level %d  %s\n", variable->Name().c_str(),
                        variable->Category(), variable->ConfigLevel(), value.c_str());
        }
    }
    device->Disconnect();
    return 0;
}
