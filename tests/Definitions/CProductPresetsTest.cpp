// The product's built-in bank and its routing presets, read from the module's resources as
// the plug-in reads them: parsed by hand to their exact end, every entry checked against
// the parameter it names, and each preset against what its name promises.

#include "ProductBankFacts.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioPresetBank.h"
#include "Audio/CAudioPresetList.h"
#include "Core/CApplication.h"
#include "Core/CByteArray.h"
#include "Core/CCoreCreators.h"
#include "Core/CMemoryReader.h"
#include "Core/CResourceRegistry.h"
#include "Definitions/ProductResources.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

// A little-endian reader of its own, so that the bank's layout is checked by something
// other than the code that writes it.
class Reader
{
public:
    explicit Reader(const CByteArray& bytes) : m_data(bytes.data()), m_size(bytes.size()) {}
    bool u32(uint32_t& out)
    {
        if (m_size - m_pos < 4)
            return false;
        out = uint32_t(m_data[m_pos]) | uint32_t(m_data[m_pos + 1]) << 8 | uint32_t(m_data[m_pos + 2]) << 16
              | uint32_t(m_data[m_pos + 3]) << 24;
        m_pos += 4;
        return true;
    }
    bool f64(double& out)
    {
        uint32_t lo = 0, hi = 0;
        if (!u32(lo) || !u32(hi))
            return false;
        const uint64_t bits = uint64_t(hi) << 32 | lo;
        std::memcpy(&out, &bits, 8);
        return true;
    }
    bool bytes(size_t count, std::string& out)
    {
        if (m_size - m_pos < count)
            return false;
        out.assign(reinterpret_cast<const char*>(m_data) + m_pos, count);
        m_pos += count;
        return true;
    }
    bool str(std::string& out)
    {
        uint32_t length = 0;
        return u32(length) && bytes(length, out);
    }
    bool atEnd() const { return m_pos == m_size; }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

// One entry's storage, one group, read by hand.
struct Entry
{
    std::string definition;
    uint32_t dataType = 0;
    uint32_t groupCount = 0;
    std::vector<double> values;
    std::vector<std::string> texts;
};

bool parseEntry(const std::string& blob, Entry& out)
{
    CByteArray bytes(reinterpret_cast<const uint8_t*>(blob.data()), blob.size());
    Reader in(bytes);
    uint32_t version = 0, elementSize = 0, count = 0;
    if (!in.str(out.definition) || !in.u32(version) || !in.u32(elementSize) || !in.u32(out.dataType)
        || !in.u32(out.groupCount) || version != 1 || elementSize != 1 || out.groupCount != 1)
        return false;
    if (out.dataType == 0) {
        if (!in.u32(count))
            return false;
        for (uint32_t i = 0; i < count; ++i) {
            double v = 0.0;
            if (!in.f64(v))
                return false;
            out.values.push_back(v);
        }
        return in.atEnd();
    }
    // Strings: the table of items (id, type, text), then the elements' ids.
    uint32_t items = 0;
    if (out.dataType != 1 || !in.u32(items))
        return false;
    std::map<uint32_t, std::string> table;
    for (uint32_t i = 0; i < items; ++i) {
        uint32_t id = 0, type = 0;
        std::string text;
        if (!in.u32(id) || !in.u32(type) || type != 1 || !in.str(text))
            return false;
        table[id] = text;
    }
    if (!in.u32(count))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t id = 0;
        if (!in.u32(id) || !table.count(id))
            return false;
        out.texts.push_back(table[id]);
    }
    return in.atEnd();
}

struct Preset
{
    std::string name;
    std::vector<std::string> keys;
    std::map<std::string, std::string> blobs;
};

bool parsePreset(Reader& in, Preset& out)
{
    uint32_t count = 0;
    if (!in.str(out.name) || !in.u32(count))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        std::string key, blob;
        uint32_t size = 0;
        if (!in.str(key) || !in.u32(size) || !in.bytes(size, blob))
            return false;
        out.keys.push_back(key);
        out.blobs[key] = blob;
    }
    return true;
}

double dB(double decibels) { return std::pow(10.0, decibels / 20.0); }

class ProductPresets : public ::testing::Test
{
protected:
    void SetUp() override
    {
        CErrorPtr error = CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kProductResourceRows,
                                                CString("SharedData.xml"));
        ASSERT_FALSE(error) << error->text().toUtf8();
        ASSERT_TRUE(CApplication::sharedRoot()->findObject(CString("audio.modMain")));
    }
    void TearDown() override { CApplication::finalize(); }

    // The resource's block unpacked, demanding its tag.
    static CByteArray resource(const char* name, uint32_t tag)
    {
        const uint8_t* data = nullptr;
        size_t size = 0;
        CByteArray bytes;
        EXPECT_TRUE(CResourceRegistry::find(CString(name), data, size)) << name;
        if (!data)
            return bytes;
        CMemoryReader in(data, size);
        CErrorPtr error = in.readCompressedData(bytes, tag);
        EXPECT_FALSE(error) << name;
        return bytes;
    }

    static std::vector<Preset> factoryPresets()
    {
        const CByteArray bytes = resource("FactoryROM.cbf", CAudioPresetBank::kTag);
        Reader in(bytes);
        std::string name;
        uint32_t count = 0;
        std::vector<Preset> presets;
        EXPECT_TRUE(in.str(name) && in.u32(count));
        EXPECT_EQ(name, "Bank");
        for (uint32_t i = 0; i < count && i < 64; ++i) {
            Preset preset;
            EXPECT_TRUE(parsePreset(in, preset)) << i;
            presets.push_back(preset);
        }
        EXPECT_TRUE(in.atEnd());
        return presets;
    }

    static const CAudioParamInfo* definitionOf(const std::string& key)
    {
        const auto* def = dynamic_cast<const CAudioParamDef*>(
            CApplication::sharedRoot()->findObject(CString::fromUtf8(("audio.modMain." + key).c_str())));
        return def ? &def->info() : nullptr;
    }
};

TEST_F(ProductPresets, TheFactoryBankParsesToItsExactEndWithItsEightPresetsInOrder)
{
    const std::vector<Preset> presets = factoryPresets();
    ASSERT_EQ(presets.size(), 8u);
    for (size_t i = 0; i < presets.size(); ++i) {
        SCOPED_TRACE(kFactoryNames[i]);
        EXPECT_EQ(presets[i].name, std::string("k27w:") + kFactoryNames[i]);
        EXPECT_EQ(presets[i].keys, kMasterKeys);
        Entry name;
        ASSERT_TRUE(parseEntry(presets[i].blobs.at("preset-name"), name));
        EXPECT_EQ(name.texts, std::vector<std::string>{kFactoryNames[i]});
    }

    // The registry's reader takes the same resource, by the name the definition gives.
    CAudioPresetBank bank;
    CErrorPtr error = bank.loadFile(CString("FactoryROM.cbf"));
    ASSERT_FALSE(error) << error->text().toUtf8();
    ASSERT_EQ(bank.presetCount(), 8);
    EXPECT_EQ(bank.preset(6).name().toUtf8(), "k27w:Fuller Bass");
}

TEST_F(ProductPresets, EveryFactoryEntryParsesAgainstItsParameterAndLiesInItsRange)
{
    // The ranges as the definition writes them, turned into internal units here.
    struct Range
    {
        double lo, hi;
        bool isWhole;
    };
    const std::map<std::string, Range> ranges = {
        {"bypass-enable", {0, 1, true}},
        {"groupsel", {0, 7, true}},
        {"io-params.channel-group-solo", {0, 1, true}},
        {"io-params.grouping", {0, 7, true}},
        {"io-params.in-routing", {0, 16, true}},
        {"io-params.out-routing", {0, 16, true}},
        {"io-params.show-all-channels", {0, 1, true}},
        {"modDLC73.eq-params.bw", {0.01, 7.0, false}},
        {"modDLC73.eq-params.freq", {20, 20000, false}},
        {"modDLC73.eq-params.gain", {dB(-3), dB(9), false}},
        {"modDLC73.eq-params.mode", {0, 3, true}},
        {"modDLC73.eq-params.prevmode", {0, 3, true}},
        {"modDLC73.outgain", {dB(-12), dB(12), false}},
        {"oversampling", {0, 4, true}},
    };
    const std::set<std::string> texts = {"instance-name", "io-params.group-names", "io-params.in-channel-names",
                                         "preset-name"};
    for (const Preset& preset : factoryPresets()) {
        for (const std::string& key : preset.keys) {
            SCOPED_TRACE(preset.name + " " + key);
            const CAudioParamInfo* info = definitionOf(key);
            ASSERT_NE(info, nullptr);
            EXPECT_TRUE(info->isStorable || info->isPersistent);

            Entry entry;
            ASSERT_TRUE(parseEntry(preset.blobs.at(key), entry));
            EXPECT_EQ(entry.definition, info->fullName.toUtf8());
            // The framework's own parser takes it with the parameter's format.
            CAudioParamStorage values;
            values.setFormat(*info);
            CString definition;
            CPresetEntry framed(CByteArray(reinterpret_cast<const uint8_t*>(preset.blobs.at(key).data()),
                                           preset.blobs.at(key).size()));
            ASSERT_FALSE(framed.parse(definition, values));

            if (texts.count(key)) {
                EXPECT_EQ(entry.dataType, 1u);
                continue;
            }
            ASSERT_EQ(entry.dataType, 0u);
            ASSERT_TRUE(ranges.count(key));
            const Range& range = ranges.at(key);
            EXPECT_NEAR(std::min(info->minValues[0], info->maxValues[0]), range.lo, 1e-9 * range.hi);
            EXPECT_NEAR(std::max(info->minValues[0], info->maxValues[0]), range.hi, 1e-9 * range.hi);
            EXPECT_FALSE(entry.values.empty());
            for (double v : entry.values) {
                EXPECT_GE(v, range.lo);
                EXPECT_LE(v, range.hi);
                if (range.isWhole) {
                    EXPECT_EQ(v, std::round(v));
                }
            }
            if (info->isSingleElement) {
                EXPECT_EQ(entry.values.size(), 1u);
            }
        }
    }
}

TEST_F(ProductPresets, TheDefaultPresetHoldsTheDefinitionsDefaults)
{
    const Preset preset = factoryPresets().at(0);
    for (const std::string& key : preset.keys) {
        SCOPED_TRACE(key);
        const CAudioParamInfo* info = definitionOf(key);
        ASSERT_NE(info, nullptr);
        Entry entry;
        ASSERT_TRUE(parseEntry(preset.blobs.at(key), entry));
        const CAudioParamStorage& defaults = info->defaults;
        if (entry.dataType == 1) {
            EXPECT_EQ(int32_t(entry.texts.size()), std::max(defaults.elementCount(0), 1));
            for (size_t e = 0; e < entry.texts.size(); ++e) {
                const double id = defaults.getValue(0, int32_t(e), 0.0);
                EXPECT_EQ(entry.texts[e], defaults.data().getString(uint32_t(id)).toUtf8()) << e;
            }
            continue;
        }
        // Past the listed defaults an element reads the first default.
        EXPECT_GE(int32_t(entry.values.size()), defaults.elementCount(0));
        for (size_t e = 0; e < entry.values.size(); ++e)
            EXPECT_DOUBLE_EQ(entry.values[e], defaults.getValue(0, int32_t(e), -1.0)) << e;
    }
}

TEST_F(ProductPresets, EachFactoryPresetSoundsAsItsNameSays)
{
    // Per preset the three bands in decibels, the output gain and the filter frequencies.
    struct Sound
    {
        double lo, mid, hi, out;
        double loFreq, midFreq, hiFreq;
        double oversampling;
    };
    std::map<std::string, Sound> sounds;
    for (const Preset& preset : factoryPresets()) {
        Entry gain, out, freq, oversampling, mode;
        ASSERT_TRUE(parseEntry(preset.blobs.at("modDLC73.eq-params.gain"), gain));
        ASSERT_TRUE(parseEntry(preset.blobs.at("modDLC73.outgain"), out));
        ASSERT_TRUE(parseEntry(preset.blobs.at("modDLC73.eq-params.freq"), freq));
        ASSERT_TRUE(parseEntry(preset.blobs.at("oversampling"), oversampling));
        ASSERT_TRUE(parseEntry(preset.blobs.at("modDLC73.eq-params.mode"), mode));
        ASSERT_EQ(gain.values.size(), 3u);
        ASSERT_EQ(freq.values.size(), 3u);
        // Lo a low shelf, Mid a peak, Hi a high shelf, in every preset.
        EXPECT_EQ(mode.values, (std::vector<double>{2, 1, 3})) << preset.name;
        auto toDb = [](double linear) { return 20.0 * std::log10(linear); };
        sounds[preset.name.substr(5)] = {toDb(gain.values[0]), toDb(gain.values[1]), toDb(gain.values[2]),
                                         toDb(out.values.at(0)),  freq.values[0],       freq.values[1],
                                         freq.values[2],          oversampling.values.at(0)};
    }
    ASSERT_EQ(sounds.size(), 8u);

    const Sound& flat = sounds.at("Default");
    EXPECT_NEAR(flat.lo, 0.0, 1e-9);
    EXPECT_NEAR(flat.mid, 0.0, 1e-9);
    EXPECT_NEAR(flat.hi, 0.0, 1e-9);
    EXPECT_NEAR(flat.out, 0.0, 1e-9);

    const Sound& master = sounds.at("Smoother Master");
    for (double g : {master.lo, master.mid, master.hi, master.out})
        EXPECT_LE(std::abs(g), 1.5 + 1e-9);
    EXPECT_GT(master.oversampling, 1.0); // above 1X

    const Sound& smiley = sounds.at("EDM Smiley Face");
    EXPECT_GE(smiley.lo, 3.0);
    EXPECT_GE(smiley.hi, 3.0);
    EXPECT_LE(smiley.mid, -1.0);

    const Sound& bass = sounds.at("Fuller Bass");
    EXPECT_GE(bass.lo, 3.0);
    EXPECT_GT(bass.lo, bass.mid);
    EXPECT_GE(bass.mid, 0.0);
    EXPECT_NEAR(bass.hi, 0.0, 1e-9);
    EXPECT_LE(bass.loFreq, 150.0);

    const Sound& vocals = sounds.at("Nice Vocals");
    EXPECT_GT(vocals.mid, 1.0);
    EXPECT_GE(vocals.midFreq, 2000.0);
    EXPECT_LE(vocals.midFreq, 5000.0);
    EXPECT_GT(vocals.hi, 0.0);
    EXPECT_LT(vocals.lo, 0.0);

    const Sound& drums = sounds.at("Drum Bus");
    EXPECT_GT(drums.lo, 0.0);
    EXPECT_LT(drums.mid, 0.0);
    EXPECT_GT(drums.hi, 0.0);

    const Sound& guitar = sounds.at("Acoustic Guitar");
    EXPECT_LT(guitar.lo, 0.0);
    EXPECT_GT(guitar.hi, 0.0);

    const Sound& oldSchool = sounds.at("Old School");
    EXPECT_LT(oldSchool.hi, 0.0);
    EXPECT_GT(oldSchool.mid, 0.0);

    // Where the bands add up to a boost, the output comes down rather than up.
    for (const auto& [name, sound] : sounds)
        if (sound.lo + sound.mid + sound.hi > 2.0) {
            EXPECT_LT(sound.out, 0.0) << name;
        }
}

// ---- routing presets

struct Routing
{
    std::vector<double> in, grouping, out, msPairs, sidechain, sidechainMute;
};

std::vector<double> valuesOf(const CAudioPreset& preset, const char* key)
{
    const CPresetEntry* entry = preset.findEntry(CString(key));
    if (!entry)
        return {};
    Entry parsed;
    EXPECT_TRUE(parseEntry(std::string(reinterpret_cast<const char*>(entry->blob.data()), entry->blob.size()), parsed))
        << key;
    return parsed.values;
}

// Per output (from 1) the inputs (from 1) that reach it, summed.
std::map<int, std::set<int>> outputsOf(const Routing& r)
{
    std::map<int, std::set<int>> outputs;
    for (size_t c = 0; c < r.in.size() && c < r.out.size(); ++c)
        if (r.in[c] > 0 && r.out[c] > 0)
            outputs[int(r.out[c])].insert(int(r.in[c]));
    return outputs;
}

TEST_F(ProductPresets, EachRoutingPresetRoutesAsItsNameSays)
{
    const CByteArray bytes = resource("AppDataGlobal_routing-presets-sys", CAudioPresetList::kTag);
    CAudioPresetList list;
    ASSERT_FALSE(list.fromBytes(bytes));
    ASSERT_TRUE(list.hasBank());

    using Outs = std::map<int, std::set<int>>;
    const Outs stereo = {{1, {1}}, {2, {2}}};
    struct Expected
    {
        const char* name;
        Outs outputs;
        // Internal channels (from 0) that must share a group, and pairs that must not.
        std::vector<std::pair<int, int>> together, apart;
        bool needsMidSide, needsSidechain;
    };
    const Expected expected[] = {
        {"Stereo", stereo, {{0, 1}}, {}, false, false},
        {"2.1 Stereo", {{1, {1}}, {2, {2}}, {3, {3}}}, {{0, 1}}, {{0, 2}}, false, false},
        {"5.1 Surround (Multi)", {{1, {1}}, {2, {2}}, {3, {3}}, {4, {4}}, {5, {5}}, {6, {6}}},
         {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {0, 5}}, {}, false, false},
        {"5.1 Surround (Groups)", {{1, {1}}, {2, {2}}, {3, {3}}, {4, {4}}, {5, {5}}, {6, {6}}},
         {{0, 1}, {4, 5}}, {{0, 2}, {0, 3}, {0, 4}, {2, 3}, {2, 4}, {3, 4}}, false, false},
        {"7.1 Surround (Multi)", {{1, {1}}, {2, {2}}, {3, {3}}, {4, {4}}, {5, {5}}, {6, {6}}, {7, {7}}, {8, {8}}},
         {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {0, 5}, {0, 6}, {0, 7}}, {}, false, false},
        {"7.1 Surround (Groups)", {{1, {1}}, {2, {2}}, {3, {3}}, {4, {4}}, {5, {5}}, {6, {6}}, {7, {7}}, {8, {8}}},
         {{0, 1}, {4, 5}, {6, 7}}, {{0, 2}, {0, 3}, {0, 4}, {0, 6}, {2, 3}, {2, 4}, {3, 4}, {4, 6}}, false, false},
        {"Dual Mono", stereo, {}, {{0, 1}}, false, false},
        {"Mid-Side Stereo", stereo, {}, {{0, 1}}, true, false},
        {"Mid-Side Linked", stereo, {{0, 1}}, {}, true, false},
        {"Mono To Stereo", {{1, {1}}, {2, {1}}}, {{0, 1}}, {}, false, false},
        {"Stereo Side-Chain", stereo, {{0, 1}}, {}, false, true},
        {"Mono Side-Chain", stereo, {{0, 1}}, {}, false, true},
        {"Force Mono", {{1, {1, 2}}, {2, {1, 2}}}, {{0, 1}, {0, 2}, {0, 3}}, {}, false, false},
        {"Stereo Swap", {{1, {2}}, {2, {1}}}, {{0, 1}}, {}, false, false},
        {"Stereo To Mono", {{1, {1, 2}}}, {{0, 1}}, {}, false, false},
    };
    ASSERT_EQ(list.bank().presetCount(), int32_t(std::size(expected)));
    for (int32_t i = 0; i < list.bank().presetCount(); ++i) {
        const CAudioPreset& preset = list.bank().preset(i);
        const Expected& want = expected[i];
        SCOPED_TRACE(want.name);
        EXPECT_EQ(preset.name().toUtf8(), std::string("QMIO:") + want.name);
        Routing r;
        r.in = valuesOf(preset, "in-routing");
        r.grouping = valuesOf(preset, "grouping");
        r.out = valuesOf(preset, "out-routing");
        r.msPairs = valuesOf(preset, "ms-pairs");
        r.sidechain = valuesOf(preset, "sidechain");
        r.sidechainMute = valuesOf(preset, "sidechain-mute");
        ASSERT_EQ(r.in.size(), 8u);
        ASSERT_EQ(r.grouping.size(), 8u);
        ASSERT_EQ(r.out.size(), 8u);
        EXPECT_EQ(outputsOf(r), want.outputs);
        for (const auto& [a, b] : want.together)
            EXPECT_EQ(r.grouping[a], r.grouping[b]) << a << " " << b;
        for (const auto& [a, b] : want.apart)
            EXPECT_NE(r.grouping[a], r.grouping[b]) << a << " " << b;

        bool needsMidSide = false;
        for (double v : r.msPairs)
            needsMidSide = needsMidSide || v != 0.0;
        EXPECT_EQ(needsMidSide, want.needsMidSide);
        bool needsSidechain = false;
        for (size_t c = 0; c < r.sidechain.size(); ++c)
            needsSidechain = needsSidechain || r.sidechain[c] != double(c);
        for (double v : r.sidechainMute)
            needsSidechain = needsSidechain || v != 0.0;
        EXPECT_EQ(needsSidechain, want.needsSidechain);
        if (want.needsSidechain) {
            // The key channels take the inputs behind the main pair, key the pair and are heard
            // nowhere.
            for (int c : {0, 1}) {
                const int key = int(r.sidechain.at(c));
                EXPECT_GE(key, 2);
                EXPECT_EQ(r.in.at(key), key + 1);
                EXPECT_EQ(r.out.at(key), 0.0);
                EXPECT_EQ(r.sidechainMute.at(key), 1.0);
            }
        }
    }
}

} // namespace
