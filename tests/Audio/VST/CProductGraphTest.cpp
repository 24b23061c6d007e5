// The product as its definition makes it: the definition loads whole, the stores are seeded
// with the mode banks, and the sound through the VST 3 interface is the one its stages'
// formulas give (ProductResponseModel.h).

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioPresetList.h"
#include "Audio/CAudioProcess.h"
#include "Audio/CAudioProcessBypassStateDef.h"
#include "Audio/CAudioProcessDef.h"
#include "Audio/CAudioProcessStack.h"
#include "Audio/Processes/CModFilterIIR.h"
#include "Audio/Processes/CModProcessSwitch.h"
#include "Audio/Processes/CModProcessSwitchDef.h"
#include "Audio/VST/CAudioWrapperVST3.h"
#include "Core/CApplication.h"
#include "Core/CAppData.h"
#include "Core/CCriticalSection.h"
#include "Core/CObject.h"
#include "ProductResponseModel.h"
#include "ProductTestFixture.h"
#include "VST3TestSupport.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <numbers>
#include <string>
#include <vector>

namespace qel {
namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;
using test::Complex;

constexpr ParamID kBypass = 0;
constexpr ParamID kLo = 2;
constexpr ParamID kOutGain = 5;
constexpr int32 kBlock = 512;

using Signal = std::vector<std::vector<double>>;

// A host parameter change at an absolute sample position.
struct HostChange
{
    int64_t at;
    ParamID id;
    double value;
};

// The gains of the three bands as the host sets them: -3 to +9 dB, linear in dB.
double bandNorm(double db) { return (db + 3.0) / 12.0; }

CString mainParam(const char* name) { return CString("plugin.modMain.").append(name); }

// ---- the definition itself

class CProductDefinitionTest : public ::testing::Test
{
protected:
    void TearDown() override { CApplication::finalize(); }
};

TEST_F(CProductDefinitionTest, EveryObjectOfTheDefinitionInitialisesWithoutAnError)
{
    // Started without the definition, so that loading it answers with its own error.
    ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kProductResourceRows, CString()));
    CErrorPtr error = CApplication::sharedRoot()->loadXMLData(CString("SharedData.xml"), true);
    ASSERT_FALSE(error) << error->text().toUtf8();

    const CObject* root = CApplication::sharedRoot();
    auto* main = dynamic_cast<CAudioProcessDef*>(root->findObject(CString("shared::audio.modMain")));
    ASSERT_NE(main, nullptr);
    EXPECT_TRUE(main->isAutoLinks());
    // The chain in its order, with the rate changers and meters where they stand.
    std::string chain;
    for (const CAudioProcessDefBase* child : main->processes())
        chain += child->name().toUtf8() + (child->isOutOfOrder() ? "*" : "") + "@" + std::to_string(child->bypassStateId()) + " ";
    EXPECT_EQ(chain, "modInputNode@-1 modPreUpsampler@-1 modUpsampler@33 modMainPre@-1 modDLC73@-1 modDownsampler@33 "
                     "modPostDownsampler@-1 modMeterOut*@-1 modMeterIODiff*@-1 modGroupSolo@35 modBypass@-1 "
                     "modLatencyUniformer@12 ");
    std::string states;
    for (const CAudioProcessBypassStateDef* s : main->bypassStates())
        states += std::to_string(s->id()) + ":" + s->param().toUtf8() + (s->isInverted() ? "! " : " ");
    EXPECT_EQ(states, "33:oversampling-bypass 34:oversampling-bypass! 0:modMeterOut-enable! 1:modMeterIODiff-enable! "
                      "35:group-solo-bypass 12:lp-oversampling-enable! ");

    // A band's switch: "Off" runs the bypass filter alone, the shelves take the peak's row.
    auto* band = dynamic_cast<CModProcessSwitchDef*>(root->findObject(CString("shared::audio.modMain.modDLC73.modFilter")));
    ASSERT_NE(band, nullptr);
    EXPECT_TRUE(band->isStacked());
    for (int mode : {0, 1, 2, 3, 9}) {
        SCOPED_TRACE(mode);
        const CModProcessSwitchDef::CEntry* entry = band->lookUp(mode);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->def->name().toUtf8(), mode == 0 || mode == 9 ? "flt0" : "flt1");
        // Unnamed: the choice runs under the switch's own name, with the switch's parameters.
        EXPECT_TRUE(entry->childName.isEmpty());
    }

    // The oversampling filters: each choice runs under a name of its own, and the steep
    // and the soft switch, which one resampler may hold together, differ in their names.
    std::string names;
    for (const char* sw : {"modUpsamplerFilterSteep", "modDownsamplerFilterSteep", "modResamplerFilterSoft"}) {
        auto* def = dynamic_cast<CModProcessSwitchDef*>(root->findObject(CString("shared::audio.").append(sw)));
        ASSERT_NE(def, nullptr) << sw;
        for (const auto& [index, entry] : def->table())
            names += std::to_string(index) + "=" + entry.childName.toUtf8() + " ";
    }
    EXPECT_EQ(names, "0=steep-iir 1=steep-fir 0=steep-iir 1=steep-fir 0=soft-iir 1=soft-fir ");
}

// ---- seeds of the stores

// CStrings joined by '|', to compare a list at once.
template <class Range>
std::string joined(const Range& texts)
{
    std::string out;
    for (const CString& text : texts)
        out.append(out.empty() ? "" : "|").append(text.toUtf8());
    return out;
}

class CProductStoreTest : public test::ProductTestFixture
{
protected:
    // The list a store answers for a key when the user has written nothing: the seed.
    CAudioPresetList readList(CAppData& store, const char* key)
    {
        CByteArray bytes;
        store.readData(CString(key), bytes, CAppData::kTagList, true);
        CAudioPresetList list;
        CErrorPtr error = list.fromBytes(bytes);
        EXPECT_FALSE(error) << key << ": " << (error ? error->text().toUtf8() : std::string());
        EXPECT_TRUE(list.hasBank()) << key;
        EXPECT_TRUE(list.bank().name().isEmpty()) << key;
        return list;
    }

    static std::string names(const CAudioPresetList& list)
    {
        std::vector<CString> out;
        for (int32_t i = 0; i < list.bank().presetCount(); ++i)
            out.push_back(list.bank().preset(i).name());
        return joined(out);
    }

    static std::string keys(const CAudioPreset& preset)
    {
        std::vector<CString> out;
        for (const auto& [key, entry] : preset.entries())
            out.push_back(key);
        return joined(out);
    }

    // An entry read back into a storage of one float value per element.
    static std::vector<double> floats(const CAudioPreset& preset, const char* key, CString* definition = nullptr)
    {
        const CPresetEntry* entry = preset.findEntry(CString(key));
        EXPECT_NE(entry, nullptr) << key;
        if (!entry)
            return {};
        CAudioParamStorage values;
        values.setFormat(1, CAudioParamStorage::Float, false, false);
        CString name;
        EXPECT_FALSE(entry->parse(name, values)) << key;
        if (definition)
            *definition = name;
        std::vector<double> out;
        for (int32_t e = 0; e < values.elementCount(0); ++e)
            out.push_back(values.getElementValue(0, e, 0, -1.0));
        return out;
    }
};

// The routing presets' seed is read in CAudioParamRegistryProductTest and its contents in
// CProductPresetsTest; the mode banks' values are checked here only.
TEST_F(CProductStoreTest, TheModeBanksSeedTheLocalStoreAndNameTheModes)
{
    const CAudioPresetList glow = readList(CAppData::local(), "glowcore-presets");
    EXPECT_EQ(names(glow), "QMGC:Very Hard|QMGC:Hard|QMGC:Soft|QMGC:Very Soft|QMGC:Clean");
    for (int32_t i = 0; i < glow.bank().presetCount(); ++i)
        EXPECT_EQ(keys(glow.bank().preset(i)), "auto-gain-point|bias-I|bias-V|feed-freq|feed-freq-inv|gain-I|gain-V|"
                                               "knee-a|knee-b|makeup-gain|mode-name|ratio-a|ratio-b");
    CString definition;
    const CAudioPreset& veryHard = glow.bank().preset(0);
    EXPECT_EQ(floats(veryHard, "ratio-a", &definition), std::vector<double>{0.672568652});
    EXPECT_EQ(definition, CString("audio.modMain.modDLC73.glowcore-params.ratio-a"));
    EXPECT_EQ(floats(veryHard, "feed-freq"), std::vector<double>{1059.4938297216});
    EXPECT_EQ(floats(glow.bank().preset(4), "auto-gain-point"), std::vector<double>{1.009});
    EXPECT_EQ(floats(glow.bank().preset(4), "feed-freq-inv"), std::vector<double>{0.0});

    const CAudioPresetList sat = readList(CAppData::local(), "sateb-presets");
    EXPECT_EQ(names(sat), "QMEB:Classic|QMEB:Crisp|QMEB:Hard|QMEB:Magic Dust|QMEB:Soft|QMEB:Solid|QMEB:Tube 1|"
                          "QMEB:Tube 2|QMEB:Warm");
    for (int32_t i = 0; i < sat.bank().presetCount(); ++i)
        EXPECT_EQ(keys(sat.bank().preset(i)), "bias-gain|bias-gain2|const-bias|curvature|curve-gain|makeup-corr|"
                                              "makeup-gain|mode-name|rms-time|shift");
    EXPECT_EQ(floats(sat.bank().preset(8), "shift"), std::vector<double>{1184.2407227});
    EXPECT_EQ(floats(sat.bank().preset(3), "makeup-corr"), std::vector<double>{-0.115});

    // The selectors show the modes by those names.
    const auto selector = [](const char* name) {
        return dynamic_cast<const CAudioParamDef*>(
            CApplication::sharedRoot()->findObject(CString("shared::audio.modMain.modDLC73.").append(name)));
    };
    ASSERT_NE(selector("glowcore"), nullptr);
    EXPECT_EQ(joined(selector("glowcore")->info().stateNames), "Very Hard|Hard|Soft|Very Soft|Clean");
    EXPECT_EQ(joined(selector("glowcore")->info().shortStateNames), "Very Ha|Hard|Soft|Very So|Clean");
    ASSERT_NE(selector("sateb-mode"), nullptr);
    ASSERT_EQ(selector("sateb-mode")->info().stateNames.size(), 9u);
    EXPECT_EQ(selector("sateb-mode")->info().stateNames[7], CString("Tube 2"));
}

// ---- the plug-in through its VST 3 interface

class CProductTest : public test::ProductTestFixture
{
protected:
    void SetUp() override
    {
        test::ProductTestFixture::SetUp();
        makeWrapper();
    }

    void TearDown() override
    {
        dropWrapper();
        test::ProductTestFixture::TearDown();
    }

    void makeWrapper()
    {
        m_wrapper = new CAudioWrapperVST3;
        ASSERT_EQ(m_wrapper->initialize(&m_host), kResultOk);
    }

    void dropWrapper()
    {
        if (!m_wrapper)
            return;
        m_wrapper->setProcessing(false);
        m_wrapper->terminate();
        EXPECT_EQ(m_wrapper->release(), 0u);
        m_wrapper = nullptr;
    }

    CAudioParamCollector* collector() const
    {
        return dynamic_cast<CAudioParamCollector*>(m_wrapper->pluginObject()->findChild(CString("param-collector")));
    }

    double value(const CString& name)
    {
        CAudioParam* param = collector()->getParam(name);
        CLockGuard guard(param->lock());
        return param->values().getElementValue(0, 0, 0, 0.0);
    }

    void start(double rate)
    {
        ProcessSetup setup{kRealtime, kSample64, kBlock, rate};
        ASSERT_EQ(m_wrapper->setupProcessing(setup), kResultOk);
        ASSERT_EQ(m_wrapper->setProcessing(true), kResultOk);
        m_rate = rate;
    }

    // Runs the input through in host blocks of 512, each change in the block it falls in.
    Signal render(const Signal& in, const std::vector<HostChange>& changes = {})
    {
        const auto length = int64_t(in[0].size());
        Signal out(in.size(), std::vector<double>(size_t(length), 0.0));
        for (int64_t pos = 0; pos < length; pos += kBlock) {
            const auto n = int32(std::min<int64_t>(kBlock, length - pos));
            std::deque<test::CTestParamQueue> queues;
            test::CTestParameterChanges list;
            for (const HostChange& c : changes) {
                if (c.at >= pos && c.at < pos + n) {
                    queues.emplace_back(c.id).points.emplace_back(int32(c.at - pos), c.value);
                    list.queues.push_back(&queues.back());
                }
            }
            std::vector<double*> inPtrs, outPtrs;
            for (size_t c = 0; c < in.size(); ++c) {
                inPtrs.push_back(const_cast<double*>(in[c].data()) + pos);
                outPtrs.push_back(out[c].data() + pos);
            }
            AudioBusBuffers inBus, outBus;
            inBus.numChannels = outBus.numChannels = int32(in.size());
            inBus.channelBuffers64 = inPtrs.data();
            outBus.channelBuffers64 = outPtrs.data();
            ProcessData data = test::realtimeBlock(&inBus, 1, &outBus, 1, n, kSample64);
            data.inputParameterChanges = &list;
            EXPECT_EQ(m_wrapper->process(data), kResultOk);
        }
        return out;
    }

    // The group chain that runs for group 0, and the band switch of level `band` in it.
    CAudioProcess* groupChain() const
    {
        auto* main = dynamic_cast<CAudioProcess*>(m_wrapper->mainProcess());
        auto* stack = main ? dynamic_cast<CAudioProcessStack*>(main->findChild(CString("modDLC73"))) : nullptr;
        return stack ? dynamic_cast<CAudioProcess*>(stack->copyAt(0, 0)) : nullptr;
    }
    CModProcessSwitch* bandSwitch(int band) const
    {
        CAudioProcess* chain = groupChain();
        auto* bands = chain ? dynamic_cast<CAudioProcessStack*>(chain->findChild(CString("modFilter"))) : nullptr;
        return bands ? dynamic_cast<CModProcessSwitch*>(bands->copyAt(0, band)) : nullptr;
    }
    bool runs(const CAudioProcess& process, const char* name) const
    {
        const CAudioProcessBase* child = process.findChild(CString(name));
        for (int32_t i = 0; i < process.runOrderCount(); ++i)
            if (child && process.runOrderAt(i) == child)
                return true;
        return false;
    }

    // The internal values of the saturator and harmonic parameters in force for group 0.
    test::SaturatorParams saturatorParams()
    {
        const auto p = [&](const char* name) { return value(CString("plugin.modMain.modDLC73.").append(name)); };
        return {p("sateb-drive"),          p("sateb-params.bias-gain"), p("sateb-params.bias-gain2"),
                p("sateb-params.makeup-gain"), p("sateb-params.makeup-corr"), p("sateb-params.curve-gain"),
                p("sateb-params.curvature"), p("sateb-params.shift"),      p("sateb-params.const-bias"),
                p("sateb-params.rms-time")};
    }
    test::HarmonicParams harmonicParams()
    {
        const auto p = [&](const char* name) {
            return value(CString("plugin.modMain.modDLC73.glowcore-params.").append(name));
        };
        return {p("ratio-a"), p("ratio-b"), p("knee-a"), p("knee-b"), p("bias-I"),
                p("bias-V"),  p("gain-I"),  p("gain-V"), p("feed-freq"), p("makeup-gain")};
    }

    test::CTestHostContext m_host;
    CAudioWrapperVST3* m_wrapper = nullptr;
    double m_rate = 48000.0;
};

// ---- analysis

// A tone's complex amplitude over `length` samples from `start`, Hann windowed. Tones on
// whole cycles of the window don't leak into each other's bins.
Complex toneAt(const std::vector<double>& signal, int64_t start, int64_t length, double freq, double rate)
{
    Complex sum = 0.0;
    for (int64_t n = 0; n < length; ++n) {
        const double window = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(n) / double(length));
        sum += window * signal[size_t(start + n)] * std::polar(1.0, -2.0 * std::numbers::pi * freq * double(n) / rate);
    }
    return sum;
}

// The gain at `freq` from `in` to `out` over their second second.
double measuredGain(const Signal& in, const Signal& out, size_t channel, double freq, double rate)
{
    const auto second = int64_t(rate);
    return std::abs(toneAt(out[channel], second, second, freq, rate)) / std::abs(toneAt(in[channel], second, second, freq, rate));
}

Signal tones(const std::vector<double>& freqs, double amplitude, double rate, int64_t length)
{
    Signal s(2, std::vector<double>(size_t(length), 0.0));
    for (int64_t n = 0; n < length; ++n) {
        double v = 0.0;
        for (size_t k = 0; k < freqs.size(); ++k)
            v += amplitude * std::sin(2.0 * std::numbers::pi * freqs[k] * double(n) / rate + 0.7 * double(k));
        s[0][size_t(n)] = s[1][size_t(n)] = v;
    }
    return s;
}

// Whole numbers of hertz, so that one second holds whole cycles of each; they cover the
// bands' corners and the high-pass's edge.
const std::vector<double> kProbeFreqs = {5, 20, 45, 90, 126, 200, 350, 700, 1100, 2000, 3500, 4900, 7000, 10000, 15000, 19000};

struct BandSetting
{
    double lo, mid, hi;
};

// The whole plug-in at 1X against the response its stages' formulas give. At -90 dBFS per
// tone the non-linear stages are their linearised selves to about 0.01 dB; 0.1 dB leaves
// room for the saturator's level-dependent bias and the start-up's residue, while a wrong
// band, auto-gain coefficient or missing stage moves the response by far more.
TEST_F(CProductTest, TheResponseAtOneXIsTheBandFormulasTimesTheLinearisedStages)
{
    const BandSetting settings[] = {{0, 0, 0}, {9, 0, 0}, {0, 9, 0}, {0, 0, 9}, {-3, -3, -3}, {6, -2, 4}};
    double worst = 0.0;
    for (double rate : {44100.0, 96000.0}) {
        for (const BandSetting& s : settings) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, " << s.lo << "/" << s.mid << "/" << s.hi);
            dropWrapper();
            makeWrapper();
            start(rate);
            const Signal in = tones(kProbeFreqs, 3e-5, rate, 2 * int64_t(rate));
            const Signal out = render(in, {{0, kLo, bandNorm(s.lo)}, {0, kLo + 1, bandNorm(s.mid)},
                                           {0, kLo + 2, bandNorm(s.hi)}});

            const test::SaturatorParams sat = saturatorParams();
            const test::HarmonicParams glow = harmonicParams();
            // The fixed auto-gain: each band's decibels take part with -0.35, -0.35, -0.2.
            const double ingain = test::dbToGain(-0.35 * s.lo - 0.35 * s.mid - 0.2 * s.hi);
            EXPECT_NEAR(value(CString("plugin.modMain.modDLC73.ingain")), ingain, 1e-9);
            const double modes[3] = {2, 1, 3};
            const double freqs[3] = {126, 700, 4900};
            const double widths[3] = {1.15, 2.75, 1.15};
            const double gains[3] = {s.lo, s.mid, s.hi};
            const test::SaturatorPair pair(sat);
            for (double f : kProbeFreqs) {
                Complex bands = 1.0;
                for (int b = 0; b < 3; ++b)
                    bands *= test::harmonicStage(
                        glow, test::bandFilter(int(modes[b]), freqs[b], gains[b], widths[b], f, rate), f, rate);
                const Complex expected = ingain * pair.at(bands, f, rate) * test::onePoleHighPass(1.0, f, rate);
                for (size_t c = 0; c < 2; ++c) {
                    const double measured = measuredGain(in, out, c, f, rate);
                    const double error = test::gainToDb(measured) - test::gainToDb(std::abs(expected));
                    worst = std::max(worst, std::abs(error));
                    EXPECT_NEAR(error, 0.0, 0.1) << f << " Hz, channel " << c << ": measured "
                                                 << test::gainToDb(measured) << " dB";
                }
            }
        }
    }
    RecordProperty("worst-deviation-db", std::to_string(worst));
}

TEST_F(CProductTest, AllBandsOffStillRunTheSaturatorsAndTheHighPass)
{
    start(44100.0);
    CAudioParam* mode = collector()->getParam(CString("plugin.modMain.modDLC73.eq-params.mode"));
    for (int32_t band = 0; band < 3; ++band)
        mode->setElementValue(0.0, 0, band, nullptr);
    const Signal in = tones(kProbeFreqs, 3e-5, m_rate, 2 * int64_t(m_rate));
    const Signal out = render(in);

    // No harmonic stage in any band: each switch holds the bypass filter alone.
    for (int band = 0; band < 3; ++band) {
        CModProcessSwitch* sw = bandSwitch(band);
        ASSERT_NE(sw, nullptr);
        EXPECT_NE(dynamic_cast<CModFilterIIR*>(sw->instance(0)), nullptr) << band;
    }
    CAudioProcess* chain = groupChain();
    ASSERT_NE(chain, nullptr);
    for (const char* stage : {"modPreGain", "modSatEB", "modSatEBOut", "modFilterHP1"})
        EXPECT_TRUE(runs(*chain, stage)) << stage;

    // Flat but for the saturators' gain and the high-pass at 1 Hz. The mode the selector
    // shows from the start ("Tube 2") sets the saturators; its gain is small but there.
    const test::SaturatorPair pair(saturatorParams());
    EXPECT_LT(std::abs(test::gainToDb(pair.plainGain())), 3.0);
    EXPECT_GT(std::abs(test::gainToDb(pair.plainGain())), 0.05);
    for (double f : kProbeFreqs) {
        const double expected = std::abs(pair.at(1.0, f, m_rate) * test::onePoleHighPass(1.0, f, m_rate));
        EXPECT_NEAR(test::gainToDb(measuredGain(in, out, 0, f, m_rate)), test::gainToDb(expected), 0.1) << f << " Hz";
    }

    // Loud, the saturator bends the wave: the second harmonic of a 1 kHz tone is there.
    const auto half = int64_t(m_rate) / 2;
    const Signal bent = render(tones({1000}, 0.5, m_rate, 2 * half));
    EXPECT_GT(std::abs(toneAt(bent[0], half, half, 2000, m_rate)) / std::abs(toneAt(bent[0], half, half, 1000, m_rate)),
              1e-3);
}

// The largest step from one sample to the next in [from, to).
double largestStep(const std::vector<double>& s, int64_t from, int64_t to)
{
    double step = 0.0;
    for (int64_t n = std::max<int64_t>(from, 1); n < to; ++n)
        step = std::max(step, std::abs(s[size_t(n)] - s[size_t(n - 1)]));
    return step;
}

// Bypass switched on mid-block: the output leaves the processed signal at that sample and
// reaches the dry one a crossfade later, with no step larger than the signals' own.
TEST_F(CProductTest, BypassCrossfadesFromTheProcessedToTheDrySignal)
{
    const double rate = 44100.0;
    const int64_t length = 3 * int64_t(rate) / 2;
    const int64_t toggle = int64_t(rate) + 300;
    // A low tone, 12 dB down at the output: a switch without a fade would step by most
    // of the tone's amplitude, where the tone itself moves by 1 % of it per sample.
    const Signal in = tones({70}, 0.25, rate, length);
    const std::vector<HostChange> quiet = {{0, kOutGain, 0.0}};

    start(rate);
    const Signal processed = render(in, quiet);
    dropWrapper();
    makeWrapper();
    start(rate);
    std::vector<HostChange> changes = quiet;
    changes.push_back({toggle, kBypass, 1.0});
    const Signal out = render(in, changes);

    const auto differ = [](const std::vector<double>& a, const std::vector<double>& b, int64_t n) {
        return std::abs(a[size_t(n)] - b[size_t(n)]) > 1e-9;
    };
    for (size_t c = 0; c < 2; ++c) {
        SCOPED_TRACE(c);
        // The raised cosine starts with the old signal at full weight.
        int64_t parted = 0;
        while (parted < length && !differ(out[c], processed[c], parted))
            ++parted;
        EXPECT_EQ(parted, toggle + 1);
        int64_t fadeEnd = length;
        while (fadeEnd > toggle && !differ(out[c], in[c], fadeEnd - 1))
            --fadeEnd;
        // The module crossfade: round(0.015 * rate) samples, 662 at 44.1 kHz.
        EXPECT_NEAR(double(fadeEnd - toggle), 662.0, 2.0);
        const double natural = std::max(largestStep(in[c], toggle, length), largestStep(processed[c], toggle, length));
        EXPECT_LE(largestStep(out[c], toggle - 1, fadeEnd + 1), 1.05 * natural);
        // And the step a plain switch would have made is far above that.
        EXPECT_GT(std::abs(in[c][size_t(toggle)] - processed[c][size_t(toggle)]), 5.0 * natural);
    }
}

// Soloing another group silences group 0, where both channels are: the solo stage comes
// into the path and fades the group out; taking the solo off fades it back in.
TEST_F(CProductTest, GroupSoloFadesTheOtherGroupsOutAndBackIn)
{
    const auto block = int64_t(kBlock);
    const Signal in = tones({70}, 0.25, 44100.0, 200 * block);
    const auto part = [&](int64_t from, int64_t to) {
        return Signal{std::vector<double>(in[0].begin() + from * block, in[0].begin() + to * block),
                      std::vector<double>(in[1].begin() + from * block, in[1].begin() + to * block)};
    };
    start(44100.0);
    CAudioParam* solo = collector()->getParam(CString("plugin.modMain.io-params.channel-group-solo"));

    const Signal before = render(part(0, 100));
    solo->setElementValue(1.0, 1, 0, nullptr);
    EXPECT_EQ(value(mainParam("group-solo-bypass")), 0.0);
    const Signal soloed = render(part(100, 150));
    auto* main = dynamic_cast<CAudioProcess*>(m_wrapper->mainProcess());
    ASSERT_NE(main, nullptr);
    EXPECT_TRUE(runs(*main, "modGroupSolo"));
    solo->setElementValue(0.0, 1, 0, nullptr);
    EXPECT_EQ(value(mainParam("group-solo-bypass")), 1.0);
    const Signal back = render(part(150, 200));
    // Out of the path again once it has faded to its input.
    EXPECT_FALSE(runs(*main, "modGroupSolo"));

    const auto peak = [](const std::vector<double>& s, size_t from) {
        double level = 0.0;
        for (size_t n = from; n < s.size(); ++n)
            level = std::max(level, std::abs(s[n]));
        return level;
    };
    for (size_t c = 0; c < 2; ++c) {
        SCOPED_TRACE(c);
        std::vector<double> all = before[c];
        all.insert(all.end(), soloed[c].begin(), soloed[c].end());
        all.insert(all.end(), back[c].begin(), back[c].end());
        const double natural = largestStep(before[c], before[c].size() / 2, int64_t(before[c].size()));
        // Out without a step, silent after the crossfade and the block it starts in; back
        // in without a step.
        EXPECT_LE(largestStep(all, 100 * block - 2, 102 * block), 1.05 * natural);
        EXPECT_LT(peak(soloed[c], 2 * size_t(block)), 1e-9);
        EXPECT_LE(largestStep(all, 150 * block - 2, 152 * block), 1.05 * natural);
        EXPECT_GT(peak(back[c], back[c].size() / 2), 0.1);
    }
}

} // namespace
} // namespace qel
