// The whole plug-in per host block at each oversampling mode: the product's instance made
// by the wrapper from its own definition, blocks of 512 stereo samples at 48 kHz in 64-bit
// samples, the default sound with the bands moved off 0 dB. "per_sample_ch" is the time
// one sample of one channel at the host's rate costs; "x1X" that time over the same
// instance's at 1X, both timed in this process at the same moment, alternating block by
// block so that both see the same machine.
//
// Arguments: the oversampling mode (1 1X, 2 2X, 3 4X, 4 8X) and the linear-phase setting
// (0 minimum phase, the half-band IIR steps; 1 linear phase, the FIR steps and the delay
// that holds the latency). The linear-phase setting is shared by every instance, so its
// 1X reference includes that delay.

#include "AudioBenchSupport.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioWrapper.h"
#include "Core/CUserFolder.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <random>
#include <vector>

namespace qel {
extern const CResourceRow kProductResourceRows[];
}

using namespace qel;

namespace {

constexpr int32_t kBlock = 512;
constexpr int32_t kChannels = 2;

double threadSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

// A binding with nothing to tell: the host side of the wrapper does not take part here.
class BenchWrapper : public CAudioWrapper
{
public:
    void onExtParamChanged(int, double) override {}
    void onProgramChanged() override {}
    void beginEdit(int32_t) override {}
    void endEdit(int32_t) override {}

    void set(const char* name, double value)
    {
        if (CAudioParam* p = paramCollector()->getParam(CString(name)))
            p->setValue(value, 0, nullptr);
    }
};

// One instance, started for stereo at 48 kHz, with its own input and output blocks.
class Instance
{
public:
    Instance(double mode, double linearPhase)
    {
        bench::check(m_wrapper.init());
        bench::check(m_wrapper.finishInit());
        m_wrapper.setSampleRate(bench::kBenchRate);
        m_wrapper.setChannelCounts(kChannels, true, false, 0, true, false);
        m_wrapper.setOutputCount(kChannels, true);
        m_wrapper.startProcessing();
        m_wrapper.set("plugin.modMain.lp-oversampling-enable", linearPhase);
        m_wrapper.set("plugin.modMain.oversampling", mode);
        m_wrapper.set("plugin.modMain.modDLC73.eq-params.gain", 1.6);
        std::mt19937 random(5);
        std::uniform_real_distribution<double> noise(-0.25, 0.25);
        for (int32_t c = 0; c < kChannels; ++c) {
            m_in[c].resize(kBlock);
            for (double& x : m_in[c])
                x = noise(random);
            m_out[c].assign(kBlock, 0.0);
            m_inputs[c] = m_in[c].data();
            m_outputs[c] = m_out[c].data();
        }
        // Past the planning of the first blocks, the change of mode and any fade.
        for (int i = 0; i < 200; ++i)
            run();
    }
    ~Instance() { m_wrapper.stopProcessing(); }

    void run()
    {
        m_wrapper.processBlock(m_inputs, m_outputs, kBlock);
        benchmark::DoNotOptimize(m_out[0].data());
        benchmark::ClobberMemory();
    }

private:
    BenchWrapper m_wrapper;
    std::vector<double> m_in[kChannels];
    std::vector<double> m_out[kChannels];
    void* m_inputs[kChannels] = {};
    void* m_outputs[kChannels] = {};
};

// The product on its definition, with a user folder of its own: the linear-phase setting
// is kept in the user's store, which the benchmark must not touch.
class Application
{
public:
    Application()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qel-bench-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            std::abort();
        m_folder = pattern;
        CUserFolder::setRoot(CString::fromUtf8(m_folder + "/"));
        CLog::setFileName(CString());
        bench::check(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kProductResourceRows,
                                           CString("SharedData.xml")));
    }
    ~Application()
    {
        CApplication::finalize();
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

private:
    std::string m_folder;
};

void BM_PluginOversampling512Stereo(benchmark::State& state)
{
    const auto mode = double(state.range(0));
    const auto linearPhase = double(state.range(1));
    Application app;
    // The reference first: the shared linear-phase setting is the one both run with.
    auto reference = std::make_unique<Instance>(1.0, linearPhase);
    auto instance = std::make_unique<Instance>(mode, linearPhase);
    for (auto _ : state)
        instance->run();
    bench::setCounters(state, int64_t(kBlock) * kChannels);

    constexpr int kRounds = 400;
    double seconds = 0.0;
    double referenceSeconds = 0.0;
    for (int i = 0; i < kRounds; ++i) {
        double begin = threadSeconds();
        instance->run();
        seconds += threadSeconds() - begin;
        begin = threadSeconds();
        reference->run();
        referenceSeconds += threadSeconds() - begin;
    }
    state.counters["x1X"] = seconds / referenceSeconds;
}
BENCHMARK(BM_PluginOversampling512Stereo)
    ->ArgNames({"mode", "lp"})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Args({3, 0})
    ->Args({4, 0})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Args({3, 1})
    ->Args({4, 1})
    ->Unit(benchmark::kMicrosecond);

} // namespace
