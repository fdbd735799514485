// One `vxctl objects --values` of the family's default controller: over LON/IP against the node
// served on loopback (as vxsim serves it), beside the same with the controller in process. The
// datagrams a run sends are what a real channel would carry, at about 10 ms each.
#include <benchmark/benchmark.h>

#include <unistd.h>
#include <filesystem>

#include "ConfigCommands.h"
#include "ConfigFile.h"
#include "DefaultController.h"
#include "LonIpNode.h"
#include "NodeServer.h"
#include "NodeService.h"
#include "Operations.h"
#include "Session.h"
#include "SimulatedNode.h"
#include "TypeRegistry.h"

namespace {

using vx::lon::Endpoint;

// Loopback addresses of this benchmark's own, away from the tests' (127.100 and up).
const Endpoint kNodeAddress{{127, 77, 1, 2}, vx::lon::kLonIpPort};
constexpr const char* kHostAddress = "127.77.1.1";

void RunObjectsWithValues(benchmark::State& state, const vx::vxctl::DeviceChoice& choice) {
    static const auto types = vx::UseStandardTypes();
    vx::vxctl::Progress quiet(nullptr);
    std::uint64_t sent = 0;
    for (auto _ : state) {
        vx::vxctl::Session session(choice, quiet);
        benchmark::DoNotOptimize(vx::vxctl::Objects(session, true).text.size());
        if (const auto node =
                std::dynamic_pointer_cast<vx::lon::LonIpNode>(session.HostConnection())) {
            sent += node->Stats().sent;
        }
    }
    state.counters["datagrams_sent"] =
        static_cast<double>(sent) / static_cast<double>(state.iterations());
}

void BM_ObjectsWithValues_LonIp(benchmark::State& state) {
    auto node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());
    node->SetRecording(false);
    vx::vxsim::NodeService service(node);
    vx::vxsim::NodeServer server(service, kNodeAddress);
    server.Start();
    vx::vxctl::DeviceChoice choice;
    choice.device = "lonip://" + kNodeAddress.Text(false);
    choice.network.local = kHostAddress;
    RunObjectsWithValues(state, choice);
}
BENCHMARK(BM_ObjectsWithValues_LonIp)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ObjectsWithValues_InProcess(benchmark::State& state) {
    RunObjectsWithValues(state, vx::vxctl::DeviceChoice{});
}
BENCHMARK(BM_ObjectsWithValues_InProcess)->Unit(benchmark::kMillisecond)->UseRealTime();

// A restore of a saved file of N keys onto the default controller, whose 16 values it holds as they
// are; the rest are keys the controller does not have (skipped). The time is the file's reading
// and its matching to the device, which must grow linearly with N.
void BM_RestoreLargeFile(benchmark::State& state) {
    static const auto types = vx::UseStandardTypes();
    vx::vxctl::Progress quiet(nullptr);
    const auto path = std::filesystem::temp_directory_path() /
                      ("vxctl-bench-restore-" + std::to_string(getpid()) + ".json");
    const auto node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());
    node->SetRecording(false);
    vx::vxctl::Session session({node, "default", "simulated controller", node->ProgramIDText()}, {},
                               quiet);
    vx::vxctl::ConfigSave(session, path.string());
    auto saved = vx::vxctl::ReadConfigurationFile(path.string());
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        saved.values.push_back({"nciExtra" + std::to_string(i) + ".1", {0x01, 0x02}});
    }
    vx::vxctl::WriteConfigurationFile(path.string(), saved);
    for (auto _ : state) {
        const auto outcome =
            vx::vxctl::ConfigRestore(session, path.string(), {.skipUnknown = true});
        benchmark::DoNotOptimize(outcome.json.size());
    }
    state.SetComplexityN(state.range(0));
    std::filesystem::remove(path);
}
BENCHMARK(BM_RestoreLargeFile)
    ->Arg(25000)
    ->Arg(50000)
    ->Arg(100000)
    ->Arg(200000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
