// The host state of the product: the master preset of an instance, read back with the
// preset reader and compared entry by entry with the instance's own parameters.

#include "WrapperTestSupport.h"

#include "AudioParamTestSupport.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioPresetBank.h"
#include "Audio/CPresetEntry.h"
#include "Core/CByteArray.h"
#include "Core/CMemoryReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <string>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

Bytes savedState(CAudioWrapper& w)
{
    CWriteSeqBuffer sink;
    CErrorPtr error = w.saveState(sink);
    EXPECT_FALSE(error) << errorLine(error);
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return Bytes(bytes.data(), bytes.data() + bytes.size());
}

CErrorPtr loadState(CAudioWrapper& w, const Bytes& bytes)
{
    CMemoryReader in(bytes.data(), bytes.size());
    return w.loadState(in);
}

CAudioPreset stateAsPreset(CAudioWrapper& w)
{
    const Bytes bytes = savedState(w);
    CMemoryReader in(bytes.data(), bytes.size());
    CAudioPreset preset;
    CErrorPtr error = preset.readBlock(in);
    EXPECT_FALSE(error) << errorLine(error);
    return preset;
}

template <class T>
Bytes blockOf(const T& value)
{
    CWriteSeqBuffer sink;
    EXPECT_FALSE(value.writeBlock(sink));
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return Bytes(bytes.data(), bytes.data() + bytes.size());
}

Bytes savedValues(const CAudioParamStorage& s)
{
    CWriteSeqBuffer sink;
    EXPECT_FALSE(s.save(sink, -1));
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return Bytes(bytes.data(), bytes.data() + bytes.size());
}

class ProductHostState : public ::testing::Test
{
protected:
    ScopedApplication m_app{kProductResourceRows, "SharedData.xml"};
};

TEST_F(ProductHostState, IsTheMasterPresetOfEveryStoredParameter)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.modDLC73.outgain", 0.5, 3);
    const CAudioPreset preset = stateAsPreset(*w);
    EXPECT_EQ(preset.name().toUtf8(), "k27w:Default");

    // The stored and persistent parameters under plugin.modMain, by their names less that.
    std::vector<CAudioParam*> params;
    w->paramCollector()->getParams(params);
    std::vector<std::string> expectedKeys;
    const std::string prefix = "plugin.modMain.";
    for (CAudioParam* param : params) {
        const std::string name = param->name().toUtf8();
        const CAudioParamInfo* info = param->info();
        if (!info || !(info->isStorable || info->isPersistent) || name.rfind(prefix, 0) != 0)
            continue;
        expectedKeys.push_back(name.substr(prefix.size()));
        SCOPED_TRACE(name);
        const CPresetEntry* entry = preset.findEntry(CString::fromUtf8(expectedKeys.back()));
        ASSERT_NE(entry, nullptr);
        // Each entry: the definition's full name and the parameter's values.
        CAudioParamStorage values;
        values.setFormat(*info);
        CString definition;
        ASSERT_FALSE(entry->parse(definition, values));
        EXPECT_EQ(definition, info->fullName);
        CLockGuard guard(param->lock());
        EXPECT_EQ(savedValues(values), savedValues(param->values()));
    }
    std::vector<std::string> keys;
    for (const auto& [key, entry] : preset.entries())
        keys.push_back(key.toUtf8());
    EXPECT_EQ(keys, expectedKeys);
    EXPECT_GE(keys.size(), 4u);

    // The worked entry of the persistent bypass, at its default.
    const CPresetEntry* entry = preset.findEntry(CString("bypass-enable"));
    ASSERT_NE(entry, nullptr);
    const std::string definition = "audio.modMain.bypass-enable";
    Bytes expected = {27, 0, 0, 0};
    expected.insert(expected.end(), definition.begin(), definition.end());
    // Version 1, element size 1, float, one group, one element, 0.0.
    const Bytes tail = {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    expected.insert(expected.end(), tail.begin(), tail.end());
    EXPECT_EQ(Bytes(entry->blob.data(), entry->blob.data() + entry->blob.size()), expected);
    EXPECT_EQ(entry->blob.size(), 59u);
}

TEST_F(ProductHostState, LoadsAPresetByItsKeys)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    CAudioParam* outgain = w->param("plugin.modMain.modDLC73.outgain");
    ASSERT_TRUE(outgain && outgain->info());

    // Made by hand: the output gain in two groups, under the name a sibling module's
    // definition would give it; the key alone decides.
    CAudioParamStorage gains;
    gains.setFormat(*outgain->info());
    const double values[] = {2.0, 0.5};
    for (int32_t g : {0, 5}) {
        CAudioParamChange c = gains.makeChange(g, 0, 1, true);
        c.values = &values[g == 0 ? 0 : 1];
        gains.applyChange(c);
    }
    CAudioPreset preset(CString("k27w:By Hand"));
    ASSERT_FALSE(preset.entry(CString("modDLC73.outgain")).store(CString("audio.modMain.modOther.outgain"), gains, -1));
    CErrorPtr error = loadState(*w, blockOf(preset));
    ASSERT_FALSE(error) << errorLine(error);
    EXPECT_DOUBLE_EQ(w->value("plugin.modMain.modDLC73.outgain", 0), 2.0);
    EXPECT_DOUBLE_EQ(w->value("plugin.modMain.modDLC73.outgain", 5), 0.5);
    EXPECT_DOUBLE_EQ(w->value("plugin.modMain.modDLC73.outgain", 3), 1.0);

    // Saved again it is the instance's own master preset: every stored parameter, the
    // definition's names.
    const CAudioPreset again = stateAsPreset(*w);
    EXPECT_EQ(again.name().toUtf8(), "k27w:Default");
    EXPECT_GT(again.entryCount(), 1);
    CAudioParamStorage back;
    back.setFormat(*outgain->info());
    CString definition;
    ASSERT_FALSE(again.findEntry(CString("modDLC73.outgain"))->parse(definition, back));
    EXPECT_EQ(definition.toUtf8(), "audio.modMain.modDLC73.outgain");
    EXPECT_EQ(savedValues(back), savedValues(gains));
}

TEST_F(ProductHostState, RefusesPresetsOfOtherFamiliesAndOtherBlocks)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.modDLC73.outgain", 0.5, 0);
    const Bytes before = savedState(*w);
    CAudioPreset preset = stateAsPreset(*w);
    auto expectRefused = [&](const Bytes& bytes, const std::string& message) {
        SCOPED_TRACE(message);
        EXPECT_EQ(errorLine(loadState(*w, bytes)), message);
        EXPECT_EQ(savedState(*w), before);
    };

    // The same entries under the routing presets' family, or under none.
    preset.setName(CString("QMIO:Stereo"));
    expectRefused(blockOf(preset), "Incompatible preset.");
    preset.setName(CString("Default"));
    expectRefused(blockOf(preset), "Incompatible preset.");
    // A bank is no state, even a bank of one master preset.
    preset.setName(CString("k27w:Default"));
    CAudioPresetBank bank(CString("Bank"));
    bank.addPreset(preset);
    expectRefused(blockOf(bank), "Invalid ID encountered when reading compressed data (expected "
                                     + std::to_string(CAudioPreset::kTag) + ", read "
                                     + std::to_string(CAudioPresetBank::kTag) + ").");
    // A stored entry that doesn't parse spoils the whole state.
    preset.entry(CString("oversampling")).blob = CByteArray("\x01\x00\x00\x00", 4);
    expectRefused(blockOf(preset), "Premature end of memory resource while reading (pos 4, count 1, size 4).");
    ASSERT_FALSE(loadState(*w, before));
}

} // namespace
