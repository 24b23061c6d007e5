// What the saturator's two stages and the bands' harmonic stage cost per sample and
// channel at 48 kHz, in steady state (the level window full), beside the reference loop of
// three biquads and a cubic soft clip. The kernels run with the coefficients their modules
// design for the product's default modes; the graph case runs a group's chain (input
// stage, three bands of a stand-in filter and a harmonic stage, output stage) on two
// channels through the real processes, engine included.
//
// Arguments: the block length.

#include "ReferenceLoops.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CSampleBufferPool.h"
#include "Audio/Processes/CGlowCoreCoeffs.h"
#include "Audio/Processes/CGlowCoreKernel.h"
#include "Audio/Processes/CSatEBCoeffs.h"
#include "Audio/Processes/CSatEBKernel.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

namespace qel {
extern const CResourceRow kSaturatorBenchDefinitions[];
}

using namespace qel;

namespace {

constexpr double kRate = 48000.0;
// One second of signal, run through block after block.
constexpr int32_t kSignalLength = 48000;

// A tone and its third harmonic near full scale, with a little noise: the curve's branches
// all get their turn, as they would with music.
const std::vector<double>& signal()
{
    static const std::vector<double> x = [] {
        std::vector<double> s(kSignalLength);
        std::mt19937 rng(1);
        std::uniform_real_distribution<double> noise(-0.05, 0.05);
        for (int32_t i = 0; i < kSignalLength; ++i) {
            const double t = double(i) / kRate;
            s[size_t(i)] = 0.6 * std::sin(2 * std::numbers::pi * 220.0 * t) + 0.2 * std::sin(2 * std::numbers::pi * 660.0 * t) +
                           noise(rng);
        }
        return s;
    }();
    return x;
}

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

void setCounters(benchmark::State& state, int64_t samplesPerIteration)
{
    state.SetItemsProcessed(state.iterations() * samplesPerIteration);
    // Seconds per sample and channel; shown with an SI prefix ("n" for nanoseconds).
    state.counters["per_sample_ch"] = benchmark::Counter(double(samplesPerIteration),
                                                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Walks through the signal a block at a time.
struct Cursor
{
    int32_t at = 0;
    const double* next(int32_t n)
    {
        if (at + n > kSignalLength)
            at = 0;
        const double* p = signal().data() + at;
        at += n;
        return p;
    }
};

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
        kernel.runInput(coeffs, signal().data(), out.data(), level.data(), kSignalLength);
    }
};

void BM_ReferenceEqClip(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    bench::ReferenceEqClipLoop loop(kRate);
    std::vector<double> out(static_cast<size_t>(n));
    Cursor cursor;
    for (auto _ : state) {
        loop.run(cursor.next(n), out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

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
    stage.kernel.runInput(stage.coeffs, signal().data(), signalIn.data(), levelIn.data(), kSignalLength);
    std::vector<double> out(static_cast<size_t>(n));
    int32_t at = 0;
    for (auto _ : state) {
        if (at + n > kSignalLength)
            at = 0;
        stage.kernel.runOutput(stage.coeffs, signalIn.data() + at, levelIn.data() + at, out.data(), n);
        at += n;
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
    std::vector<double> band(signal());
    for (double& v : band)
        v *= 0.7;
    std::vector<double> out(static_cast<size_t>(n));
    int32_t at = 0;
    for (auto _ : state) {
        if (at + n > kSignalLength)
            at = 0;
        kernel.run(CGlowCoreKernel::Kind::Type1, coeffs, band.data() + at, signal().data() + at, out.data(), n);
        at += n;
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

// ---- a group's chain through the real graph

void check(CErrorPtr error)
{
    if (!error)
        return;
    std::fprintf(stderr, "%s", error->text().toUtf8().c_str());
    std::abort();
}

class BenchChain
{
public:
    static constexpr int32_t kChannels = 2;

    explicit BenchChain(int32_t blockLength) : m_block(blockLength)
    {
        CLog::setFileName(CString());
        check(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kSaturatorBenchDefinitions,
                                    CString("BenchSaturatorGraphs.xml")));
        check(CApplication::initRootObject(m_root, CString()));
        CObject* made = nullptr;
        check(m_root->createChild(made, CString("audio:audio-env"), CString("env"), false));
        m_env = static_cast<CAudioEnv*>(made);
        CAttrMap attrs;
        attrs[CString("env")].setString(CString("env"));
        check(m_root->createChild(made, CString("audio:param-collector"), CString("params"), false, nullptr, &attrs));
        m_env->setParamCollector(static_cast<CAudioParamCollector*>(made));
        m_graph = make("audio.chain", "plugin.chain");
        m_output = make("audio.modOutput", "plugin.modOutput");
        m_graph->attachInput(&m_input, 0);
        m_graph->attachOutput(&m_link);
        m_output->attachInput(&m_link, 0);
        CAudioStream::CChannel records[kChannels];
        for (int32_t c = 0; c < kChannels; ++c)
            records[c] = {c, 0, 0, 0, nullptr};
        m_input.setFormat(kRate, records, kChannels);
        check(m_pool.reserve(m_block * int64_t(sizeof(double)), 64));
    }

    ~BenchChain()
    {
        m_output.reset();
        m_graph.reset();
        m_root.reset();
        CApplication::finalize();
    }

    void block()
    {
        const double* from = m_cursor.next(m_block);
        for (int32_t c = 0; c < kChannels; ++c) {
            CSampleBufferPool::release(m_input.channels[c].buffer);
            double* buffer = m_pool.take(m_block);
            std::copy(from, from + m_block, buffer);
            m_input.channels[c].buffer = buffer;
        }
        m_input.blockLength = m_block;
        m_graph->process();
        m_output->process();
    }

    const double* output(int32_t c) const { return m_output->port(0).channels[c].buffer; }

private:
    std::unique_ptr<CAudioProcessBase> make(const char* defPath, const char* fullName)
    {
        CAudioProcessDefBase* def = nullptr;
        check(CApplication::sharedRoot()->findObjectChecked(def, CString(defPath)));
        CAudioProcessBase* made = nullptr;
        check(def->createProcess(made, nullptr, CString(fullName), m_env, 0, 0, &m_pool, false, false));
        return std::unique_ptr<CAudioProcessBase>(made);
    }

    int32_t m_block;
    Cursor m_cursor;
    CSampleBufferPool m_pool;
    CObjectPtr m_root;
    CAudioEnv* m_env = nullptr;
    CAudioStream m_input;
    CAudioStream m_link;
    std::unique_ptr<CAudioProcessBase> m_graph;
    std::unique_ptr<CAudioProcessBase> m_output;
};

void BM_GroupChainGraph(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    BenchChain chain(n);
    // A second of audio fills every level window.
    for (int32_t done = 0; done < int32_t(kRate); done += n)
        chain.block();
    for (auto _ : state) {
        chain.block();
        benchmark::DoNotOptimize(chain.output(0));
    }
    setCounters(state, int64_t(n) * BenchChain::kChannels);
}

} // namespace

BENCHMARK(BM_ReferenceEqClip)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_SatEBInputStage)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_SatEBOutputStage)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_GlowCoreStage)->Args({64, 0})->Args({64, 3})->Args({1024, 0})->Args({1024, 3});
BENCHMARK(BM_GroupChainGraph)->Arg(64)->Arg(512);
