#include "Connections.h"

#include <fmt/format.h>

#include "DefaultController.h"
#include "LonErrors.h"
#include "NodeJson.h"
#include "SimulatedNode.h"
#include "ToolErrors.h"
#include "automation/Collection.h"

namespace vx::vxctl {
namespace {

constexpr const char* kSimulatedKind = "simulated controller";
constexpr const char* kNetworkKind = "LON/IP node";

// The items of `description` a network node keeps in memory; those without an address are not
// reachable over the network and are left out.
std::vector<lon::ConfigItemLayout> ItemsInMemory(const sim::NodeDescription& description) {
    std::vector<lon::ConfigItemLayout> items;
    for (const auto& item : description.configItems) {
        if (item.address < 0) continue;
        items.push_back({item.name, item.layout, static_cast<std::uint16_t>(item.address),
                         static_cast<std::uint8_t>(item.value.size())});
    }
    return items;
}

Connection OpenNetworkNode(const DeviceChoice& choice) {
    const lon::LonIpUrl url = ParseDeviceAddress(choice.device);
    lon::LonIpOptions options;
    options.host = HostOptionsFor(choice.network, lon::Timing{});
    options.neuronId = url.neuronId;

    // The node's program ID decides the layout when none is given; the device lists the items
    // only when it connects.
    auto node = lon::LonIpNode::Open(url.endpoint, options);
    Connection connection{node, choice.device, kNetworkKind, node->ProgramIDText()};
    if (!choice.layout.empty()) {
        node->SetConfigItems(ItemsInMemory(sim::LoadNode(choice.layout)));
    } else if (IsDefaultControllersProgramId(connection.programId)) {
        node->SetConfigItems(ItemsInMemory(sim::DefaultController()));
    }
    return connection;
}

}  // namespace

bool IsDefaultControllersProgramId(std::string_view programId) {
    return FoldKey(programId) == FoldKey(sim::DefaultController().programId);
}

bool IsLonIpAddress(std::string_view device) {
    // "lonip:" without the slashes is still meant as an address, and gets the address's hint.
    return FoldKey(device.substr(0, kLonIpScheme.size() - 2)) == "lonip:";
}

lon::LonIpUrl ParseDeviceAddress(std::string_view device) {
    try {
        return lon::ParseLonIpUrl(device);
    } catch (const ComError& error) {
        throw UsageError(error.Description());
    }
}

lon::HostOptions HostOptionsFor(const NetworkChoice& network, const lon::Timing& defaults) {
    lon::HostOptions options;
    options.timing.transmitTimer = network.timeout.value_or(defaults.transmitTimer);
    options.timing.retries = network.retries.value_or(defaults.retries);
    if (!network.local.empty()) {
        options.local = lon::Endpoint::Parse(network.local);
        if (!options.local) {
            throw UsageError(fmt::format(
                "--local {}: the host's address is an IPv4 address with an optional port, for "
                "example 127.0.0.1 or 127.0.0.1:2541",
                network.local));
        }
    }
    return options;
}

Connection OpenConnection(const DeviceChoice& choice) {
    if (IsLonIpAddress(choice.device)) return OpenNetworkNode(choice);
    auto node = sim::SimulatedNode::Create(
        choice.device == kDefaultDevice ? sim::DefaultController() : sim::LoadNode(choice.device));
    std::string programId = node->ProgramIDText();
    return {std::move(node), choice.device, kSimulatedKind, std::move(programId)};
}

}  // namespace vx::vxctl
