// The audio wrapper on the product's definition and on small test instances
// (definitions/wrapper: a slice recorder, a variable delay, a gain changing on the sample);
// outputs against references computed from the input, states byte for byte.

#include "WrapperTestSupport.h"

#include "AudioParamTestSupport.h"

#include "Audio/CAudioPreset.h"
#include "Audio/CScopedDenormalFlush.h"
#include "Core/CAppData.h"
#include "Core/CByteArray.h"
#include "Core/CMemoryReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <cstring>
#include <random>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kWrapperTestDefinitions[];
}

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// A block of the host state with a payload built by hand.
Bytes stateBlock(const Bytes& payload, uint32_t tag = CAudioPreset::kTag)
{
    CWriteSeqBuffer sink;
    EXPECT_FALSE(sink.writeCompressedData(payload.data(), payload.size(), tag));
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return Bytes(bytes.data(), bytes.data() + bytes.size());
}

// One float parameter's stored form: version 1, element size, type 0, then per group the
// element count and the values.
ByteBuilder& floatValues(ByteBuilder& b, int32_t elementSize, const std::vector<std::vector<double>>& groups)
{
    b.u32(1).u32(uint32_t(elementSize)).u32(0).u32(uint32_t(groups.size()));
    for (const auto& values : groups) {
        b.u32(uint32_t(values.size() / size_t(elementSize)));
        for (double v : values)
            b.f64(v);
    }
    return b;
}

// The stored form of a float parameter inside a preset: definition name, then values.
Bytes floatBlob(const std::vector<std::vector<double>>& groups, int32_t elementSize = 1,
                const char* definitionName = "audio.modMain.gain.gain")
{
    ByteBuilder b;
    b.str(definitionName);
    return floatValues(b, elementSize, groups).bytes;
}

// A preset's stream: name, entry count, then key, blob size and blob per entry.
Bytes presetPayload(const std::string& name, const std::vector<std::pair<std::string, Bytes>>& entries,
                    uint32_t count = ~0u)
{
    ByteBuilder b;
    b.str(name).u32(count == ~0u ? uint32_t(entries.size()) : count);
    for (const auto& [key, blob] : entries) {
        b.str(key).u32(uint32_t(blob.size()));
        b.bytes.insert(b.bytes.end(), blob.begin(), blob.end());
    }
    return b.bytes;
}

// ---- the product's definition

class ProductWrapper : public ::testing::Test
{
protected:
    ScopedApplication m_app{kProductResourceRows, "SharedData.xml"};
};

TEST_F(ProductWrapper, InitReadsTheProjectAndBuildsTheInstance)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    // Name, vendor, version and category: CAudioWrapperVST3FactoryTest; the host
    // parameters' names and units: CAudioWrapperVST3Test.
    EXPECT_EQ(w->pluginCode(), uint32_t('Q') << 24 | uint32_t('D') << 16 | uint32_t('7') << 8 | uint32_t('3'));
    EXPECT_EQ(w->intChannelCount(), 8);
    EXPECT_EQ(w->groupCount(), 8);
    EXPECT_TRUE(w->isSymmetricIO() && !w->useSidechain() && !w->useHostBpm() && w->isFullyStarted());
    EXPECT_DOUBLE_EQ(w->tailSeconds(), 0.4);
    EXPECT_EQ(w->projectObject()->getAttrString(CString("plugin-uuid")).length(), 36);
    // Online at start: Auto follows real-time mode 1, no octaves; nothing to report yet.
    EXPECT_EQ(w->value("plugin.modMain.host-oversampling-mode"), 0.0);
    EXPECT_EQ(w->value("plugin.modMain.host-offline"), 0.0);
    EXPECT_EQ(w->queryLatency(), 0);
    EXPECT_EQ(w->latencyChanges, 0);
    // The stored scale is 1 and the window takes the size parameter's defaults.
    EXPECT_DOUBLE_EQ(w->windowScale(), 1.0);
    EXPECT_EQ(w->windowWidth(), 542);
    EXPECT_EQ(w->windowHeight(), 208);
}

// The product's sound from the host's gains is measured in CProductTest; host events on
// their sample and echoes to the host on the test instances below.

TEST_F(ProductWrapper, OfflineRenderingChoosesOctavesByRateWithinLimits)
{
    const char* mode = "plugin.modMain.host-oversampling-mode";
    struct Case
    {
        const char* level;
        std::vector<std::pair<double, double>> octavesAt;
    };
    // Level 1 (the stored one): one octave more below 72 kHz, one less from 144 kHz; a level
    // beyond 0..3 is brought into it.
    for (const Case& c : {Case{"1", {{96000.0, 1.0}, {44100.0, 2.0}, {192000.0, 0.0}, {48000.0, 2.0}, {71999.0, 2.0},
                                     {144000.0, 0.0}, {88200.0, 1.0}}},
                          Case{"4", {{44100.0, 3.0}, {96000.0, 3.0}, {192000.0, 3.0}}},
                          Case{"-3", {{44100.0, 0.0}, {96000.0, 0.0}, {192000.0, 0.0}}}}) {
        CAppData::group().setString(CString("oversampling-level"), CString(c.level), nullptr);
        auto w = startedWrapper();
        ASSERT_TRUE(w);
        for (const auto& [rate, octaves] : c.octavesAt) {
            SCOPED_TRACE(std::string(c.level) + " " + std::to_string(rate));
            w->setSampleRate(rate);
            w->setOffline(true);
            EXPECT_EQ(w->value(mode), octaves);
            EXPECT_EQ(w->value("plugin.modMain.host-offline"), 1.0);
            EXPECT_TRUE(w->isOffline());
        }
        // Back in real time: Auto's real-time mode 1 means no octaves.
        w->setOffline(false);
        EXPECT_EQ(w->value(mode), 0.0);
        EXPECT_EQ(w->value("plugin.modMain.host-offline"), 0.0);
    }
    CAppData::group().setString(CString("oversampling-level"), CString("1"), nullptr);
}

// ---- the test instances

class WrapperInstance : public ::testing::Test
{
protected:
    std::unique_ptr<ScopedApplication> m_app;

    std::unique_ptr<TestWrapper> start(const char* definition = "WrapperGood.xml")
    {
        m_app.reset();
        m_app = std::make_unique<ScopedApplication>(kWrapperTestDefinitions, definition);
        return startedWrapper();
    }

    void TearDown() override { m_app.reset(); }
};

TEST_F(WrapperInstance, InitRejectsBadProjectSettings)
{
    struct Case
    {
        const char* definition;
        const char* message;
    };
    const Case cases[] = {
        {"WrapperCodeShort.xml", "Invalid plug-in code in string 'ab'."},
        {"WrapperCodeLong.xml", "Invalid plug-in code in string 'QWT12'."},
        {"WrapperVersion1.xml", "Invalid version specification in string '1'."},
        {"WrapperVersion4.xml", "Invalid version specification in string '1.2.3.4'."},
        {"WrapperVersionWord.xml", "Invalid version specification in string '1.x'."},
        {"WrapperChannels0.xml", "Invalid 'plugin-intchannel-count' attribute value."},
        {"WrapperChannels17.xml", "Invalid 'plugin-intchannel-count' attribute value."},
        {"WrapperGroups0.xml", "Invalid 'plugin-group-count' attribute value."},
        {"WrapperGroups9.xml", "Invalid 'plugin-group-count' attribute value."},
        {"WrapperNoName.xml", "Plug-in name is empty."},
        {"WrapperNoVendor.xml", "Vendor name is empty."},
        {"WrapperOutputType.xml",
         "Output process object 'shared::audio.modOutput' is not of required 'CModOutput' type."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.definition);
        ScopedApplication app(kWrapperTestDefinitions, c.definition);
        TestWrapper w;
        CErrorPtr error = w.init();
        EXPECT_EQ(errorLine(error), c.message);
        EXPECT_FALSE(w.isFullyStarted());
    }
    TestWrapper w;
    EXPECT_EQ(errorLine(w.init()), "No application object created.");
    EXPECT_TRUE(w.finishInit());
    // Nothing of an instance that never was answers with more than nothing.
    EXPECT_EQ(w.queryLatency(), 0);
    EXPECT_EQ(w.queryTailSamples(), 0);
    w.processBlock(nullptr, nullptr, 64);
    CWriteSeqBuffer sink;
    EXPECT_TRUE(w.saveState(sink));
}

TEST_F(WrapperInstance, InitReadsVersionsAndTails)
{
    auto w = start("WrapperVersion3.xml");
    ASSERT_TRUE(w);
    EXPECT_EQ(w->versionMajor(), 3);
    EXPECT_EQ(w->versionMinor(), 14);
    EXPECT_EQ(w->versionBuild(), 159);
    EXPECT_EQ(w->pluginCode(), 0x51575431u);
    w.reset();

    w = start();
    ASSERT_TRUE(w);
    // 0.4 s, rounded to whole samples: 8820.2 down, 4410.5 half away from zero.
    for (const auto& [rate, samples] : {std::pair{44100.0, 17640}, {48000.0, 19200}, {22050.5, 8820}, {11026.25, 4411}}) {
        w->setSampleRate(rate);
        EXPECT_EQ(w->queryTailSamples(), samples) << rate;
    }

    // No tail; a tail that doesn't read as seconds is the common 0.4 s.
    for (const auto& [definition, samples] : {std::pair{"WrapperNoTail.xml", 0}, std::pair{"WrapperBadTail.xml", 17640}}) {
        w.reset();
        w = start(definition);
        ASSERT_TRUE(w);
        EXPECT_EQ(w->hasTail(), samples > 0);
        EXPECT_EQ(w->queryTailSamples(), samples);
    }
}

TEST_F(WrapperInstance, RealTimeOctavesFollowTheProject)
{
    auto w = start("WrapperRtMode3.xml");
    ASSERT_TRUE(w);
    EXPECT_EQ(w->value("plugin.modMain.host-oversampling-mode"), 2.0);
    EXPECT_EQ(w->oversamplingMode(), 2);
}

TEST_F(WrapperInstance, BlocksRunInSlicesOfAtMost512)
{
    auto w = start();
    ASSERT_TRUE(w);
    const HostSetup setup;
    prepare(*w, setup);
    const Signal in = tones(2, 20000);
    struct Case
    {
        int32_t length;
        std::vector<int32_t> slices;
    };
    for (const Case& c : {Case{1300, {512, 512, 276}}, Case{512, {512}}, Case{513, {512, 1}}, Case{1, {1}},
                          Case{1024, {512, 512}}}) {
        SCOPED_TRACE(c.length);
        w->sliceLengths().clear();
        const double before = w->audioEnv()->streamPosition();
        processOne(*w, setup, in, 0, c.length);
        EXPECT_EQ(w->sliceLengths(), c.slices);
        EXPECT_NEAR(w->audioEnv()->streamPosition() - before, c.length / 44100.0, 1e-12);
    }
}

TEST_F(WrapperInstance, EventsApplyAtTheirSampleAndEndTheirSlice)
{
    auto w = start();
    ASSERT_TRUE(w);
    const HostSetup setup{true, 2, 2, 44100.0};
    prepare(*w, setup);
    const Signal in = tones(2, 4000);
    // Index 1 is the gain, 0..10: position 0.2 is 2.0.
    w->sliceLengths().clear();
    w->addHostEvent({700, CAudioHostEvent::KindParam, 1, 0.2});
    Signal out = processOne(*w, setup, in, 0, 1300);
    EXPECT_EQ(w->sliceLengths(), (std::vector<int32_t>{512, 188, 512, 88}));
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 0; i < 1300; ++i)
            ASSERT_EQ(out[c][i], (i < 700 ? 1.0 : 2.0) * in[c][i]) << c << " " << i;

    // The list went with its block: the next one runs at the new gain.
    out = processOne(*w, setup, in, 1300, 1300);
    for (size_t i = 0; i < 1300; ++i)
        ASSERT_EQ(out[0][i], 2.0 * in[0][1300 + i]) << i;

    // Handed in out of order; at one offset the host's order stands, so the last wins.
    w->sliceLengths().clear();
    w->addHostEvent({900, CAudioHostEvent::KindParam, 1, 0.3});
    w->addHostEvent({300, CAudioHostEvent::KindParam, 1, 0.5});
    w->addHostEvent({300, CAudioHostEvent::KindParam, 1, 0.4});
    w->addHostEvent({300, CAudioHostEvent::KindMidi, 64, 1.0});
    w->addHostEvent({0, CAudioHostEvent::KindMidi, 7, 0.5});
    out = processOne(*w, setup, in, 0, 1300);
    EXPECT_EQ(w->sliceLengths(), (std::vector<int32_t>{300, 512, 88, 400}));
    for (size_t i = 0; i < 1300; ++i)
        ASSERT_EQ(out[1][i], (i < 300 ? 2.0 : i < 900 ? 4.0 : 3.0) * in[1][i]) << i;
    ASSERT_EQ(w->midi.size(), 2u);
    EXPECT_EQ(w->midi[0].index, 7);
    EXPECT_EQ(w->midi[1].index, 64);

    // Offsets past the block apply at its last sample; an index the host doesn't have is
    // ignored.
    w->sliceLengths().clear();
    w->addHostEvent({5000, CAudioHostEvent::KindParam, 1, 0.1});
    w->addHostEvent({-5, CAudioHostEvent::KindParam, 99, 0.1});
    out = processOne(*w, setup, in, 0, 100);
    EXPECT_EQ(w->sliceLengths(), (std::vector<int32_t>{99, 1}));
    EXPECT_EQ(out[0][98], 3.0 * in[0][98]);
    EXPECT_EQ(out[0][99], 1.0 * in[0][99]);
}

TEST_F(WrapperInstance, EventRoomIsFixed)
{
    auto w = start();
    ASSERT_TRUE(w);
    for (int32_t i = 0; i < CAudioWrapper::kMaxHostEvents; ++i)
        ASSERT_TRUE(w->addHostEvent({i % 64, CAudioHostEvent::KindMidi, i, 0.0}));
    EXPECT_FALSE(w->addHostEvent({0, CAudioHostEvent::KindMidi, -1, 0.0}));
    const HostSetup setup;
    prepare(*w, setup);
    w->midi.reserve(size_t(CAudioWrapper::kMaxHostEvents));
    processOne(*w, setup, tones(2, 64), 0, 64);
    ASSERT_EQ(w->midi.size(), size_t(CAudioWrapper::kMaxHostEvents));
    // Sorted by offset, each offset in the order given.
    for (size_t k = 1; k < w->midi.size(); ++k) {
        const auto& a = w->midi[k - 1];
        const auto& b = w->midi[k];
        ASSERT_TRUE(a.offset < b.offset || (a.offset == b.offset && a.index < b.index)) << k;
    }
    EXPECT_TRUE(w->addHostEvent({0, CAudioHostEvent::KindMidi, 0, 0.0}));
}

TEST_F(WrapperInstance, BlockOfNoSamplesChangesNothing)
{
    auto w = start();
    ASSERT_TRUE(w);
    const HostSetup setup;
    prepare(*w, setup);
    const Signal in = tones(2, 64);
    processOne(*w, setup, in, 0, 64);
    const double position = w->audioEnv()->streamPosition();
    w->sliceLengths().clear();
    w->addHostEvent({0, CAudioHostEvent::KindParam, 1, 0.5});
    const Signal out = processOne(*w, setup, in, 0, 0, 7.0);
    EXPECT_TRUE(out[0].empty());
    EXPECT_TRUE(w->sliceLengths().empty());
    EXPECT_EQ(w->audioEnv()->streamPosition(), position);
    EXPECT_EQ(w->value("plugin.modMain.gain.gain"), 1.0);
    // Its event waits for the next block.
    const Signal next = processOne(*w, setup, in, 0, 64);
    EXPECT_EQ(w->value("plugin.modMain.gain.gain"), 5.0);
    EXPECT_EQ(next[0][0], asFloat(5.0 * asFloat(in[0][0])));
    // Or is applied without audio when the binding asks.
    w->addHostEvent({10, CAudioHostEvent::KindParam, 1, 0.1});
    w->flushHostEvents();
    EXPECT_EQ(w->value("plugin.modMain.gain.gain"), 1.0);
}

TEST_F(WrapperInstance, SameOutputWhateverTheBlockLengths)
{
    auto w = start();
    ASSERT_TRUE(w);
    constexpr size_t kLatency = 100;
    w->set("plugin.modMain.delay.latency", double(kLatency));
    w->set("plugin.modMain.gain.gain", 2.5);
    const Signal in = tones(2, 40000);
    std::mt19937 random(7);
    std::vector<int32_t> randomLengths;
    for (int i = 0; i < 64; ++i)
        randomLengths.push_back(int32_t(random() % 4096) + 1);

    for (bool isDouble : {false, true}) {
        SCOPED_TRACE(isDouble ? "64-bit" : "32-bit");
        const HostSetup setup{isDouble, 2, 2, 44100.0};
        prepare(*w, setup);
        const Signal whole = processAll(*w, setup, in, {40000});
        EXPECT_EQ(w->queryLatency(), int32_t(kLatency));
        for (size_t c = 0; c < 2; ++c) {
            for (size_t i = 0; i < in[c].size(); ++i) {
                const double x = i < kLatency ? 0.0 : in[c][i - kLatency];
                ASSERT_EQ(whole[c][i], isDouble ? 2.5 * x : asFloat(2.5 * asFloat(x))) << c << " " << i;
            }
        }
        for (const auto& lengths : {std::vector<int32_t>{1}, std::vector<int32_t>{1, 37, 512, 4096, 9000},
                                    std::vector<int32_t>{4096}, randomLengths}) {
            prepare(*w, setup);
            w->stopProcessing();
            w->startProcessing();
            const size_t n = lengths.size() == 1 && lengths[0] == 1 ? 3000 : in[0].size();
            Signal part{Signal::value_type(in[0].begin(), in[0].begin() + std::ptrdiff_t(n)),
                        Signal::value_type(in[1].begin(), in[1].begin() + std::ptrdiff_t(n))};
            const Signal out = processAll(*w, setup, part, lengths);
            for (size_t c = 0; c < 2; ++c)
                ASSERT_TRUE(std::equal(out[c].begin(), out[c].end(), whole[c].begin())) << c << " " << lengths.size();
        }
    }
}

TEST_F(WrapperInstance, HostChannelsMapOneToOne)
{
    auto w = start();
    ASSERT_TRUE(w);
    Signal in = tones(2, 2000);
    for (double& x : in[1])
        x *= -0.5;

    // Stereo: each channel to its own.
    HostSetup setup{true, 2, 2, 44100.0};
    prepare(*w, setup);
    Signal out = processAll(*w, setup, in, {700});
    EXPECT_EQ(out, in);

    // A null channel reads as silence.
    Signal holed = in;
    holed[1].clear();
    out = processAll(*w, setup, holed, {700});
    EXPECT_EQ(out[0], in[0]);
    EXPECT_EQ(out[1], std::vector<double>(in[1].size(), 0.0));

    // Outputs beyond the inputs are silent, whatever the buffers held.
    setup = HostSetup{false, 1, 3, 44100.0};
    prepare(*w, setup);
    out = processAll(*w, setup, Signal{in[0]}, {700});
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_EQ(out[0][i], asFloat(in[0][i])) << i;
    EXPECT_EQ(out[1], std::vector<double>(in[0].size(), 0.0));
    EXPECT_EQ(out[2], std::vector<double>(in[0].size(), 0.0));

    // More inputs than outputs: the extra ones are dropped.
    setup = HostSetup{true, 2, 1, 44100.0};
    prepare(*w, setup);
    out = processAll(*w, setup, in, {700});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], in[0]);
}

TEST_F(WrapperInstance, InterleavedInputIsRead)
{
    auto w = start();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.gain.gain", 0.5);
    const Signal in = tones(3, 1500);
    for (bool isDouble : {false, true}) {
        SCOPED_TRACE(isDouble ? "64-bit" : "32-bit");
        w->stopProcessing();
        w->setChannelCounts(3, isDouble, true, 0, false, false);
        w->setOutputCount(3, true);
        w->startProcessing();
        std::vector<double> frames64;
        std::vector<float> frames32;
        for (size_t i = 0; i < 1500; ++i)
            for (size_t c = 0; c < 3; ++c) {
                frames64.push_back(in[c][i]);
                frames32.push_back(float(in[c][i]));
            }
        void* inputs[] = {isDouble ? static_cast<void*>(frames64.data()) : static_cast<void*>(frames32.data())};
        std::vector<std::vector<double>> out(3, std::vector<double>(1500, 7.0));
        void* outputs[] = {out[0].data(), out[1].data(), out[2].data()};
        w->processBlock(inputs, outputs, 1500);
        for (size_t c = 0; c < 3; ++c)
            for (size_t i = 0; i < 1500; ++i)
                ASSERT_EQ(out[c][i], 0.5 * (isDouble ? in[c][i] : asFloat(in[c][i]))) << c << " " << i;
    }
}

TEST_F(WrapperInstance, StartAndStopAreIdempotent)
{
    auto w = start();
    ASSERT_TRUE(w);
    CAudioEnv& env = *w->audioEnv();
    EXPECT_FALSE(env.isActive());
    w->sliceLengths().clear();
    const double position = env.streamPosition();
    w->startProcessing();
    EXPECT_TRUE(env.isActive());
    w->startProcessing();
    // One primer: a pass of one sample.
    EXPECT_EQ(w->sliceLengths(), std::vector<int32_t>{1});
    EXPECT_NEAR(env.streamPosition() - position, 1.0 / 44100.0, 1e-15);
    w->stopProcessing();
    w->stopProcessing();
    EXPECT_FALSE(env.isActive());
    EXPECT_EQ(w->sliceLengths(), (std::vector<int32_t>{1, 1}));
    // Changes made while stopped reach the audio side with the next start.
    w->set("plugin.modMain.gain.gain", 4.0);
    w->startProcessing();
    EXPECT_EQ(w->param("plugin.modMain.gain.gain")->audioValues().getValue(0, 0, 0.0), 4.0);
}

TEST_F(WrapperInstance, LatencyChangeIsReportedUntilQueried)
{
    auto w = start();
    ASSERT_TRUE(w);
    const HostSetup setup;
    prepare(*w, setup);
    const Signal in = tones(2, 4096);
    processOne(*w, setup, in, 0, 256);
    EXPECT_EQ(w->latencyChanges, 0);

    w->set("plugin.modMain.delay.latency", 64.0);
    processOne(*w, setup, in, 0, 256);
    EXPECT_EQ(w->latencyChanges, 1);
    EXPECT_EQ(w->value("plugin.modMain.host-latency-change"), 1.0);
    processOne(*w, setup, in, 0, 256);
    EXPECT_EQ(w->latencyChanges, 1);

    EXPECT_EQ(w->queryLatency(), 64);
    EXPECT_EQ(w->value("plugin.modMain.host-latency-change"), 0.0);
    // Once reported, a query leaves the notice alone.
    w->set("plugin.modMain.host-latency-change", 1.0);
    EXPECT_EQ(w->queryLatency(), 64);
    EXPECT_EQ(w->value("plugin.modMain.host-latency-change"), 1.0);
}

// One program without a built-in bank: CAudioWrapperVST3SidechainTest; bad slots and the
// current program loaded again: CAudioWrapperStateTest.

TEST_F(WrapperInstance, StateRoundTripsByteForByte)
{
    auto a = start();
    ASSERT_TRUE(a);
    a->set("plugin.modMain.levels", 9.0, 0);
    a->param("plugin.modMain.levels")->setElementValue(-4.5, 2, 4, nullptr);
    a->set("plugin.modMain.gain.gain", 3.25, 7);
    a->set("plugin.modMain.bypass-enable", 1.0);
    CAudioParamUpdateContext context;
    CAudioParam* points = a->param("plugin.modMain.points");
    const double pair[2] = {50.0, 60.0};
    CAudioParamChange change;
    {
        CLockGuard guard(points->lock());
        change = points->values().makeChange(0, 1, 1, false);
    }
    change.values = pair;
    points->change(change, context);
    a->param("plugin.modMain.label")->setString(0, 0, CString::fromUtf8("Schöne Grüße"), nullptr, context);
    a->set("plugin.modMain.scratch", 0.5);
    const Bytes state = savedState(*a);
    EXPECT_EQ(savedState(*a), state);

    auto b = startedWrapper();
    ASSERT_TRUE(b);
    b->set("plugin.modMain.scratch", 0.25);
    b->set("plugin.modMain.gain.gain", 6.0, 5);
    CErrorPtr error = loadState(*b, state);
    ASSERT_FALSE(error) << error->text().toUtf8();
    EXPECT_EQ(savedState(*b), state);
    EXPECT_EQ(b->value("plugin.modMain.levels", 0, 0), 9.0);
    EXPECT_EQ(b->value("plugin.modMain.levels", 2, 4), -4.5);
    EXPECT_EQ(b->value("plugin.modMain.levels", 2, 1), 2.0);
    EXPECT_EQ(b->value("plugin.modMain.gain.gain", 7), 3.25);
    // A group the state leaves out reads as the default again.
    EXPECT_EQ(b->value("plugin.modMain.gain.gain", 5), 1.0);
    EXPECT_EQ(b->param("plugin.modMain.label")->getString(0, 0).toUtf8(), "Schöne Grüße");
    // Only storable and persistent parameters travel.
    EXPECT_EQ(b->value("plugin.modMain.scratch"), 0.25);

    // The audio side follows the loaded values.
    const HostSetup setup{true, 1, 1, 44100.0};
    prepare(*b, setup);
    EXPECT_EQ(b->param("plugin.modMain.levels")->audioValues().getElementValue(2, 4, 0, 0.0), -4.5);
}

TEST_F(WrapperInstance, DamagedStateChangesNothing)
{
    auto a = start();
    ASSERT_TRUE(a);
    a->set("plugin.modMain.levels", 9.0, 1);
    const Bytes good = savedState(*a);
    auto b = startedWrapper();
    ASSERT_TRUE(b);
    b->set("plugin.modMain.gain.gain", 7.0, 2);
    CAudioParamUpdateContext context;
    b->param("plugin.modMain.label")->setString(0, 0, CString("Mine"), nullptr, context);
    const Bytes before = savedState(*b);

    // Nothing changes, and nothing goes to the audio side either.
    auto expectRejected = [&](const Bytes& bytes, const std::string& what) {
        SCOPED_TRACE(what);
        const size_t queued = b->paramCollector()->pendingCount();
        CErrorPtr error = loadState(*b, bytes);
        EXPECT_TRUE(error);
        EXPECT_EQ(savedState(*b), before);
        EXPECT_EQ(b->paramCollector()->pendingCount(), queued);
    };
    expectRejected({}, "empty");
    for (size_t n = 1; n < good.size(); ++n)
        expectRejected(Bytes(good.begin(), good.begin() + std::ptrdiff_t(n)), "truncated to " + std::to_string(n));
    std::mt19937 random(11);
    for (int k = 0; k < 50; ++k) {
        Bytes garbage(size_t(random() % 200 + 1));
        for (auto& byte : garbage)
            byte = uint8_t(random());
        expectRejected(garbage, "garbage " + std::to_string(k));
    }
    // A flipped bit anywhere in the block is caught by a check, or turns the compressed
    // stream into another spelling of the same data (a match copying zeros from elsewhere).
    for (size_t at = 0; at < good.size(); ++at) {
        Bytes flipped = good;
        flipped[at] ^= 0x10;
        if (CErrorPtr error = loadState(*b, flipped)) {
            ASSERT_EQ(savedState(*b), before) << at;
            continue;
        }
        EXPECT_EQ(savedState(*b), good) << at << " of " << good.size();
        ASSERT_FALSE(loadState(*b, before));
    }

    // Well-formed blocks of the wrong kind or with damaged payloads.
    const Bytes gainBlob = floatBlob({{2.0}});
    const Bytes goodPayload = presetPayload("k27w:Default", {{"gain.gain", gainBlob}});
    ASSERT_FALSE(loadState(*b, stateBlock(goodPayload)));
    ASSERT_FALSE(loadState(*b, before));
    expectRejected(stateBlock(goodPayload, makeTag("abnk")), "foreign tag");
    expectRejected(stateBlock(presetPayload("QMIO:Default", {{"gain.gain", gainBlob}})), "another preset family");
    expectRejected(stateBlock(presetPayload("Default", {{"gain.gain", gainBlob}})), "no preset family");
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"gain.gain", gainBlob}}, 2)), "count beyond the entries");
    Bytes trailing = goodPayload;
    trailing.push_back(0);
    expectRejected(stateBlock(trailing), "trailing byte");
    Bytes longBlob = gainBlob;
    longBlob.push_back(0);
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"gain.gain", longBlob}})), "trailing byte in an entry");
    Bytes shortBlob(gainBlob.begin(), gainBlob.end() - 1);
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"gain.gain", shortBlob}})), "entry cut short");
    Bytes oversized = goodPayload;
    oversized[oversized.size() - gainBlob.size() - 4] += 1;
    expectRejected(stateBlock(oversized), "blob size beyond the data");
    Bytes version2 = gainBlob;
    version2[4 + std::strlen("audio.modMain.gain.gain")] = 2;
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"gain.gain", version2}})), "storage version");
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"gain.gain", floatBlob({{2.0, 3.0}}, 2)}})),
                   "known parameter in another shape");
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"gain.gain", floatBlob({{kNaN}})}})), "NaN");
    expectRejected(stateBlock(presetPayload("k27w:Default",
                                            {{"gain.gain", floatBlob(std::vector<std::vector<double>>(9, {1.0}))}})),
                   "more groups than the instance has");
    // A damaged entry fails the whole state, however many good ones come before it.
    expectRejected(stateBlock(presetPayload("k27w:Default", {{"bypass-enable", floatBlob({{1.0}})},
                                                             {"gain.gain", floatBlob({{kInf}})}})),
                   "bad entry behind a good one");
}

TEST_F(WrapperInstance, StateWithoutAParameterResetsItToDefaults)
{
    auto w = start();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.levels", 9.0, 1);
    w->set("plugin.modMain.bypass-enable", 1.0);
    CAudioParamUpdateContext context;
    w->param("plugin.modMain.label")->setString(0, 0, CString("Mine"), nullptr, context);
    w->set("plugin.modMain.scratch", 0.25);

    // Entries of parameters this instance doesn't define, or doesn't store, are left aside
    // unread; a key decides, whatever definition name its entry carries; values beyond the
    // range are brought into it; a key twice keeps its last entry.
    ByteBuilder p;
    p.str("k27w:Older").u32(6);
    p.str("gain.gain").u32(0);
    p.str("gain.gain");
    const Bytes gain = floatBlob({{2.0}, {}, {50.0}}, 1, "audio.modOther.gain");
    p.u32(uint32_t(gain.size()));
    p.bytes.insert(p.bytes.end(), gain.begin(), gain.end());
    p.str("later").u32(3);
    p.bytes.insert(p.bytes.end(), {0xde, 0xad, 0xbe});
    const Bytes scratch = floatBlob({{0.75}}, 1, "audio.modMain.scratch");
    p.str("scratch").u32(uint32_t(scratch.size()));
    p.bytes.insert(p.bytes.end(), scratch.begin(), scratch.end());
    p.str("zzz").u32(0);
    p.str("").u32(0);
    CErrorPtr error = loadState(*w, stateBlock(p.bytes));
    ASSERT_FALSE(error) << error->text().toUtf8();
    EXPECT_EQ(w->value("plugin.modMain.gain.gain", 0), 2.0);
    EXPECT_EQ(w->value("plugin.modMain.gain.gain", 1), 1.0);
    EXPECT_EQ(w->value("plugin.modMain.gain.gain", 2), 10.0);
    EXPECT_EQ(w->value("plugin.modMain.levels", 1, 0), 1.0);
    EXPECT_EQ(w->value("plugin.modMain.levels", 1, 2), 3.0);
    EXPECT_EQ(w->value("plugin.modMain.bypass-enable"), 0.0);
    EXPECT_EQ(w->param("plugin.modMain.label")->getString(0, 0).toUtf8(), "Default");
    // A key this build has no definition for names a parameter that stays without one:
    // its bytes are never read.
    const CAudioParam* later = w->paramCollector()->findParam(CString("plugin.modMain.later"));
    EXPECT_TRUE(!later || !later->info());
    EXPECT_EQ(w->value("plugin.modMain.scratch"), 0.25);
}

TEST_F(WrapperInstance, NonFiniteInputLeavesNoTrace)
{
    auto w = start();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.delay.latency", 32.0);
    for (bool isDouble : {false, true}) {
        SCOPED_TRACE(isDouble ? "64-bit" : "32-bit");
        const HostSetup setup{isDouble, 2, 2, 44100.0};
        prepare(*w, setup);
        Signal bad(2, std::vector<double>(1000, kNaN));
        bad[1].assign(1000, kInf);
        bad[0][10] = -kInf;
        bad[1][20] = -kNaN;
        processAll(*w, setup, bad, {256});
        const Signal in = tones(2, 44100);
        const Signal out = processAll(*w, setup, in, {256});
        for (size_t c = 0; c < 2; ++c)
            for (size_t i = 0; i < out[c].size(); ++i) {
                ASSERT_TRUE(std::isfinite(out[c][i])) << c << " " << i;
                if (i >= 32) {
                    ASSERT_EQ(out[c][i], isDouble ? in[c][i - 32] : asFloat(in[c][i - 32])) << c << " " << i;
                }
            }
    }
}

TEST_F(WrapperInstance, NoDenormalsAfterTheSignalStops)
{
    auto w = start();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.gain.gain", 1e-3);
    EXPECT_FALSE(CScopedDenormalFlush::isActive());
    for (bool isDouble : {false, true}) {
        SCOPED_TRACE(isDouble ? "64-bit" : "32-bit");
        const HostSetup setup{isDouble, 2, 2, 44100.0};
        prepare(*w, setup);
        Signal in = tones(2, 88200);
        // The tone stops at one second; denormal numbers follow it.
        for (size_t c = 0; c < 2; ++c)
            for (size_t i = 44100; i < 88200; ++i)
                in[c][i] = i % 3 == 0 ? (isDouble ? 1e-310 : 1e-40) : 0.0;
        const Signal out = processAll(*w, setup, in, {1000});
        for (size_t c = 0; c < 2; ++c)
            for (size_t i = 0; i < out[c].size(); ++i) {
                const bool isSubnormal = isDouble ? std::fpclassify(out[c][i]) == FP_SUBNORMAL
                                                  : std::fpclassify(float(out[c][i])) == FP_SUBNORMAL;
                ASSERT_FALSE(isSubnormal) << c << " " << i;
                if (i >= 44100) {
                    ASSERT_EQ(out[c][i], 0.0) << c << " " << i;
                }
            }
        // The block's floating-point mode was the block's alone.
        EXPECT_FALSE(CScopedDenormalFlush::isActive());
    }
}

TEST_F(WrapperInstance, EditsReachTheHostByIndex)
{
    auto w = start();
    ASSERT_TRUE(w);
    CAudioParam* gain = w->param("plugin.modMain.gain.gain");
    CAudioParam* levels = w->param("plugin.modMain.levels");
    w->beginParamEdit(gain, 0, 0);
    w->endParamEdit(gain, 0, 0);
    w->beginParamEdit(levels, 0, 1);
    w->beginParamEdit(levels, 0, 0);
    w->beginParamEdit(levels, 1, 1);
    w->beginParamEdit(w->param("plugin.modMain.scratch"), 0, 0);
    EXPECT_EQ(w->begins, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(w->ends, std::vector<int32_t>{1});

    // A change from inside reaches the host with the parameter's index and position.
    w->extChanges.clear();
    levels->setElementValue(50.0, 0, 1, nullptr);
    ASSERT_EQ(w->extChanges.size(), 1u);
    EXPECT_EQ(w->extChanges[0].index, 2);
    EXPECT_DOUBLE_EQ(w->extChanges[0].value, 0.75);
}

TEST_F(WrapperInstance, WindowFollowsStoredScaleAndSize)
{
    struct Case
    {
        const char* useSystemScale;
        const char* scale2;
        const char* scale;
        double expected;
    };
    for (const Case& c : {Case{"true", "1.5", "1.0", 1.5}, Case{"true", "1.12", "1.0", 1.1}, Case{"true", "0.5", "1.0", 0.8},
                          Case{"true", "big", "1.0", 1.0}, Case{"false", "1.5", "2.0", 2.0}, Case{"0", "1.5", "1.25", 1.25}}) {
        SCOPED_TRACE(std::string(c.useSystemScale) + " " + c.scale2 + " " + c.scale);
        CAppData::local().setString(CString("ui-scale-usesr"), CString(c.useSystemScale), nullptr);
        CAppData::local().setString(CString("ui-scale2"), CString(c.scale2), nullptr);
        CAppData::local().setString(CString("ui-scale"), CString(c.scale), nullptr);
        auto w = start();
        ASSERT_TRUE(w);
        EXPECT_NEAR(w->windowScale(), c.expected, 1e-12);
        EXPECT_EQ(w->windowWidth(), int32_t(std::lround(500 * c.expected)));
        EXPECT_EQ(w->windowHeight(), int32_t(std::lround(200 * c.expected)));
        EXPECT_EQ(w->minWindowWidth(), int32_t(std::lround(300 * c.expected)));
        EXPECT_EQ(w->minWindowHeight(), int32_t(std::lround(150 * c.expected)));
        w.reset();
        m_app.reset();
    }
    CAppData::local().setString(CString("ui-scale-usesr"), CString("true"), nullptr);
    CAppData::local().setString(CString("ui-scale2"), CString("1.0"), nullptr);
    CAppData::local().setString(CString("ui-scale"), CString("1.0"), nullptr);

    // With resizing the window follows the size parameter.
    auto w = start("WrapperResizing.xml");
    ASSERT_TRUE(w);
    EXPECT_TRUE(w->useWindowResizing());
    CAudioParam* size = w->param("plugin.modMain.main-window-size");
    size->setElementValue(640.0, 0, 0, nullptr);
    size->setElementValue(360.0, 0, 1, nullptr);
    EXPECT_EQ(w->windowWidth(), 640);
    EXPECT_EQ(w->windowHeight(), 360);
    // Never below the project's minimum.
    size->setElementValue(100.0, 0, 0, nullptr);
    EXPECT_EQ(w->windowWidth(), 300);
    EXPECT_EQ(w->windowHeight(), 360);
}

} // namespace
