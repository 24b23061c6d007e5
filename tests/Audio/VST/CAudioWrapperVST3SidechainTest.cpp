// The binding on a product of the tests' own: a sidechain input, free input and output
// counts, four internal channels, the host's tempo wanted.

#include "Audio/VST/CAudioWrapperVST3.h"

#include "ProductTestFixture.h"
#include "VST3TestSupport.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"
#include "pluginterfaces/vst/ivstunits.h"
#include "pluginterfaces/vst/vstspeaker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qel {

extern const CResourceRow kVST3TestDefinitions[];

namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;

class CAudioWrapperVST3SidechainTest : public test::ProductTestFixture
{
protected:
    const CResourceRow* resources() const override { return kVST3TestDefinitions; }
    CString sharedDefinition() const override { return CString("SidechainProduct.xml"); }

    void SetUp() override
    {
        test::ProductTestFixture::SetUp();
        m_wrapper = new CAudioWrapperVST3;
        ASSERT_EQ(m_wrapper->initialize(&m_host), kResultOk);
    }

    void TearDown() override
    {
        if (m_wrapper) {
            m_wrapper->terminate();
            EXPECT_EQ(m_wrapper->release(), 0u);
        }
        test::ProductTestFixture::TearDown();
    }

    tresult offer(std::vector<SpeakerArrangement> in, SpeakerArrangement out)
    {
        return m_wrapper->setBusArrangements(in.data(), int32(in.size()), &out, 1);
    }

    SpeakerArrangement arrangement(BusDirection dir, int32 index = 0)
    {
        SpeakerArrangement arr = 0;
        EXPECT_EQ(m_wrapper->getBusArrangement(dir, index, arr), kResultTrue);
        return arr;
    }

    test::CTestHostContext m_host;
    CAudioWrapperVST3* m_wrapper = nullptr;
};

TEST_F(CAudioWrapperVST3SidechainTest, OffersASidechainBusThatStartsInactive)
{
    ASSERT_EQ(m_wrapper->getBusCount(kAudio, kInput), 2);
    BusInfo info = {};
    ASSERT_EQ(m_wrapper->getBusInfo(kAudio, kInput, 1, info), kResultTrue);
    EXPECT_EQ(std::u16string(info.name), u"Sidechain");
    EXPECT_EQ(info.busType, kAux);
    EXPECT_EQ(info.channelCount, 2);
    EXPECT_FALSE(info.flags & BusInfo::kDefaultActive);
    EXPECT_EQ(m_wrapper->getProcessContextRequirements(), uint32(IProcessContextRequirements::kNeedTempo));
}

// One slot: no steps, and no division by zero on the way.
TEST_F(CAudioWrapperVST3SidechainTest, WithoutABuiltInBankTheProgramListHasOneProgram)
{
    ParameterInfo program = {};
    ASSERT_EQ(m_wrapper->getParameterInfo(m_wrapper->getParameterCount() - 1, program), kResultTrue);
    EXPECT_EQ(program.id, 999u);
    EXPECT_EQ(program.stepCount, 0);
    EXPECT_EQ(program.defaultNormalizedValue, 0.0);
    ProgramListInfo list = {};
    ASSERT_EQ(m_wrapper->getProgramListInfo(0, list), kResultTrue);
    EXPECT_EQ(list.programCount, 1);
    String128 name = {};
    EXPECT_EQ(m_wrapper->getProgramName(999, 1, name), kResultFalse);
    // Any value selects the one program, which is current already.
    ASSERT_EQ(m_wrapper->setParamNormalized(999, 1.0), kResultTrue);
    EXPECT_EQ(m_wrapper->currentProgram(), 0);
    ASSERT_EQ(m_wrapper->getParamStringByValue(999, 0.7, name), kResultTrue);
    EXPECT_EQ(std::u16string(name), u"1 Default");
}

TEST_F(CAudioWrapperVST3SidechainTest, FreeInputAndOutputCountsFollowTheMonoInStereoOutRule)
{
    const SpeakerArrangement rows[][5] = {
        // Mono in, or stereo out, may differ from the other side.
        {SpeakerArr::kMono, SpeakerArr::kStereo, kResultTrue, SpeakerArr::kMono, SpeakerArr::kStereo},
        {SpeakerArr::k40Music, SpeakerArr::kStereo, kResultTrue, SpeakerArr::k40Music, SpeakerArr::kStereo},
        {SpeakerArr::kMono, SpeakerArr::k40Music, kResultTrue, SpeakerArr::kMono, SpeakerArr::k40Music},
        // Anything else that differs becomes mono in, stereo out, and is refused.
        {SpeakerArr::kStereo, SpeakerArr::kMono, kResultFalse, 0x80000, 0x3},
        {SpeakerArr::k40Music, SpeakerArr::k30Cine, kResultFalse, 0x80000, 0x3},
        // Above the four internal channels: the four-channel default.
        {SpeakerArr::k51, SpeakerArr::k51, kResultFalse, 0x10B, 0x10B}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row[0] << " " << row[1]);
        EXPECT_EQ(offer({row[0]}, row[1]), tresult(row[2]));
        EXPECT_EQ(arrangement(kInput), row[3]);
        EXPECT_EQ(arrangement(kOutput), row[4]);
    }
}

TEST_F(CAudioWrapperVST3SidechainTest, TheSidechainTakesAtMostTwoChannelsAndGoesWithoutOne)
{
    EXPECT_EQ(offer({SpeakerArr::kStereo, SpeakerArr::kMono}, SpeakerArr::kStereo), kResultTrue);
    ASSERT_EQ(m_wrapper->getBusCount(kAudio, kInput), 2);
    EXPECT_EQ(arrangement(kInput, 1), SpeakerArr::kMono);

    EXPECT_EQ(offer({SpeakerArr::kStereo, SpeakerArr::k40Music}, SpeakerArr::kStereo), kResultFalse);
    ASSERT_EQ(m_wrapper->getBusCount(kAudio, kInput), 2);
    EXPECT_EQ(arrangement(kInput, 1), 0x3u);

    // An empty sidechain, or none offered, leaves the bus out.
    EXPECT_EQ(offer({SpeakerArr::kStereo, 0}, SpeakerArr::kStereo), kResultTrue);
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kInput), 1);
    EXPECT_EQ(offer({SpeakerArr::kStereo}, SpeakerArr::kStereo), kResultTrue);
    EXPECT_EQ(m_wrapper->getBusCount(kAudio, kInput), 1);
}

TEST_F(CAudioWrapperVST3SidechainTest, ASidechainCountsOnlyWhileTheHostSendsSound)
{
    ProcessSetup setup{kRealtime, kSample32, 512, 44100.0};
    ASSERT_EQ(m_wrapper->setupProcessing(setup), kResultOk);
    ASSERT_EQ(m_wrapper->setProcessing(true), kResultOk);

    constexpr int32 n = 64;
    std::vector<std::vector<float>> channels(6, std::vector<float>(n, 0.25f));
    float* mainIn[] = {channels[0].data(), channels[1].data()};
    float* sideIn[] = {channels[2].data(), channels[3].data()};
    float* mainOut[] = {channels[4].data(), channels[5].data()};
    AudioBusBuffers inputs[2], output;
    inputs[0].numChannels = inputs[1].numChannels = output.numChannels = 2;
    inputs[0].channelBuffers32 = mainIn;
    inputs[1].channelBuffers32 = sideIn;
    output.channelBuffers32 = mainOut;
    ProcessContext context = {};
    context.state = ProcessContext::kTempoValid;
    context.tempo = 97.0;
    ProcessData data = test::realtimeBlock(inputs, 2, &output, 1, n, kSample32);
    data.processContext = &context;

    inputs[1].silenceFlags = 0x3;
    ASSERT_EQ(m_wrapper->process(data), kResultOk);
    EXPECT_EQ(m_wrapper->getSidechainCount(), 0);
    EXPECT_EQ(m_wrapper->getInputCount(), 2);

    inputs[1].silenceFlags = 0x1;
    ASSERT_EQ(m_wrapper->process(data), kResultOk);
    EXPECT_EQ(m_wrapper->getSidechainCount(), 2);
    EXPECT_EQ(m_wrapper->getInputCount(), 4);

    // A zero-sample call moves the counts too.
    inputs[1].silenceFlags = 0x3;
    data.numSamples = 0;
    ASSERT_EQ(m_wrapper->process(data), kResultOk);
    EXPECT_EQ(m_wrapper->getSidechainCount(), 0);
    EXPECT_EQ(m_wrapper->setProcessing(false), kResultOk);
}

class CAudioWrapperVST3BrokenTest : public test::ProductTestFixture
{
protected:
    const CResourceRow* resources() const override { return kVST3TestDefinitions; }
    CString sharedDefinition() const override { return CString("BrokenProduct.xml"); }
};

TEST_F(CAudioWrapperVST3BrokenTest, AFailedStartRefusesInitializeAndLeavesASafeObject)
{
    test::CTestHostContext host;
    auto* wrapper = new CAudioWrapperVST3;
    EXPECT_EQ(wrapper->initialize(&host), kResultFalse);
    // Every later call is answered without touching what was never built.
    EXPECT_EQ(wrapper->initialize(&host), kResultFalse);
    EXPECT_EQ(wrapper->getParameterCount(), 0);
    EXPECT_EQ(wrapper->getBusCount(kAudio, kInput), 0);
    ProcessSetup setup{kRealtime, kSample32, 512, 44100.0};
    EXPECT_EQ(wrapper->setupProcessing(setup), kResultFalse);
    ProcessData data;
    EXPECT_EQ(wrapper->process(data), kNotInitialized);
    test::CTestByteStream stream;
    EXPECT_EQ(wrapper->getState(&stream), kResultFalse);
    EXPECT_EQ(wrapper->setState(&stream), kResultFalse);
    SpeakerArrangement stereo = SpeakerArr::kStereo;
    EXPECT_EQ(wrapper->setBusArrangements(&stereo, 1, &stereo, 1), kResultFalse);
    EXPECT_EQ(wrapper->getLatencySamples(), 0u);
    EXPECT_EQ(wrapper->terminate(), kResultOk);
    EXPECT_EQ(wrapper->release(), 0u);
}

} // namespace
} // namespace qel
