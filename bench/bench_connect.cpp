// Connecting a device to synthetic controllers of growing size: the whole connect (self-
// documentation, binding every network variable and configuration item, well-known variables,
// revision) should grow linearly with the number of variables. The per-variable time is reported
// as a counter so that sizes compare directly.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "CDevice.h"
#include "CDeviceRevision.h"
#include "DefaultController.h"
#include "SimulatedNode.h"
#include "TypeRegistry.h"

namespace {

void BM_Connect(benchmark::State& state) {
    static const auto types = vx::UseStandardTypes();
    const auto count = static_cast<std::int32_t>(state.range(0));
    const auto node = vx::sim::SimulatedNode::Create(vx::sim::SyntheticController(count, count));
    // Names for every item, so that they bind to their objects as a real revision makes them.
    const auto revision = std::make_shared<vx::CDeviceRevision>();
    vx::VariantArray names = vx::VariantArray::WithBounds(0, 2 * count - 1);
    for (std::int32_t i = 0; i < count; ++i) {
        names(2 * i) = vx::Variant(i + 1);
        names(2 * i + 1) = vx::Variant("nciItem" + std::to_string(i + 1));
    }
    revision->IdentifyFileType2Config(0, vx::Variant(names));
    const auto device = std::make_shared<vx::CDevice>();
    for (auto _ : state) {
        device->Connect(node, revision);
        benchmark::DoNotOptimize(device->NewEnum().size());
    }
    state.counters["per_variable"] = benchmark::Counter(
        static_cast<double>(count) * 2,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Connect)->Arg(62)->Arg(254)->Arg(4096)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
