#include "Audio/VST/CAudioWrapperVST3.h"

#include "../../Definitions/ProductBankFacts.h"
#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioPreset.h"
#include "Audio/VST/CVST3SpeakerLayout.h"
#include "Core/CByteArray.h"
#include "Core/CObject.h"
#include "Core/CWriteSeqBuffer.h"
#include "ProductTestFixture.h"
#include "VST3TestSupport.h"

#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivstunits.h"
#include "pluginterfaces/vst/vstspeaker.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace qel {
namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;

// The product's host parameters; the program list (id 999) follows them.
constexpr int32 kExtCount = 6;
constexpr ParamID kOutGain = 5;

// Opens the binding's inner calls to the test and records the host events it applies.
class CTestWrapper : public CAudioWrapperVST3
{
public:
    void onHostParamEvent(const CAudioHostEvent& event) override
    {
        hostEvents.push_back(event);
        CAudioWrapperVST3::onHostParamEvent(event);
    }
    void changeLatency() { onLatencyChanged(); }
    void changeExtParam(int index, double norm) { onExtParamChanged(index, norm); }
    using CAudioWrapperVST3::isLatencyRestartPending;

    std::vector<CAudioHostEvent> hostEvents;
};

std::u16string text(const String128 s)
{
    return std::u16string(s);
}

// A block of silence in the host's format, two channels in and out, the outputs at 1.
struct HostBlock
{
    explicit HostBlock(int32 samples)
        : in(2, std::vector<float>(size_t(samples), 0.0f)), out(2, std::vector<float>(size_t(samples), 1.0f))
    {
        inBus.numChannels = outBus.numChannels = 2;
        inBus.channelBuffers32 = inPtrs;
        outBus.channelBuffers32 = outPtrs;
        data = test::realtimeBlock(&inBus, 1, &outBus, 1, samples, kSample32);
    }

    std::vector<std::vector<float>> in, out;
    float* inPtrs[2] = {in[0].data(), in[1].data()};
    float* outPtrs[2] = {out[0].data(), out[1].data()};
    AudioBusBuffers inBus, outBus;
    ProcessData data;
};

class CAudioWrapperVST3Test : public test::ProductTestFixture
{
protected:
    void SetUp() override
    {
        test::ProductTestFixture::SetUp();
        m_wrapper = new CTestWrapper;
        ASSERT_EQ(m_wrapper->initialize(&m_host), kResultOk);
        ASSERT_EQ(m_wrapper->setComponentHandler(&m_handler), kResultTrue);
    }

    void TearDown() override
    {
        if (m_wrapper) {
            m_wrapper->terminate();
            EXPECT_EQ(m_wrapper->release(), 0u);
        }
        test::ProductTestFixture::TearDown();
    }

    std::vector<uint8_t> state()
    {
        test::CTestByteStream stream;
        EXPECT_EQ(m_wrapper->getState(&stream), kResultOk);
        return stream.data;
    }

    std::u16string valueText(ParamID id, ParamValue norm)
    {
        String128 s = {};
        EXPECT_EQ(m_wrapper->getParamStringByValue(id, norm, s), kResultTrue);
        return text(s);
    }

    test::CTestHostContext m_host;
    test::CTestComponentHandler m_handler;
    CTestWrapper* m_wrapper = nullptr;
};

// ---- parameters and programs

TEST_F(CAudioWrapperVST3Test, HostParametersAreTheProductsRowsThenTheProgramList)
{
    struct Row
    {
        const char16_t *title, *units;
        double defaultNorm;
        const char16_t *atMin, *atDefault, *atMax;
    };
    // The bands span -3 to +9 dB, the output -12 to +12 dB, both linear in dB.
    const Row rows[] = {{u"Bypass", u"", 0.0, u"Off", u"Off", u"On"},  {u"Oversmp", u"", 0.25, u"Auto", u"1X", u"8X"},
                        {u"Lo", u"dB", 0.25, u"-3.0", u"0.0", u"9.0"}, {u"Mid", u"dB", 0.25, u"-3.0", u"0.0", u"9.0"},
                        {u"Hi", u"dB", 0.25, u"-3.0", u"0.0", u"9.0"},
                        {u"OutGain", u"dB", 0.5, u"-12.0", u"0.0", u"12.0"}};
    ASSERT_EQ(m_wrapper->getParameterCount(), kExtCount + 1);
    for (int32 i = 0; i < kExtCount; ++i) {
        SCOPED_TRACE(i);
        ParameterInfo info = {};
        ASSERT_EQ(m_wrapper->getParameterInfo(i, info), kResultTrue);
        EXPECT_EQ(info.id, ParamID(i));
        EXPECT_EQ(text(info.title), rows[i].title);
        EXPECT_EQ(text(info.units), rows[i].units);
        EXPECT_EQ(info.unitId, 0);
        EXPECT_EQ(info.flags, ParameterInfo::kCanAutomate | (i == 0 ? int32(ParameterInfo::kIsBypass) : 0));
        EXPECT_EQ(info.stepCount, i == 0 ? 1 : 0);
        EXPECT_NEAR(info.defaultNormalizedValue, rows[i].defaultNorm, 1e-12);
        EXPECT_EQ(valueText(ParamID(i), 0.0), rows[i].atMin);
        EXPECT_EQ(valueText(ParamID(i), info.defaultNormalizedValue), rows[i].atDefault);
        EXPECT_EQ(valueText(ParamID(i), 1.0), rows[i].atMax);
    }
    ParamValue norm = -1.0;
    ASSERT_EQ(m_wrapper->getParamValueByString(kOutGain, const_cast<TChar*>(u"-6"), norm), kResultTrue);
    EXPECT_NEAR(norm, 0.25, 1e-12);

    // The eight built-in programs, the first selected.
    ParameterInfo program = {};
    ASSERT_EQ(m_wrapper->getParameterInfo(kExtCount, program), kResultTrue);
    EXPECT_EQ(program.id, 999u);
    EXPECT_EQ(text(program.title), u"Program");
    EXPECT_EQ(program.flags, ParameterInfo::kIsProgramChange | ParameterInfo::kIsList);
    EXPECT_EQ(program.stepCount, 7);
    EXPECT_EQ(program.defaultNormalizedValue, 0.0);

    // Past either end the answer is false, not a read beyond the list.
    for (int32 index : {kExtCount + 1, -1, 1 << 30})
        EXPECT_EQ(m_wrapper->getParameterInfo(index, program), kResultFalse) << index;
}

TEST_F(CAudioWrapperVST3Test, TheHostsValuesAreNotEchoedAndChangesFromInsideAre)
{
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.5, 1e-12);
    ASSERT_EQ(m_wrapper->setParamNormalized(kOutGain, 0.75), kResultTrue);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.75, 1e-12);
    EXPECT_EQ(m_wrapper->setParamNormalized(1234, 0.5), kResultFalse);
    EXPECT_EQ(m_wrapper->getParamNormalized(1234), 0.0);
    EXPECT_EQ(m_handler.count("perform"), 0);

    // An id that is no row is ignored.
    m_wrapper->changeExtParam(int(kOutGain), 0.25);
    m_wrapper->changeExtParam(77, 0.5);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.25, 1e-12);
    ASSERT_EQ(m_handler.count("perform"), 1);
    EXPECT_EQ(m_handler.calls.back().id, int32(kOutGain));
    EXPECT_EQ(m_handler.calls.back().value, 0.25);
}

TEST_F(CAudioWrapperVST3Test, OneRootUnitWithAProgramListOfTheBuiltInPresets)
{
    ASSERT_EQ(m_wrapper->getUnitCount(), 1);
    UnitInfo unit = {};
    ASSERT_EQ(m_wrapper->getUnitInfo(0, unit), kResultTrue);
    EXPECT_EQ(unit.id, 0);
    EXPECT_EQ(unit.parentUnitId, kNoParentUnitId);
    EXPECT_EQ(unit.programListId, 999);
    EXPECT_EQ(text(unit.name), u"Root");
    EXPECT_EQ(m_wrapper->getUnitInfo(1, unit), kResultFalse);
    EXPECT_EQ(m_wrapper->getSelectedUnit(), 0);
    EXPECT_EQ(m_wrapper->selectUnit(0), kResultTrue);
    EXPECT_EQ(m_wrapper->selectUnit(1), kResultFalse);

    ASSERT_EQ(m_wrapper->getProgramListCount(), 1);
    ProgramListInfo list = {};
    ASSERT_EQ(m_wrapper->getProgramListInfo(0, list), kResultTrue);
    EXPECT_EQ(list.id, 999);
    EXPECT_EQ(text(list.name), u"Programs");
    EXPECT_EQ(list.programCount, 8);
    EXPECT_EQ(m_wrapper->getProgramListInfo(1, list), kResultFalse);

    // The host shows each program by its number and name.
    String128 name = {};
    for (int32 i = 0; i < 8; ++i) {
        ASSERT_EQ(m_wrapper->getProgramName(999, i, name), kResultTrue);
        EXPECT_EQ(CString(name), CString::fromUtf8(std::to_string(i + 1) + " " + test::kFactoryNames[i]));
    }
    for (const auto& [listId, index] : {std::pair{999, 8}, std::pair{999, -1}, std::pair{998, 0}})
        EXPECT_EQ(m_wrapper->getProgramName(listId, index, name), kResultFalse) << listId << " " << index;
    ParamValue norm = -1.0;
    EXPECT_EQ(m_wrapper->getParamValueByString(999, const_cast<TChar*>(u"Drum Bus"), norm), kResultTrue);
    EXPECT_DOUBLE_EQ(norm, 5.0 / 7.0);
}

TEST_F(CAudioWrapperVST3Test, AProgramChangeFromTheHostIsNotEchoedAndOneFromElsewhereIsAnnounced)
{
    m_handler.calls.clear();
    ASSERT_EQ(m_wrapper->setParamNormalized(999, 6.0 / 7.0), kResultTrue);
    EXPECT_EQ(m_wrapper->currentProgram(), 6);
    EXPECT_DOUBLE_EQ(m_wrapper->getParamNormalized(999), 6.0 / 7.0);
    // Fuller Bass: Lo at +6 dB, the top flat (-3 to +9 dB), the output at -2.5 dB (-12 to
    // +12 dB); the host hears of each as an edit, and of no program change.
    EXPECT_NEAR(m_wrapper->getParamNormalized(2), (6.0 + 3.0) / 12.0, 1e-9);
    EXPECT_NEAR(m_wrapper->getParamNormalized(4), (0.0 + 3.0) / 12.0, 1e-9);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), (-2.5 + 12.0) / 24.0, 1e-9);
    EXPECT_EQ(m_handler.count("program-list"), 0);
    bool toldLo = false;
    for (const auto& call : m_handler.calls) {
        EXPECT_NE(call.id, 999);
        toldLo = toldLo || (call.what == "perform" && call.id == 2);
    }
    EXPECT_TRUE(toldLo);

    // A change from elsewhere goes to the host on the program parameter, and the whole list
    // is marked changed (-1).
    m_handler.calls.clear();
    ASSERT_FALSE(m_wrapper->loadProgram(3, nullptr));
    std::vector<std::string> order;
    for (const auto& call : m_handler.calls)
        if (call.id == 999)
            order.push_back(call.what + ":" + std::to_string(call.value));
    EXPECT_EQ(order, (std::vector<std::string>{"begin:" + std::to_string(0.0), "perform:" + std::to_string(3.0 / 7.0),
                                               "end:" + std::to_string(0.0), "program-list:" + std::to_string(-1.0)}));
    EXPECT_DOUBLE_EQ(m_wrapper->getParamNormalized(999), 3.0 / 7.0);
}

// ---- buses

TEST_F(CAudioWrapperVST3Test, StartsWithStereoBusesAndAnEventInput)
{
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kInput), 1);
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kOutput), 1);
    EXPECT_EQ(m_wrapper->getBusCount(kEvent, kInput), 1);
    EXPECT_EQ(m_wrapper->getBusCount(kEvent, kOutput), 0);
    BusInfo info = {};
    for (const auto& [type, dir, name, channels] : {std::tuple{kAudio, kInput, u"Audio In", 2},
                                                    std::tuple{kAudio, kOutput, u"Audio Out", 2},
                                                    std::tuple{kEvent, kInput, u"MIDI In", 1}}) {
        ASSERT_EQ(m_wrapper->getBusInfo(type, dir, 0, info), kResultTrue);
        EXPECT_EQ(text(info.name), name);
        EXPECT_EQ(info.channelCount, channels);
        EXPECT_EQ(info.busType, kMain);
        EXPECT_TRUE(info.flags & BusInfo::kDefaultActive);
    }

    // Indices and directions the lists do not have are refused.
    EXPECT_EQ(m_wrapper->getBusInfo(kAudio, kInput, 1, info), kInvalidArgument);
    EXPECT_EQ(m_wrapper->getBusInfo(kAudio, kInput, -1, info), kInvalidArgument);
    EXPECT_EQ(m_wrapper->getBusInfo(kEvent, kOutput, 0, info), kInvalidArgument);
    EXPECT_EQ(m_wrapper->activateBus(kAudio, kOutput, 3, true), kInvalidArgument);
    EXPECT_EQ(m_wrapper->activateBus(kAudio, kOutput, 0, true), kResultTrue);
    SpeakerArrangement arr = 0;
    EXPECT_EQ(m_wrapper->getBusArrangement(kInput, 1, arr), kResultFalse);
    ASSERT_EQ(m_wrapper->getBusArrangement(kInput, 0, arr), kResultTrue);
    EXPECT_EQ(arr, SpeakerArr::kStereo);
}

TEST_F(CAudioWrapperVST3Test, BusArrangementsAreAcceptedOrAnsweredWithTheNearest)
{
    struct Case
    {
        SpeakerArrangement in, out;
        tresult answer;
        SpeakerArrangement takenIn, takenOut;
    };
    const Case cases[] = {
        // 16 channels where 8 is the most: the 8-channel default on both sides.
        {0xFFFF, 0xFFFF, kResultFalse, 0x63F, 0x63F},
        // The product's I/O is symmetric: differing counts take the default of the larger.
        {SpeakerArr::kMono, SpeakerArr::kStereo, kResultFalse, 0x3, 0x3},
        {SpeakerArr::kStereo, SpeakerArr::k51, kResultFalse, 0x3F, 0x3F},
        // Equal counts within the limit stand as offered, whatever the speakers.
        {SpeakerArr::k51, SpeakerArr::k51, kResultTrue, SpeakerArr::k51, SpeakerArr::k51},
        {0xFF, 0xFF, kResultTrue, 0xFF, 0xFF},
        // An empty input takes the widest default, and the output follows it.
        {0, SpeakerArr::kStereo, kResultFalse, 0x63F, 0x63F},
    };
    for (Case c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.in << " " << c.out);
        EXPECT_EQ(m_wrapper->setBusArrangements(&c.in, 1, &c.out, 1), c.answer);
        SpeakerArrangement in = 0, out = 0;
        ASSERT_EQ(m_wrapper->getBusArrangement(kInput, 0, in), kResultTrue);
        ASSERT_EQ(m_wrapper->getBusArrangement(kOutput, 0, out), kResultTrue);
        EXPECT_EQ(in, c.takenIn);
        EXPECT_EQ(out, c.takenOut);
    }

    // Nothing offered on a side: refused. Without a sidechain, a second input is no bus.
    SpeakerArrangement two[] = {SpeakerArr::kStereo, SpeakerArr::kStereo};
    EXPECT_EQ(m_wrapper->setBusArrangements(two, 0, two, 1), kResultFalse);
    EXPECT_EQ(m_wrapper->setBusArrangements(two, 1, two, 0), kResultFalse);
    EXPECT_EQ(m_wrapper->setBusArrangements(two, 2, two, 1), kResultTrue);
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kInput), 1);
}

TEST(CVST3SpeakerLayoutTest, DefaultsAreTheLargestTableRowNotAboveTheCount)
{
    const std::pair<int32_t, uint64_t> rows[] = {{16, 0x63F}, {9, 0x63F}, {8, 0x63F}, {7, 0x63B}, {6, 0x3F},
                                                 {5, 0x3B},   {4, 0x10B}, {3, 0x103}, {2, 0x3},   {1, 0x80000}};
    for (const auto& [count, arrangement] : rows) {
        SCOPED_TRACE(count);
        EXPECT_EQ(CVST3SpeakerLayout::defaultArrangement(count), arrangement);
        EXPECT_EQ(CVST3SpeakerLayout::channelCount(arrangement), std::min(count, 8));
    }
}

TEST(CVST3SpeakerLayoutTest, LabelsFollowTheSpeakerBitsLowestFirst)
{
    const auto labels = [](uint64_t arrangement) {
        std::vector<CString> out;
        CVST3SpeakerLayout::channelLabels(arrangement, out);
        std::string joined;
        for (const CString& label : out)
            joined += label.toUtf8() + " ";
        return joined;
    };
    EXPECT_EQ(labels(0x63F), "L R C Lfe Ls Rs Sl Sr ");
    EXPECT_EQ(labels(0x80000), "M ");
    EXPECT_EQ(labels((uint64_t(1) << 27) | (uint64_t(1) << 40)), "Rcs 40 ");
}

// ---- processing

TEST(CAudioWrapperVST3PointsTest, DenseAutomationIsThinnedTo32PointsWithTheLastExact)
{
    int32_t indices[CAudioWrapperVST3::kMaxAutomationPoints];
    ASSERT_EQ(CAudioWrapperVST3::selectAutomationPoints(40, indices), 32);
    // k * 40 / 32 for k = 0..30, then the last point.
    const int32_t expected[32] = {0,  1,  2,  3,  5,  6,  7,  8,  10, 11, 12, 13, 15, 16, 17, 18,
                                  20, 21, 22, 23, 25, 26, 27, 28, 30, 31, 32, 33, 35, 36, 37, 39};
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(indices[i], expected[i]) << "at " << i;

    // Up to 32 points are all taken.
    ASSERT_EQ(CAudioWrapperVST3::selectAutomationPoints(5, indices), 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(indices[i], i);
    EXPECT_EQ(CAudioWrapperVST3::selectAutomationPoints(0, indices), 0);
    // Very long queues keep within range and end on the last point.
    ASSERT_EQ(CAudioWrapperVST3::selectAutomationPoints(1 << 30, indices), 32);
    EXPECT_EQ(indices[30], int32_t(int64_t(30) * (1 << 30) / 32));
    EXPECT_EQ(indices[31], (1 << 30) - 1);
}

TEST_F(CAudioWrapperVST3Test, ThinnedAutomationAppliesAtOnceWithoutAudioAndInTheBlockWithIt)
{
    test::CTestParamQueue outGain(kOutGain);
    for (int32 i = 0; i < 40; ++i)
        outGain.points.emplace_back(i * 10, double(i) / 39.0);
    // Neither a program change nor an id beyond the rows is automation.
    test::CTestParamQueue program(999);
    program.points.emplace_back(0, 1.0);
    test::CTestParamQueue unknown(kExtCount);
    unknown.points.emplace_back(0, 1.0);
    test::CTestParameterChanges changes;
    changes.queues = {&program, &outGain, &unknown};

    HostBlock block(64);
    block.data.numSamples = 0;
    block.data.inputParameterChanges = &changes;
    ASSERT_EQ(m_wrapper->process(block.data), kResultOk);
    // The channel counts follow the host's buses; no audio runs.
    EXPECT_EQ(m_wrapper->getInputCount(), 2);
    EXPECT_EQ(m_wrapper->getOutputCount(), 2);
    EXPECT_EQ(block.out[0][0], 1.0f);
    EXPECT_EQ(block.out[1][63], 1.0f);
    ASSERT_EQ(m_wrapper->hostEvents.size(), 32u);
    for (const CAudioHostEvent& e : m_wrapper->hostEvents) {
        EXPECT_EQ(e.kind, 1);
        EXPECT_EQ(e.index, int32_t(kOutGain));
    }
    EXPECT_EQ(m_wrapper->hostEvents[4].offset, 50);
    EXPECT_EQ(m_wrapper->hostEvents.back().offset, 390);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 1.0, 1e-12);
    EXPECT_EQ(m_handler.count("program-list"), 0);

    // A call without buses moves the parameters too.
    outGain.points = {{0, 0.125}};
    ProcessData none;
    none.symbolicSampleSize = kSample32;
    none.numSamples = 64;
    none.inputParameterChanges = &changes;
    ASSERT_EQ(m_wrapper->process(none), kResultOk);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.125, 1e-12);

    // With audio the points become the block's events, and the block ends where the last
    // one set the parameter; the host is not told of its own automation.
    ProcessSetup setup{kRealtime, kSample32, 512, 48000.0};
    ASSERT_EQ(m_wrapper->setupProcessing(setup), kResultOk);
    ASSERT_EQ(m_wrapper->setProcessing(true), kResultOk);
    outGain.points.clear();
    for (int32 i = 0; i < 40; ++i)
        outGain.points.emplace_back(i, 0.75 * (39 - i) / 39.0);
    m_wrapper->hostEvents.clear();
    block.data.numSamples = 64;
    ASSERT_EQ(m_wrapper->process(block.data), kResultOk);
    ASSERT_EQ(m_wrapper->hostEvents.size(), 32u);
    EXPECT_EQ(m_wrapper->hostEvents[4].offset, 5);
    EXPECT_EQ(m_wrapper->hostEvents.back().offset, 39);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.0, 1e-12);
    EXPECT_EQ(m_handler.count("perform"), 0);
    EXPECT_EQ(m_wrapper->setProcessing(false), kResultOk);
}

TEST_F(CAudioWrapperVST3Test, SixtyFourBitSamplesPassWithoutConversion)
{
    EXPECT_EQ(m_wrapper->canProcessSampleSize(kSample32), kResultTrue);
    EXPECT_EQ(m_wrapper->canProcessSampleSize(2), kResultFalse);
    ProcessSetup setup{kRealtime, 2, 512, 48000.0};
    EXPECT_EQ(m_wrapper->setupProcessing(setup), kResultFalse);
    ASSERT_EQ(m_wrapper->canProcessSampleSize(kSample64), kResultTrue);
    setup.symbolicSampleSize = kSample64;
    ASSERT_EQ(m_wrapper->setupProcessing(setup), kResultOk);
    ASSERT_EQ(m_wrapper->setProcessing(true), kResultOk);
    ASSERT_EQ(m_wrapper->getLatencySamples(), 0u);

    // Values a float cannot hold: a conversion on the way would change them.
    constexpr int32 n = 300;
    std::vector<double> in(n), outL(n, 9.0), outR(n, 9.0);
    for (int32 i = 0; i < n; ++i)
        in[size_t(i)] = 0.1 + 1e-12 * i;
    double* inPtrs[] = {in.data(), in.data()};
    double* outPtrs[] = {outL.data(), outR.data()};
    AudioBusBuffers inBus, outBus;
    inBus.numChannels = outBus.numChannels = 2;
    inBus.channelBuffers64 = inPtrs;
    outBus.channelBuffers64 = outPtrs;
    ProcessData data = test::realtimeBlock(&inBus, 1, &outBus, 1, n, kSample64);
    // Bypassed, the graph hands its input on as it is, once the switch's fade is over.
    ASSERT_EQ(m_wrapper->setParamNormalized(0, 1.0), kResultTrue);
    for (int call = 0; call < 4; ++call)
        ASSERT_EQ(m_wrapper->process(data), kResultOk);
    EXPECT_EQ(outL, in);
    EXPECT_EQ(outR, in);
    EXPECT_EQ(m_wrapper->setProcessing(false), kResultOk);
}

// ---- state

TEST_F(CAudioWrapperVST3Test, StateRoundTripsAndBadStateChangesNothing)
{
    const std::vector<uint8_t> original = state();
    ASSERT_FALSE(original.empty());

    // A state written after a change brings the change back, whatever the host's pieces.
    ASSERT_EQ(m_wrapper->setParamNormalized(kOutGain, 0.75), kResultTrue);
    const std::vector<uint8_t> changed = state();
    EXPECT_NE(changed, original);
    test::CTestByteStream inPieces(original, 7);
    ASSERT_EQ(m_wrapper->setState(&inPieces), kResultOk);
    EXPECT_EQ(state(), original);
    test::CTestByteStream whole(changed);
    ASSERT_EQ(m_wrapper->setState(&whole), kResultOk);
    EXPECT_EQ(state(), changed);

    // Every cut and flipped bit is tried on the wrapper itself (CAudioWrapperTest); here
    // the host hears of a refusal, whatever the bytes or the stream.
    std::vector<std::vector<uint8_t>> bad = {{}, std::vector<uint8_t>(changed.begin(), changed.end() - 1),
                                             std::vector<uint8_t>(300, 0xA5)};
    {
        // A whole preset of another family: the routing presets'.
        CAudioPreset routing(CString("QMIO:Stereo"));
        CWriteSeqBuffer sink;
        EXPECT_FALSE(routing.writeBlock(sink));
        CByteArray block;
        EXPECT_FALSE(sink.toArray(block));
        bad.emplace_back(block.data(), block.data() + block.size());
    }
    for (size_t i = 0; i < bad.size(); ++i) {
        SCOPED_TRACE(i);
        test::CTestByteStream stream(bad[i]);
        EXPECT_EQ(m_wrapper->setState(&stream), kResultFalse);
        EXPECT_EQ(state(), changed);
    }
    test::CTestByteStream failing(changed);
    failing.failReads = true;
    EXPECT_EQ(m_wrapper->setState(&failing), kResultFalse);
    EXPECT_EQ(m_wrapper->setState(nullptr), kResultFalse);
    EXPECT_EQ(state(), changed);

    test::CTestByteStream full;
    full.failWrites = true;
    EXPECT_EQ(m_wrapper->getState(&full), kResultFalse);
}

// ---- host notifications

TEST_F(CAudioWrapperVST3Test, ALatencyChangeReachesTheHostAtItsRunLoopsNextTickOrElseItsNextCall)
{
    m_wrapper->changeLatency();
    EXPECT_TRUE(m_wrapper->isLatencyRestartPending());
    EXPECT_EQ(m_handler.count("restart"), 0);
    m_wrapper->getParamNormalized(0);
    ASSERT_EQ(m_handler.count("restart"), 1);
    EXPECT_EQ(m_handler.calls.back().id, int32(kLatencyChanged));
    m_wrapper->getParamNormalized(0);
    EXPECT_EQ(m_handler.count("restart"), 1);
    // A host that asks for the latency itself has heard it: no restart follows.
    m_wrapper->changeLatency();
    m_wrapper->getLatencySamples();
    m_wrapper->getParamNormalized(0);
    EXPECT_EQ(m_handler.count("restart"), 1);

    // A second instance, made by a host that offers its run loop.
    test::CTestHostContext host(true);
    test::CTestComponentHandler handler;
    auto* wrapper = new CTestWrapper;
    ASSERT_EQ(wrapper->initialize(&host), kResultOk);
    ASSERT_EQ(wrapper->setComponentHandler(&handler), kResultTrue);
    ASSERT_NE(host.timer, nullptr);
    EXPECT_EQ(host.registrations, 1);
    EXPECT_EQ(host.intervalMs, CAudioWrapperVST3::kHostNotifyIntervalMs);
    host.tick();
    EXPECT_EQ(handler.count("restart"), 0);
    wrapper->changeLatency();
    host.tick();
    ASSERT_EQ(handler.count("restart"), 1);
    EXPECT_EQ(handler.calls.back().id, int32(kLatencyChanged));
    host.tick();
    EXPECT_EQ(handler.count("restart"), 1);
    // terminate lets go of the run loop before the host context.
    ASSERT_EQ(wrapper->terminate(), kResultOk);
    EXPECT_EQ(host.timer, nullptr);
    EXPECT_EQ(wrapper->release(), 0u);
}

// ---- life cycle and interfaces

TEST_F(CAudioWrapperVST3Test, InitializeTwiceFailsAndAfterTerminateBuildsAgain)
{
    EXPECT_EQ(m_wrapper->initialize(&m_host), kResultFalse);
    EXPECT_EQ(m_wrapper->getParameterCount(), kExtCount + 1);
    ASSERT_EQ(m_wrapper->terminate(), kResultOk);
    EXPECT_EQ(m_wrapper->getParameterCount(), 0);
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kInput), 0);
    ASSERT_EQ(m_wrapper->initialize(&m_host), kResultOk);
    EXPECT_EQ(m_wrapper->getParameterCount(), kExtCount + 1);
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kOutput), 1);
}

TEST_F(CAudioWrapperVST3Test, AnswersForItsInterfacesAndNoOthers)
{
    const TUID* supported[] = {&IComponent::iid.toTUID(),          &IAudioProcessor::iid.toTUID(),
                               &IEditController::iid.toTUID(),     &IEditController2::iid.toTUID(),
                               &IConnectionPoint::iid.toTUID(),    &IPluginBase::iid.toTUID(),
                               &IUnitInfo::iid.toTUID(),           &ChannelContext::IInfoListener::iid.toTUID(),
                               &IProcessContextRequirements::iid.toTUID(), &FUnknown::iid.toTUID()};
    for (const TUID* id : supported) {
        void* obj = nullptr;
        EXPECT_EQ(m_wrapper->queryInterface(*id, &obj), kResultOk);
        ASSERT_NE(obj, nullptr);
        static_cast<FUnknown*>(obj)->release();
    }
    void* obj = reinterpret_cast<void*>(1);
    EXPECT_EQ(m_wrapper->queryInterface(IPlugView::iid, &obj), kNoInterface);
    EXPECT_EQ(obj, nullptr);

    EXPECT_EQ(m_wrapper->getProcessContextRequirements(), 0u);
    TUID controllerId;
    EXPECT_EQ(m_wrapper->getControllerClassId(controllerId), kNotImplemented);
    // No editor yet.
    EXPECT_EQ(m_wrapper->createView(ViewType::kEditor), nullptr);
}

TEST_F(CAudioWrapperVST3Test, TakesTheChannelNameFromTheHost)
{
    auto* collector = dynamic_cast<CAudioParamCollector*>(m_wrapper->pluginObject()->findChild(CString("param-collector")));
    ASSERT_NE(collector, nullptr);
    CAudioParam* trackName = collector->getParam(CString("plugin.modMain.host-track-name"));
    ASSERT_NE(trackName, nullptr);

    test::CTestAttributeList list;
    list.setString(ChannelContext::kChannelNameKey, u"Drum bus \u00e9");
    EXPECT_EQ(m_wrapper->setChannelContextInfos(&list), kResultTrue);
    EXPECT_EQ(trackName->getString(0, 0), CString(u"Drum bus \u00e9"));

    // A list without the name leaves the last one; no list is refused.
    test::CTestAttributeList empty;
    EXPECT_EQ(m_wrapper->setChannelContextInfos(&empty), kResultTrue);
    EXPECT_EQ(trackName->getString(0, 0), CString(u"Drum bus \u00e9"));
    EXPECT_EQ(m_wrapper->setChannelContextInfos(nullptr), kInvalidArgument);
}

} // namespace
} // namespace qel
