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
            const double t = static_cast<double>(i) / kRate;
            signal[static_cast<size_t>(c)][static_cast<size_t>(i)] = static_cast<T>(
                0.2 * std::sin(2.0 * std::numbers::pi * (110.0 + 20.0 * c) * t) + 0.1 * std::sin(2.0 * std::numbers::pi * 3100.0 * t)
                + noise(random));
        }
    return signal;
}

template <class T>
std::vector<const T*> inputPointers(const Signal<T>& signal)
{
    std::vector<const T*> pointers;
    for (const std::vector<T>& channel : signal)
        pointers.push_back(channel.data());
    return pointers;
}

template <class T>
std::vector<T*> outputPointers(Signal<T>& signal)
{
    std::vector<T*> pointers;
    for (std::vector<T>& channel : signal)
        pointers.push_back(channel.data());
    return pointers;
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
                return "channel " + std::to_string(c) + " sample " + std::to_string(i) + ": " +
                       std::to_string(a[c][i]) + " vs " + std::to_string(b[c][i]);
    }
    return std::string();
}

bool isSilent(const Signal<float>& signal)
{
    for (const std::vector<float>& channel : signal)
        for (float sample : channel)
            if (sample != 0.0f)
                return false;
    return true;
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

    // A parameter whose change is heard and is not the bypass: the output gain when the
    // plug-in has one, else the first automatable ordinary parameter.
    static const CVst3ParamInfo* audibleParameter(const CVst3Instance& instance)
    {
        if (const CVst3ParamInfo* gain = instance.findParameter("OutGain"))
            return gain;
        for (const CVst3ParamInfo& param : instance.parameters())
            if ((param.flags & ParameterInfo::kCanAutomate)
                && !(param.flags & (ParameterInfo::kIsBypass | ParameterInfo::kIsProgramChange)))
                return &param;
        return nullptr;
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
        std::vector<const T*> in = inputPointers(input);
        std::vector<T*> out = outputPointers(output);
        EXPECT_EQ(instance.processPlanar(in.data(), out.data(), static_cast<int64_t>(input[0].size()), blockSize),
                  kResultOk);
        return output;
    }

    // One long block against blocks of 1, 37, 512 and 4096 samples and a random mix of 0 to
    // 4096, each run in a fresh instance set up for the longest: the output must not
    // depend on where the host cuts.
    template <class T>
    void checkBlockCuts()
    {
        constexpr int64_t kFrames = 16384;
        const Signal<T> input = testSignal<T>(2, kFrames);
        auto run = [&](const std::vector<int32>& blocks) {
            CVst3Instance& instance = makeInstance();
            moveAudibleParameter(instance);
            start(instance, static_cast<int32>(kFrames), sizeof(T) == sizeof(double));
            Signal<T> output(2, std::vector<T>(static_cast<size_t>(kFrames)));
            int64_t done = 0;
            for (size_t k = 0; done < kFrames; ++k) {
                const int32 count = static_cast<int32>(std::min<int64_t>(blocks[k % blocks.size()], kFrames - done));
                if (count == 0) {
                    EXPECT_EQ(instance.process(0), kResultOk);
                    continue;
                }
                std::vector<const T*> in = {input[0].data() + done, input[1].data() + done};
                std::vector<T*> out = {output[0].data() + done, output[1].data() + done};
                EXPECT_EQ(instance.processPlanar(in.data(), out.data(), count, count), kResultOk);
                done += count;
            }
            m_instances.clear();
            return output;
        };

        const Signal<T> whole = run({static_cast<int32>(kFrames)});
        std::mt19937 random(3);
        std::vector<int32> mixed;
        for (int i = 0; i < 64; ++i)
            mixed.push_back(i % 9 == 4 ? 0 : static_cast<int32>(1 + random() % 4096));
        const std::vector<std::pair<std::string, std::vector<int32>>> cuts = {
            {"1", {1}}, {"37", {37}}, {"512", {512}}, {"4096", {4096}}, {"random 0..4096", mixed}};
        for (const auto& [name, blocks] : cuts) {
            SCOPED_TRACE(name);
            EXPECT_EQ(firstDifference(run(blocks), whole), "");
        }
    }

    IPtr<CVst3HostApplication> m_host;
    CVst3Module m_module;
    const CVst3ClassInfo* m_class = nullptr;
    std::vector<std::unique_ptr<CVst3Instance>> m_instances;
};

TEST_F(PluginBundle, DescribesOneEffectWithStereoBusesAndABypass)
{
    ASSERT_EQ(m_module.classes().size(), 1u);
    EXPECT_EQ(m_class->category, kVstAudioEffectClass);
    EXPECT_FALSE(m_class->name.empty());
    CVst3Instance& instance = makeInstance();
    EXPECT_TRUE(instance.isSingleObject());
    EXPECT_EQ(instance.mainChannelCount(kInput), 2);
    EXPECT_EQ(instance.mainChannelCount(kOutput), 2);
    EXPECT_EQ(instance.processor()->canProcessSampleSize(kSample32), kResultTrue);
    EXPECT_EQ(instance.processor()->canProcessSampleSize(kSample64), kResultTrue);
    const CVst3ParamInfo* bypass = instance.findParameter("Bypass");
    ASSERT_NE(bypass, nullptr);
    EXPECT_TRUE(bypass->flags & ParameterInfo::kIsBypass);
    EXPECT_EQ(bypass->stepCount, 1);
    EXPECT_NE(instance.unitInfo(), nullptr);
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

TEST_F(PluginBundle, TwoInstancesProcessIndependently)
{
    const Signal<float> input = testSignal<float>(2, 9000);
    const int32 block = 300;
    Signal<float> aloneA;
    Signal<float> aloneB;
    {
        CVst3Instance& a = makeInstance();
        ASSERT_NE(audibleParameter(a), nullptr);
        moveAudibleParameter(a);
        start(a, block, false);
        aloneA = render(a, input, block);
        CVst3Instance& b = makeInstance();
        start(b, block, false);
        aloneB = render(b, input, block);
        m_instances.clear();
    }
    ASSERT_NE(firstDifference(aloneA, aloneB), "") << "the setting must change the output";

    // Both at once, their blocks interleaved, one with the setting and one without.
    CVst3Instance& a = makeInstance();
    CVst3Instance& b = makeInstance();
    moveAudibleParameter(a);
    start(a, block, false);
    start(b, block, false);
    Signal<float> togetherA(2, std::vector<float>(input[0].size()));
    Signal<float> togetherB = togetherA;
    for (size_t start = 0; start < input[0].size(); start += block) {
        const size_t count = std::min<size_t>(block, input[0].size() - start);
        for (CVst3Instance* instance : {&a, &b}) {
            Signal<float>& out = instance == &a ? togetherA : togetherB;
            std::vector<const float*> in = {input[0].data() + start, input[1].data() + start};
            std::vector<float*> o = {out[0].data() + start, out[1].data() + start};
            ASSERT_EQ(instance->processPlanar(in.data(), o.data(), static_cast<int64_t>(count), block), kResultOk);
        }
    }
    EXPECT_EQ(firstDifference(togetherA, aloneA), "");
    EXPECT_EQ(firstDifference(togetherB, aloneB), "");
}

// Every value's text must parse back to the value, within the parameter's step: half a
// step for a stepped parameter; for a continuous one, a value that shows the same text
// (a list the plug-in reports as continuous has wide steps, a gain in tenths of a decibel
// narrow ones).
// And a value set by the host must read back as set, without the plug-in echoing it as an
// edit of its own.
TEST_F(PluginBundle, EveryParameterRoundTripsThroughTextAndValue)
{
    CVst3Instance& instance = makeInstance();
    ASSERT_FALSE(instance.parameters().empty());
    IEditController* controller = instance.controller();
    for (const CVst3ParamInfo& param : instance.parameters()) {
        SCOPED_TRACE(param.title);
        std::vector<double> values = {0.0, 1.0, param.defaultNormalized};
        for (int i = 1; i < 20; ++i)
            values.push_back(i / 20.0 + 0.013);
        for (double value : values) {
            if (value > 1.0)
                continue;
            SCOPED_TRACE(value);
            const std::string text = instance.valueToText(param.id, value);
            EXPECT_FALSE(text.empty());
            double back = -1.0;
            ASSERT_TRUE(instance.textToValue(param.id, text, back)) << "text '" << text << "'";
            if (param.stepCount > 0) {
                EXPECT_LE(std::fabs(back - value), 0.5 / param.stepCount + 1e-9) << "text '" << text << "'";
            } else {
                // A continuous parameter's step is what its text can tell apart: the value
                // read back shows the same text, and reading that text again changes nothing.
                EXPECT_EQ(instance.valueToText(param.id, back), text);
                double again = -1.0;
                ASSERT_TRUE(instance.textToValue(param.id, text, again));
                EXPECT_EQ(again, back) << "text '" << text << "'";
            }
        }
    }

    instance.handler().clear();
    for (const CVst3ParamInfo& param : instance.parameters()) {
        // The program parameter loads a whole program; it stands apart below.
        if (param.flags & ParameterInfo::kIsProgramChange)
            continue;
        SCOPED_TRACE(param.title);
        const double before = controller->getParamNormalized(param.id);
        for (double value : {0.0, 0.37, 1.0, param.defaultNormalized}) {
            ASSERT_EQ(controller->setParamNormalized(param.id, value), kResultOk);
            const double got = controller->getParamNormalized(param.id);
            if (param.stepCount > 0)
                EXPECT_LE(std::fabs(got - value), 0.5 / param.stepCount + 1e-9);
            else
                EXPECT_NEAR(got, value, 1e-9);
        }
        ASSERT_EQ(controller->setParamNormalized(param.id, before), kResultOk);
    }
    EXPECT_EQ(instance.handler().countOf(CVst3HandlerCall::kPerformEdit), 0);

    for (const CVst3ParamInfo& param : instance.parameters()) {
        if (!(param.flags & ParameterInfo::kIsProgramChange))
            continue;
        const double current = controller->getParamNormalized(param.id);
        ASSERT_EQ(controller->setParamNormalized(param.id, current), kResultOk);
        EXPECT_NEAR(controller->getParamNormalized(param.id), current, 1e-9);
    }
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
        byte = static_cast<uint8_t>(random());
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

TEST_F(PluginBundle, AnyBlockCutGivesTheSameOutputAt32Bits)
{
    checkBlockCuts<float>();
}

TEST_F(PluginBundle, AnyBlockCutGivesTheSameOutputAt64Bits)
{
    checkBlockCuts<double>();
}

// Calls a careless host makes: no samples, channel arrays of null pointers or none at all,
// buses without channels, and more samples than the set-up promised. None may crash or
// write outside the buffers (the sanitizer build checks the latter), and the plug-in
// processes normally afterwards.
TEST_F(PluginBundle, SurvivesMalformedProcessCalls)
{
    constexpr int32 kPromised = 512;
    CVst3Instance& instance = makeInstance();
    start(instance, kPromised, false);
    IAudioProcessor* processor = instance.processor();
    const ProcessData good = instance.processData();

    ProcessData data = good;
    data.numSamples = 0;
    EXPECT_EQ(processor->process(data), kResultOk);

    float* nulls[2] = {nullptr, nullptr};
    AudioBusBuffers inputs = good.inputs[0];
    AudioBusBuffers outputs = good.outputs[0];
    for (int variant = 0; variant < 3; ++variant) {
        SCOPED_TRACE(variant);
        inputs = good.inputs[0];
        outputs = good.outputs[0];
        if (variant == 0 || variant == 2)
            inputs.channelBuffers32 = nulls;
        if (variant == 1 || variant == 2)
            outputs.channelBuffers32 = variant == 1 ? nulls : nullptr;
        data = good;
        data.inputs = &inputs;
        data.outputs = &outputs;
        data.numSamples = 256;
        processor->process(data);
    }
    data = good;
    data.inputs = nullptr;
    data.numInputs = 0;
    data.numSamples = 256;
    processor->process(data);
    data = good;
    data.outputs = nullptr;
    data.numOutputs = 0;
    processor->process(data);

    inputs = good.inputs[0];
    outputs = good.outputs[0];
    inputs.numChannels = 0;
    outputs.numChannels = 0;
    data = good;
    data.inputs = &inputs;
    data.outputs = &outputs;
    data.numSamples = 256;
    processor->process(data);

    // Sixteen times the promise, in buffers that really are that long.
    constexpr int32 kLong = 16 * kPromised;
    Signal<float> longIn = testSignal<float>(2, kLong);
    Signal<float> longOut(2, std::vector<float>(kLong));
    float* inPointers[2] = {longIn[0].data(), longIn[1].data()};
    float* outPointers[2] = {longOut[0].data(), longOut[1].data()};
    inputs = good.inputs[0];
    outputs = good.outputs[0];
    inputs.channelBuffers32 = inPointers;
    outputs.channelBuffers32 = outPointers;
    data = good;
    data.inputs = &inputs;
    data.outputs = &outputs;
    data.numSamples = kLong;
    processor->process(data);

    const Signal<float> input = testSignal<float>(2, 4 * kPromised);
    const Signal<float> output = render(instance, input, kPromised);
    for (const std::vector<float>& channel : output)
        for (float sample : channel)
            ASSERT_TRUE(std::isfinite(sample));
    EXPECT_FALSE(isSilent(output));
}

template <class T>
void checkRecoversFromNonFiniteInput(CVst3Instance& instance)
{
    constexpr int32 kBlock = 480;
    Signal<T> input = testSignal<T>(2, kBlock);
    Signal<T> output = input;
    auto block = [&]() {
        std::vector<const T*> in = inputPointers(input);
        std::vector<T*> out = outputPointers(output);
        ASSERT_EQ(instance.processPlanar(in.data(), out.data(), kBlock, kBlock), kResultOk);
    };
    for (int i = 0; i < 25; ++i)
        block();
    Signal<T> poisoned = input;
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = c; i < kBlock; i += 7)
            poisoned[c][i] = i % 3 == 0   ? std::numeric_limits<T>::quiet_NaN()
                             : i % 3 == 1 ? std::numeric_limits<T>::infinity()
                                          : -std::numeric_limits<T>::infinity();
    std::swap(input, poisoned);
    block();
    std::swap(input, poisoned);
    // One second of finite input, then everything that comes out must be finite.
    for (int i = 0; i < static_cast<int>(kRate) / kBlock; ++i)
        block();
    for (int i = 0; i < 50; ++i) {
        block();
        for (const std::vector<T>& channel : output)
            for (T sample : channel)
                ASSERT_TRUE(std::isfinite(sample)) << "block " << i << " after the first second";
    }
}

TEST_F(PluginBundle, RecoversFromNonFiniteInputWithinOneSecond)
{
    CVst3Instance& single = makeInstance();
    moveAudibleParameter(single);
    start(single, 480, false);
    checkRecoversFromNonFiniteInput<float>(single);
    CVst3Instance& twice = makeInstance();
    moveAudibleParameter(twice);
    start(twice, 480, true);
    checkRecoversFromNonFiniteInput<double>(twice);
}

template <class T>
void checkNoDenormalsAfterSignal(CVst3Instance& instance)
{
    constexpr int32 kBlock = 512;
    const Signal<T> signal = testSignal<T>(2, static_cast<int64_t>(kRate));
    Signal<T> output(2, std::vector<T>(kBlock));
    std::vector<T*> out = outputPointers(output);
    for (size_t start = 0; start + kBlock <= signal[0].size(); start += kBlock) {
        std::vector<const T*> in = {signal[0].data() + start, signal[1].data() + start};
        ASSERT_EQ(instance.processPlanar(in.data(), out.data(), kBlock, kBlock), kResultOk);
    }
    const Signal<T> silence(2, std::vector<T>(kBlock, T(0)));
    std::vector<const T*> in = inputPointers(silence);
    const int blocks = static_cast<int>(6 * kRate) / kBlock;
    for (int b = 0; b < blocks; ++b) {
        ASSERT_EQ(instance.processPlanar(in.data(), out.data(), kBlock, kBlock), kResultOk);
        for (size_t c = 0; c < 2; ++c)
            for (size_t i = 0; i < kBlock; ++i)
                ASSERT_NE(std::fpclassify(output[c][i]), FP_SUBNORMAL)
                    << "channel " << c << ", " << (b * kBlock + static_cast<int>(i)) << " samples into the silence";
    }
}

TEST_F(PluginBundle, LeavesNoDenormalNumbersAfterTheSignalStops)
{
    CVst3Instance& single = makeInstance();
    moveAudibleParameter(single);
    start(single, 512, false);
    checkNoDenormalsAfterSignal<float>(single);
    CVst3Instance& twice = makeInstance();
    moveAudibleParameter(twice);
    start(twice, 512, true);
    checkNoDenormalsAfterSignal<double>(twice);
}

// Automation as a host sends it: many points in one block. Whatever comes between, the
// last point is where the parameter ends, for the sound and for the value the host reads
// back, and the plug-in doesn't report the host's own change to it as an edit. The glide
// leaves a trace in the saturator's bias, which the 1 Hz high-pass behind it lets die
// away with a time constant of 0.16 s: two seconds on, nothing of it is left.
TEST_F(PluginBundle, AutomationEndsAtItsLastPoint)
{
    constexpr int32 kBlock = 480;
    const Signal<float> input = testSignal<float>(2, static_cast<int64_t>(3 * kRate));
    CVst3Instance& automated = makeInstance();
    CVst3Instance& direct = makeInstance();
    const CVst3ParamInfo* param = audibleParameter(automated);
    ASSERT_NE(param, nullptr);
    const double last = param->defaultNormalized > 0.5 ? 0.2 : 0.8;
    start(automated, kBlock, false);
    start(direct, kBlock, false);
    automated.handler().clear();
    for (int32 k = 0; k < 40; ++k)
        ASSERT_TRUE(automated.queueParameterChange(param->id, k == 39 ? last : (k % 7) / 7.0, k * kBlock / 40));
    ASSERT_TRUE(direct.setParameter(param->id, last));
    const Signal<float> a = render(automated, input, kBlock);
    const Signal<float> b = render(direct, input, kBlock);
    // Once any glide and what it left in the filters is over, the two must agree.
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = static_cast<size_t>(2.5 * kRate); i < a[c].size(); ++i)
            ASSERT_NEAR(a[c][i], b[c][i], 1e-6) << "channel " << c << " sample " << i;
    EXPECT_NEAR(automated.parameter(param->id), last, 1e-9);
    EXPECT_EQ(automated.handler().countOf(CVst3HandlerCall::kPerformEdit), 0);
}

// The bypass passes the input through untouched (behind the reported latency), and a
// state saved while bypassed comes back bypassed.
TEST_F(PluginBundle, BypassPassesTheInputAndSurvivesTheState)
{
    constexpr int32 kBlock = 512;
    const Signal<float> input = testSignal<float>(2, static_cast<int64_t>(kRate / 2));
    auto checkPassesInput = [&](CVst3Instance& instance) {
        const int64_t latency = instance.latencySamples();
        const Signal<float> output = render(instance, input, kBlock);
        // Past the switch's crossfade, the output is the input.
        for (size_t c = 0; c < 2; ++c)
            for (int64_t i = static_cast<int64_t>(kRate / 10); i < static_cast<int64_t>(input[c].size()); ++i)
                ASSERT_NEAR(output[c][static_cast<size_t>(i)], input[c][static_cast<size_t>(i - latency)], 1e-6)
                    << "channel " << c << " sample " << i;
    };
    CVst3Instance& source = makeInstance();
    const CVst3ParamInfo* bypass = source.findParameter("Bypass");
    ASSERT_NE(bypass, nullptr);
    moveAudibleParameter(source);
    ASSERT_TRUE(source.setParameter(bypass->id, 1.0));
    start(source, kBlock, false);
    checkPassesInput(source);
    std::vector<uint8_t> state;
    ASSERT_FALSE(source.saveState(state));

    CVst3Instance& target = makeInstance();
    CErrorPtr error = target.loadState(state);
    ASSERT_FALSE(error) << error->text().toUtf8();
    EXPECT_EQ(target.parameter(bypass->id), 1.0);
    start(target, kBlock, false);
    checkPassesInput(target);
}

// Channel counts a host may ask for: each from one to eight is taken as offered, and
// every channel carries its own signal through.
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
        // One silent channel: what comes out of it must be far below the others. Not zero:
        // the saturator's bias sets a DC level at start that the 1 Hz high-pass takes a
        // second to remove, some 88 dB below full scale.
        std::fill(input.back().begin(), input.back().end(), 0.0f);
        const Signal<float> output = render(instance, input, 256);
        for (int32 c = 0; c < channels; ++c) {
            double energy = 0.0;
            for (float sample : output[static_cast<size_t>(c)]) {
                ASSERT_TRUE(std::isfinite(sample));
                energy += static_cast<double>(sample) * sample;
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
