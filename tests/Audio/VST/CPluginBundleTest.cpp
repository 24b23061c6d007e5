// The built plug-in bundle as a workstation sees it: loaded with dlopen, entered through
// ModuleEntry and its factory, and driven only through the VST 3 interfaces. Every check
// compares the plug-in with itself under another host behaviour (a second load, another
// instance, other block sizes, a state saved and read back) or with a property any output
// must have (finite, free of denormal numbers).

#include "vst3host/CVst3ComponentHandler.h"
#include "vst3host/CVst3HostApplication.h"
#include "vst3host/CVst3Instance.h"
#include "vst3host/CVst3MemoryStream.h"
#include "vst3host/CVst3Module.h"

#include "pluginterfaces/base/smartpointer.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <vector>

using namespace qel;
using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr double kRate = 48000.0;

// The shared object the build made, and the bundle folder three levels above it.
std::string bundleLibrary() { return QEL_PLUGIN_BUNDLE_LIBRARY; }
std::string bundleFolder()
{
    return std::filesystem::path(bundleLibrary()).parent_path().parent_path().parent_path().string();
}

template <class T>
using Signal = std::vector<std::vector<T>>;

// Noise and two tones at about -10 dBFS: every band of an equaliser gets something.
template <class T>
Signal<T> testSignal(int channels, int64_t frames, uint32_t seed = 7)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> noise(-0.1, 0.1);
    Signal<T> signal(static_cast<size_t>(channels), std::vector<T>(static_cast<size_t>(frames)));
    for (int c = 0; c < channels; ++c)
        for (int64_t i = 0; i < frames; ++i) {
            const double t = double(i) / kRate;
            signal[size_t(c)][size_t(i)] = T(0.2 * std::sin(2.0 * std::numbers::pi * (110.0 + 20.0 * c) * t)
                                              + 0.1 * std::sin(2.0 * std::numbers::pi * 3100.0 * t) + noise(random));
        }
    return signal;
}

// The first place two signals differ, as a message; empty when they are equal bit for bit.
template <class T>
std::string firstDifference(const Signal<T>& a, const Signal<T>& b)
{
    if (a.size() != b.size())
        return "channel counts differ";
    for (size_t c = 0; c < a.size(); ++c) {
        if (a[c].size() != b[c].size())
            return "lengths differ";
        for (size_t i = 0; i < a[c].size(); ++i)
            if (std::memcmp(&a[c][i], &b[c][i], sizeof(T)) != 0)
                return "channel " + std::to_string(c) + " sample " + std::to_string(i) + ": "
                       + std::to_string(a[c][i]) + " vs " + std::to_string(b[c][i]);
    }
    return std::string();
}

bool isSilent(const Signal<float>& signal)
{
    for (const std::vector<float>& channel : signal)
        if (std::any_of(channel.begin(), channel.end(), [](float sample) { return sample != 0.0f; }))
            return false;
    return true;
}

// `count` samples of every channel from `offset` on, in one block.
template <class T>
tresult processSlice(CVst3Instance& instance, const Signal<T>& in, Signal<T>& out, size_t offset, int32 count)
{
    std::vector<const T*> inPtrs;
    std::vector<T*> outPtrs;
    for (size_t c = 0; c < in.size(); ++c) {
        inPtrs.push_back(in[c].data() + offset);
        outPtrs.push_back(out[c].data() + offset);
    }
    return instance.processPlanar(inPtrs.data(), outPtrs.data(), count, count);
}

// A module with its effect class; instances are made on demand.
class PluginBundle : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_host = owned(new CVst3HostApplication("qel bundle tests"));
        CErrorPtr error = m_module.load(bundleFolder(), static_cast<IHostApplication*>(m_host.get()));
        ASSERT_FALSE(error) << error->text().toUtf8();
        m_class = m_module.findClass(kVstAudioEffectClass);
        ASSERT_NE(m_class, nullptr);
    }

    void TearDown() override
    {
        m_instances.clear();
        m_module.unload();
    }

    CVst3Instance& makeInstance()
    {
        m_instances.push_back(std::make_unique<CVst3Instance>());
        CVst3Instance& instance = *m_instances.back();
        CErrorPtr error = instance.create(m_module, *m_class, m_host.get());
        EXPECT_FALSE(error) << error->text().toUtf8();
        return instance;
    }

    static void start(CVst3Instance& instance, int32 maxBlock, bool isDouble)
    {
        CVst3ProcessSetup setup;
        setup.sampleRate = kRate;
        setup.maxBlockSize = maxBlock;
        setup.isDouble = isDouble;
        CErrorPtr error = instance.startProcessing(setup);
        ASSERT_FALSE(error) << error->text().toUtf8();
    }

    // A parameter whose change is heard and is not the bypass (TwoInstancesProcessIndependently
    // proves it is heard).
    static const CVst3ParamInfo* audibleParameter(const CVst3Instance& instance)
    {
        return instance.findParameter("OutGain");
    }

    // Moves the audible parameter well away from its default.
    static void moveAudibleParameter(CVst3Instance& instance)
    {
        if (const CVst3ParamInfo* param = audibleParameter(instance)) {
            ASSERT_TRUE(instance.setParameter(param->id, param->defaultNormalized > 0.5 ? 0.2 : 0.8));
        }
    }

    template <class T>
    static Signal<T> render(CVst3Instance& instance, const Signal<T>& input, int32 blockSize)
    {
        Signal<T> output(input.size(), std::vector<T>(input[0].size()));
        std::vector<const T*> in;
        std::vector<T*> out;
        for (size_t c = 0; c < input.size(); ++c) {
            in.push_back(input[c].data());
            out.push_back(output[c].data());
        }
        EXPECT_EQ(instance.processPlanar(in.data(), out.data(), int64_t(input[0].size()), blockSize), kResultOk);
        return output;
    }

    // One long block against blocks of 1 and 37 samples and a random mix of 0 to 4096, each
    // run in a fresh instance set up for the longest: the output must not depend on where
    // the host cuts.
    template <class T>
    void checkBlockCuts()
    {
        constexpr int64_t kFrames = 16384;
        const Signal<T> input = testSignal<T>(2, kFrames);
        auto run = [&](const std::vector<int32>& blocks) {
            CVst3Instance& instance = makeInstance();
            moveAudibleParameter(instance);
            start(instance, int32(kFrames), sizeof(T) == sizeof(double));
            Signal<T> output(2, std::vector<T>(size_t(kFrames)));
            for (size_t k = 0, done = 0; done < size_t(kFrames); ++k) {
                const auto count = int32(std::min<int64_t>(blocks[k % blocks.size()], kFrames - int64_t(done)));
                EXPECT_EQ(count ? processSlice(instance, input, output, done, count) : instance.process(0), kResultOk);
                done += size_t(count);
            }
            m_instances.clear();
            return output;
        };

        const Signal<T> whole = run({int32(kFrames)});
        std::mt19937 random(3);
        std::vector<int32> mixed;
        for (int i = 0; i < 64; ++i)
            mixed.push_back(i % 9 == 4 ? 0 : int32(1 + random() % 4096));
        for (const std::vector<int32>& blocks : {std::vector<int32>{1}, std::vector<int32>{37}, mixed}) {
            SCOPED_TRACE(blocks.size() == 1 ? std::to_string(blocks[0]) : "random 0..4096");
            EXPECT_EQ(firstDifference(run(blocks), whole), "");
        }
    }

    IPtr<CVst3HostApplication> m_host;
    CVst3Module m_module;
    const CVst3ClassInfo* m_class = nullptr;
    std::vector<std::unique_ptr<CVst3Instance>> m_instances;
};

// The buses, sample sizes and parameter rows are checked in process in CAudioWrapperVST3Test.
TEST_F(PluginBundle, DescribesOneEffectInOneObjectWithABypass)
{
    ASSERT_EQ(m_module.classes().size(), 1u);
    EXPECT_EQ(m_class->category, kVstAudioEffectClass);
    EXPECT_FALSE(m_class->name.empty());
    CVst3Instance& instance = makeInstance();
    EXPECT_TRUE(instance.isSingleObject());
    EXPECT_NE(instance.unitInfo(), nullptr);
    const CVst3ParamInfo* bypass = instance.findParameter("Bypass");
    ASSERT_NE(bypass, nullptr);
    EXPECT_TRUE(bypass->flags & ParameterInfo::kIsBypass);
}

// Load, make, process, tear down and unload, twice in one process: the second round must
// find the module as fresh as the first and give the same output, and after each round the
// plug-in must have handed back every reference it took to the host's objects.
TEST_F(PluginBundle, FullLifecycleRunsTwiceWithTheSameResult)
{
    m_module.unload();
    const Signal<float> input = testSignal<float>(2, 12000);
    Signal<float> outputs[2];
    const std::string paths[2] = {bundleFolder(), bundleLibrary()};
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        IPtr<CVst3HostApplication> host = owned(new CVst3HostApplication("lifecycle"));
        CVst3Module module;
        CErrorPtr error = module.load(paths[round], static_cast<IHostApplication*>(host.get()));
        ASSERT_FALSE(error) << error->text().toUtf8();
        const CVst3ClassInfo* effect = module.findClass(kVstAudioEffectClass);
        ASSERT_NE(effect, nullptr);
        {
            CVst3Instance instance;
            error = instance.create(module, *effect, host.get());
            ASSERT_FALSE(error) << error->text().toUtf8();
            moveAudibleParameter(instance);
            start(instance, 512, false);
            outputs[round] = render(instance, input, 512);
            EXPECT_FALSE(isSilent(outputs[round]));
            instance.destroy();
        }
        // The factory may still hold the host context until the module goes.
        module.unload();
        EXPECT_EQ(host->referenceCount(), 1u);
    }
    EXPECT_EQ(firstDifference(outputs[0], outputs[1]), "");
}

// Two instances at once, their blocks interleaved, one with a setting and one without,
// give what each gives alone.
TEST_F(PluginBundle, TwoInstancesProcessIndependently)
{
    const Signal<float> input = testSignal<float>(2, 9000);
    const int32 block = 300;
    auto startPair = [&](Signal<float> outputs[2]) {
        m_instances.clear();
        CVst3Instance* pair[2] = {&makeInstance(), &makeInstance()};
        ASSERT_NE(audibleParameter(*pair[0]), nullptr);
        moveAudibleParameter(*pair[0]);
        for (int k = 0; k < 2; ++k) {
            start(*pair[k], block, false);
            outputs[k] = input;
        }
    };
    Signal<float> alone[2], together[2];
    startPair(alone);
    for (int k = 0; k < 2; ++k)
        alone[k] = render(*m_instances[size_t(k)], input, block);
    ASSERT_NE(firstDifference(alone[0], alone[1]), "") << "the setting must change the output";

    startPair(together);
    for (size_t at = 0; at < input[0].size(); at += block) {
        const auto count = int32(std::min<size_t>(block, input[0].size() - at));
        for (int k = 0; k < 2; ++k)
            ASSERT_EQ(processSlice(*m_instances[size_t(k)], input, together[k], at, count), kResultOk);
    }
    EXPECT_EQ(firstDifference(together[0], alone[0]), "");
    EXPECT_EQ(firstDifference(together[1], alone[1]), "");
}

// Every value's text parses back to the value within the parameter's step (for a continuous
// one: to a value of the same text); a value the host sets reads back and is not echoed.
TEST_F(PluginBundle, EveryParameterRoundTripsThroughTextAndValue)
{
    CVst3Instance& instance = makeInstance();
    ASSERT_FALSE(instance.parameters().empty());
    IEditController* controller = instance.controller();
    instance.handler().clear();
    for (const CVst3ParamInfo& param : instance.parameters()) {
        SCOPED_TRACE(param.title);
        const bool isProgram = param.flags & ParameterInfo::kIsProgramChange;
        const double halfStep = param.stepCount > 0 ? 0.5 / param.stepCount + 1e-9 : 0.0;
        std::vector<double> values = {0.0, 1.0, param.defaultNormalized};
        for (int i = 1; i < 20; ++i)
            values.push_back(i / 20.0 + 0.013);
        for (double value : values) {
            SCOPED_TRACE(value);
            const std::string text = instance.valueToText(param.id, value);
            EXPECT_FALSE(text.empty());
            double back = -1.0;
            ASSERT_TRUE(instance.textToValue(param.id, text, back)) << "text '" << text << "'";
            if (param.stepCount > 0) {
                EXPECT_LE(std::fabs(back - value), halfStep) << "text '" << text << "'";
            } else {
                // The value read back shows the same text, and reading that text again
                // changes nothing.
                EXPECT_EQ(instance.valueToText(param.id, back), text);
                double again = -1.0;
                ASSERT_TRUE(instance.textToValue(param.id, text, again));
                EXPECT_EQ(again, back) << "text '" << text << "'";
            }
        }

        // The program parameter loads a whole program: it is only set to the one it holds.
        const double before = controller->getParamNormalized(param.id);
        const std::vector<double> set = isProgram ? std::vector<double>{before}
                                                  : std::vector<double>{0.0, 0.37, 1.0, param.defaultNormalized, before};
        for (double value : set) {
            ASSERT_EQ(controller->setParamNormalized(param.id, value), kResultOk);
            EXPECT_NEAR(controller->getParamNormalized(param.id), value, isProgram || halfStep == 0.0 ? 1e-9 : halfStep);
        }
    }
    EXPECT_EQ(instance.handler().countOf(CVst3HandlerCall::kPerformEdit), 0);
}

TEST_F(PluginBundle, StateReadBackIsWrittenByteForByte)
{
    CVst3Instance& source = makeInstance();
    std::vector<uint8_t> defaults;
    ASSERT_FALSE(source.saveState(defaults));
    // Everything but the program somewhere else than its default, on a step of its own
    // where it has steps, so that what is stored is exactly what was set.
    for (const CVst3ParamInfo& param : source.parameters()) {
        if (param.flags & ParameterInfo::kIsProgramChange)
            continue;
        double value = param.defaultNormalized > 0.5 ? 0.25 : 0.75;
        if (param.stepCount > 0)
            value = std::round(value * param.stepCount) / param.stepCount;
        ASSERT_TRUE(source.setParameter(param.id, value));
    }
    std::vector<uint8_t> saved;
    ASSERT_FALSE(source.saveState(saved));
    ASSERT_FALSE(saved.empty());
    EXPECT_NE(saved, defaults) << "the state must carry the changes";

    CVst3Instance& target = makeInstance();
    CErrorPtr error = target.loadState(saved);
    ASSERT_FALSE(error) << error->text().toUtf8();
    std::vector<uint8_t> again;
    ASSERT_FALSE(target.saveState(again));
    EXPECT_EQ(again, saved);
    for (const CVst3ParamInfo& param : source.parameters())
        EXPECT_NEAR(target.parameter(param.id), source.parameter(param.id), 1e-9) << param.title;
}

// A state that isn't one is refused with kResultFalse and changes nothing: the state
// written afterwards is the state written before.
TEST_F(PluginBundle, RefusesBadStateAndKeepsItsOwn)
{
    CVst3Instance& instance = makeInstance();
    moveAudibleParameter(instance);
    std::vector<uint8_t> before;
    ASSERT_FALSE(instance.saveState(before));
    ASSERT_GT(before.size(), 4u);

    std::vector<std::pair<std::string, std::vector<uint8_t>>> cases;
    cases.push_back({"empty", {}});
    std::mt19937 random(11);
    std::vector<uint8_t> garbage(512);
    for (uint8_t& byte : garbage)
        byte = uint8_t(random());
    cases.push_back({"garbage", garbage});
    // The start of a sound file and a text: data of another kind altogether.
    const char riff[] = "RIFF\x24\x08\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00\x02\x00\x80\xbb\x00\x00";
    cases.push_back({"foreign sound file", std::vector<uint8_t>(riff, riff + sizeof(riff) - 1)});
    const std::string text = "{\"preset\": \"not a state\"}";
    cases.push_back({"foreign text", std::vector<uint8_t>(text.begin(), text.end())});
    // Every cut of the real state, short of the whole.
    const size_t stride = before.size() > 2048 ? before.size() / 1024 : 1;
    for (size_t length = 1; length < before.size(); length += stride)
        cases.push_back({"cut to " + std::to_string(length), std::vector<uint8_t>(before.begin(), before.begin() + length)});

    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream(bytes));
        EXPECT_EQ(instance.component()->setState(stream), kResultFalse);
        std::vector<uint8_t> after;
        ASSERT_FALSE(instance.saveState(after));
        ASSERT_EQ(after, before);
    }
}

TEST_F(PluginBundle, AnyBlockCutGivesTheSameOutputAt32And64Bits)
{
    checkBlockCuts<float>();
    checkBlockCuts<double>();
}

// Calls a careless host makes may not crash or write outside the buffers (the sanitizer
// build checks that), and the plug-in processes normally afterwards.
TEST_F(PluginBundle, SurvivesMalformedProcessCalls)
{
    constexpr int32 kPromised = 512;
    CVst3Instance& instance = makeInstance();
    start(instance, kPromised, false);
    const ProcessData good = instance.processData();
    // Sixteen times the promise, in buffers that really are that long.
    Signal<float> longIn = testSignal<float>(2, 16 * kPromised), longOut = longIn;
    float* longInPtrs[2] = {longIn[0].data(), longIn[1].data()};
    float* longOutPtrs[2] = {longOut[0].data(), longOut[1].data()};
    float* nulls[2] = {nullptr, nullptr};
    using Bus = AudioBusBuffers;
    // A block of 256 samples on copies of the buses, as `change` leaves them.
    const auto call = [&](auto change) {
        Bus in = good.inputs[0], out = good.outputs[0];
        ProcessData data = good;
        data.inputs = &in;
        data.outputs = &out;
        data.numSamples = 256;
        change(data, in, out);
        return instance.processor()->process(data);
    };
    EXPECT_EQ(call([](ProcessData& d, Bus&, Bus&) { d.numSamples = 0; }), kResultOk);
    call([&](ProcessData&, Bus& in, Bus&) { in.channelBuffers32 = nulls; });
    call([&](ProcessData&, Bus&, Bus& out) { out.channelBuffers32 = nulls; });
    call([&](ProcessData&, Bus& in, Bus& out) {
        in.channelBuffers32 = nulls;
        out.channelBuffers32 = nullptr;
    });
    call([](ProcessData& d, Bus&, Bus&) {
        d.inputs = nullptr;
        d.numInputs = 0;
    });
    call([](ProcessData& d, Bus&, Bus&) {
        d.outputs = nullptr;
        d.numOutputs = 0;
    });
    call([](ProcessData&, Bus& in, Bus& out) { in.numChannels = out.numChannels = 0; });
    call([&](ProcessData& d, Bus& in, Bus& out) {
        in.channelBuffers32 = longInPtrs;
        out.channelBuffers32 = longOutPtrs;
        d.numSamples = 16 * kPromised;
    });

    const Signal<float> output = render(instance, testSignal<float>(2, 4 * kPromised), kPromised);
    for (const std::vector<float>& channel : output)
        for (float sample : channel)
            ASSERT_TRUE(std::isfinite(sample));
    EXPECT_FALSE(isSilent(output));
}

// NaN and infinite samples in one block: one second of finite input later everything that
// comes out is finite. Then six seconds of silence, in which no output may be a denormal
// number.
template <class T>
void checkNonFiniteInputAndSilence(CVst3Instance& instance)
{
    constexpr int32 kBlock = 480;
    const Signal<T> input = testSignal<T>(2, kBlock);
    Signal<T> poisoned = input;
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = c; i < kBlock; i += 7)
            poisoned[c][i] = i % 3 == 0   ? std::numeric_limits<T>::quiet_NaN()
                             : i % 3 == 1 ? std::numeric_limits<T>::infinity()
                                          : -std::numeric_limits<T>::infinity();
    const Signal<T> silence(2, std::vector<T>(kBlock, T(0)));
    Signal<T> output = input;
    auto block = [&](const Signal<T>& in) { ASSERT_EQ(processSlice(instance, in, output, 0, kBlock), kResultOk); };
    for (int i = 0; i < 25; ++i)
        block(input);
    block(poisoned);
    for (int i = 0; i < int(kRate) / kBlock; ++i)
        block(input);
    for (int i = 0; i < 50; ++i) {
        block(input);
        for (const std::vector<T>& channel : output)
            for (T sample : channel)
                ASSERT_TRUE(std::isfinite(sample)) << "block " << i << " after the first second";
    }
    for (int b = 0; b < int(6 * kRate) / kBlock; ++b) {
        block(silence);
        for (size_t c = 0; c < 2; ++c)
            for (size_t i = 0; i < kBlock; ++i)
                ASSERT_NE(std::fpclassify(output[c][i]), FP_SUBNORMAL)
                    << "channel " << c << ", " << (b * kBlock + int(i)) << " samples into the silence";
    }
}

TEST_F(PluginBundle, RecoversFromNonFiniteInputAndLeavesNoDenormalNumbersInSilence)
{
    CVst3Instance& single = makeInstance();
    moveAudibleParameter(single);
    start(single, 480, false);
    checkNonFiniteInputAndSilence<float>(single);
    CVst3Instance& twice = makeInstance();
    moveAudibleParameter(twice);
    start(twice, 480, true);
    checkNonFiniteInputAndSilence<double>(twice);
}

// Each channel count from one to eight is taken as offered, and every channel carries its
// own signal through.
TEST_F(PluginBundle, TakesOneToEightChannels)
{
    for (int32 channels = 1; channels <= 8; ++channels) {
        SCOPED_TRACE(channels);
        CVst3Instance& instance = makeInstance();
        EXPECT_TRUE(instance.requestMainChannels(channels));
        ASSERT_EQ(instance.mainChannelCount(kInput), channels);
        ASSERT_EQ(instance.mainChannelCount(kOutput), channels);
        start(instance, 256, false);
        Signal<float> input = testSignal<float>(channels, 4096);
        // One silent channel: not zero out, for the saturator's bias leaves a DC level the
        // 1 Hz high-pass takes a second to remove, but some 88 dB down.
        std::fill(input.back().begin(), input.back().end(), 0.0f);
        const Signal<float> output = render(instance, input, 256);
        for (int32 c = 0; c < channels; ++c) {
            double energy = 0.0;
            for (float sample : output[size_t(c)]) {
                ASSERT_TRUE(std::isfinite(sample));
                energy += double(sample) * sample;
            }
            if (c == channels - 1)
                EXPECT_LT(energy, 1e-4) << "channel " << c;
            else
                EXPECT_GT(energy, 1.0) << "channel " << c;
        }
        m_instances.clear();
    }
}

} // namespace
