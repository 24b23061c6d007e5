// Registries on parameters of small code-made definitions: presets written and read byte
// for byte, applied all or nothing, programs with their histories, the A/B pair, the
// enumerated selectors, and the stored parameters' save, load and reset.

#include "RegistryTestSupport.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioRoutingInfoProvider.h"
#include "Core/CFileWriter.h"

#include <atomic>
#include <cstring>
#include <thread>

using namespace qel;
using namespace qel::test;

namespace {

Attrs with(Attrs attrs, const Attrs& more)
{
    attrs.insert(attrs.end(), more.begin(), more.end());
    return attrs;
}

const Attrs kStored = {{"is-storable", "true"}};
const Attrs kPersistent = {{"is-persistent", "true"}};

// A string parameter of one text per element.
Attrs textParam(const char* defValues, const Attrs& more = {})
{
    return with({{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"}, {"def-values", defValues}}, more);
}

CPresetEntry entryOf(const Bytes& blob)
{
    return CPresetEntry(CByteArray(blob.data(), blob.size()));
}

Bytes blobOf(const CPresetEntry& entry)
{
    return Bytes(entry.blob.data(), entry.blob.data() + entry.blob.size());
}

class RegistryTest : public AudioParamFixture
{
protected:
    void SetUp() override
    {
        AudioParamFixture::SetUp();
        m_stores = std::make_unique<ScratchStores>();
        CObject* audio = make(CApplication::sharedRoot(), "core:object", "audio", {});
        ASSERT_TRUE(audio);
        m_defs = make(audio, "core:object", "mod", {});
        ASSERT_TRUE(m_defs);
        m_undo = dynamic_cast<CAudioParamUndo*>(
            make(m_root.get(), "audio:interface-base", "undo", {{"param-collector", "params"}, {"undo-count-max", "32"}}));
        ASSERT_TRUE(m_undo);
    }

    void TearDown() override
    {
        m_root.reset();
        m_stores.reset();
        AudioParamFixture::TearDown();
    }

    // A definition "audio.mod.<key>" in the shared tree.
    const CAudioParamInfo* sharedDef(const std::string& key, const Attrs& attrs)
    {
        auto* made = dynamic_cast<CAudioParamDef*>(make(m_defs, "audio:param", key.c_str(), attrs));
        return made ? &made->info() : nullptr;
    }

    // The live parameter "plugin.mod.<key>" with that definition.
    CAudioParam* live(const std::string& key, const Attrs& attrs)
    {
        CAudioParam* p = m_collector->getParam(CString::fromUtf8("plugin.mod." + key));
        CAudioParamUpdateContext context;
        p->attachDefinition(sharedDef(key, attrs), context);
        return p;
    }

    CAudioParamRegistry* registry(const char* objectName, const Attrs& attrs)
    {
        Attrs all = {{"hierarchy", "plugin.mod"}, {"param-collector", "params"}, {"def-name-remap", "plugin=audio"}};
        all.insert(all.end(), attrs.begin(), attrs.end());
        return dynamic_cast<CAudioParamRegistry*>(make(m_root.get(), "audio:param-registry", objectName, all));
    }

    CAudioParamRegistry* master(const Attrs& more = {})
    {
        return registry("master", with({{"id", "TEST"}, {"is-master", "true"}, {"param-undo", "undo"},
                                        {"preset-naming", "Master preset"}, {"preset-name-param", "plugin.mod.preset-name"}},
                                       more));
    }

    // The master's usual parameters: a stored list of three, a stored name, a persistent
    // value and one that is not stored at all.
    void masterParams()
    {
        gain = live("gain", with(realParam("1,2,3", "-10", "10"), kStored));
        name = live("preset-name", textParam("Default", kStored));
        keep = live("keep", with(realParam("5"), kPersistent));
        scratch = live("scratch", realParam("7"));
    }

    // The master on its usual parameters, started.
    CAudioParamRegistry* startedMaster(const Attrs& more = {})
    {
        masterParams();
        CAudioParamRegistry* r = master(more);
        EXPECT_TRUE(r);
        m_collector->start();
        return r;
    }

    // A factory bank file of presets that set gain's group 0 to {k, k, k} and name them.
    std::string bankFile(int presets)
    {
        CAudioPresetBank bank(CString("Bank"));
        for (int k = 0; k < presets; ++k) {
            std::string title = std::to_string(k);
            title.insert(title.begin(), 'P');
            bank.addPreset(presetOf(presetStream(
                "TEST:" + title, {{"gain", floatBlob("audio.mod.gain", {{double(k), double(k), double(k)}})},
                                  {"keep", floatBlob("audio.mod.keep", {{50.0 + k}})},
                                  {"preset-name", stringBlob("audio.mod.preset-name", {title})}})));
        }
        const std::string path = m_stores->root + "factory.cbf";
        EXPECT_FALSE(bank.saveFile(CString::fromUtf8(path)));
        return path;
    }

    std::vector<std::string> history()
    {
        std::vector<CString> names;
        int32_t position = 0;
        m_undo->getHistory(names, position);
        std::vector<std::string> out;
        for (int32_t i = 1; i <= position; ++i)
            out.push_back(names[size_t(i)].toUtf8());
        return out;
    }

    // One undoable user edit of a float element.
    void edit(CAudioParam* p, double value, int32_t group, int32_t element, const char* undoName)
    {
        auto entry = std::make_unique<CAudioParamUndoData>(CString(undoName));
        CAudioParamUpdateContext context;
        context.undo = entry.get();
        {
            CAudioParamLock lock(*p);
            CAudioParamChange c = p->values().makeChange(group, element, 1, false);
            c.values = &value;
            p->change(c, context);
        }
        m_undo->submit(std::move(entry));
    }

    std::unique_ptr<ScratchStores> m_stores;
    CObject* m_defs = nullptr;
    CAudioParamUndo* m_undo = nullptr;
    CAudioParam* gain = nullptr;
    CAudioParam* name = nullptr;
    CAudioParam* keep = nullptr;
    CAudioParam* scratch = nullptr;
};

// ---- stored form

TEST_F(RegistryTest, AnEntryIsTheDefinitionNameAndTheStoredValues)
{
    CAudioParam* bypass = live("bypass-enable", with(realParam("0", "0", "1"), kStored));
    CAudioParamRegistry* r = registry("plain", {{"id", "TEST"}});
    m_collector->start();
    const Bytes out = acquired(*r, false, 0, -1);
    // A float of one element: the key, the blob's size, the definition name, version 1,
    // element size 1, type float, one group of one element, the value.
    ByteBuilder expected;
    expected.str("TEST:").u32(1).str("bypass-enable").u32(27 + 20 + 8);
    expected.str("audio.mod.bypass-enable").u32(1).u32(1).u32(0).u32(1).u32(1).f64(0.0);
    EXPECT_EQ(out, expected.bytes);
    EXPECT_EQ(valueOf(*bypass), 0.0);

    // A string entry: the item table, then the list of ids.
    CAudioParam* title = live("title", textParam("Default", kStored));
    CPresetEntry entry;
    ASSERT_FALSE(title->save(entry, -1));
    EXPECT_EQ(blobOf(entry), stringBlob("audio.mod.title", {"Default"}));
}

TEST_F(RegistryTest, TrailingEmptyGroupsAreNotSavedSoEqualStatesGiveEqualBytes)
{
    CAudioParam* p = live("gain", with(realParam("1"), kStored));
    p->setValue(4.0, 3, nullptr);
    CPresetEntry before;
    ASSERT_FALSE(p->save(before, -1));
    EXPECT_EQ(blobOf(before), floatBlob("audio.mod.gain", {{1.0}, {}, {}, {4.0}}));
    // Group 3 back to nothing: the entry is that of a parameter never written there.
    CAudioParamUpdateContext context;
    p->reset(-1, -1, true, context);
    CPresetEntry after;
    ASSERT_FALSE(p->save(after, -1));
    EXPECT_EQ(blobOf(after), floatBlob("audio.mod.gain", {{1.0}}));
    // One group alone is saved as a group count of one.
    CPresetEntry one;
    p->setValue(6.0, 2, nullptr);
    ASSERT_FALSE(p->save(one, 2));
    EXPECT_EQ(blobOf(one), floatBlob("audio.mod.gain", {{6.0}}));
}

TEST_F(RegistryTest, LoadingAllGroupsCutsTheGroupsTheEntryLacksOnBothSides)
{
    CAudioParam* p = live("gain", with(realParam("1", "0", "100"), kStored));
    for (int32_t g = 0; g < 8; ++g)
        p->setValue(10.0 + g, g, nullptr);
    drain();
    CAudioParamUpdateContext context;
    ASSERT_FALSE(p->load(entryOf(floatBlob("audio.other.gain", {{42.0, 43.0}})), false, context, -1, -1, true));
    drain();
    EXPECT_EQ(listOf(*p, 0), (std::vector<double>{42.0, 43.0}));
    for (int32_t g = 1; g < 8; ++g) {
        EXPECT_EQ(p->values().elementCount(g), 0) << g;
        EXPECT_EQ(p->audioValues().elementCount(g), 0) << g;
        EXPECT_EQ(p->audioValues().getElementValue(g, 0, 0, -1.0), 1.0) << g;
    }
    EXPECT_EQ(p->audioValues().getElementValue(0, 1, 0, -1.0), 43.0);
}

TEST_F(RegistryTest, ADamagedEntryChangesNothing)
{
    CAudioParam* p = live("gain", with(realParam("1", "0", "100"), kStored));
    p->setValue(9.0, 0, nullptr);
    const Bytes good = floatBlob("audio.mod.gain", {{2.0}});
    std::vector<Bytes> bad;
    for (size_t n = 0; n < good.size(); ++n)
        bad.emplace_back(good.begin(), good.begin() + long(n));
    Bytes version = good;
    version[4 + std::strlen("audio.mod.gain")] = 2;
    bad.push_back(version);
    Bytes trailing = good;
    trailing.push_back(0);
    bad.push_back(trailing);
    bad.push_back(floatBlob("audio.mod.gain", {{std::numeric_limits<double>::quiet_NaN()}}));
    bad.push_back(floatBlob("audio.mod.gain", std::vector<std::vector<double>>(9, {1.0})));
    bad.push_back(floatBlob("audio.mod.gain", {std::vector<double>(17, 1.0)}));
    for (const Bytes& blob : bad) {
        const CPresetEntry entry = entryOf(blob);
        CAudioParamUpdateContext context;
        for (int32_t group : {-1, 0, 3}) {
            EXPECT_TRUE(p->load(entry, false, context, group, -1, true)) << blob.size();
            EXPECT_TRUE(p->load(entry, true, context, group, -1, true));
        }
        EXPECT_EQ(listOf(*p, 0), std::vector<double>{9.0});
        EXPECT_EQ(p->values().groupCount(), 1);
    }
    // Out of range is brought into it.
    CAudioParamUpdateContext context;
    ASSERT_FALSE(p->load(entryOf(floatBlob("audio.mod.gain", {{-5.0, 500.0}})), false, context, -1, -1, true));
    EXPECT_EQ(listOf(*p, 0), (std::vector<double>{0.0, 100.0}));
}

TEST_F(RegistryTest, ElementLoadsAndResetsReachTheirElementOnly)
{
    CAudioParam* p = live("band", with(realParam("1,2,3", "0", "100"), kStored));
    const CPresetEntry entry = entryOf(floatBlob("audio.mod.band", {{7.0, 8.0}}));
    CAudioParamUpdateContext context;
    // The entry's first element goes to element 1 of group 2; the gap before it takes
    // the default.
    ASSERT_FALSE(p->load(entry, false, context, 2, 1, false));
    EXPECT_EQ(listOf(*p, 2), (std::vector<double>{1.0, 7.0}));
    EXPECT_EQ(valueOf(*p, 2, 2), 3.0);
    ASSERT_FALSE(p->load(entry, false, context, 2, 0, true));
    EXPECT_EQ(listOf(*p, 2), (std::vector<double>{7.0}));
    // Resetting one element past the list grows it with defaults.
    p->reset(2, 2, false, context);
    EXPECT_EQ(listOf(*p, 2), (std::vector<double>{7.0, 2.0, 3.0}));
    p->reset(2, -1, true, context);
    EXPECT_EQ(listOf(*p, 2), (std::vector<double>{1.0, 2.0, 3.0}));
    // An empty entry for a group resets it.
    p->setValue(50.0, 2, nullptr);
    ASSERT_FALSE(p->load(entryOf(floatBlob("audio.mod.band", {{}})), false, context, 2, -1, true));
    EXPECT_EQ(listOf(*p, 2), (std::vector<double>{1.0, 2.0, 3.0}));
    // The defaults group takes one element at its end only where it ends.
    ASSERT_FALSE(p->load(entry, false, context, kParamDefaultsGroup, 3, true));
    EXPECT_EQ(p->values().defaultValues(), (std::vector<double>{1.0, 2.0, 3.0, 7.0}));
    ASSERT_FALSE(p->load(entry, false, context, kParamDefaultsGroup, 9, true));
    EXPECT_EQ(p->values().defaultValues(), (std::vector<double>{1.0, 2.0, 3.0, 7.0}));
}

// ---- the master registry

TEST_F(RegistryTest, WithoutFactoryBankThereIsOneDefaultPreset)
{
    masterParams();
    for (const std::string& file : {std::string(), m_stores->root + "missing.cbf", std::string("damaged")}) {
        std::string path = file;
        if (file == "damaged") {
            path = m_stores->root + "damaged.cbf";
            CFileWriter writer;
            ASSERT_FALSE(writer.open(CString::fromUtf8(path), false));
            ASSERT_FALSE(writer.write("abnk\x10\0\0\0garbage", 15));
            ASSERT_FALSE(writer.close());
        }
        CAudioParamRegistry* r = master(path.empty() ? Attrs{} : Attrs{{"file", path.c_str()}});
        ASSERT_TRUE(r);
        EXPECT_EQ(r->getFactoryPresetCount(), 1);
        EXPECT_EQ(r->getSessionPresetCount(), 1);
        EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Default");
        EXPECT_EQ(r->copyFactoryBank().name().toUtf8(), "Factory ROM");
        EXPECT_EQ(r->copySessionBank().name().toUtf8(), "Session Bank");
        std::vector<CString> names;
        int32_t current = 7;
        r->getPresetNames(true, names, current);
        ASSERT_EQ(names.size(), 1u);
        EXPECT_EQ(names[0].toUtf8(), "TEST:Default");
        EXPECT_EQ(current, -1);
        // Its one preset holds nothing: activating it resets.
        const Bytes rom = acquired(*r, true, 0);
        EXPECT_EQ(rom, presetStream("TEST:Default", {}));
        EXPECT_EQ(rom.size(), 8u + std::strlen("TEST:Default"));
        CWriteSeqBuffer sink;
        EXPECT_EQ(firstLine(r->acquirePreset(true, 1, -1, sink)), "Invalid preset index 1 specified.");
        deleteObject(r);
    }
}

TEST_F(RegistryTest, StartAppliesTheFirstSessionPresetAndMakesItTheDefaults)
{
    masterParams();
    CAudioParamRegistry* r = master({{"file", bankFile(3).c_str()}});
    ASSERT_TRUE(r);
    EXPECT_EQ(r->getSessionPresetCount(), 3);
    EXPECT_EQ(r->getFactoryPresetCount(), 3);
    m_collector->start();
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{0.0, 0.0, 0.0}));
    EXPECT_EQ(valueOf(*keep), 50.0);
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "P0");
    // The preset's values are what a reset now restores.
    gain->setValue(9.0, 0, nullptr);
    CAudioParamUpdateContext context;
    gain->reset(0, -1, true, context);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{0.0, 0.0, 0.0}));
    EXPECT_EQ(history().size(), 0u);
}

TEST_F(RegistryTest, AStoredDefaultPresetReplacesTheFirstOne)
{
    masterParams();
    const Bytes stored = presetStream("TEST:Mine", {{"gain", floatBlob("audio.mod.gain", {{4.0}})},
                                                    {"keep", floatBlob("audio.mod.keep", {{6.0}})}});
    CAppData::local().writeData(CString("default-preset"), CByteArray(stored.data(), stored.size()), nullptr,
                                CAppData::kTagPresets);
    CAppData::resetForTests();
    CAudioParamRegistry* r = master({{"file", bankFile(2).c_str()}});
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->hasStoredDefault());
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Mine");
    EXPECT_EQ(r->getPresetName(1).toUtf8(), "TEST:P1");
    m_collector->start();
    EXPECT_EQ(listOf(*gain, 0), std::vector<double>{4.0});
    EXPECT_EQ(valueOf(*keep), 6.0);
    // The stored name isn't in its entries: the name parameter goes to its default.
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "Default");
}

TEST_F(RegistryTest, ForeignGarbageAndTruncatedPresetsAreRefusedAndChangeNothing)
{
    CAudioParamRegistry* r = startedMaster();
    gain->setValue(3.0, 1, nullptr);
    keep->setValue(8.0, 0, nullptr);
    UpdateCounter updates;
    updates.setNotifier(r, CAudioParamRegistry::kUpdateKey);
    const Bytes before = acquired(*r);
    const Bytes good = presetStream("TEST:Good", {{"gain", floatBlob("audio.mod.gain", {{4.0, 5.0}})},
                                                  {"keep", floatBlob("audio.mod.keep", {{1.0}})},
                                                  {"preset-name", stringBlob("audio.mod.preset-name", {"Good"})}});
    for (size_t n = 0; n < good.size(); ++n) {
        const Bytes cut(good.begin(), good.begin() + long(n));
        EXPECT_TRUE(activate(*r, cut, true)) << n;
    }
    // Another family's preset, or one without a family.
    for (const char* foreign : {"QMIO:Stereo", "Stereo"})
        EXPECT_EQ(firstLine(activate(*r, presetStream(foreign, {{"gain", floatBlob("audio.mod.gain", {{9.0}})}}))),
                  "Incompatible preset.");
    EXPECT_EQ(acquired(*r), before);
    EXPECT_EQ(updates.count, 0);
    EXPECT_TRUE(history().empty());
    // Every byte flipped in turn: refused, or else a preset of this family that loads.
    for (size_t at = 0; at < good.size(); ++at) {
        Bytes damaged = good;
        damaged[at] ^= 0xa5;
        CErrorPtr error = activate(*r, damaged, true);
        if (!error) {
            EXPECT_EQ(r->getPresetName(0).toUtf8().substr(0, 5), "TEST:") << at;
            ASSERT_FALSE(activate(*r, before, true));
        }
        EXPECT_EQ(acquired(*r), before) << at;
    }
    // A good entry before a broken one: nothing at all is applied, not even the name.
    const Bytes mixed = presetStream("TEST:Mixed", {{"gain", floatBlob("audio.mod.gain", {{4.0}})},
                                                    {"keep", floatBlob("audio.mod.keep", {{std::numeric_limits<double>::quiet_NaN()}})}});
    EXPECT_TRUE(activate(*r, mixed, true));
    EXPECT_EQ(acquired(*r), before);
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Default");
    updates.setNotifier(nullptr, 0);
}

TEST_F(RegistryTest, ActivationAppliesKeysAndResetsWhatThePresetLacks)
{
    CAudioParamRegistry* r = startedMaster();
    gain->setValue(3.0, 1, nullptr);
    keep->setValue(8.0, 0, nullptr);
    scratch->setValue(9.0, 0, nullptr);
    CAudioParamUpdateContext context;
    name->setString(0, 0, CString("Old"), nullptr, context);
    UpdateCounter updates;
    updates.setNotifier(r, CAudioParamRegistry::kUpdateKey);
    int source = 0;
    // No gain, no keep; a key without definition, one whose definition only the name
    // remap finds, and a blob naming a sibling module's definition.
    sharedDef("late", with(realParam("2"), kStored));
    live("other", with(realParam("1"), kStored));
    const Bytes stream = presetStream("TEST:Next", {{"nodef", {0xde, 0xad}},
                                                    {"late", floatBlob("audio.mod.late", {{12.0}})},
                                                    {"other", floatBlob("audio.modSibling.other", {{33.0}})}});
    ASSERT_FALSE(activate(*r, stream, false, -1, &source));
    EXPECT_EQ(listOf(*gain, 1), (std::vector<double>{}));
    EXPECT_EQ(valueOf(*gain, 1, 2), 3.0);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{1.0, 2.0, 3.0}));
    EXPECT_EQ(valueOf(*keep), 8.0); // persistent, and not included
    EXPECT_EQ(valueOf(*scratch), 9.0);
    EXPECT_EQ(valueOf(*m_collector->getParam(CString("plugin.mod.other"))), 33.0);
    CAudioParam* late = m_collector->findParam(CString("plugin.mod.late"));
    ASSERT_TRUE(late);
    ASSERT_TRUE(late->info());
    EXPECT_EQ(valueOf(*late), 12.0);
    CAudioParam* nodef = m_collector->findParam(CString("plugin.mod.nodef"));
    ASSERT_TRUE(nodef);
    EXPECT_FALSE(nodef->info());
    // The name reaches the bank and the name parameter; the requester is told.
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Next");
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "Next");
    EXPECT_GE(updates.count, 1);
    EXPECT_EQ(updates.lastSource, &source);
    EXPECT_EQ(history(), std::vector<std::string>{"Master preset activate"});
    // With persistent ones, keep is reset too.
    ASSERT_FALSE(activate(*r, stream, true));
    EXPECT_EQ(valueOf(*keep), 5.0);
    updates.setNotifier(nullptr, 0);
}

TEST_F(RegistryTest, TheAudioSideGetsAPresetAsOneList)
{
    masterParams();
    CAudioParam* second = live("second", with(realParam("1"), kStored));
    CAudioParamRegistry* r = master();
    m_collector->start();
    drain();
    m_env->setActive(true);
    // While the preset is applied nothing reaches the queue.
    struct Watch : CUpdateListener
    {
        void onUpdate(const CUpdateMessage*) override { seen.push_back(collector->pendingCount()); }
        CAudioParamCollector* collector = nullptr;
        std::vector<size_t> seen;
    } watch;
    watch.collector = m_collector;
    watch.setNotifier(m_collector, reinterpret_cast<uintptr_t>(second));
    const Bytes stream = presetStream("TEST:Both", {{"gain", floatBlob("audio.mod.gain", {{4.0}})},
                                                    {"second", floatBlob("audio.mod.second", {{6.0}})}});
    ASSERT_FALSE(activate(*r, stream));
    watch.setNotifier(nullptr, 0);
    ASSERT_FALSE(watch.seen.empty());
    for (size_t pending : watch.seen)
        EXPECT_EQ(pending, 0u);
    EXPECT_GE(m_collector->pendingCount(), 2u);
    drain();
    EXPECT_EQ(gain->audioValues().getElementValue(0, 0, 0, 0.0), 4.0);
    EXPECT_EQ(second->audioValues().getElementValue(0, 0, 0, 0.0), 6.0);
    m_env->setActive(false);
}

TEST_F(RegistryTest, SavingAGroupAndLoadingItIntoAnotherMovesItsSettings)
{
    CAudioParam* freq = live("freq", with(realParam("1,2,3", "0", "100"), kStored));
    CAudioParam* mode = live("mode", with(realParam("0"), kStored));
    CAudioParamRegistry* r = registry("plain", {{"id", "TEST"}});
    m_collector->start();
    CAudioParamUpdateContext context;
    const double three[] = {10.0, 20.0, 30.0};
    CAudioParamChange c = freq->values().makeChange(2, 0, 3, true);
    c.values = three;
    freq->change(c, context);
    mode->setValue(4.0, 2, nullptr);
    mode->setValue(1.0, 5, nullptr);
    freq->setValue(99.0, 0, nullptr);
    const Bytes two = acquired(*r, false, 0, 2);
    ASSERT_FALSE(activate(*r, two, false, 5));
    EXPECT_EQ(listOf(*freq, 5), (std::vector<double>{10.0, 20.0, 30.0}));
    EXPECT_EQ(listOf(*mode, 5), std::vector<double>{4.0});
    EXPECT_EQ(listOf(*freq, 0), std::vector<double>{99.0});
    EXPECT_EQ(listOf(*freq, 2), (std::vector<double>{10.0, 20.0, 30.0}));
    // A group that held nothing is captured without entries, and resets the target.
    const Bytes empty = acquired(*r, false, 0, 6);
    EXPECT_EQ(presetOf(empty).entryCount(), 0);
    ASSERT_FALSE(activate(*r, empty, false, 5));
    EXPECT_EQ(listOf(*freq, 5), (std::vector<double>{1.0, 2.0, 3.0}));
    EXPECT_EQ(listOf(*mode, 5), std::vector<double>{0.0});
    CWriteSeqBuffer sink;
    EXPECT_EQ(firstLine(r->acquireBank(false, sink)), "Acquiring bank in a non-master registry is an error.");
}

TEST_F(RegistryTest, SaveLoadIntoAFreshInstanceAndSaveAgainGivesTheSameBytes)
{
    CAudioParamRegistry* r = startedMaster();
    gain->setValue(1.0 / 3.0, 4, nullptr);
    gain->setValue(-0.1, 0, nullptr);
    keep->setValue(7.25, 0, nullptr);
    CAudioParamUpdateContext context;
    name->setString(0, 0, CString("Wide \xe9"), nullptr, context);
    const Bytes first = acquired(*r);

    // A second instance in the same tree shape.
    CObject* other = make(m_root.get(), "core:object", "other", {});
    make(other, "audio:audio-env", "env", {});
    auto* collector2 =
        dynamic_cast<CAudioParamCollector*>(make(other, "audio:param-collector", "params", {{"env", "other.env"}}));
    ASSERT_TRUE(collector2);
    for (const char* key : {"gain", "preset-name", "keep", "scratch"}) {
        CAudioParam* p = collector2->getParam(CString("plugin.mod.").append(key));
        CAudioParamUpdateContext attach;
        auto* def = dynamic_cast<CAudioParamDef*>(m_defs->findChild(CString(key)));
        ASSERT_TRUE(def);
        p->attachDefinition(&def->info(), attach);
    }
    auto* r2 = dynamic_cast<CAudioParamRegistry*>(
        make(other, "audio:param-registry", "master",
             {{"hierarchy", "plugin.mod"}, {"param-collector", "other.params"}, {"def-name-remap", "plugin=audio"},
              {"id", "TEST"}, {"is-master", "true"}, {"preset-name-param", "plugin.mod.preset-name"}}));
    ASSERT_TRUE(r2);
    collector2->start();
    ASSERT_FALSE(activate(*r2, first, true));
    EXPECT_EQ(acquired(*r2), first);
}

// ---- programs

TEST_F(RegistryTest, ProgramsKeepTheirValuesHistoriesAndPersistentParameters)
{
    CAudioParamRegistry* r = startedMaster({{"file", bankFile(3).c_str()}});
    UpdateCounter updates;
    updates.setNotifier(r, CAudioParamRegistry::kUpdateKey);
    edit(gain, 4.0, 0, 1, "first edit");
    edit(gain, 5.0, 0, 2, "second edit");
    keep->setValue(77.0, 0, nullptr);
    const Bytes program0 = acquired(*r);

    // To the current one: nothing at all.
    int source = 0;
    r->setCurrentProgram(0, &source);
    EXPECT_EQ(updates.count, 0);
    EXPECT_EQ(acquired(*r), program0);
    r->setCurrentProgram(3, &source);
    r->setCurrentProgram(-1, &source);
    EXPECT_EQ(updates.count, 0);

    r->setCurrentProgram(2, &source);
    EXPECT_EQ(updates.count, 1);
    EXPECT_EQ(updates.lastSource, &source);
    EXPECT_EQ(r->getCurrentPreset(), 2);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{2.0, 2.0, 2.0}));
    EXPECT_EQ(valueOf(*keep), 77.0);
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "P2");
    EXPECT_TRUE(history().empty());
    edit(gain, 6.0, 0, 0, "third edit");

    r->setCurrentProgram(0, nullptr);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{0.0, 4.0, 5.0}));
    EXPECT_EQ(history(), (std::vector<std::string>{"first edit", "second edit"}));
    EXPECT_EQ(acquired(*r), program0);
    r->setCurrentProgram(2, nullptr);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{6.0, 2.0, 2.0}));
    EXPECT_EQ(history(), std::vector<std::string>{"third edit"});
    // Undo stays within the program.
    m_undo->setHistoryPosition(0);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{2.0, 2.0, 2.0}));
    updates.setNotifier(nullptr, 0);
}

TEST_F(RegistryTest, TheBankCarriesPersistentValuesIntoEveryProgram)
{
    CAudioParamRegistry* r = startedMaster({{"file", bankFile(3).c_str()}});
    keep->setValue(12.5, 0, nullptr);
    gain->setValue(9.0, 0, nullptr);
    CWriteSeqBuffer sink;
    ASSERT_FALSE(r->acquireBank(false, sink));
    const Bytes out = bytesOf(sink);
    CAudioPresetBank bank;
    ASSERT_FALSE(bank.fromBytes(out.data(), out.size()));
    EXPECT_EQ(bank.name().toUtf8(), "Session Bank");
    ASSERT_EQ(bank.presetCount(), 3);
    for (int32_t i = 0; i < 3; ++i) {
        const CPresetEntry* entry = bank.preset(i).findEntry(CString("keep"));
        ASSERT_TRUE(entry) << i;
        EXPECT_EQ(entryValues(*entry), std::vector<double>{12.5}) << i;
        EXPECT_EQ(entryValues(*bank.preset(i).findEntry(CString("gain"))),
                  i == 0 ? std::vector<double>{9.0} : std::vector<double>(3, double(i)));
    }
    // The factory bank as the file has it, under its name.
    CWriteSeqBuffer rom;
    ASSERT_FALSE(r->acquireBank(true, rom));
    const Bytes romBytes = bytesOf(rom);
    CAudioPresetBank factory;
    ASSERT_FALSE(factory.fromBytes(romBytes.data(), romBytes.size()));
    EXPECT_EQ(factory.name().toUtf8(), "Factory ROM");
    EXPECT_EQ(entryValues(*factory.preset(1).findEntry(CString("gain"))), std::vector<double>(3, 1.0));
}

TEST_F(RegistryTest, FactoryPresetsRenamingAndTheMasterReset)
{
    CAudioParamRegistry* r = startedMaster({{"file", bankFile(3).c_str()}});
    keep->setValue(60.0, 0, nullptr);
    r->activateFactoryPreset(1);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{1.0, 1.0, 1.0}));
    EXPECT_EQ(valueOf(*keep), 60.0);
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:P1");
    r->activateFactoryPreset(5);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{1.0, 1.0, 1.0}));

    r->renamePreset(0, CString("Mine"), nullptr);
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Mine");
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "Mine");
    r->renamePreset(2, CString("Later"), nullptr);
    EXPECT_EQ(r->getPresetName(2).toUtf8(), "TEST:Later");
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "Mine");

    r->activateDefaultPreset();
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{0.0, 0.0, 0.0})); // the start made P0 the defaults
    EXPECT_EQ(valueOf(*keep), 60.0);
    EXPECT_EQ(history(), (std::vector<std::string>{"ROM preset activate", "Program name change", "Master reset"}));
    // Undoing the reset brings the factory values and the name back.
    m_undo->setHistoryPosition(2);
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{1.0, 1.0, 1.0}));
    EXPECT_EQ(name->getString(0, 0).toUtf8(), "Mine");
}

TEST_F(RegistryTest, ANameWrittenFromElsewhereRenamesTheCurrentProgramEvenWhileTheBankIsBusy)
{
    CAudioParamRegistry* r = startedMaster({{"file", bankFile(2).c_str()}});
    UpdateCounter updates;
    updates.setNotifier(r, CAudioParamRegistry::kUpdateKey);
    CAudioParamUpdateContext context;
    name->setString(0, 0, CString("Typed"), nullptr, context);
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Typed");
    EXPECT_EQ(updates.count, 1);
    // Other groups are not the program's name.
    name->setString(1, 0, CString("Group one"), nullptr, context);
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:Typed");
    updates.setNotifier(nullptr, 0);

    // A name written while the bank is busy arrives with the next bank call.
    std::atomic<int> stage{0};
    // Another thread holds the bank, as a program switch from the host would.
    std::thread busy([&] {
        CLockGuard bank(r->bankLock());
        stage = 1;
        while (stage.load() != 2)
            std::this_thread::yield();
    });
    while (stage.load() != 1)
        std::this_thread::yield();
    // Writing the name must not wait for the bank (the writer holds the parameter's lock).
    name->setString(0, 0, CString("While busy"), nullptr, context);
    stage = 2;
    busy.join();
    EXPECT_EQ(r->getPresetName(0).toUtf8(), "TEST:While busy");
    EXPECT_EQ(r->getPresetName(1).toUtf8(), "TEST:P1");
}

TEST_F(RegistryTest, DefaultsFromAPresetAreWhatResetRestores)
{
    CAudioParamRegistry* r = startedMaster();
    const Bytes stream = presetStream("TEST:Defaults", {{"gain", floatBlob("audio.mod.gain", {{8.0, 9.0}})}});
    CMemoryReader in(stream.data(), stream.size());
    ASSERT_FALSE(r->setDefaultPreset(in));
    // The values themselves stay until reset.
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{1.0, 2.0, 3.0}));
    r->activateDefaultPreset();
    EXPECT_EQ(listOf(*gain, 0), (std::vector<double>{8.0, 9.0}));
    const Bytes foreign = presetStream("QMIO:Defaults", {{"gain", floatBlob("audio.mod.gain", {{1.0}})}});
    CMemoryReader bad(foreign.data(), foreign.size());
    EXPECT_EQ(firstLine(r->setDefaultPreset(bad)), "Incompatible preset.");
}

// ---- A/B

TEST_F(RegistryTest, ExchangingTwiceGivesTheFirstStateAndHistoryBack)
{
    CAudioParamRegistry* r = startedMaster();
    edit(gain, 1.0 / 3.0, 0, 0, "A edit");
    // Before any update the shadow is the present state: nothing audible changes.
    const Bytes a = acquired(*r);
    r->exchangeShadowPreset();
    EXPECT_EQ(acquired(*r), a);
    EXPECT_EQ(history(), std::vector<std::string>{"A edit"});
    r->exchangeShadowPreset();

    r->updateShadowPreset();
    edit(gain, 2.0 / 3.0, 3, 1, "B edit");
    const Bytes b = acquired(*r);
    r->exchangeShadowPreset();
    EXPECT_EQ(acquired(*r), a);
    EXPECT_EQ(history(), std::vector<std::string>{"A edit"});
    r->exchangeShadowPreset();
    EXPECT_EQ(acquired(*r), b);
    EXPECT_EQ(history(), (std::vector<std::string>{"A edit", "B edit"}));

    // A hundred switches drift by not one bit.
    const double third = valueOf(*gain, 3, 1);
    for (int i = 0; i < 100; ++i)
        r->exchangeShadowPreset();
    EXPECT_EQ(acquired(*r), b);
    EXPECT_EQ(std::bit_cast<uint64_t>(valueOf(*gain, 3, 1)), std::bit_cast<uint64_t>(third));
    EXPECT_EQ(history(), (std::vector<std::string>{"A edit", "B edit"}));
    r->exchangeShadowPreset();
    EXPECT_EQ(acquired(*r), a);
    EXPECT_EQ(history(), std::vector<std::string>{"A edit"});
}

// ---- enumerated registries

class EnumeratedRegistryTest : public RegistryTest
{
protected:
    // Three modes, each setting curve to 10 * k + 1 and naming itself.
    static CAudioPresetBank modes()
    {
        CAudioPresetBank bank;
        for (int k = 0; k < 3; ++k)
            bank.addPreset(presetOf(presetStream(
                "TMOD:Mode " + std::to_string(k),
                {{"curve", floatBlob("audio.modSibling.curve", {{10.0 * k + 1}})},
                 {"mode-name", stringBlob("audio.mod.mode-name", {"Mode " + std::to_string(k)})}})));
        return bank;
    }

    void makeModes(const char* selectorDefault, bool isElementEnum)
    {
        CAudioPresetList list(modes());
        CByteArray bytes;
        ASSERT_FALSE(list.toBytes(bytes));
        CAppData::local().writeData(CString("test-modes"), bytes, nullptr, CAppData::kTagList);
        CAppData::resetForTests();
        curve = live("modes.curve", with(realParam("0", "0", "100"), kStored));
        modeName = live("modes.mode-name", textParam("Default", kStored));
        enumerated = registry("modes", {{"hierarchy", "plugin.mod.modes"},
                                        {"id", "TMOD"},
                                        {"is-enumerated", "true"},
                                        {"is-element-enum", isElementEnum ? "true" : "false"},
                                        {"store-name", "test-modes"},
                                        {"param-undo", "undo"},
                                        {"preset-name-param", "plugin.mod.modes.mode-name"}});
        ASSERT_TRUE(enumerated);
        // The master over the same tree must leave the modes' parameters alone.
        masterRegistry = master();
        const std::string full = enumerated->getFullName().toUtf8();
        selector = live("selector", with(realParam(selectorDefault, "0", "10"), {{"param-registry", full.c_str()}}));
        ASSERT_EQ(selector->registry(), enumerated);
        m_collector->start();
    }

    CAudioParam* curve = nullptr;
    CAudioParam* modeName = nullptr;
    CAudioParam* selector = nullptr;
    CAudioParamRegistry* enumerated = nullptr;
    CAudioParamRegistry* masterRegistry = nullptr;
};

TEST_F(EnumeratedRegistryTest, TheShownModeSoundsFromTheStartAndASelectorLoadsItsModeIntoItsGroupOnly)
{
    makeModes("2", false);
    EXPECT_EQ(enumerated->copyEnumBank().presetCount(), 3);
    for (int32_t g = 0; g < 8; ++g) {
        EXPECT_EQ(valueOf(*curve, g), 21.0) << g;
        EXPECT_EQ(modeName->getString(g, 0).toUtf8(), "Mode 2") << g;
    }
    drain();
    EXPECT_EQ(curve->audioValues().getElementValue(5, 0, 0, 0.0), 21.0);
    // The master doesn't store what the modes load.
    EXPECT_EQ(presetOf(acquired(*masterRegistry)).findEntry(CString("modes.curve")), nullptr);

    selector->setValue(1.0, 3, nullptr);
    EXPECT_EQ(valueOf(*curve, 3), 11.0);
    EXPECT_EQ(modeName->getString(3, 0).toUtf8(), "Mode 1");
    EXPECT_EQ(valueOf(*curve, 2), 21.0);
    EXPECT_EQ(valueOf(*curve, 4), 21.0);
    // Step 3 of a bank of 3: the group's covered parameters go to their defaults.
    selector->setValue(3.0, 3, nullptr);
    EXPECT_EQ(valueOf(*curve, 3), 0.0);
    EXPECT_EQ(modeName->getString(3, 0).toUtf8(), "Default");
    EXPECT_EQ(valueOf(*curve, 2), 21.0);
    // A reset of the selector brings its shown mode back.
    selector->setValue(0.0, 4, nullptr);
    EXPECT_EQ(valueOf(*curve, 4), 1.0);
    CAudioParamUpdateContext context;
    selector->reset(-1, -1, true, context);
    for (int32_t g = 0; g < 8; ++g)
        EXPECT_EQ(valueOf(*curve, g), 21.0) << g;
}

TEST_F(EnumeratedRegistryTest, AnElementSelectorLoadsPerElement)
{
    makeModes("0,1", true);
    EXPECT_EQ(listOf(*curve, 0), (std::vector<double>{1.0, 11.0}));
    const double steps[] = {2.0, 5.0, 0.0};
    CAudioParamUpdateContext context;
    {
        CAudioParamLock lock(*selector);
        CAudioParamChange c = selector->values().makeChange(1, 0, 3, true);
        c.values = steps;
        selector->change(c, context);
    }
    EXPECT_EQ(listOf(*curve, 1), (std::vector<double>{21.0, 0.0, 1.0}));
    EXPECT_EQ(listOf(*curve, 0), (std::vector<double>{1.0, 11.0}));
}

// ---- names and routing

TEST_F(RegistryTest, AHandEditShowsUserInTheColourSetsName)
{
    CAudioParam* palette = live("colors.palette", with(realParam("0"), kStored));
    CAudioParam* hue = live("colors.hue", with(realParam("0"), kPersistent));
    CAudioParam* shown = live("colors.mode-name", textParam("Gray", kStored));
    CAudioParamRegistry* r = registry("colors", {{"hierarchy", "plugin.mod.colors"}, {"id", "TCOL"},
                                                 {"preset-name-param", "plugin.mod.colors.mode-name"}});
    ASSERT_TRUE(r);
    m_collector->start();
    CAudioParamUpdateContext context;
    CAudioParamRegistry::onParamEdited(*hue, 0, context);
    EXPECT_EQ(shown->getString(0, 0).toUtf8(), "Gray");
    CAudioParamRegistry::onParamEdited(*palette, 0, context);
    EXPECT_EQ(shown->getString(0, 0).toUtf8(), "User");
    // A preset of the family takes its own name again.
    ASSERT_FALSE(activate(*r, presetStream("TCOL:Blue", {{"mode-name", stringBlob("audio.mod.colors.mode-name", {"Blue"})}})));
    EXPECT_EQ(shown->getString(0, 0).toUtf8(), "Blue");
    // The name parameter itself never invalidates the name.
    std::vector<CAudioParamRegistry*> registries;
    shown->getNameRegistries(registries);
    EXPECT_TRUE(registries.empty());
    deleteObject(r);
    palette->getNameRegistries(registries);
    EXPECT_TRUE(registries.empty());
}

TEST_F(RegistryTest, RoutingPresetsNeedWhatTheirListsUse)
{
    auto routing = [](std::vector<std::pair<std::string, Bytes>> entries) {
        return presetOf(presetStream("QMIO:R", entries));
    };
    auto blob = [](std::vector<double> values) { return floatBlob("audio.io.x", {values}); };
    struct Case
    {
        CAudioPreset preset;
        bool plain, midSide, sideChain, both;
    };
    const Case cases[] = {
        {routing({}), true, true, true, true},
        {routing({{"ms-pairs", blob({0, 0})}, {"sidechain", blob({0, 1, 2})}}), true, true, true, true},
        {routing({{"ms-pairs", blob({0, 1})}}), false, true, false, true},
        {routing({{"sidechain", blob({0, 1, 3})}}), false, false, true, true},
        {routing({{"sidechain-mute", blob({0, 1})}}), false, false, true, true},
        {routing({{"ms-pairs", blob({1})}, {"sidechain-mute", blob({1})}}), false, false, false, true},
        {routing({{"ms-pairs", {0x01, 0x02}}}), true, true, true, true},
    };
    CAudioParamRegistry* r = registry("io", {{"id", "QMIO"}});
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(r->isRoutingPresetUsable(cases[i].preset, false, false), cases[i].plain) << i;
        EXPECT_EQ(r->isRoutingPresetUsable(cases[i].preset, true, false), cases[i].midSide) << i;
        EXPECT_EQ(r->isRoutingPresetUsable(cases[i].preset, false, true), cases[i].sideChain) << i;
        EXPECT_EQ(r->isRoutingPresetUsable(cases[i].preset, true, true), cases[i].both) << i;
    }
}

TEST_F(RegistryTest, TheRoutingProviderHearsEveryAppliedPreset)
{
    masterParams();
    CAudioParamRegistry* r = master();
    struct Provider : CAudioRoutingInfoProvider
    {
        void updateRouting(CAudioParamUpdateContext& context) override
        {
            ++calls;
            hadBatch = context.batchTail != nullptr;
        }
        int calls = 0;
        bool hadBatch = false;
    } provider;
    r->setRoutingProvider(&provider);
    m_collector->start();
    const int atStart = provider.calls;
    EXPECT_GE(atStart, 1);
    ASSERT_FALSE(activate(*r, presetStream("TEST:X", {})));
    EXPECT_EQ(provider.calls, atStart + 1);
    EXPECT_TRUE(provider.hadBatch);
    r->setRoutingProvider(nullptr);
}

TEST_F(RegistryTest, RemapPairsNeedAnEqualsSign)
{
    EXPECT_EQ(initError("audio:param-registry", {{"hierarchy", "plugin.mod"}, {"param-collector", "params"},
                                                 {"def-name-remap", "plugin=audio  broken"}}),
              "Invalid remapping string 'broken' defined.");
    EXPECT_EQ(initError("audio:param-registry", {{"hierarchy", "plugin.mod"}, {"param-collector", "params"},
                                                 {"def-name-remap", " a=b\tc=d "}}),
              "");
}

} // namespace
