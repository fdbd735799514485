// Connecting to the family's default controller over LON/IP on loopback and reading every value,
// beside the same with the controller in process. On a real channel every exchange costs about
// 10 ms, so the counters that matter are the exchanges: one per value read, the
// self-identification data in as few slices as the node allows, nothing asked twice in a connect.
// Wall time throughout: an exchange is mostly waiting for the other end.
#include <benchmark/benchmark.h>

#include <memory>

#include "CDevice.h"
#include "DefaultController.h"
#include "LonIpNode.h"
#include "NodeServer.h"
#include "NodeService.h"
#include "SimulatedNode.h"
#include "TypeRegistry.h"
#include "VxDef.h"

namespace {

using vx::lon::Endpoint;

// Loopback addresses of this benchmark's own, away from the tests' (127.100 and up).
const Endpoint kNodeAddress{{127, 77, 0, 2}, vx::lon::kLonIpPort};
const Endpoint kHostAddress{{127, 77, 0, 1}, vx::lon::kLonIpPort};

std::vector<vx::lon::ConfigItemLayout> ItemsInMemory(const vx::sim::NodeDescription& description) {
    std::vector<vx::lon::ConfigItemLayout> items;
    for (const auto& item : description.configItems) {
        if (item.address < 0) continue;
        items.push_back({item.name, item.layout, static_cast<std::uint16_t>(item.address),
                         static_cast<std::uint8_t>(item.value.size())});
    }
    return items;
}

// The default controller served on loopback for the length of a benchmark.
struct ServedController {
    vx::sim::SimulatedNodePtr node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());
    vx::vxsim::NodeService service{node};
    vx::vxsim::NodeServer server{service, kNodeAddress};
    ServedController() {
        node->SetRecording(false);
        server.Start();
    }
};

vx::lon::LonIpNodePtr OpenNode() {
    vx::lon::LonIpOptions options;
    options.host.local = kHostAddress;
    options.configItems = ItemsInMemory(vx::sim::DefaultController());
    return vx::lon::LonIpNode::Open(kNodeAddress, options);
}

vx::DeviceRevisionIdentifyPtr DefaultRevision() {
    auto revision = vx::VxDef().CreateDeviceRevision();
    vx::sim::ApplyDefaultRevision(*revision);
    return revision;
}

std::size_t ReadEveryValue(vx::CDevice& device) {
    std::size_t values = 0;
    for (const auto& object : device.Objects().NewEnum()) {
        for (const auto& variable : object->Variables()) {
            variable->Upload();
            ++values;
        }
    }
    return values;
}

void BM_ConnectAndReadEveryValue_LonIp(benchmark::State& state) {
    static const auto types = vx::UseStandardTypes();
    ServedController served;
    const auto revision = DefaultRevision();
    std::uint64_t connectExchanges = 0;
    std::uint64_t readExchanges = 0;
    std::uint64_t sent = 0;
    std::size_t values = 0;
    for (auto _ : state) {
        const auto node = OpenNode();
        const auto device = std::make_shared<vx::CDevice>();
        device->Connect(node, revision);
        connectExchanges += node->Stats().exchanges;
        const auto afterConnect = node->Stats().exchanges;
        values = ReadEveryValue(*device);
        readExchanges += node->Stats().exchanges - afterConnect;
        sent += node->Stats().sent;
        device->Disconnect();
    }
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["exchanges_per_connect"] = static_cast<double>(connectExchanges) / iterations;
    state.counters["exchanges_per_value"] =
        static_cast<double>(readExchanges) / iterations / static_cast<double>(values);
    state.counters["datagrams_sent"] = static_cast<double>(sent) / iterations;
    state.counters["time_per_exchange"] =
        benchmark::Counter(static_cast<double>(connectExchanges + readExchanges),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ConnectAndReadEveryValue_LonIp)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ConnectAndReadEveryValue_InProcess(benchmark::State& state) {
    static const auto types = vx::UseStandardTypes();
    const auto revision = DefaultRevision();
    for (auto _ : state) {
        const auto node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());
        node->SetRecording(false);
        const auto device = std::make_shared<vx::CDevice>();
        device->Connect(node, revision);
        benchmark::DoNotOptimize(ReadEveryValue(*device));
        device->Disconnect();
    }
}
BENCHMARK(BM_ConnectAndReadEveryValue_InProcess)->Unit(benchmark::kMillisecond)->UseRealTime();

// One Query Status round trip: the cost of an exchange on loopback.
void BM_QueryStatus_LonIp(benchmark::State& state) {
    ServedController served;
    const auto node = OpenNode();
    for (auto _ : state) {
        benchmark::DoNotOptimize(node->Client().QueryStatus());
    }
}
BENCHMARK(BM_QueryStatus_LonIp)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
