// What a level meter costs per sample and channel at 48 kHz, kernel by kernel, beside a
// reference loop that only smooths the squares of the signal (the least a level meter can
// do). The kernels run in the modules the graph made, called directly with the test
// signal; the frames they make go nowhere, as with no display listening to them. A
// comparing meter reads the same signal on both sides here, which costs what two do.
// The graph case runs the output meter through the engine on two channels.
//
// Arguments: the block length (and for the kernels, which meter).

#include "AudioBenchSupport.h"

#include "Audio/CAudioProcess.h"
#include "Audio/Processes/CModMeter.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>

namespace qel {
extern const CResourceRow kMeterBenchDefinitions[];
}

using namespace qel;

namespace {

using bench::Cursor;
using bench::setCounters;

const char* const kMeters[] = {"plain", "window", "lowest", "diff", "diffBias"};

// One pole over the squares, 0.15 s, as a straight loop.
void BM_ReferenceSmoothedSquare(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const double k = 1.0 - std::exp(-2.0 * std::numbers::pi * 4.9 / bench::kBenchRate);
    double a = 0.0;
    Cursor cursor;
    for (auto _ : state) {
        const double* x = cursor.next(n);
        for (int32_t i = 0; i < n; ++i)
            a += (x[i] * x[i] - a) * k;
        benchmark::DoNotOptimize(a);
    }
    setCounters(state, n);
}

void BM_MeterKernel(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const char* name = kMeters[state.range(1)];
    state.SetLabel(name);
    bench::BenchGraph graph(kMeterBenchDefinitions, "BenchMeterGraphs.xml", "audio.meters", "plugin.meters", {0}, n);
    graph.block(bench::testSignal().data());
    auto& composite = static_cast<CAudioProcess&>(graph.graph());
    auto* meter = dynamic_cast<CModMeter*>(composite.findChild(CString(name)));
    if (!meter || meter->slotCount() != 1) {
        state.SkipWithError("no meter module");
        return;
    }
    auto& module = *static_cast<CModMeterModule*>(meter->currentModule(0));
    Cursor cursor;
    for (auto _ : state) {
        // The module only reads its input.
        module.setInput(0, const_cast<double*>(cursor.next(n)));
        module.setBlockLength(n);
        module.process(n);
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

void BM_OutputMeterGraph(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    bench::BenchGraph graph(kMeterBenchDefinitions, "BenchMeterGraphs.xml", "audio.output", "plugin.output", {0, 0}, n);
    Cursor cursor;
    for (auto _ : state)
        graph.block(cursor.next(n));
    setCounters(state, int64_t(n) * 2);
}

} // namespace

BENCHMARK(BM_ReferenceSmoothedSquare)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_MeterKernel)->ArgsProduct({{64, 256, 1024}, {0, 1, 2, 3, 4}});
BENCHMARK(BM_OutputMeterGraph)->Arg(64)->Arg(256)->Arg(1024);
