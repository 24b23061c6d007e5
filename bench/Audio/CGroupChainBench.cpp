// A group's whole chain at 1X, one channel at 48 kHz, through the real graph engine with a
// compiled definition (BenchGroupChain.xml): pre-gain, saturator input stage, three bands
// each a recursive filter and a harmonic stage fed the band's unfiltered input, saturator
// output stage, 1 Hz high-pass. Steady, and while a band's gain is automated (that band's
// biquad morphing all the time, and the pre-gain crossfading to what the equalizer's
// automatic gain makes of it). Beside it, in the same binary, the reference loop of three
// biquads and a cubic soft clip, and the same chain as bare kernel calls, whole (the
// engine's share is the difference) and stage by stage.
//
// Arguments: the block length first; the morphing case says what moves, the stage case
// which stage runs. Read the chain's time per sample and channel ("per_sample_ch") against
// BM_ReferenceEqClip's.

#include "AudioBenchSupport.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioProcess.h"
#include "Audio/CScopedDenormalFlush.h"
#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWKernelSet.h"
#include "Audio/Processes/CGlowCoreKernel.h"
#include "Audio/Processes/CModFilterIIR.h"
#include "Audio/Processes/CModFilterIIRModule.h"
#include "Audio/Processes/CModGlowCoreModule.h"
#include "Audio/Processes/CModGlowCore.h"
#include "Audio/Processes/CModSatEB.h"
#include "Audio/Processes/CModSatEBModule.h"
#include "Audio/Processes/CSatEBKernel.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace qel {
extern const CResourceRow kGroupChainBenchDefinitions[];
}

using namespace qel;

namespace {

using bench::BM_ReferenceEqClip;
using bench::kSignalLength;
using bench::setCounters;
using bench::testSignal;

constexpr double kRate = bench::kBenchRate;
constexpr double kPreGain = 0.7328245331389041;  // -2.7 dB: three bands at +3 dB
constexpr double kBandGain = 1.4125375446227544; // +3 dB
constexpr double kMovedGain = 1.9952623149688795; // +6 dB

// The graph with what the wrapper holds around it, one channel.
class GroupChain
{
public:
    explicit GroupChain(int32_t blockLength)
        : m_block(blockLength),
          m_graph(kGroupChainBenchDefinitions, "BenchGroupChain.xml", "audio.group", "plugin.group", {0}, blockLength)
    {
        m_bandGain = param("plugin.group.b2.modFilter.gain");
        m_preGain = param("plugin.group.modPreGain.gain");
    }

    // The wrapper's block: pending changes reach the audio side, the input goes in, the
    // graph runs.
    void block()
    {
        m_graph.applyChanges();
        m_graph.block(m_cursor.next(m_block));
    }

    // What the host or a UI does when it moves the middle band's gain: the band's gain and,
    // through the equalizer's automatic gain (-0.35 of its decibels), the pre-gain.
    // `what`: 0 both, as the product does; 1 the band alone; 2 the pre-gain alone.
    void moveBand(bool isUp, int64_t what = 0)
    {
        if (what != 2)
            m_bandGain->setValue(isUp ? kMovedGain : kBandGain, 0, nullptr);
        if (what != 1)
            m_preGain->setValue(isUp ? kPreGain * std::pow(10.0, -0.35 * 3.0 / 20.0) : kPreGain, 0, nullptr);
    }

    const double* output() const { return m_graph.output(0); }

    template <class T>
    T* module(const char* band, const char* child) const
    {
        auto* composite = static_cast<CAudioProcess*>(&m_graph.graph());
        CAudioProcessBase* found = composite->findChild(CString(band));
        if (child)
            found = found ? static_cast<CAudioProcess*>(found)->findChild(CString(child)) : nullptr;
        auto* terminal = dynamic_cast<CAudioProcessTerminalBase*>(found);
        if (!terminal || !terminal->currentModule(0)) {
            std::fprintf(stderr, "no process %s.%s\n", band, child ? child : "");
            std::abort();
        }
        return static_cast<T*>(terminal->currentModule(0));
    }

private:
    CAudioParam* param(const char* name)
    {
        CAudioParam* p = m_graph.collector().findParam(CString(name));
        if (!p) {
            std::fprintf(stderr, "no parameter %s\n", name);
            std::abort();
        }
        return p;
    }

    int32_t m_block;
    bench::BenchGraph m_graph;
    bench::Cursor m_cursor;
    CAudioParam* m_bandGain = nullptr;
    CAudioParam* m_preGain = nullptr;
};

void BM_GroupChain(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    CScopedDenormalFlush flush;
    GroupChain chain(n);
    // A second of audio fills the level window and settles every filter.
    for (int32_t done = 0; done < int32_t(kRate); done += n)
        chain.block();
    for (auto _ : state) {
        chain.block();
        benchmark::DoNotOptimize(chain.output());
    }
    setCounters(state, n);
}

// The middle band's gain moves by 3 dB up and down every 10 ms or every block, whichever is
// longer: each change arrives while the last morph runs and waits for it, so that band's
// filter morphs all the time. Writing the parameter is the UI's work and is not timed;
// taking it over and everything it sets off on the audio side is. Pausing the timers has
// a cost of its own that leaks into the time, so the last case pauses as often and moves
// nothing: the difference to it is what the moving costs.
//
// Second argument: 0 the band's gain and the pre-gain moving, as the product moves them; 1
// the band's gain alone; 2 the pre-gain alone; 3 nothing.
void BM_GroupChainMorphing(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const int64_t what = state.range(1);
    CScopedDenormalFlush flush;
    GroupChain chain(n);
    for (int32_t done = 0; done < int32_t(kRate); done += n)
        chain.block();
    const int32_t every = std::max<int32_t>(1, int32_t(0.010 * kRate) / n);
    int64_t count = 0;
    bool isUp = false;
    for (auto _ : state) {
        if (count++ % every == 0) {
            state.PauseTiming();
            isUp = !isUp;
            if (what != 3)
                chain.moveBand(isUp, what);
            state.ResumeTiming();
        }
        chain.block();
        benchmark::DoNotOptimize(chain.output());
    }
    setCounters(state, n);
}

// ---- the same chain as bare kernel calls, whole and stage by stage

// The chain's kernels with the coefficients the graph's modules designed, each stage
// reading and writing arrays of its own over a second of signal: once through them all,
// every stage's input is there for running that stage on its own, on the signal it sees
// in the chain and with its state carried on from block to block.
class KernelChain
{
public:
    enum Stage : int32_t { PreGain, SatIn, Filter1, Glow1, Filter2, Glow2, Filter3, Glow3, SatOut, HighPass, StageCount };
    static constexpr const char* kNames[StageCount] = {"pre-gain", "saturator in", "filter 1", "glowcore 1", "filter 2",
                                                       "glowcore 2", "filter 3", "glowcore 3", "saturator out", "high-pass"};

    KernelChain(const GroupChain& graph, int32_t n) : m_n(n), m_blocks(kSignalLength / n)
    {
        m_sat = graph.module<CModSatEBModule>("modSatEB", nullptr)->coeffs();
        m_satOut = graph.module<CModSatEBModule>("modSatEBOut", nullptr)->coeffs();
        m_ring.assign(65536, 0.0);
        m_satKernel.start(m_ring.data(), int32_t(std::lround(0.0346 * kRate)));
        const char* bands[3] = {"b1", "b2", "b3"};
        for (int b = 0; b < 3; ++b) {
            m_bands[b] = graph.module<CModFilterIIRModule>(bands[b], "modFilter")->stage(0);
            m_bands[b].kernels->init(m_bandStates[b], m_bands[b], kRate);
            m_glow[b] = graph.module<CModGlowCoreModule>(bands[b], "modGlowCore")->coeffs();
        }
        m_hp = graph.module<CModFilterIIRModule>("modFilterHP1", nullptr)->stage(0);
        m_hp.kernels->init(m_hpState, m_hp, kRate);
        const auto length = size_t(m_blocks) * size_t(n);
        for (auto& a : m_data)
            a.assign(length, 0.0);
        m_level.assign(length, 0.0);
        std::copy(testSignal().begin(), testSignal().begin() + std::ptrdiff_t(length), m_data[0].begin());
        // Two passes: the level window fills and the filters settle, and every stage's
        // input is in place.
        for (int pass = 0; pass < 2; ++pass)
            for (int32_t b = 0; b < m_blocks; ++b)
                block(b);
    }

    void block(int32_t b)
    {
        for (int32_t s = 0; s < StageCount; ++s)
            stage(s, b);
    }

    // Stage s on block b: from array s into array s + 1.
    void stage(int32_t s, int32_t b)
    {
        const int32_t n = m_n;
        const size_t at = size_t(b) * size_t(n);
        const double* in = m_data[s].data() + at;
        double* out = m_data[s + 1].data() + at;
        double* level = m_level.data() + at;
        switch (s) {
        case PreGain:
            for (int32_t i = 0; i < n; ++i)
                out[i] = in[i] * kPreGain;
            break;
        case SatIn:
            m_satKernel.runInput(m_sat, in, out, level, n);
            break;
        case Filter1:
        case Filter2:
        case Filter3: {
            const int band = (s - Filter1) / 2;
            m_bands[band].kernels->process(m_bandStates[band], in, out, n);
            break;
        }
        case Glow1:
        case Glow2:
        case Glow3: {
            // The feed is the band's unfiltered input: the filter's input.
            const int band = (s - Glow1) / 2;
            m_glowKernels[band].run(CGlowCoreKernel::Kind::Type1, m_glow[band], in, m_data[s - 1].data() + at, out, n);
            break;
        }
        case SatOut:
            m_satKernel.runOutput(m_satOut, in, level, out, n);
            break;
        case HighPass:
            m_hp.kernels->process(m_hpState, in, out, n);
            break;
        default:
            break;
        }
    }

    int32_t blocks() const { return m_blocks; }
    const double* output(int32_t b) const { return m_data[StageCount].data() + size_t(b) * size_t(m_n); }

private:
    int32_t m_n;
    int32_t m_blocks;
    CSatEBCoeffs m_sat, m_satOut;
    std::vector<double> m_ring;
    CSatEBKernel m_satKernel;
    CAudioFilterStage m_bands[3];
    CDCDAWStageState m_bandStates[3];
    CGlowCoreCoeffs m_glow[3];
    CGlowCoreKernel m_glowKernels[3];
    CAudioFilterStage m_hp;
    CDCDAWStageState m_hpState;
    std::vector<double> m_data[StageCount + 1];
    std::vector<double> m_level;
};

// The whole chain as kernel calls, block after block: the graph's time less this is what
// the engine costs.
void BM_GroupChainKernels(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    CScopedDenormalFlush flush;
    GroupChain graph(n);
    // The modules exist, and have designed their coefficients, once the graph has run.
    graph.block();
    KernelChain chain(graph, n);
    int32_t b = 0;
    for (auto _ : state) {
        chain.block(b);
        benchmark::DoNotOptimize(chain.output(b));
        b = b + 1 == chain.blocks() ? 0 : b + 1;
    }
    setCounters(state, n);
}

// One stage of the chain on its own, on the signal it sees in the chain. Second argument:
// the stage (KernelChain::Stage).
void BM_GroupChainStage(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const auto s = int32_t(state.range(1));
    CScopedDenormalFlush flush;
    GroupChain graph(n);
    graph.block();
    KernelChain chain(graph, n);
    state.SetLabel(KernelChain::kNames[s]);
    int32_t b = 0;
    for (auto _ : state) {
        chain.stage(s, b);
        benchmark::ClobberMemory();
        b = b + 1 == chain.blocks() ? 0 : b + 1;
    }
    setCounters(state, n);
}

} // namespace

BENCHMARK(BM_ReferenceEqClip)->Arg(64)->Arg(512);
BENCHMARK(BM_GroupChain)->Arg(64)->Arg(512);
BENCHMARK(BM_GroupChainMorphing)->ArgsProduct({{64, 512}, {0, 1, 2, 3}});
BENCHMARK(BM_GroupChainKernels)->Arg(64)->Arg(512);
BENCHMARK(BM_GroupChainStage)->ArgsProduct({{512}, benchmark::CreateDenseRange(0, KernelChain::StageCount - 1, 1)});
