// The product's two meters as the wrapper builds them: out of the path while nobody listens,
// and once switched on, measuring the product's output with no receiver for the records.

#include "../WrapperTestSupport.h"

#include "Audio/CAudioParamUpdateContext.h"
#include "Audio/Processes/CModMeter.h"

#include <algorithm>
#include <cmath>

using namespace qel;
using namespace qel::test;

namespace {

TEST(ProductMeters, TheMetersWaitForTheirSwitchesThenMeasureTheOutput)
{
    ScopedApplication app{kProductResourceRows, "SharedData.xml"};
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    const HostSetup stereo;
    prepare(*w, stereo);
    auto* out = w->child<CModMeter>("modMeterOut");
    auto* io = w->child<CModMeter>("modMeterIODiff");
    ASSERT_TRUE(out && io);
    EXPECT_FALSE(out->settings().isFpsFixed);
    EXPECT_FALSE(out->settings().isDiff);
    EXPECT_TRUE(io->settings().isFpsFixed);
    EXPECT_EQ(io->settings().fps, 6.0);
    EXPECT_TRUE(io->settings().isDiff);

    const double rate = stereo.rate;
    const auto length = size_t(9.0 * rate);
    const Signal in = tones(2, length, rate);
    Signal output(2);
    const auto play = [&](size_t from, size_t to) {
        for (size_t at = from; at < to; at += 512) {
            const Signal block = processOne(*w, stereo, in, at, 512);
            for (size_t c = 0; c < 2; ++c)
                output[c].insert(output[c].end(), block[c].begin(), block[c].end());
        }
    };
    play(0, 5120);
    // Nobody listens: the links into both meters are out of use, and no module runs.
    EXPECT_EQ(out->slotCount(), 0);
    EXPECT_EQ(io->slotCount(), 0);

    // What the viz collector does for a first listener: the switch gets the definition of
    // an on/off parameter that one value serves for all groups, and turns on.
    CAudioParamUpdateContext context;
    const CAudioParamInfo* onOff = w->param("plugin.modMain.oversampling-bypass")->info();
    ASSERT_NE(onOff, nullptr);
    for (const char* name : {"plugin.modMain.modMeterOut-enable", "plugin.modMain.modMeterIODiff-enable"}) {
        CAudioParam* enable = w->param(name);
        enable->attachDefinition(onOff, context);
        enable->setValue(1.0, 0, nullptr);
    }
    play(5120, length - length % 512);
    ASSERT_EQ(out->slotCount(), 2);
    ASSERT_EQ(io->slotCount(), 2);

    // The held peak is the output's largest sample: over the last second the tones repeat.
    const auto& outMeter = *static_cast<const CModMeterModule*>(out->currentModule(0));
    const size_t second = size_t(rate);
    double largest = 0.0;
    for (size_t i = output[0].size() - second; i < output[0].size(); ++i)
        largest = std::max(largest, std::fabs(output[0][i]));
    EXPECT_GT(outMeter.frameCount(), 200);
    EXPECT_NEAR(outMeter.lastRecord().peak, largest, 1e-6);

    // The comparing meter reads the output's level against the input's: its 3 s smoothers
    // have long settled on steady tones. Six frames a second from the block it came on in.
    const auto& ioMeter = *static_cast<const CModMeterModule*>(io->currentModule(0));
    double outSquares = 0.0, inSquares = 0.0;
    for (size_t i = output[0].size() - second; i < output[0].size(); ++i) {
        outSquares += output[0][i] * output[0][i];
        inSquares += in[0][i] * in[0][i];
    }
    EXPECT_NEAR(ioMeter.lastRecord().rms / std::sqrt(outSquares / inSquares), 1.0, 1e-3);
    EXPECT_EQ(ioMeter.frameCount(), int64_t(output[0].size() - 5120) / 7350);
}

} // namespace
