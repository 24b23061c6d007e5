// The product's host state (the current program's master preset, compared entry by entry
// with the instance and the built-in bank) and its programs, down to a program's sound.

#include "WrapperTestSupport.h"

#include "../Definitions/ProductBankFacts.h"
#include "AudioParamTestSupport.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioPresetBank.h"
#include "Audio/CPresetEntry.h"
#include "Core/CByteArray.h"
#include "Core/CMemoryReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <cmath>
#include <numbers>
#include <string>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

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

// An entry's values in the format of the live parameter it belongs to.
CAudioParamStorage entryValues(const CAudioPreset& preset, CAudioParam& param, const char* key)
{
    CAudioParamStorage values;
    values.setFormat(*param.info());
    const CPresetEntry* entry = preset.findEntry(CString(key));
    EXPECT_NE(entry, nullptr) << key;
    CString definition;
    if (entry) {
        EXPECT_FALSE(entry->parse(definition, values)) << key;
    }
    return values;
}

std::vector<std::string> keysOf(const CAudioPreset& preset)
{
    std::vector<std::string> keys;
    for (const auto& [key, entry] : preset.entries())
        keys.push_back(key.toUtf8());
    return keys;
}

class ProductState : public ::testing::Test
{
protected:
    ScopedApplication m_app{kProductResourceRows, "SharedData.xml"};
};

// ---- the host state

TEST_F(ProductState, IsTheMasterPresetOfEveryStoredParameter)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.modDLC73.outgain", 0.5, 3);
    const CAudioPreset preset = stateAsPreset(*w);
    EXPECT_EQ(preset.name().toUtf8(), "k27w:Default");

    EXPECT_EQ(keysOf(preset), kMasterKeys);
    for (const std::string& key : kMasterKeys) {
        SCOPED_TRACE(key);
        const std::string name = "plugin.modMain." + key;
        CAudioParam* param = w->param(name.c_str());
        ASSERT_TRUE(param && param->info());
        const CPresetEntry* entry = preset.findEntry(CString::fromUtf8(key.c_str()));
        ASSERT_NE(entry, nullptr);
        CAudioParamStorage values;
        values.setFormat(*param->info());
        CString definition;
        ASSERT_FALSE(entry->parse(definition, values));
        EXPECT_EQ(definition, param->info()->fullName);
        CLockGuard guard(param->lock());
        EXPECT_EQ(saved(values, -1), saved(param->values(), -1));
    }

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
}

TEST_F(ProductState, AStateFromAnOlderBuildGivesAMissingParameterItsDefault)
{
    auto a = startedWrapper();
    ASSERT_TRUE(a);
    a->set("plugin.modMain.oversampling", 3.0);
    a->set("plugin.modMain.modDLC73.outgain", 0.5, 0);
    CAudioPreset older = stateAsPreset(*a);
    // A build before the selector existed, and one with a parameter this one lacks.
    older.removeEntry(CString("oversampling"));
    older.entry(CString("modDLC73.future-knob")) = *older.findEntry(CString("modDLC73.outgain"));

    auto b = startedWrapper();
    ASSERT_TRUE(b);
    b->set("plugin.modMain.oversampling", 2.0);
    CErrorPtr error = loadState(*b, blockOf(older));
    ASSERT_FALSE(error) << errorLine(error);
    EXPECT_DOUBLE_EQ(b->value("plugin.modMain.oversampling"), 1.0);
    EXPECT_DOUBLE_EQ(b->value("plugin.modMain.modDLC73.outgain", 0), 0.5);
    // What it saves now is this build's master preset again.
    EXPECT_EQ(keysOf(stateAsPreset(*b)), kMasterKeys);
}

TEST_F(ProductState, RefusesPresetsOfOtherFamiliesAndOtherBlocksAndChangesNothing)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    w->set("plugin.modMain.modDLC73.outgain", 0.5, 0);
    ASSERT_FALSE(w->loadProgram(3, w.get()));
    const Bytes before = savedState(*w);
    CAudioPreset preset = stateAsPreset(*w);
    auto expectRefused = [&](const Bytes& bytes, const std::string& message) {
        SCOPED_TRACE(message);
        EXPECT_EQ(errorLine(loadState(*w, bytes)), message);
        EXPECT_EQ(savedState(*w), before);
        EXPECT_EQ(w->currentProgram(), 3);
        CString name;
        w->programName(3, name);
        EXPECT_EQ(name.toUtf8(), "EDM Smiley Face");
    };

    // The same entries under the routing presets' family, or under none.
    preset.setName(CString("QMIO:Stereo"));
    expectRefused(blockOf(preset), "Incompatible preset.");
    preset.setName(CString("Default"));
    expectRefused(blockOf(preset), "Incompatible preset.");
    // A bank is no state, even a bank of one master preset.
    preset.setName(CString("k27w:Renamed"));
    CAudioPresetBank bank(CString("Bank"));
    bank.addPreset(preset);
    expectRefused(blockOf(bank), "Invalid ID encountered when reading compressed data (expected "
                                     + std::to_string(CAudioPreset::kTag) + ", read "
                                     + std::to_string(CAudioPresetBank::kTag) + ").");
    // A stored entry that doesn't parse spoils the whole state, name and all (every cut,
    // flipped bit and damaged entry of a state: CAudioWrapperTest's DamagedStateChangesNothing).
    CAudioPreset damaged = preset;
    damaged.entry(CString("oversampling")).blob = CByteArray("\x01\x00\x00\x00", 4);
    EXPECT_TRUE(loadState(*w, blockOf(damaged)));
    EXPECT_EQ(savedState(*w), before);
    ASSERT_FALSE(loadState(*w, blockOf(preset)));
}

// ---- programs

TEST_F(ProductState, AProgramBringsItsBuiltInPresetAndTheStateCarriesIt)
{
    CAudioPresetBank bank;
    ASSERT_FALSE(bank.loadFile(CString("FactoryROM.cbf")));
    const CAudioPreset& fuller = bank.preset(kFullerBass);
    auto a = startedWrapper();
    ASSERT_TRUE(a);
    ASSERT_EQ(a->programSlotCount(), 8);
    for (int32_t slot : {8, -1})
        EXPECT_EQ(errorLine(a->loadProgram(slot, nullptr)), "Invalid program slot " + std::to_string(slot) + ".");
    EXPECT_EQ(a->currentProgram(), 0);
    // The host's own change comes back to it as nothing; one from elsewhere is told.
    ASSERT_FALSE(a->loadProgram(kFullerBass, a.get()));
    EXPECT_EQ(a->programChanges, 0);
    EXPECT_EQ(a->currentProgram(), kFullerBass);
    for (const char* key : {"modDLC73.eq-params.gain", "modDLC73.eq-params.freq", "modDLC73.eq-params.bw",
                            "modDLC73.outgain", "oversampling"}) {
        SCOPED_TRACE(key);
        CAudioParam* param = a->param((std::string("plugin.modMain.") + key).c_str());
        ASSERT_TRUE(param && param->info());
        const CAudioParamStorage preset = entryValues(fuller, *param, key);
        ASSERT_GT(preset.elementCount(0), 0);
        for (int32_t e = 0; e < preset.elementCount(0); ++e)
            EXPECT_DOUBLE_EQ(a->value((std::string("plugin.modMain.") + key).c_str(), 0, e), preset.getValue(0, e, -1.0));
    }
    // Lo at +6 dB on the host's knob.
    EXPECT_NEAR(a->value("plugin.modMain.modDLC73.eq-params.gain", 0, 0), std::pow(10.0, 6.0 / 20.0), 1e-9);
    EXPECT_EQ(a->param("plugin.modMain.preset-name")->getString(0, 0).toUtf8(), "Fuller Bass");

    // Saved under the program's name; a new instance's current program takes it, byte for byte.
    a->set("plugin.modMain.modDLC73.outgain", 0.6, 0);
    const Bytes state = savedState(*a);
    const CAudioPreset saved = stateAsPreset(*a);
    EXPECT_EQ(saved.name().toUtf8(), "k27w:Fuller Bass");
    auto b = startedWrapper();
    ASSERT_TRUE(b);
    CErrorPtr error = loadState(*b, state);
    ASSERT_FALSE(error) << errorLine(error);
    EXPECT_EQ(savedState(*b), state);
    // A state brings values, not a program of its own: the host's selection stays.
    EXPECT_EQ(b->currentProgram(), 0);
    EXPECT_EQ(b->programChanges, 0);
    CString name;
    b->programName(0, name);
    EXPECT_EQ(name.toUtf8(), "Fuller Bass");
    EXPECT_DOUBLE_EQ(b->value("plugin.modMain.modDLC73.outgain", 0), 0.6);
    EXPECT_DOUBLE_EQ(b->value("plugin.modMain.modDLC73.eq-params.gain", 0, 0),
                     a->value("plugin.modMain.modDLC73.eq-params.gain", 0, 0));

    // A change from elsewhere is announced; the program left keeps its edit for its return.
    EXPECT_FALSE(a->loadProgram(2, nullptr));
    EXPECT_EQ(a->programChanges, 1);
    EXPECT_EQ(a->currentProgram(), 2);
    EXPECT_NE(a->value("plugin.modMain.modDLC73.outgain", 0), 0.6);
    EXPECT_FALSE(a->loadProgram(kFullerBass, a.get()));
    EXPECT_EQ(a->programChanges, 1);
    EXPECT_DOUBLE_EQ(a->value("plugin.modMain.modDLC73.outgain", 0), 0.6);
    // The current program again: nothing happens.
    EXPECT_FALSE(a->loadProgram(kFullerBass, nullptr));
    EXPECT_EQ(a->programChanges, 1);
}

// The level of a sine through channel 0, in dB, after it has settled.
double levelDb(CAudioWrapper& w, double frequency)
{
    const HostSetup setup{true, 2, 2, 44100.0};
    const size_t length = 22050;
    Signal in(2, std::vector<double>(length));
    for (size_t i = 0; i < length; ++i)
        in[0][i] = in[1][i] = 0.05 * std::sin(2.0 * std::numbers::pi * frequency * double(i) / setup.rate);
    const Signal out = processAll(w, setup, in, {512});
    double sum = 0.0, sumIn = 0.0;
    for (size_t i = length / 2; i < length; ++i) {
        sum += out[0][i] * out[0][i];
        sumIn += in[0][i] * in[0][i];
    }
    return 10.0 * std::log10(sum / sumIn);
}

TEST_F(ProductState, FullerBassLiftsTheLowsAgainstTheHighs)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    prepare(*w, HostSetup{true, 2, 2, 44100.0});
    const double flatLow = levelDb(*w, 50.0);
    const double flatHigh = levelDb(*w, 8000.0);
    ASSERT_FALSE(w->loadProgram(kFullerBass, w.get()));
    const double fullLow = levelDb(*w, 50.0);
    const double fullHigh = levelDb(*w, 8000.0);
    // The low shelf's +6 dB (and a little of the +1.5 dB peak) stands out against the top.
    const double lift = (fullLow - fullHigh) - (flatLow - flatHigh);
    EXPECT_GT(lift, 5.0);
    EXPECT_LT(lift, 8.0);
    EXPECT_NEAR(flatLow - flatHigh, 0.0, 1.0);
}

} // namespace
