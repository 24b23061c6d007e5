#include "Audio/VST/CAudioWrapperVST3.h"

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
#include <vector>

namespace qel {
namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;

// The product's host parameters in their order; the program list follows them.
const char16_t* const kTitles[] = {u"Bypass", u"Oversmp", u"Lo", u"Mid", u"Hi", u"OutGain"};
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
    void changeProgram() { onProgramChanged(); }
    void changeExtParam(int index, double norm) { onExtParamChanged(index, norm); }
    using CAudioWrapperVST3::isLatencyRestartPending;

    std::vector<CAudioHostEvent> hostEvents;
};

std::u16string text(const String128 s)
{
    return std::u16string(s);
}

// A block of silence in the host's format, two channels in and out.
struct HostBlock
{
    explicit HostBlock(int32 samples, int32 channels = 2)
        : in(size_t(channels), std::vector<float>(size_t(samples), 0.0f)),
          out(size_t(channels), std::vector<float>(size_t(samples), 1.0f))
    {
        for (auto& c : in)
            inPtrs.push_back(c.data());
        for (auto& c : out)
            outPtrs.push_back(c.data());
        inBus.numChannels = channels;
        inBus.channelBuffers32 = inPtrs.data();
        outBus.numChannels = channels;
        outBus.channelBuffers32 = outPtrs.data();
        data = test::realtimeBlock(&inBus, 1, &outBus, 1, samples, kSample32);
    }

    std::vector<std::vector<float>> in;
    std::vector<std::vector<float>> out;
    std::vector<float*> inPtrs;
    std::vector<float*> outPtrs;
    AudioBusBuffers inBus;
    AudioBusBuffers outBus;
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

    test::CTestRunLoop m_runLoop;
    test::CTestHostContext m_host;
    test::CTestComponentHandler m_handler;
    CTestWrapper* m_wrapper = nullptr;
};

// ---- parameters

TEST_F(CAudioWrapperVST3Test, HostParametersAreTheExtParamRowsThenTheProgramList)
{
    ASSERT_EQ(m_wrapper->getParameterCount(), kExtCount + 1);
    for (int32 i = 0; i < kExtCount; ++i) {
        SCOPED_TRACE(i);
        ParameterInfo info = {};
        ASSERT_EQ(m_wrapper->getParameterInfo(i, info), kResultTrue);
        EXPECT_EQ(info.id, ParamID(i));
        EXPECT_EQ(text(info.title), kTitles[i]);
        EXPECT_EQ(info.unitId, 0);
        EXPECT_TRUE(info.flags & ParameterInfo::kCanAutomate);
        const bool isBypass = i == 0;
        EXPECT_EQ((info.flags & ParameterInfo::kIsBypass) != 0, isBypass);
        EXPECT_EQ(info.stepCount, isBypass ? 1 : 0);
    }

    ParameterInfo program = {};
    ASSERT_EQ(m_wrapper->getParameterInfo(kExtCount, program), kResultTrue);
    EXPECT_EQ(program.id, 999u);
    EXPECT_EQ(text(program.title), u"Program");
    EXPECT_EQ(program.flags, ParameterInfo::kIsProgramChange | ParameterInfo::kIsList);
    // The eight built-in programs, the first selected.
    EXPECT_EQ(program.stepCount, 7);
    EXPECT_EQ(program.defaultNormalizedValue, 0.0);

    // Past either end the answer is false, not a read beyond the list.
    ParameterInfo none = {};
    EXPECT_EQ(m_wrapper->getParameterInfo(kExtCount + 1, none), kResultFalse);
    EXPECT_EQ(m_wrapper->getParameterInfo(-1, none), kResultFalse);
    EXPECT_EQ(m_wrapper->getParameterInfo(1 << 30, none), kResultFalse);
}

TEST_F(CAudioWrapperVST3Test, ParameterDefaultsUnitsAndTextsComeFromTheConverters)
{
    ParameterInfo outGain = {};
    ASSERT_EQ(m_wrapper->getParameterInfo(int32(kOutGain), outGain), kResultTrue);
    EXPECT_EQ(text(outGain.units), u"dB");
    // -12..+12 dB, linear in dB: 0 dB is the middle; Lo's -3..+9 puts 0 dB at a quarter.
    EXPECT_NEAR(outGain.defaultNormalizedValue, 0.5, 1e-12);
    ParameterInfo lo = {};
    ASSERT_EQ(m_wrapper->getParameterInfo(2, lo), kResultTrue);
    EXPECT_NEAR(lo.defaultNormalizedValue, 0.25, 1e-12);
    ParameterInfo bypass = {};
    ASSERT_EQ(m_wrapper->getParameterInfo(0, bypass), kResultTrue);
    EXPECT_EQ(bypass.defaultNormalizedValue, 0.0);

    EXPECT_EQ(valueText(kOutGain, 0.5), u"0.0");
    EXPECT_EQ(valueText(kOutGain, 0.75), u"6.0");
    EXPECT_EQ(valueText(kOutGain, 0.0), u"-12.0");
    ParamValue norm = -1.0;
    TChar typed[] = u"-6";
    ASSERT_EQ(m_wrapper->getParamValueByString(kOutGain, typed, norm), kResultTrue);
    EXPECT_NEAR(norm, 0.25, 1e-12);

    // A value from the host is the parameter's value afterwards, and its text follows it.
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.5, 1e-12);
    ASSERT_EQ(m_wrapper->setParamNormalized(kOutGain, 0.75), kResultTrue);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.75, 1e-12);
    EXPECT_EQ(m_wrapper->setParamNormalized(1234, 0.5), kResultFalse);
    EXPECT_EQ(m_wrapper->getParamNormalized(1234), 0.0);
    // The host's own change is not reported back to it as an edit.
    EXPECT_EQ(m_handler.count("perform"), 0);
}

TEST_F(CAudioWrapperVST3Test, AChangeFromInsideReachesTheHostAsAnEdit)
{
    m_wrapper->changeExtParam(int(kOutGain), 0.25);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.25, 1e-12);
    ASSERT_EQ(m_handler.count("perform"), 1);
    EXPECT_EQ(m_handler.calls.back().id, int32(kOutGain));
    EXPECT_EQ(m_handler.calls.back().value, 0.25);
    // An id that is no row is ignored.
    m_wrapper->changeExtParam(77, 0.5);
    EXPECT_EQ(m_handler.count("perform"), 1);
}

TEST_F(CAudioWrapperVST3Test, AProgramChangeIsAnnouncedOnTheProgramParameterAndTheList)
{
    m_wrapper->changeProgram();
    std::vector<std::string> order;
    for (const auto& call : m_handler.calls)
        order.push_back(call.what + ":" + std::to_string(call.id));
    EXPECT_EQ(order, (std::vector<std::string>{"begin:999", "perform:999", "end:999", "program-list:999"}));
    EXPECT_EQ(m_handler.calls.back().value, -1.0);
}

// ---- units and programs

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
    EXPECT_EQ(m_wrapper->getUnitInfo(-1, unit), kResultFalse);

    ASSERT_EQ(m_wrapper->getProgramListCount(), 1);
    ProgramListInfo list = {};
    ASSERT_EQ(m_wrapper->getProgramListInfo(0, list), kResultTrue);
    EXPECT_EQ(list.id, 999);
    EXPECT_EQ(text(list.name), u"Programs");
    EXPECT_EQ(list.programCount, 8);
    EXPECT_EQ(m_wrapper->getProgramListInfo(1, list), kResultFalse);

    const char16_t* const names[] = {u"1 Default",         u"2 Smoother Master", u"3 Old School",
                                     u"4 EDM Smiley Face", u"5 Acoustic Guitar", u"6 Drum Bus",
                                     u"7 Fuller Bass",     u"8 Nice Vocals"};
    for (int32 i = 0; i < 8; ++i) {
        String128 name = {};
        ASSERT_EQ(m_wrapper->getProgramName(999, i, name), kResultTrue);
        EXPECT_EQ(text(name), names[i]);
    }
    String128 name = {};
    EXPECT_EQ(m_wrapper->getProgramName(999, 8, name), kResultFalse);
    EXPECT_EQ(m_wrapper->getProgramName(999, -1, name), kResultFalse);
    EXPECT_EQ(m_wrapper->getProgramName(998, 0, name), kResultFalse);
    EXPECT_EQ(valueText(999, 1.0), u"8 Nice Vocals");
    EXPECT_EQ(valueText(999, 6.0 / 7.0), u"7 Fuller Bass");
    ParamValue norm = -1.0;
    EXPECT_EQ(m_wrapper->getParamValueByString(999, const_cast<TChar*>(u"Drum Bus"), norm), kResultTrue);
    EXPECT_DOUBLE_EQ(norm, 5.0 / 7.0);

    EXPECT_EQ(m_wrapper->getSelectedUnit(), 0);
    EXPECT_EQ(m_wrapper->selectUnit(0), kResultTrue);
    EXPECT_EQ(m_wrapper->selectUnit(1), kResultFalse);
}

TEST_F(CAudioWrapperVST3Test, TheHostsProgramChangeLoadsTheSlotAndIsNotEchoed)
{
    m_handler.calls.clear();
    ASSERT_EQ(m_wrapper->setParamNormalized(999, 6.0 / 7.0), kResultTrue);
    EXPECT_EQ(m_wrapper->currentProgram(), 6);
    EXPECT_DOUBLE_EQ(m_wrapper->getParamNormalized(999), 6.0 / 7.0);
    // Fuller Bass: Lo at +6 dB on its -3 to +9 dB knob, the top flat, the output at -2.5 dB
    // on -12 to +12 dB; the host hears of each as an edit, and of no program change.
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
    EXPECT_EQ(valueText(2, m_wrapper->getParamNormalized(2)).substr(0, 3), u"6.0");

    // The state carries the program's values and name.
    const std::vector<uint8_t> saved = state();
    ASSERT_EQ(m_wrapper->setParamNormalized(999, 0.0), kResultTrue);
    EXPECT_EQ(m_wrapper->currentProgram(), 0);
    EXPECT_NEAR(m_wrapper->getParamNormalized(2), 3.0 / 12.0, 1e-9);
    test::CTestByteStream stream(saved);
    ASSERT_EQ(m_wrapper->setState(&stream), kResultOk);
    EXPECT_NEAR(m_wrapper->getParamNormalized(2), 9.0 / 12.0, 1e-9);
    String128 name = {};
    ASSERT_EQ(m_wrapper->getProgramName(999, 0, name), kResultTrue);
    EXPECT_EQ(text(name), u"1 Fuller Bass");
}

TEST_F(CAudioWrapperVST3Test, AProgramChangeFromElsewhereReachesTheHost)
{
    m_handler.calls.clear();
    ASSERT_FALSE(m_wrapper->loadProgram(3, nullptr));
    std::vector<std::string> order;
    for (const auto& call : m_handler.calls)
        if (call.id == 999)
            order.push_back(call.what + ":" + std::to_string(call.id));
    EXPECT_EQ(order, (std::vector<std::string>{"begin:999", "perform:999", "end:999", "program-list:999"}));
    double performed = -1.0;
    for (const auto& call : m_handler.calls)
        if (call.what == "perform" && call.id == 999)
            performed = call.value;
    EXPECT_DOUBLE_EQ(performed, 3.0 / 7.0);
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
    ASSERT_EQ(m_wrapper->getBusInfo(kAudio, kInput, 0, info), kResultTrue);
    EXPECT_EQ(text(info.name), u"Audio In");
    EXPECT_EQ(info.channelCount, 2);
    EXPECT_EQ(info.busType, kMain);
    EXPECT_TRUE(info.flags & BusInfo::kDefaultActive);
    ASSERT_EQ(m_wrapper->getBusInfo(kAudio, kOutput, 0, info), kResultTrue);
    EXPECT_EQ(text(info.name), u"Audio Out");
    ASSERT_EQ(m_wrapper->getBusInfo(kEvent, kInput, 0, info), kResultTrue);
    EXPECT_EQ(text(info.name), u"MIDI In");
    EXPECT_EQ(info.channelCount, 1);

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
    auto offer = [&](SpeakerArrangement in, SpeakerArrangement out) {
        return m_wrapper->setBusArrangements(&in, 1, &out, 1);
    };
    auto current = [&](BusDirection dir) {
        SpeakerArrangement arr = 0;
        EXPECT_EQ(m_wrapper->getBusArrangement(dir, 0, arr), kResultTrue);
        return arr;
    };

    // 16 channels where 8 is the most: refused, with the 8-channel default on both sides.
    const SpeakerArrangement sixteen = 0xFFFF;
    EXPECT_EQ(offer(sixteen, sixteen), kResultFalse);
    EXPECT_EQ(current(kInput), 0x63Fu);
    EXPECT_EQ(current(kOutput), 0x63Fu);

    // Mono in, stereo out on a product with symmetric I/O: stereo on both sides.
    EXPECT_EQ(offer(SpeakerArr::kMono, SpeakerArr::kStereo), kResultFalse);
    EXPECT_EQ(current(kInput), 0x3u);
    EXPECT_EQ(current(kOutput), 0x3u);

    // Equal counts within the limit stand as offered, whatever the speakers.
    EXPECT_EQ(offer(SpeakerArr::k51, SpeakerArr::k51), kResultTrue);
    EXPECT_EQ(current(kInput), SpeakerArr::k51);
    EXPECT_EQ(offer(0xFF, 0xFF), kResultTrue);
    EXPECT_EQ(current(kOutput), 0xFFu);

    // Differing counts: both take the default of the larger.
    EXPECT_EQ(offer(SpeakerArr::kStereo, SpeakerArr::k51), kResultFalse);
    EXPECT_EQ(current(kInput), 0x3Fu);
    EXPECT_EQ(current(kOutput), 0x3Fu);

    // Nothing offered, or an empty side: refused.
    SpeakerArrangement none = 0;
    SpeakerArrangement stereo = SpeakerArr::kStereo;
    EXPECT_EQ(m_wrapper->setBusArrangements(&stereo, 0, &stereo, 1), kResultFalse);
    EXPECT_EQ(m_wrapper->setBusArrangements(&stereo, 1, &none, 0), kResultFalse);
    // An empty input takes the widest default, and symmetric I/O pulls the output along.
    EXPECT_EQ(offer(none, stereo), kResultFalse);
    EXPECT_EQ(current(kInput), 0x63Fu);
    EXPECT_EQ(current(kOutput), 0x63Fu);
    // Without a sidechain in the product, a second input is not a bus.
    SpeakerArrangement two[] = {SpeakerArr::kStereo, SpeakerArr::kStereo};
    EXPECT_EQ(m_wrapper->setBusArrangements(two, 2, &stereo, 1), kResultTrue);
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
    std::vector<CString> labels;
    CVST3SpeakerLayout::channelLabels(0x63F, labels);
    const std::vector<CString> expected = {CString("L"),  CString("R"),  CString("C"),  CString("Lfe"),
                                           CString("Ls"), CString("Rs"), CString("Sl"), CString("Sr")};
    EXPECT_EQ(labels, expected);
    CVST3SpeakerLayout::channelLabels(0x80000, labels);
    EXPECT_EQ(labels, std::vector<CString>{CString("M")});
    CVST3SpeakerLayout::channelLabels((uint64_t(1) << 27) | (uint64_t(1) << 40), labels);
    EXPECT_EQ(labels, (std::vector<CString>{CString("Rcs"), CString("40")}));
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
    ASSERT_EQ(CAudioWrapperVST3::selectAutomationPoints(1, indices), 1);
    EXPECT_EQ(indices[0], 0);
    EXPECT_EQ(CAudioWrapperVST3::selectAutomationPoints(0, indices), 0);
    // Very long queues keep within range and end on the last point.
    ASSERT_EQ(CAudioWrapperVST3::selectAutomationPoints(1 << 30, indices), 32);
    EXPECT_EQ(indices[30], int32_t(int64_t(30) * (1 << 30) / 32));
    EXPECT_EQ(indices[31], (1 << 30) - 1);
}

TEST_F(CAudioWrapperVST3Test, ABlockWithoutAudioAppliesTheThinnedAutomationAtOnce)
{
    test::CTestParamQueue outGain(kOutGain);
    for (int32 i = 0; i < 40; ++i)
        outGain.points.emplace_back(i * 10, double(i) / 39.0);
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
    EXPECT_EQ(m_wrapper->hostEvents.back().value, 1.0);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 1.0, 1e-12);
    // The program queue is not automation.
    EXPECT_EQ(m_handler.count("program-list"), 0);
}

TEST_F(CAudioWrapperVST3Test, ABlockWithoutBusesStillMovesParametersAndReportsSuccess)
{
    test::CTestParamQueue outGain(kOutGain);
    outGain.points.emplace_back(0, 0.125);
    test::CTestParameterChanges changes;
    changes.queues = {&outGain};
    ProcessData data;
    data.symbolicSampleSize = kSample32;
    data.numSamples = 64;
    data.inputParameterChanges = &changes;
    ASSERT_EQ(m_wrapper->process(data), kResultOk);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.125, 1e-12);
}

TEST_F(CAudioWrapperVST3Test, ABlockWithAudioHandsTheAutomationToTheWrapper)
{
    ProcessSetup setup{kRealtime, kSample32, 512, 48000.0};
    ASSERT_EQ(m_wrapper->setupProcessing(setup), kResultOk);
    ASSERT_EQ(m_wrapper->setProcessing(true), kResultOk);

    test::CTestParamQueue outGain(kOutGain);
    outGain.points.emplace_back(16, 0.75);
    test::CTestParameterChanges changes;
    changes.queues = {&outGain};
    HostBlock block(64);
    block.data.inputParameterChanges = &changes;
    ASSERT_EQ(m_wrapper->process(block.data), kResultOk);
    ASSERT_EQ(m_wrapper->hostEvents.size(), 1u);
    EXPECT_EQ(m_wrapper->hostEvents[0].offset, 16);
    EXPECT_NEAR(m_wrapper->getParamNormalized(kOutGain), 0.75, 1e-12);
    EXPECT_EQ(m_wrapper->getInputCount(), 2);
    EXPECT_EQ(m_wrapper->getOutputCount(), 2);
    EXPECT_EQ(m_wrapper->setProcessing(false), kResultOk);
}

TEST_F(CAudioWrapperVST3Test, SixtyFourBitSamplesPassWithoutConversion)
{
    ProcessSetup setup{kRealtime, kSample64, 512, 48000.0};
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
    AudioBusBuffers inBus;
    inBus.numChannels = 2;
    inBus.channelBuffers64 = inPtrs;
    AudioBusBuffers outBus;
    outBus.numChannels = 2;
    outBus.channelBuffers64 = outPtrs;
    ProcessData data = test::realtimeBlock(&inBus, 1, &outBus, 1, n, kSample64);
    // Bypassed, the graph hands its input on as it is, once the switch's fade is over.
    ASSERT_EQ(m_wrapper->setParamNormalized(0, 1.0), kResultTrue);
    for (int call = 0; call < 4; ++call)
        ASSERT_EQ(m_wrapper->process(data), kResultOk);
    for (int32 i = 0; i < n; ++i) {
        ASSERT_EQ(outL[size_t(i)], in[size_t(i)]) << "at " << i;
        ASSERT_EQ(outR[size_t(i)], in[size_t(i)]) << "at " << i;
    }
    EXPECT_EQ(m_wrapper->setProcessing(false), kResultOk);
}

TEST_F(CAudioWrapperVST3Test, BothSampleSizesAreOffered)
{
    EXPECT_EQ(m_wrapper->canProcessSampleSize(kSample32), kResultTrue);
    EXPECT_EQ(m_wrapper->canProcessSampleSize(kSample64), kResultTrue);
    EXPECT_EQ(m_wrapper->canProcessSampleSize(2), kResultFalse);
    ProcessSetup setup{kRealtime, 2, 512, 48000.0};
    EXPECT_EQ(m_wrapper->setupProcessing(setup), kResultFalse);
}

// ---- state

TEST_F(CAudioWrapperVST3Test, StateRoundTripsAndBadStateChangesNothing)
{
    const std::vector<uint8_t> original = state();
    ASSERT_FALSE(original.empty());

    // A state written after a change brings the change back.
    ASSERT_EQ(m_wrapper->setParamNormalized(kOutGain, 0.75), kResultTrue);
    const std::vector<uint8_t> changed = state();
    EXPECT_NE(changed, original);
    {
        test::CTestByteStream stream(original, 7);
        ASSERT_EQ(m_wrapper->setState(&stream), kResultOk);
    }
    EXPECT_EQ(state(), original);
    {
        test::CTestByteStream stream(changed);
        ASSERT_EQ(m_wrapper->setState(&stream), kResultOk);
    }
    EXPECT_EQ(state(), changed);

    std::vector<std::vector<uint8_t>> bad;
    bad.push_back({});                                                         // empty
    bad.push_back(std::vector<uint8_t>(changed.begin(), changed.begin() + 10)); // cut in the head
    bad.push_back(std::vector<uint8_t>(changed.begin(), changed.end() - 1));    // cut at the end
    std::vector<uint8_t> flipped = changed;
    flipped[flipped.size() / 2] ^= 0x10;
    bad.push_back(flipped);                                                     // damaged body
    std::vector<uint8_t> foreign = changed;
    foreign[0] = 'x';                                                           // another block's tag
    bad.push_back(foreign);
    bad.push_back(std::vector<uint8_t>(300, 0xA5));                             // garbage
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

TEST_F(CAudioWrapperVST3Test, ALatencyChangeWithoutARunLoopReachesTheHostAtItsNextCall)
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
}

TEST_F(CAudioWrapperVST3Test, ALatencyChangeGoesOutAtTheNextTickOfTheHostsRunLoop)
{
    // A second instance, made by a host that offers its run loop.
    test::CTestHostContext host(&m_runLoop);
    test::CTestComponentHandler handler;
    auto* wrapper = new CTestWrapper;
    ASSERT_EQ(wrapper->initialize(&host), kResultOk);
    ASSERT_EQ(wrapper->setComponentHandler(&handler), kResultTrue);
    ASSERT_NE(m_runLoop.timer, nullptr);
    EXPECT_EQ(m_runLoop.registrations, 1);
    EXPECT_EQ(m_runLoop.intervalMs, CAudioWrapperVST3::kHostNotifyIntervalMs);

    m_runLoop.tick();
    EXPECT_EQ(handler.count("restart"), 0);
    wrapper->changeLatency();
    m_runLoop.tick();
    ASSERT_EQ(handler.count("restart"), 1);
    EXPECT_EQ(handler.calls.back().id, int32(kLatencyChanged));
    m_runLoop.tick();
    EXPECT_EQ(handler.count("restart"), 1);

    // terminate lets go of the run loop before the host context.
    ASSERT_EQ(wrapper->terminate(), kResultOk);
    EXPECT_EQ(m_runLoop.timer, nullptr);
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
}

TEST_F(CAudioWrapperVST3Test, HasNoViewYet)
{
    EXPECT_EQ(m_wrapper->createView("other"), nullptr);
    EXPECT_EQ(m_wrapper->createView(ViewType::kEditor), nullptr);
    EXPECT_EQ(m_wrapper->createView(nullptr), nullptr);
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
