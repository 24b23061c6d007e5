// What the graph itself costs per block: a chain of twelve unity gains at 48 kHz, blocks
// of 512 samples on 8 channels. Each gain passes its buffers on by reference, so what is
// measured is the engine (pulls, tables, references, hand-over), not any arithmetic. The
// reference copies the 8 channels once, as the wrapper's conversion of the host's block
// does; the engine's overhead reads best as a fraction of that copy.

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CSampleBufferPool.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace qel {
extern const CResourceRow kProcessBenchDefinitions[];
}

using namespace qel;

namespace {

constexpr int32_t kBlock = 512;
constexpr int32_t kChannels = 8;
constexpr double kRate = 48000.0;

void check(CErrorPtr error)
{
    if (!error)
        return;
    std::fprintf(stderr, "%s", error->text().toUtf8().c_str());
    std::abort();
}

// The application, an instance tree with its collector, and the graph wired as the
// wrapper wires it: one input stream in, modOutput behind.
class BenchGraph
{
public:
    BenchGraph()
    {
        CLog::setFileName(CString());
        check(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kProcessBenchDefinitions,
                                    CString("BenchProcessGraphs.xml")));
        check(CApplication::initRootObject(m_root, CString()));
        CObject* made = nullptr;
        check(m_root->createChild(made, CString("audio:audio-env"), CString("env"), false));
        m_env = static_cast<CAudioEnv*>(made);
        CAttrMap attrs;
        attrs[CString("env")].setString(CString("env"));
        check(m_root->createChild(made, CString("audio:param-collector"), CString("params"), false, nullptr, &attrs));
        m_env->setParamCollector(static_cast<CAudioParamCollector*>(made));
        m_graph = make("audio.unity", "plugin.unity");
        m_output = make("audio.modOutput", "plugin.modOutput");
        m_graph->attachInput(&m_input, 0);
        m_graph->attachOutput(&m_link);
        m_output->attachInput(&m_link, 0);
        CAudioStream::CChannel records[kChannels];
        for (int32_t c = 0; c < kChannels; ++c)
            records[c] = {c, c / 2, 0, 0, nullptr};
        m_input.setFormat(kRate, records, kChannels);
        check(m_pool.reserve(kBlock * int64_t(sizeof(double)), 64));
    }

    ~BenchGraph()
    {
        m_output.reset();
        m_graph.reset();
        m_root.reset();
        CApplication::finalize();
    }

    // The host's samples would be copied into these buffers; the gains never read them.
    void block()
    {
        for (int32_t c = 0; c < kChannels; ++c) {
            CSampleBufferPool::release(m_input.channels[c].buffer);
            m_input.channels[c].buffer = m_pool.take(kBlock);
        }
        m_input.blockLength = kBlock;
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

    CSampleBufferPool m_pool;
    CObjectPtr m_root;
    CAudioEnv* m_env = nullptr;
    CAudioStream m_input;
    CAudioStream m_link;
    std::unique_ptr<CAudioProcessBase> m_graph;
    std::unique_ptr<CAudioProcessBase> m_output;
};

void setCounters(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * kBlock * kChannels);
    // Seconds per sample and channel; shown with an SI prefix ("n" for nanoseconds).
    state.counters["per_sample_ch"] =
        benchmark::Counter(double(kBlock * kChannels), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_CopyEightChannels(benchmark::State& state)
{
    std::vector<double> src(size_t(kBlock) * kChannels, 0.25);
    std::vector<double> dst(src.size());
    for (auto _ : state) {
        for (int32_t c = 0; c < kChannels; ++c) {
            const double* from = src.data() + size_t(c) * kBlock;
            double* to = dst.data() + size_t(c) * kBlock;
            benchmark::DoNotOptimize(from);
            benchmark::DoNotOptimize(to);
            std::memcpy(to, from, kBlock * sizeof(double));
        }
        benchmark::ClobberMemory();
    }
    setCounters(state);
}

void BM_TwelveUnityGains(benchmark::State& state)
{
    BenchGraph graph;
    for (int i = 0; i < 4; ++i)
        graph.block();
    for (auto _ : state) {
        graph.block();
        benchmark::DoNotOptimize(graph.output(0));
    }
    setCounters(state);
}

} // namespace

BENCHMARK(BM_CopyEightChannels);
BENCHMARK(BM_TwelveUnityGains);
