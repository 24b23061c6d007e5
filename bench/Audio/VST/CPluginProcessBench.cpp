// The whole plug-in per block as a host pays for it: the built bundle loaded through its
// VST 3 interfaces, one process call of 512 stereo samples at 48 kHz in 32-bit, at the
// default setting, with the host's parameter and event lists and process context in
// place. The reference is the cheapest effect a host could load: a copy of the same two
// channels from input to output buffers. "time/sample/ch" is the cost of one sample of one
// channel.

#include "vst3host/CVst3HostApplication.h"
#include "vst3host/CVst3Instance.h"
#include "vst3host/CVst3Module.h"

#include "pluginterfaces/base/smartpointer.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>

using namespace qel;
using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr int32 kBlock = 512;
constexpr int32 kChannels = 2;
constexpr double kRate = 48000.0;

void setCounters(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * kBlock);
    // Samples of all channels per second, inverted: the time one sample of one channel costs.
    state.counters["time/sample/ch"] = benchmark::Counter(
        kBlock * kChannels, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Noise at about -12 dBFS: the plug-in has work in every band and no reason to rest.
void fillInput(CVst3ProcessBuffers& buffers)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<float> noise(-0.25f, 0.25f);
    for (int32 c = 0; c < kChannels; ++c) {
        float* channel = buffers.channel32(kInput, 0, c);
        for (int32 i = 0; i < kBlock; ++i)
            channel[i] = noise(random);
    }
}

void BM_PluginProcess512Stereo32(benchmark::State& state)
{
    IPtr<CVst3HostApplication> host = owned(new CVst3HostApplication("qel bench"));
    CVst3Module module;
    if (CErrorPtr error = module.load(QEL_PLUGIN_BUNDLE_LIBRARY, static_cast<IHostApplication*>(host.get()))) {
        state.SkipWithError(error->line(0).toUtf8().c_str());
        return;
    }
    const CVst3ClassInfo* effect = module.findClass(kVstAudioEffectClass);
    CVst3Instance instance;
    CErrorPtr error = effect ? instance.create(module, *effect, host.get()) : CErrorPtr();
    CVst3ProcessSetup setup;
    setup.sampleRate = kRate;
    setup.maxBlockSize = kBlock;
    if (!effect || error || (error = instance.startProcessing(setup))
        || instance.mainChannelCount(kInput) != kChannels) {
        state.SkipWithError("the plug-in could not be set up for stereo processing");
        return;
    }
    fillInput(instance.buffers());
    // Past the first blocks' planning and any crossfade of the start-up.
    for (int i = 0; i < 200; ++i)
        instance.process(kBlock);
    float* out = instance.buffers().channel32(kOutput, 0, 0);
    for (auto _ : state) {
        instance.process(kBlock);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    setCounters(state);
    instance.destroy();
    module.unload();
}
BENCHMARK(BM_PluginProcess512Stereo32);

void BM_HostCopyReference512Stereo32(benchmark::State& state)
{
    std::vector<float> in[kChannels];
    std::vector<float> out[kChannels];
    for (int32 c = 0; c < kChannels; ++c) {
        in[c].assign(kBlock, 0.125f);
        out[c].assign(kBlock, 0.0f);
    }
    for (auto _ : state) {
        for (int32 c = 0; c < kChannels; ++c)
            std::memcpy(out[c].data(), in[c].data(), kBlock * sizeof(float));
        benchmark::DoNotOptimize(out[0].data());
        benchmark::ClobberMemory();
    }
    setCounters(state);
}
BENCHMARK(BM_HostCopyReference512Stereo32);

} // namespace
