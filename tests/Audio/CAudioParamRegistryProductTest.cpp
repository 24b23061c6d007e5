// The product's registries as the wrapper makes them from the definition: the master
// preset's entries, the mode selectors and their banks from the stores' seeds, presets of
// the wrong family, and a state carried from one instance to another.

#include "RegistryTestSupport.h"
#include "WrapperTestSupport.h"

#include "Audio/CAudioParamInfo.h"

#include <cstring>
#include <tuple>

using namespace qel;
using namespace qel::test;

namespace {

class ProductRegistries : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_stores = std::make_unique<ScratchStores>();
        m_app = std::make_unique<ScopedApplication>(kProductResourceRows, "SharedData.xml");
        w = startedWrapper();
        ASSERT_TRUE(w);
        master = w->paramRegistry();
        ASSERT_TRUE(master);
    }

    void TearDown() override
    {
        w.reset();
        m_app.reset();
        m_stores.reset();
    }

    CAudioParamRegistry* byId(const char* id, TestWrapper& wrapper)
    {
        std::vector<CAudioParamRegistry*> registries;
        wrapper.paramCollector()->getRegistries(registries);
        for (CAudioParamRegistry* r : registries)
            if (r->id().toUtf8() == id)
                return r;
        return nullptr;
    }

    // The keys whose entries differ, for a readable failure.
    static std::string differingKeys(const Bytes& a, const Bytes& b)
    {
        const CAudioPreset pa = presetOf(a), pb = presetOf(b);
        std::string out = pa.name() == pb.name() ? "" : "(name) ";
        for (const auto& [key, entry] : pa.entries()) {
            const CPresetEntry* other = pb.findEntry(key);
            if (!other || !(*other == entry))
                out += key.toUtf8() + " ";
        }
        for (const auto& [key, entry] : pb.entries())
            if (!pa.findEntry(key))
                out += key.toUtf8() + "(missing) ";
        return out;
    }

    CAudioParam* param(const std::string& name) { return w->paramCollector()->getParam(CString::fromUtf8(name)); }

    // Every entry of a mode preset is what the covered parameter holds in `group`, on the
    // UI's side and, once a block ran, on the audio side.
    void expectMode(CAudioParamRegistry& r, const CAudioPreset& mode, int32_t group, bool audioToo)
    {
        for (const auto& [key, entry] : mode.entries()) {
            CAudioParam* p = param(r.hierarchy().toUtf8() + key.toUtf8());
            ASSERT_TRUE(p->info()) << key.toUtf8();
            CAudioParamStorage stored;
            ASSERT_FALSE(CAudioParam::parseEntry(*p->info(), 8, entry, stored)) << key.toUtf8();
            CLockGuard guard(p->lock());
            if (p->info()->dataType == CAudioParamStorage::String) {
                EXPECT_EQ(stored.data().getString(uint32_t(stored.getElementValue(0, 0, 0, 0.0))).toUtf8(),
                          p->values().data().getString(uint32_t(p->values().getElementValue(group, 0, 0, 0.0))).toUtf8())
                    << key.toUtf8() << " in group " << group;
                continue;
            }
            for (int32_t e = 0; e < stored.elementCount(0); ++e) {
                EXPECT_EQ(p->values().getElementValue(group, e, 0, -1.0), stored.getElementValue(0, e, 0, -2.0))
                    << key.toUtf8() << " in group " << group;
                if (audioToo) {
                    EXPECT_EQ(p->audioValues().getElementValue(group, e, 0, -1.0), stored.getElementValue(0, e, 0, -2.0))
                        << key.toUtf8() << " on the audio side, group " << group;
                }
            }
        }
    }

    std::unique_ptr<ScratchStores> m_stores;
    std::unique_ptr<ScopedApplication> m_app;
    std::unique_ptr<TestWrapper> w;
    CAudioParamRegistry* master = nullptr;
};

TEST_F(ProductRegistries, TheMasterPresetHoldsTheStoredParameters)
{
    const CAudioPreset preset = presetOf(acquired(*master));
    std::vector<std::string> keys;
    for (const auto& [key, entry] : preset.entries())
        keys.push_back(key.toUtf8());
    EXPECT_EQ(keys, (std::vector<std::string>{
                        "bypass-enable", "groupsel", "instance-name", "io-params.channel-group-solo",
                        "io-params.group-names", "io-params.grouping", "io-params.in-channel-names",
                        "io-params.in-routing", "io-params.out-routing", "io-params.show-all-channels",
                        "modDLC73.eq-params.bw", "modDLC73.eq-params.freq", "modDLC73.eq-params.gain",
                        "modDLC73.eq-params.mode", "modDLC73.eq-params.prevmode", "modDLC73.outgain", "oversampling",
                        "preset-name"}));
    // The float of one element as the format's worked example has it: 59 bytes.
    const CPresetEntry* bypass = preset.findEntry(CString("bypass-enable"));
    ASSERT_TRUE(bypass);
    EXPECT_EQ(bypass->blob.size(), 59u);
    EXPECT_EQ(master->getFactoryPresetCount(), master->copyFactoryBank().presetCount() > 0
                                                   ? master->copyFactoryBank().presetCount()
                                                   : 1);
}

TEST_F(ProductRegistries, TheModeSelectorsSoundWhatTheyShowFromTheStart)
{
    for (const auto& [id, selectorName, shown] :
         {std::tuple{"QMEB", "plugin.modMain.modDLC73.sateb-mode", "Tube 2"},
          std::tuple{"QMGC", "plugin.modMain.modDLC73.glowcore", "Very Soft"}}) {
        CAudioParamRegistry* r = byId(id, *w);
        ASSERT_TRUE(r) << id;
        const CAudioPresetBank bank = r->copyEnumBank();
        ASSERT_GT(bank.presetCount(), 0) << id;
        const int32_t index = int32_t(std::lround(valueOf(*param(selectorName))));
        ASSERT_LT(index, bank.presetCount());
        CString family, modeName;
        CAudioPreset::splitPresetName(bank.preset(index).name(), family, modeName);
        EXPECT_EQ(modeName.toUtf8().substr(0, std::strlen(shown)), shown) << id;
        // A block runs, so the audio side has taken what the registry applied.
        const HostSetup stereo;
        prepare(*w, stereo);
        processOne(*w, stereo, tones(2, 64), 0, 64);
        w->stopProcessing();
        for (int32_t g = 0; g < 8; ++g)
            expectMode(*r, bank.preset(index), g, true);
    }
}

TEST_F(ProductRegistries, ASelectorStepLoadsItsModeIntoItsGroup)
{
    CAudioParamRegistry* r = byId("QMEB", *w);
    ASSERT_TRUE(r);
    const CAudioPresetBank bank = r->copyEnumBank();
    ASSERT_GT(bank.presetCount(), 1);
    CAudioParam* selector = param("plugin.modMain.modDLC73.sateb-mode");
    const int32_t shown = int32_t(std::lround(valueOf(*selector)));
    selector->setValue(0.0, 2, nullptr);
    expectMode(*r, bank.preset(0), 2, false);
    expectMode(*r, bank.preset(shown), 1, false);
    // Past the bank: the group's saturator parameters take their own defaults.
    selector->setValue(double(bank.presetCount()), 2, nullptr);
    CAudioParam* curvature = param("plugin.modMain.modDLC73.sateb-params.curvature");
    EXPECT_DOUBLE_EQ(valueOf(*curvature, 2), 112201.84375);
    expectMode(*r, bank.preset(shown), 3, false);
}

TEST_F(ProductRegistries, ARoutingPresetIsNoMasterPreset)
{
    CAudioParamRegistry* io = byId("QMIO", *w);
    ASSERT_TRUE(io);
    CByteArray bytes;
    CAppData::global().readData(CString("routing-presets-sys"), bytes, CAppData::kTagList, false);
    CAudioPresetList list;
    ASSERT_FALSE(list.fromBytes(bytes));
    ASSERT_GT(list.bank().presetCount(), 7);
    for (int32_t i = 0; i < list.bank().presetCount(); ++i) {
        const Bytes before = acquired(*master);
        CByteArray stream;
        ASSERT_FALSE(list.bank().preset(i).toBytes(stream));
        const Bytes routing(stream.data(), stream.data() + stream.size());
        EXPECT_EQ(firstLine(activate(*master, routing)), "Incompatible preset.");
        EXPECT_EQ(acquired(*master), before);
        // Its own registry takes it, keys this product has no definition for (a mid-side
        // list) left aside.
        EXPECT_FALSE(activate(*io, routing)) << list.bank().preset(i).name().toUtf8();
    }
}

TEST_F(ProductRegistries, AMasterPresetWithoutOversamplingResetsIt)
{
    CAudioParam* oversampling = param("plugin.modMain.oversampling");
    const double initial = valueOf(*oversampling);
    oversampling->setValue(initial == 3.0 ? 2.0 : 3.0, 0, nullptr);
    CAudioPreset preset = presetOf(acquired(*master));
    preset.removeEntry(CString("oversampling"));
    CByteArray stream;
    ASSERT_FALSE(preset.toBytes(stream));
    ASSERT_FALSE(activate(*master, Bytes(stream.data(), stream.data() + stream.size()), true));
    EXPECT_EQ(valueOf(*oversampling), initial);
}

TEST_F(ProductRegistries, AStateLoadsIntoAnotherInstanceAndSavesToTheSameBytes)
{
    // Gains in linear factors, within their ranges (a load clamps).
    param("plugin.modMain.modDLC73.eq-params.gain")->setElementValue(4.0 / 3.0, 0, 1, nullptr);
    param("plugin.modMain.modDLC73.outgain")->setValue(0.5, 0, nullptr);
    param("plugin.modMain.oversampling")->setValue(2.0, 0, nullptr);
    CAudioParamUpdateContext context;
    param("plugin.modMain.io-params.group-names")->setString(0, 3, CString("Drums"), nullptr, context);
    const Bytes state = acquired(*master);

    auto other = startedWrapper();
    ASSERT_TRUE(other);
    EXPECT_NE(acquired(*other->paramRegistry()), state);
    ASSERT_FALSE(activate(*other->paramRegistry(), state, true));
    EXPECT_EQ(differingKeys(acquired(*other->paramRegistry()), state), "");
    EXPECT_EQ(acquired(*other->paramRegistry()), state);
    // And into the first instance again, which changes nothing.
    ASSERT_FALSE(activate(*master, state, true));
    EXPECT_EQ(acquired(*master), state);
}

} // namespace
