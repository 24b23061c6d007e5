// What a parameter change costs on either side of the queue to the audio thread: the
// audio thread's share of a block in which 100 parameters changed (take the queue, apply
// it to the audio copies, free it), and the sender's share of one setValue.

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using namespace qel;

namespace {

constexpr int kChangesPerBlock = 100;

void fail(CErrorPtr error)
{
    std::fprintf(stderr, "%s", error->text().toUtf8().c_str());
    std::abort();
}

template <class T>
T* make(CObject* parent, const char* tag, const std::string& name, CAttrMap* attrs = nullptr)
{
    T* made = nullptr;
    if (CErrorPtr error = parent->createChild(made, CString(tag), CString::fromUtf8(name), false, nullptr, attrs))
        fail(std::move(error));
    return made;
}

// Started and finalised by each instance, so that this file's benchmarks and those of
// the others linked into the same program each get the application to themselves.
struct ApplicationScope
{
    ApplicationScope()
    {
        CLog::setFileName(CString());
        if (CErrorPtr error = CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, nullptr, CString()))
            fail(std::move(error));
        make<CObject>(CApplication::sharedRoot(), "audio:cvt-real", "real");
    }
    ~ApplicationScope() { CApplication::finalize(); }
    ApplicationScope(const ApplicationScope&) = delete;
    ApplicationScope& operator=(const ApplicationScope&) = delete;
};

// An instance with `count` float parameters of one element each, audio running.
struct Instance
{
    explicit Instance(int count)
    {
        if (CErrorPtr error = CApplication::initRootObject(root, CString()))
            fail(std::move(error));
        env = make<CAudioEnv>(root.get(), "audio:audio-env", "env");
        CAttrMap collectorAttrs;
        collectorAttrs[CString("env")].setString(CString("env"));
        collector = make<CAudioParamCollector>(root.get(), "audio:param-collector", "params", &collectorAttrs);
        CAttrMap attrs;
        const std::pair<const char*, const char*> values[] = {
            {"element-size", "1"}, {"converter", "real"}, {"min-values", "0"}, {"max-values", "1000000"}, {"def-values", "0"}};
        for (const auto& [key, value] : values)
            attrs[CString(key)].setString(CString(value));
        for (int i = 0; i < count; ++i) {
            const std::string name = CString("p").append(CString::number(i)).toUtf8();
            auto* def = make<CAudioParamDef>(root.get(), "audio:param", name, &attrs);
            CAudioParam* param = collector->getParam(CString::fromUtf8(name));
            CAudioParamUpdateContext context;
            param->attachDefinition(&def->info(), context);
            params.push_back(param);
        }
        env->setActive(true);
    }

    void drain()
    {
        CAudioParamQueuedChange* list = collector->takePendingChanges();
        CAudioParamCollector::applyPendingChanges(list);
        CAudioParamQueuedChange::freeList(list);
    }

    ApplicationScope application;
    CObjectPtr root;
    CAudioEnv* env = nullptr;
    CAudioParamCollector* collector = nullptr;
    std::vector<CAudioParam*> params;
};

// The audio thread's side only; the changes are posted outside the timed region.
void BM_ApplyHundredChanges(benchmark::State& state)
{
    Instance instance(kChangesPerBlock);
    double value = 0;
    double total = 0;
    for (auto _ : state) {
        value += 1;
        for (CAudioParam* param : instance.params)
            param->setValue(value, 0, nullptr);
        const auto start = std::chrono::steady_clock::now();
        instance.drain();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count());
        total += took.count();
    }
    if (instance.params[kChangesPerBlock - 1]->audioValues().getValue(0, 0, -1) != value)
        std::abort();
    const double blocks = double(state.iterations());
    state.counters["ns_per_block"] = total * 1e9 / blocks;
    state.counters["ns_per_change"] = total * 1e9 / (blocks * kChangesPerBlock);
    state.SetItemsProcessed(state.iterations() * kChangesPerBlock);
}
BENCHMARK(BM_ApplyHundredChanges)->UseManualTime();

// One setValue from a UI or host thread: the write, its copy and the post to the queue
// while audio runs (arg 1), or the folding into the queued change while it is stopped
// (arg 0). The audio thread's draining is kept out of the timing.
void BM_SetValue(benchmark::State& state)
{
    Instance instance(1);
    instance.env->setActive(state.range(0) != 0);
    CAudioParam* param = instance.params[0];
    double value = 0;
    int sinceDrain = 0;
    for (auto _ : state) {
        param->setValue(value += 1, 0, nullptr);
        if (++sinceDrain == 1000) {
            state.PauseTiming();
            instance.drain();
            sinceDrain = 0;
            state.ResumeTiming();
        }
    }
    instance.drain();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SetValue)->ArgName("audio_running")->Arg(1)->Arg(0);

} // namespace
