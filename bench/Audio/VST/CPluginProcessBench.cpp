// The whole plug-in per block as a host pays for it: the built bundle loaded through its
// VST 3 interfaces, one process call of 512 stereo samples at 48 kHz, at the default
// setting, with the host's parameter and event lists and process context in place, in
// 32-bit and in 64-bit samples. "time/sample/ch" is the cost of one sample of one channel.
//
// Two references stand beside it: the cheapest effect a host could load (a copy of the
// two channels), and the plain loop of three biquads and a soft clip per sample
// (ReferenceLoops.h) over the same two channels, which is about what an equalizer with a
// saturating stage costs when written as plainly as it can be. The plug-in's runs also
// report "x-reference", their time over that loop's, measured in the same process.

#include "../ReferenceLoops.h"

#include "vst3host/CVst3HostApplication.h"
#include "vst3host/CVst3Instance.h"
#include "vst3host/CVst3Module.h"

#include "pluginterfaces/base/smartpointer.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

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
std::vector<double> noiseBlock(uint32_t seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> noise(-0.25, 0.25);
    std::vector<double> block(kBlock);
    for (double& s : block)
        s = noise(random);
    return block;
}

// Processor time of this thread: both figures of a ratio count only what their own loop
// cost, however busy the machine is.
double threadSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

// The reference loop on both channels of one block.
class ReferenceBlock
{
public:
    ReferenceBlock() : m_loops{bench::ReferenceEqClipLoop(kRate), bench::ReferenceEqClipLoop(kRate)}
    {
        for (int32 c = 0; c < kChannels; ++c) {
            m_in[c] = noiseBlock(uint32_t(5 + c));
            m_out[c].assign(kBlock, 0.0);
        }
    }

    void run()
    {
        for (int32 c = 0; c < kChannels; ++c)
            m_loops[c].run(m_in[c].data(), m_out[c].data(), kBlock);
        benchmark::DoNotOptimize(m_out[0].data());
        benchmark::ClobberMemory();
    }

    // Processor seconds per block, on average over a few thousand blocks after a warm-up,
    // as the benchmark loops count theirs.
    double secondsPerBlock()
    {
        constexpr int kBlocks = 20000;
        for (int i = 0; i < kBlocks / 10; ++i)
            run();
        const double begin = threadSeconds();
        for (int i = 0; i < kBlocks; ++i)
            run();
        return (threadSeconds() - begin) / kBlocks;
    }

private:
    bench::ReferenceEqClipLoop m_loops[kChannels];
    std::vector<double> m_in[kChannels];
    std::vector<double> m_out[kChannels];
};

void pluginProcess(benchmark::State& state, bool isDouble)
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
    setup.isDouble = isDouble;
    if (!effect || error || (error = instance.startProcessing(setup))
        || instance.mainChannelCount(kInput) != kChannels) {
        state.SkipWithError("the plug-in could not be set up for stereo processing");
        return;
    }
    for (int32 c = 0; c < kChannels; ++c) {
        const std::vector<double> noise = noiseBlock(uint32_t(5 + c));
        for (int32 i = 0; i < kBlock; ++i) {
            if (isDouble)
                instance.buffers().channel64(kInput, 0, c)[i] = noise[size_t(i)];
            else
                instance.buffers().channel32(kInput, 0, c)[i] = float(noise[size_t(i)]);
        }
    }
    // Past the first blocks' planning and any crossfade of the start-up.
    for (int i = 0; i < 200; ++i)
        instance.process(kBlock);
    void* out = isDouble ? static_cast<void*>(instance.buffers().channel64(kOutput, 0, 0))
                         : static_cast<void*>(instance.buffers().channel32(kOutput, 0, 0));
    const double begin = threadSeconds();
    for (auto _ : state) {
        instance.process(kBlock);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    const double pluginSeconds = (threadSeconds() - begin) / double(state.iterations());
    setCounters(state);
    // Against the reference loop, timed here so both figures come from one moment.
    ReferenceBlock reference;
    state.counters["x-reference"] = pluginSeconds / reference.secondsPerBlock();
    instance.destroy();
    module.unload();
}

void BM_PluginProcess512Stereo32(benchmark::State& state) { pluginProcess(state, false); }
BENCHMARK(BM_PluginProcess512Stereo32);

void BM_PluginProcess512Stereo64(benchmark::State& state) { pluginProcess(state, true); }
BENCHMARK(BM_PluginProcess512Stereo64);

void BM_ReferenceEqClip512Stereo(benchmark::State& state)
{
    ReferenceBlock reference;
    for (auto _ : state)
        reference.run();
    setCounters(state);
}
BENCHMARK(BM_ReferenceEqClip512Stereo);

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
