#pragma once

// What the audio benchmarks share: a graph of a compiled definition set up as the wrapper
// sets it up, the signal the DSP cases run on, the per-sample counters, and the reference
// loop's case.

#include "ReferenceLoops.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CSampleBufferPool.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

namespace qel::bench {

constexpr double kBenchRate = 48000.0;

// A set-up that fails leaves nothing to time.
inline void check(CErrorPtr error)
{
    if (!error)
        return;
    std::fprintf(stderr, "%s", error->text().toUtf8().c_str());
    std::abort();
}

// Items per second, and seconds per sample and channel ("per_sample_ch", shown with an SI
// prefix: "n" for nanoseconds).
inline void setCounters(benchmark::State& state, int64_t samplesPerIteration)
{
    state.SetItemsProcessed(state.iterations() * samplesPerIteration);
    state.counters["per_sample_ch"] = benchmark::Counter(double(samplesPerIteration),
                                                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// One second at 48 kHz of a tone and its third harmonic near full scale, with a little
// noise: the curves' branches all get their turn, as they would with music.
constexpr int32_t kSignalLength = 48000;

inline const std::vector<double>& testSignal()
{
    static const std::vector<double> x = [] {
        std::vector<double> s(kSignalLength);
        std::mt19937 rng(1);
        std::uniform_real_distribution<double> noise(-0.05, 0.05);
        for (int32_t i = 0; i < kSignalLength; ++i) {
            const double t = double(i) / kBenchRate;
            s[size_t(i)] = 0.6 * std::sin(2 * std::numbers::pi * 220.0 * t) + 0.2 * std::sin(2 * std::numbers::pi * 660.0 * t) +
                           noise(rng);
        }
        return s;
    }();
    return x;
}

// Walks through the signal, or an array as long, a block at a time.
struct Cursor
{
    int32_t at = 0;
    // Where the next block of n starts.
    int32_t nextAt(int32_t n)
    {
        if (at + n > kSignalLength)
            at = 0;
        const int32_t start = at;
        at += n;
        return start;
    }
    const double* next(int32_t n) { return testSignal().data() + nextAt(n); }
};

// The reference loop of three biquads and a soft clip on the signal. Argument: the block
// length.
inline void BM_ReferenceEqClip(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    ReferenceEqClipLoop loop(kBenchRate);
    std::vector<double> out(static_cast<size_t>(n));
    Cursor cursor;
    for (auto _ : state) {
        loop.run(cursor.next(n), out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

// The application on a compiled definition, an instance tree with its environment and
// collector, and the definition's graph `graphDef` wired as the wrapper wires it: one
// input stream in, modOutput behind, at 48 kHz.
class BenchGraph
{
public:
    // `groups`: the group of each input channel.
    BenchGraph(const CResourceRow* definitions, const char* fileName, const char* graphDef, const char* fullName,
               const std::vector<int32_t>& groups, int32_t blockLength)
        : m_block(blockLength)
    {
        CLog::setFileName(CString());
        check(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, definitions, CString(fileName)));
        check(CApplication::initRootObject(m_root, CString()));
        CObject* made = nullptr;
        check(m_root->createChild(made, CString("audio:audio-env"), CString("env"), false));
        m_env = static_cast<CAudioEnv*>(made);
        CAttrMap attrs;
        attrs[CString("env")].setString(CString("env"));
        check(m_root->createChild(made, CString("audio:param-collector"), CString("params"), false, nullptr, &attrs));
        m_collector = static_cast<CAudioParamCollector*>(made);
        m_env->setParamCollector(m_collector);
        m_graph = make(graphDef, fullName);
        m_output = make("audio.modOutput", "plugin.modOutput");
        m_graph->attachInput(&m_input, 0);
        m_graph->attachOutput(&m_link);
        m_output->attachInput(&m_link, 0);
        std::vector<CAudioStream::CChannel> records;
        for (size_t c = 0; c < groups.size(); ++c)
            records.push_back({int32_t(c), groups[c], 0, 0, nullptr});
        m_input.setFormat(kBenchRate, records.data(), int32_t(records.size()));
        check(m_pool.reserve(m_block * int64_t(sizeof(double)), 64));
    }

    ~BenchGraph()
    {
        m_output.reset();
        m_graph.reset();
        m_root.reset();
        CApplication::finalize();
    }

    BenchGraph(const BenchGraph&) = delete;
    BenchGraph& operator=(const BenchGraph&) = delete;

    // Pending changes reach the audio side, as at the start of the wrapper's block.
    void applyChanges()
    {
        CAudioParamQueuedChange* list = m_collector->takePendingChanges();
        CAudioParamCollector::applyPendingChanges(list);
        CAudioParamQueuedChange::freeList(list);
    }

    // A block through the graph, every channel in a fresh pool buffer as the wrapper hands
    // in the host's block: a copy of `from`, or, with none, whatever the buffer holds (for
    // graphs that never read their samples).
    void block(const double* from = nullptr)
    {
        for (int32_t c = 0; c < m_input.channelCount; ++c) {
            CSampleBufferPool::release(m_input.channels[c].buffer);
            double* buffer = m_pool.take(m_block);
            if (from)
                std::copy(from, from + m_block, buffer);
            m_input.channels[c].buffer = buffer;
        }
        m_input.blockLength = m_block;
        m_graph->process();
        m_output->process();
    }

    const double* output(int32_t c) const { return m_output->port(0).channels[c].buffer; }
    CAudioProcessBase& graph() const { return *m_graph; }
    CAudioParamCollector& collector() const { return *m_collector; }

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
    CSampleBufferPool m_pool;
    CObjectPtr m_root;
    CAudioEnv* m_env = nullptr;
    CAudioParamCollector* m_collector = nullptr;
    CAudioStream m_input;
    CAudioStream m_link;
    std::unique_ptr<CAudioProcessBase> m_graph;
    std::unique_ptr<CAudioProcessBase> m_output;
};

} // namespace qel::bench
