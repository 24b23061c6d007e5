// The product's registries as the wrapper makes them: the mode selectors sound their seeded
// banks' shown modes, and routing presets are refused as master presets. Selector steps are
// in CAudioParamRegistryTest; the master preset and its round trips in CAudioWrapperStateTest.

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

    CAudioParam* param(const std::string& name) { return w->paramCollector()->getParam(CString::fromUtf8(name)); }

    // Every entry of a mode preset is what the covered parameter holds in `group`, on the
    // UI's side and, once a block ran, on the audio side.
    void expectMode(CAudioParamRegistry& r, const CAudioPreset& mode, int32_t group)
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
                for (const CAudioParamStorage* side : {&p->values(), &p->audioValues()})
                    EXPECT_EQ(side->getElementValue(group, e, 0, -1.0), stored.getElementValue(0, e, 0, -2.0))
                        << key.toUtf8() << " in group " << group;
            }
        }
    }

    std::unique_ptr<ScratchStores> m_stores;
    std::unique_ptr<ScopedApplication> m_app;
    std::unique_ptr<TestWrapper> w;
    CAudioParamRegistry* master = nullptr;
};

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
            expectMode(*r, bank.preset(index), g);
    }
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

} // namespace
