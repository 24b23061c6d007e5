// What the saturator's two stages and the bands' harmonic stage cost per sample and
// channel at 48 kHz, in steady state (the level window full), beside the reference loop of
// three biquads and a cubic soft clip. The kernels run with the coefficients their modules
// design for the product's default modes; the graph case runs a group's chain (input
// stage, three bands of a stand-in filter and a harmonic stage, output stage) on two
// channels through the real processes, engine included.
//
// Arguments: the block length.

#include "AudioBenchSupport.h"

#include "Audio/Processes/CGlowCoreCoeffs.h"
#include "Audio/Processes/CGlowCoreKernel.h"
#include "Audio/Processes/CSatEBCoeffs.h"
#include "Audio/Processes/CSatEBKernel.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace qel {
extern const CResourceRow kSaturatorBenchDefinitions[];
}

using namespace qel;

namespace {

using bench::Cursor;
using bench::kSignalLength;
using bench::setCounters;
using bench::testSignal;

constexpr double kRate = bench::kBenchRate;

// The product's default saturator mode ("Warm") at the default drive of 6 dB.
CSatEBCoeffs warmCoeffs()
{
    CSatEBCoeffs::CParams p;
    p.drive = std::pow(10.0, 6.0 / 20.0);
    p.biasGain = 0.5417201624;
    p.biasGain2 = 0.0122320712;
    p.makeupGain = 0.9220365519;
    p.makeupCorr = -0.056;
    p.curveGain = 2.3713737057;
    p.curvature = 112201.84375;
    p.shift = 1184.2407227;
    p.constBias = -1e-05;
    p.rmsTimeSec = 0.0346;
    return CSatEBCoeffs::design(p);
}

// A harmonic mode of the product's bank: 0 "Very Hard", 3 "Very Soft" (the default).
CGlowCoreCoeffs glowCoeffs(int mode)
{
    CGlowCoreCoeffs::CParams p;
    if (mode == 0) {
        p.ratioA = 0.672568652;
        p.ratioB = 0.1212041945;
        p.kneeA = 14.4336207394;
        p.kneeB = 10.4854827845;
        p.biasI = -2.7258068862;
        p.biasV = 0.0539082738;
        p.gainI = 0.8206886199;
        p.gainV = 0.6048699936;
        p.feedFreqHz = 1059.4938297216;
        p.makeupGain = 1.3631274186;
    } else {
        p.ratioA = 0.9523809524;
        p.ratioB = 0.6632104827;
        p.kneeA = 12.4472757366;
        p.kneeB = 30.4284070132;
        p.biasI = -3.5567620624;
        p.biasV = 0.9089174157;
        p.gainI = 1.1399503455;
        p.gainV = 0.0;
        p.feedFreqHz = 25.0037234877;
        p.makeupGain = 1.0;
    }
    return CGlowCoreCoeffs::design(p, kRate);
}

// The input stage: its window a ring of 1661 samples (34.6 ms), full before timing starts.
struct InputStage
{
    CSatEBCoeffs coeffs = warmCoeffs();
    std::vector<double> ring = std::vector<double>(4096);
    CSatEBKernel kernel;

    InputStage()
    {
        kernel.start(ring.data(), int32_t(std::lround(0.0346 * kRate)));
        std::vector<double> out(kSignalLength), level(kSignalLength);
        kernel.runInput(coeffs, testSignal().data(), out.data(), level.data(), kSignalLength);
    }
};

using bench::BM_ReferenceEqClip;

void BM_SatEBInputStage(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    InputStage stage;
    std::vector<double> out(static_cast<size_t>(n)), level(static_cast<size_t>(n));
    Cursor cursor;
    for (auto _ : state) {
        stage.kernel.runInput(stage.coeffs, cursor.next(n), out.data(), level.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

void BM_SatEBOutputStage(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    // What the output stage reads: the input stage's signal and level.
    InputStage stage;
    std::vector<double> signalIn(kSignalLength), levelIn(kSignalLength);
    stage.kernel.runInput(stage.coeffs, testSignal().data(), signalIn.data(), levelIn.data(), kSignalLength);
    std::vector<double> out(static_cast<size_t>(n));
    Cursor cursor;
    for (auto _ : state) {
        const int32_t at = cursor.nextAt(n);
        stage.kernel.runOutput(stage.coeffs, signalIn.data() + at, levelIn.data() + at, out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

// Second argument: the harmonic mode (0 "Very Hard", 3 "Very Soft").
void BM_GlowCoreStage(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const CGlowCoreCoeffs coeffs = glowCoeffs(int(state.range(1)));
    CGlowCoreKernel kernel;
    // Port 0 carries the band (here 0.7 of port 1).
    std::vector<double> band(testSignal());
    for (double& v : band)
        v *= 0.7;
    std::vector<double> out(static_cast<size_t>(n));
    Cursor cursor;
    for (auto _ : state) {
        const int32_t at = cursor.nextAt(n);
        kernel.run(CGlowCoreKernel::Kind::Type1, coeffs, band.data() + at, testSignal().data() + at, out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

// ---- a group's chain through the real graph

void BM_GroupChainGraph(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    // Two channels in group 0, each a copy of the signal.
    constexpr int32_t kChannels = 2;
    bench::BenchGraph chain(kSaturatorBenchDefinitions, "BenchSaturatorGraphs.xml", "audio.chain", "plugin.chain", {0, 0}, n);
    Cursor cursor;
    // A second of audio fills every level window.
    for (int32_t done = 0; done < int32_t(kRate); done += n)
        chain.block(cursor.next(n));
    for (auto _ : state) {
        chain.block(cursor.next(n));
        benchmark::DoNotOptimize(chain.output(0));
    }
    setCounters(state, int64_t(n) * kChannels);
}

} // namespace

BENCHMARK(BM_ReferenceEqClip)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_SatEBInputStage)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_SatEBOutputStage)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_GlowCoreStage)->Args({64, 0})->Args({64, 3})->Args({1024, 0})->Args({1024, 3});
BENCHMARK(BM_GroupChainGraph)->Arg(64)->Arg(512);
