// The product's instance on an audio thread of its own while the host's other thread
// changes the oversampling mode, Auto's octaves and the linear-phase setting, and moves the
// bands: every change rebuilds the resamplers' steps and runs the group chains at another
// rate. After a warm-up that has been through every mode with each filter kind, the audio
// thread allocates and frees nothing.

#include "RealTimeCounting.h"
#include "WrapperTestSupport.h"

#include "Audio/Processes/CModResampler.h"

#include <cmath>

using namespace qel;
using namespace qel::test;

namespace {

TEST(OversamplingRealTime, ModeChangesAllocateNothingAfterWarmUp)
{
    ScopedApplication app(kProductResourceRows, "SharedData.xml");
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    constexpr int32_t kChannels = 2;
    // Modes, Auto's octaves and the filter kind repeat every 5 * 4 * 2 changes, a change
    // every 3 blocks: the warm-up sees each combination in the lengths the run uses.
    constexpr int kBlocks = realTimeBlocks(960, 240);
    constexpr int kWarmUp = realTimeBlocks(480, 120);
    const int32_t lengths[] = {512, 64, 1000, 37};
    const HostSetup setup{false, kChannels, kChannels, 48000.0};
    prepare(*w, setup);

    // A tone per channel, continuous across blocks, made in buffers that exist before the run.
    std::vector<std::vector<float>> in32(kChannels, std::vector<float>(1024)), out32(kChannels, std::vector<float>(1024));
    void* inputs[kChannels] = {in32[0].data(), in32[1].data()};
    void* outputs[kChannels] = {out32[0].data(), out32[1].data()};
    int64_t position = 0;

    bool isFinite = true;
    int changes = 0;
    double lastMode = 1.0, lastHostMode = 0.0;
    const auto host = [&](int block) {
        if (block % 3 != 0)
            return;
        const int k = changes++;
        lastMode = double(k % 5);
        lastHostMode = double((k / 5) % 4);
        w->set("plugin.modMain.oversampling", lastMode);
        w->set("plugin.modMain.host-oversampling-mode", lastHostMode);
        w->set("plugin.modMain.lp-oversampling-enable", double((k / 20) % 2));
        w->set("plugin.modMain.modDLC73.eq-params.gain", 1.0 + 0.5 * std::sin(0.3 * k));
    };
    const auto audio = [&](int block) {
        const int32_t n = lengths[size_t(block / 3) % std::size(lengths)];
        for (size_t c = 0; c < kChannels; ++c)
            for (int32_t i = 0; i < n; ++i)
                in32[c][size_t(i)] = float(0.7 * std::sin(2.0 * 3.141592653589793 * 330.0 * double(c + 1) *
                                                          double(position + i) / 48000.0));
        position += n;
        t_counting = block >= kWarmUp;
        w->processBlock(inputs, outputs, n);
        t_counting = false;
        for (size_t c = 0; c < kChannels; ++c)
            for (int32_t i = 0; i < n; ++i)
                isFinite = isFinite && std::fabs(out32[c][size_t(i)]) < 2.0f;
    };
    const RealTimeCounts counts = runInLockStep(kBlocks, host, audio);
    w->stopProcessing();
    w->set("plugin.modMain.lp-oversampling-enable", 0.0);

    EXPECT_TRUE(isFinite);
    // The last change left the steps it asks for (none where 1X is in force).
    auto* up = w->child<CModResampler>("modUpsampler");
    ASSERT_NE(up, nullptr);
    EXPECT_EQ(up->octaveCount(), CModResampler::octavesFor(lastMode, lastHostMode));
    QEL_EXPECT_NOTHING_ALLOCATED(counts);
}

} // namespace
