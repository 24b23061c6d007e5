// Presets, banks and preset lists in their streams and blocks. Expected bytes are spelled
// out here or built field by field, and the builder also notes every read a reader must
// make, so that each cut of the data has one exact message to expect: the read that runs
// out, at its position and with its count.

#include "AudioParamTestSupport.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamStorage.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioPresetBank.h"
#include "Audio/CAudioPresetList.h"
#include "Audio/CPresetEntry.h"
#include "Core/CAppData.h"
#include "Core/CByteArray.h"
#include "Core/CMemoryReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

// ---- building the expected bytes

// Little-endian fields, with the reads a reader makes to take them: a u32 is one read of
// 4 bytes, a string a u32 and (when not empty) one read of its bytes, a blob the same.
struct Layout
{
    struct Read
    {
        size_t position;
        size_t count;
    };

    Layout& u32(uint32_t v)
    {
        reads.push_back({bytes.size(), 4});
        for (int i = 0; i < 4; ++i)
            bytes.push_back(uint8_t(v >> (8 * i)));
        return *this;
    }
    Layout& raw(const Bytes& data)
    {
        if (!data.empty())
            reads.push_back({bytes.size(), data.size()});
        bytes.insert(bytes.end(), data.begin(), data.end());
        return *this;
    }
    Layout& str(const std::string& utf8)
    {
        u32(uint32_t(utf8.size()));
        return raw(Bytes(utf8.begin(), utf8.end()));
    }
    Layout& blob(const Bytes& data)
    {
        u32(uint32_t(data.size()));
        return raw(data);
    }

    // The message of a read of `count` bytes just behind the end.
    std::string endMessage(size_t count) const
    {
        return "Premature end of memory resource while reading (pos " + std::to_string(bytes.size()) + ", count "
               + std::to_string(count) + ", size " + std::to_string(bytes.size()) + ").";
    }

    // The message of the read that a cut to `size` bytes makes fail.
    std::string cutMessage(size_t size) const
    {
        for (const Read& read : reads)
            if (read.position + read.count > size)
                return "Premature end of memory resource while reading (pos " + std::to_string(read.position)
                       + ", count " + std::to_string(read.count) + ", size " + std::to_string(size) + ").";
        return "(no read fails)";
    }

    Bytes bytes;
    std::vector<Read> reads;
};

struct EntryModel
{
    std::string key;
    Bytes blob;
};

struct PresetModel
{
    std::string name;
    std::vector<EntryModel> entries; // in key order
};

Layout& presetLayout(Layout& l, const PresetModel& p)
{
    l.str(p.name).u32(uint32_t(p.entries.size()));
    for (const EntryModel& e : p.entries)
        l.str(e.key).blob(e.blob);
    return l;
}

Layout& bankLayout(Layout& l, const std::string& name, const std::vector<PresetModel>& presets)
{
    l.str(name).u32(uint32_t(presets.size()));
    for (const PresetModel& p : presets)
        presetLayout(l, p);
    return l;
}

CAudioPreset makePreset(const PresetModel& model)
{
    CAudioPreset preset(CString::fromUtf8(model.name));
    for (const EntryModel& e : model.entries)
        preset.entry(CString::fromUtf8(e.key)).blob = CByteArray(e.blob.data(), e.blob.size());
    return preset;
}

CAudioPresetBank makeBank(const std::string& name, const std::vector<PresetModel>& presets)
{
    CAudioPresetBank bank(CString::fromUtf8(name));
    for (const PresetModel& p : presets)
        bank.addPreset(makePreset(p));
    return bank;
}

Bytes toVector(const CByteArray& bytes) { return Bytes(bytes.data(), bytes.data() + bytes.size()); }

template <class T>
Bytes payloadOf(const T& value)
{
    CByteArray bytes;
    CErrorPtr error = value.toBytes(bytes);
    EXPECT_FALSE(error) << firstLine(error);
    return toVector(bytes);
}

template <class T>
Bytes blockOf(const T& value)
{
    CWriteSeqBuffer sink;
    CErrorPtr error = value.writeBlock(sink);
    EXPECT_FALSE(error) << firstLine(error);
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return toVector(bytes);
}

template <class T>
CErrorPtr readPayload(T& target, const Bytes& bytes)
{
    return target.fromBytes(bytes.data(), bytes.size());
}

template <class T>
CErrorPtr readBlock(T& target, const Bytes& bytes)
{
    CMemoryReader in(bytes.data(), bytes.size());
    return target.readBlock(in);
}

Bytes hex(std::initializer_list<int> values)
{
    Bytes out;
    for (int v : values)
        out.push_back(uint8_t(v));
    return out;
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A storage of one float element in group 0.
CAudioParamStorage floatStorage(double value, bool isSingle = true)
{
    CAudioParamStorage s;
    s.setFormat(1, CAudioParamStorage::Float, isSingle, isSingle);
    CAudioParamChange c = s.makeChange(0, 0, 1, true);
    c.values = &value;
    s.applyChange(c);
    return s;
}

CAudioParamStorage stringStorage(const char* value)
{
    CAudioParamStorage s;
    s.setFormat(1, CAudioParamStorage::String, true, true);
    CAudioParamData items;
    const double id = double(items.addString(CString::fromUtf8(value)));
    CAudioParamChange c = s.makeChange(0, 0, 1, true);
    c.values = &id;
    c.data = &items;
    s.applyChange(c);
    return s;
}

Bytes savedStorage(const CAudioParamStorage& s, int32_t group)
{
    CWriteSeqBuffer sink;
    EXPECT_FALSE(s.save(sink, group));
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return toVector(bytes);
}

// The worked entries, byte by byte.
const Bytes kBypassBlob = hex({0x1b, 0, 0, 0}) + text("audio.modMain.bypass-enable")
                          + hex({1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
const Bytes kBypassEntry = hex({0x0d, 0, 0, 0}) + text("bypass-enable") + hex({0x3b, 0, 0, 0}) + kBypassBlob;
const Bytes kPresetNameBlob = hex({25, 0, 0, 0}) + text("audio.modMain.preset-name")
                              + hex({1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0})   // version, size, type, groups
                              + hex({1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0}) // items, id 1, string, length
                              + text("Default") + hex({1, 0, 0, 0, 1, 0, 0, 0});     // one element, id 1

// ---- entries

TEST(PresetEntry, WorkedBytesOfAFloatAndAStringParameter)
{
    CPresetEntry bypass;
    ASSERT_FALSE(bypass.store(CString("audio.modMain.bypass-enable"), floatStorage(0.0), -1));
    EXPECT_EQ(toVector(bypass.blob), kBypassBlob);
    EXPECT_EQ(bypass.blob.size(), 59u);

    CPresetEntry name;
    ASSERT_FALSE(name.store(CString("audio.modMain.preset-name"), stringStorage("Default"), -1));
    EXPECT_EQ(toVector(name.blob), kPresetNameBlob);

    // And back.
    CAudioParamStorage values;
    values.setFormat(1, CAudioParamStorage::String, true, true);
    CString definition;
    ASSERT_FALSE(name.parse(definition, values));
    EXPECT_EQ(definition.toUtf8(), "audio.modMain.preset-name");
    EXPECT_EQ(values.data().getString(uint32_t(values.getValue(0, 0, 0.0))).toUtf8(), "Default");
}

TEST(PresetEntry, StoresAllGroupsOrOne)
{
    CAudioParamStorage s;
    s.setFormat(1, CAudioParamStorage::Float, false, false);
    const double values[] = {1.5, -2.0, 3.25};
    for (int32_t g : {0, 2}) {
        CAudioParamChange c = s.makeChange(g, 0, g == 0 ? 1 : 3, true);
        c.values = values;
        s.applyChange(c);
    }
    CPresetEntry all, one;
    ASSERT_FALSE(all.store(CString("audio.x"), s, -1));
    ASSERT_FALSE(one.store(CString("audio.x"), s, 2));
    const Bytes name = hex({7, 0, 0, 0}) + text("audio.x");
    EXPECT_EQ(toVector(all.blob), name + savedStorage(s, -1));
    EXPECT_EQ(toVector(one.blob), name + savedStorage(s, 2));

    // One group reads back as group 0 of a storage with one group.
    CAudioParamStorage back;
    back.setFormat(1, CAudioParamStorage::Float, false, false);
    CString definition;
    ASSERT_FALSE(one.parse(definition, back));
    ASSERT_EQ(back.groupCount(), 1);
    ASSERT_EQ(back.elementCount(0), 3);
    EXPECT_EQ(back.getValue(0, 2, 0.0), 3.25);
    ASSERT_FALSE(all.parse(definition, back));
    EXPECT_EQ(back.groupCount(), 3);
    EXPECT_EQ(back.elementCount(1), 0);
    EXPECT_EQ(savedStorage(back, -1), savedStorage(s, -1));
}

TEST(PresetEntry, DamagedBlobsAreRefusedAndChangeNothing)
{
    CPresetEntry entry;
    ASSERT_FALSE(entry.store(CString("audio.modMain.bypass-enable"), floatStorage(0.5), -1));
    const CAudioParamStorage before = floatStorage(0.25);
    auto expectRefused = [&](const Bytes& blob, const std::string& message) {
        SCOPED_TRACE(message);
        CPresetEntry damaged(CByteArray(blob.data(), blob.size()));
        CAudioParamStorage values = before;
        CString definition("untouched");
        CErrorPtr error = damaged.parse(definition, values);
        EXPECT_EQ(firstLine(error), message);
        EXPECT_EQ(definition.toUtf8(), "untouched");
        EXPECT_EQ(savedStorage(values, -1), savedStorage(before, -1));
    };
    const Bytes good = toVector(entry.blob);
    // A cut anywhere: the name's length, the name, the storage's four words, the element
    // count, the value.
    const size_t reads[][2] = {{0, 4}, {4, 27}, {31, 4}, {35, 4}, {39, 4}, {43, 4}, {47, 4}, {51, 8}};
    for (size_t n = 0; n < good.size(); ++n) {
        size_t at = 0;
        while (reads[at][0] + reads[at][1] <= n)
            ++at;
        expectRefused(Bytes(good.begin(), good.begin() + std::ptrdiff_t(n)),
                      "Premature end of memory resource while reading (pos " + std::to_string(reads[at][0]) + ", count "
                          + std::to_string(reads[at][1]) + ", size " + std::to_string(n) + ").");
    }
    expectRefused(good + hex({0}), "Unexpected data behind the stored values (59 of 60 bytes read).");
    Bytes version = good;
    version[31] = 2;
    // This one message of the storage keeps its identifier.
    expectRefused(version, "qelstr_CAudioParamStorage_load_VersionError Unsupported data set version 2.");
    Bytes shape = good;
    shape[35] = 2;
    expectRefused(shape, "Unsupported storage format (esize=2, dtype=0; should be: esize=1, dtype=0).");
    Bytes type = good;
    type[39] = 1;
    expectRefused(type, "Unsupported storage format (esize=1, dtype=1; should be: esize=1, dtype=0).");
    Bytes longName = good;
    longName[2] = 1;
    expectRefused(longName, "String length 65563 too long in readString().");
}

// ---- presets

TEST(AudioPreset, WorkedBytes)
{
    CAudioPreset preset(CString("k27w:Default"));
    // Entered out of order; they stand in key order.
    preset.entry(CString("preset-name")).blob = CByteArray(kPresetNameBlob.data(), kPresetNameBlob.size());
    preset.entry(CString("bypass-enable")).blob = CByteArray(kBypassBlob.data(), kBypassBlob.size());
    const Bytes expected = hex({12, 0, 0, 0}) + text("k27w:Default") + hex({2, 0, 0, 0}) + kBypassEntry
                           + hex({11, 0, 0, 0}) + text("preset-name") + hex({uint8_t(kPresetNameBlob.size()), 0, 0, 0})
                           + kPresetNameBlob;
    EXPECT_EQ(payloadOf(preset), expected);

    CAudioPreset back;
    ASSERT_FALSE(readPayload(back, expected));
    EXPECT_EQ(back.name().toUtf8(), "k27w:Default");
    EXPECT_EQ(back.entryCount(), 2);
    ASSERT_NE(back.findEntry(CString("bypass-enable")), nullptr);
    EXPECT_EQ(toVector(back.findEntry(CString("bypass-enable"))->blob), kBypassBlob);
    EXPECT_EQ(back.findEntry(CString("bypass")), nullptr);
    EXPECT_TRUE(back == preset);
}

TEST(AudioPreset, ReadsEntriesInAnyOrderAndKeepsTheLastOfTwins)
{
    Layout l;
    l.str("QMGC:Soft").u32(4);
    l.str("ratio-b").blob(text("second"));
    l.str("knee-a").blob(text("k"));
    l.str("ratio-b").blob(text("last"));
    l.str("auto-gain-point").blob({});
    CAudioPreset preset;
    ASSERT_FALSE(readPayload(preset, l.bytes));
    ASSERT_EQ(preset.entryCount(), 3);
    std::vector<std::string> keys;
    for (const auto& [key, entry] : preset.entries())
        keys.push_back(key.toUtf8());
    EXPECT_EQ(keys, (std::vector<std::string>{"auto-gain-point", "knee-a", "ratio-b"}));
    EXPECT_EQ(toVector(preset.findEntry(CString("ratio-b"))->blob), text("last"));
    EXPECT_TRUE(preset.findEntry(CString("auto-gain-point"))->blob.isEmpty());
    // Written again: key order, one of each.
    Layout again;
    presetLayout(again, {"QMGC:Soft", {{"auto-gain-point", {}}, {"knee-a", text("k")}, {"ratio-b", text("last")}}});
    EXPECT_EQ(payloadOf(preset), again.bytes);
}

TEST(AudioPreset, NamesSplitAtTheFirstColonAndKeysAreWhatFollowsTheHierarchy)
{
    struct Split
    {
        const char *full, *id, *name;
    };
    for (const Split c : {Split{"QMIO:Stereo", "QMIO", "Stereo"}, Split{"QMEB:Tube 2:b", "QMEB", "Tube 2:b"},
                          Split{"Default", "", "Default"}, Split{":x", "", "x"}}) {
        CString id, name;
        CAudioPreset::splitPresetName(CString(c.full), id, name);
        EXPECT_EQ(id.toUtf8(), c.id) << c.full;
        EXPECT_EQ(name.toUtf8(), c.name) << c.full;
    }
    // A name that is the hierarchy itself or lies outside it has no key, and leaves the key
    // as it was.
    struct Key
    {
        const char *name, *hierarchy, *key;
    };
    for (const Key c : {Key{"plugin.modMain.bypass-enable", "plugin.modMain.", "bypass-enable"},
                        Key{"plugin.modMain.modDLC73.glowcore-params.ratio-a", "plugin.modMain.modDLC73.glowcore-params.",
                            "ratio-a"},
                        Key{"plugin.modMain.modDLC73.eq-params.gain", "plugin.modMain.", "modDLC73.eq-params.gain"},
                        Key{"plugin.modMain.", "plugin.modMain.", nullptr},
                        Key{"plugin.modMainX.gain", "plugin.modMain.", nullptr},
                        Key{"plugin.mod", "plugin.modMain.", nullptr},
                        Key{"shared::plugin.modMain.x", "plugin.modMain.", nullptr}}) {
        CString key("old");
        EXPECT_EQ(CAudioPreset::makeKey(CString(c.name), CString(c.hierarchy), key), c.key != nullptr) << c.name;
        EXPECT_EQ(key.toUtf8(), c.key ? c.key : "old") << c.name;
    }
}

// ---- banks and lists

TEST(AudioPresetBank, WorkedBytes)
{
    const std::vector<PresetModel> presets = {
        {"k27w:Default", {{"bypass-enable", kBypassBlob}}},
        {"k27w:Old School", {}},
        {"k27w:Nice Vocals", {{"bypass-enable", kBypassBlob}, {"preset-name", kPresetNameBlob}}},
    };
    const CAudioPresetBank bank = makeBank("Bank", presets);
    // Name, count, and the presets with no sizes between them.
    const Bytes expected = hex({4, 0, 0, 0}) + text("Bank") + hex({3, 0, 0, 0}) + hex({12, 0, 0, 0})
                           + text("k27w:Default") + hex({1, 0, 0, 0}) + kBypassEntry + hex({15, 0, 0, 0})
                           + text("k27w:Old School") + hex({0, 0, 0, 0}) + hex({16, 0, 0, 0}) + text("k27w:Nice Vocals")
                           + hex({2, 0, 0, 0}) + kBypassEntry + hex({11, 0, 0, 0}) + text("preset-name")
                           + hex({uint8_t(kPresetNameBlob.size()), 0, 0, 0}) + kPresetNameBlob;
    EXPECT_EQ(payloadOf(bank), expected);

    CAudioPresetBank back(CString("something else"));
    back.addPreset(CAudioPreset(CString("to go")));
    ASSERT_FALSE(readPayload(back, expected));
    EXPECT_TRUE(back == bank);
    ASSERT_EQ(back.presetCount(), 3);
    EXPECT_EQ(back.preset(1).name().toUtf8(), "k27w:Old School");
    EXPECT_EQ(back.preset(2).entryCount(), 2);

    // An empty bank: name and a zero count.
    EXPECT_EQ(payloadOf(CAudioPresetBank()), hex({0, 0, 0, 0, 0, 0, 0, 0}));
    // Copies are deep.
    CAudioPresetBank copy = bank;
    copy.preset(0).setName(CString("k27w:Changed"));
    EXPECT_EQ(bank.preset(0).name().toUtf8(), "k27w:Default");
    copy = bank;
    EXPECT_TRUE(copy == bank);
}

TEST(AudioPresetList, WorkedBytes)
{
    EXPECT_EQ(payloadOf(CAudioPresetList()), hex({0, 0, 0, 0}));
    const CAudioPresetBank bank = makeBank("", {{"QMGC:Very Hard", {{"ratio-a", text("r")}}}, {"QMGC:Clean", {}}});
    const CAudioPresetList list(bank);
    const Bytes expected = hex({1, 0, 0, 0}) + payloadOf(bank);
    EXPECT_EQ(payloadOf(list), expected);
    EXPECT_EQ(Bytes(expected.begin() + 4, expected.begin() + 12), hex({0, 0, 0, 0, 2, 0, 0, 0}));

    CAudioPresetList back;
    ASSERT_FALSE(readPayload(back, expected));
    EXPECT_TRUE(back.hasBank());
    EXPECT_TRUE(back == list);

    // A first word of 0 gives no states, and no error.
    ASSERT_FALSE(readPayload(back, hex({0, 0, 0, 0})));
    EXPECT_FALSE(back.hasBank());
    EXPECT_EQ(back.bank().presetCount(), 0);

    // Any other first word says a bank follows; written again it is 1.
    Bytes other = expected;
    other[0] = 5;
    ASSERT_FALSE(readPayload(back, other));
    EXPECT_TRUE(back == list);
    EXPECT_EQ(payloadOf(back), expected);
}

TEST(AudioPresetList, NamesTheStatesOfAStoredList)
{
    CAudioPresetBank modes;
    for (const char* name : {"QMGC:Very Hard;VHard", "QMGC:Soft", "QMEB:Magic Dust:2"})
        modes.addPreset(CAudioPreset(CString(name)));
    CByteArray bytes;
    ASSERT_FALSE(CAudioPresetList(modes).toBytes(bytes));
    CAppData::local().writeData(CString("test-mode-presets"), bytes, nullptr, CAudioPresetList::kTag);
    CAudioParamInfo info;
    ASSERT_FALSE(info.parseStateNames(CString("@test-mode-presets")));
    std::vector<std::string> names, shortNames;
    for (size_t i = 0; i < info.stateNames.size(); ++i) {
        names.push_back(info.stateNames[i].toUtf8());
        shortNames.push_back(info.shortStateNames[i].toUtf8());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Very Hard", "Soft", "Magic Dust:2"}));
    EXPECT_EQ(shortNames, (std::vector<std::string>{"VHard", "Soft", "Magic D"}));

    // A list without a bank names no states, and is no error.
    ASSERT_FALSE(CAudioPresetList().toBytes(bytes));
    CAppData::local().writeData(CString("test-mode-presets"), bytes, nullptr, CAudioPresetList::kTag);
    ASSERT_FALSE(info.parseStateNames(CString("@test-mode-presets")));
    EXPECT_TRUE(info.stateNames.empty());
    // A damaged one is.
    bytes.resize(bytes.size() - 1);
    CAppData::local().writeData(CString("test-mode-presets"), bytes, nullptr, CAudioPresetList::kTag);
    EXPECT_EQ(firstLine(info.parseStateNames(CString("@test-mode-presets"))),
              "Premature end of memory resource while reading (pos 0, count 4, size 3).");
}

// ---- blocks and files

TEST(PresetFormats, BlocksCarryTheirTagAndUnpackToTheStream)
{
    const CAudioPreset preset = makePreset({"k27w:Default", {{"bypass-enable", kBypassBlob}}});
    const CAudioPresetBank bank = makeBank("Bank", {{"k27w:Default", {{"bypass-enable", kBypassBlob}}}});
    const CAudioPresetList list(makeBank("", {{"QMIO:Stereo", {}}}));
    struct Case
    {
        const char* tag;
        Bytes block;
        Bytes payload;
    };
    const Case cases[] = {{"aprs", blockOf(preset), payloadOf(preset)},
                          {"abnk", blockOf(bank), payloadOf(bank)},
                          {"alst", blockOf(list), payloadOf(list)}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tag);
        ASSERT_GE(c.block.size(), 12u);
        EXPECT_EQ(Bytes(c.block.begin(), c.block.begin() + 4), text(c.tag));
        const uint32_t size = uint32_t(c.payload.size());
        EXPECT_EQ(Bytes(c.block.begin() + 4, c.block.begin() + 8), hex({int(size & 0xff), int(size >> 8 & 0xff), 0, 0}));
        const uint32_t check = uint32_t(adler32(1, c.block.data() + 4, 4));
        EXPECT_EQ(Bytes(c.block.begin() + 8, c.block.begin() + 12),
                  hex({int(check & 0xff), int(check >> 8 & 0xff), int(check >> 16 & 0xff), int(check >> 24)}));
        // The rest is a zlib stream of the payload.
        Bytes unpacked(c.payload.size() + 16);
        uLongf length = uLongf(unpacked.size());
        ASSERT_EQ(uncompress(unpacked.data(), &length, c.block.data() + 12, uLong(c.block.size() - 12)), Z_OK);
        unpacked.resize(length);
        EXPECT_EQ(unpacked, c.payload);
    }

    // Each reader demands its own tag, and a foreign block changes nothing. (That a block
    // reads back as it was written is the random round trips' to show.)
    CAudioPreset presetBack = preset;
    CAudioPresetBank bankBack = bank;
    CAudioPresetList listBack = list;
    const auto tagMessage = [](const char* expected, const char* read) {
        const auto value = [](const char* t) {
            return std::to_string(uint32_t(uint8_t(t[0])) | uint32_t(uint8_t(t[1])) << 8 | uint32_t(uint8_t(t[2])) << 16
                                  | uint32_t(uint8_t(t[3])) << 24);
        };
        return "Invalid ID encountered when reading compressed data (expected " + value(expected) + ", read "
               + value(read) + ").";
    };
    EXPECT_EQ(firstLine(readBlock(presetBack, cases[1].block)), tagMessage("aprs", "abnk"));
    EXPECT_EQ(firstLine(readBlock(bankBack, cases[0].block)), tagMessage("abnk", "aprs"));
    EXPECT_EQ(firstLine(readBlock(listBack, cases[1].block)), tagMessage("alst", "abnk"));
    EXPECT_EQ(firstLine(readBlock(bankBack, cases[2].block)), tagMessage("abnk", "alst"));
    EXPECT_TRUE(presetBack == preset);
    EXPECT_TRUE(bankBack == bank);
    EXPECT_TRUE(listBack == list);
    // A flipped bit in the head is caught before anything is unpacked.
    Bytes flipped = cases[1].block;
    flipped[5] ^= 1;
    const uint32_t check = uint32_t(adler32(1, cases[1].block.data() + 4, 4));
    const uint32_t flippedCheck = uint32_t(adler32(1, flipped.data() + 4, 4));
    EXPECT_EQ(firstLine(readBlock(bankBack, flipped)),
              "Invalid CRC encountered when reading compressed data (expected " + std::to_string(flippedCheck) + ", read "
                  + std::to_string(check) + ").");
    EXPECT_TRUE(bankBack == bank);
}

TEST(PresetFormats, BlocksMustHoldTheirContentAndNothingElse)
{
    const Bytes bank = payloadOf(makeBank("Bank", {{"k27w:Default", {{"bypass-enable", kBypassBlob}}}}));
    const auto block = [](const Bytes& payload, const char* tag) {
        CWriteSeqBuffer sink;
        EXPECT_FALSE(sink.writeCompressedData(payload.data(), payload.size(),
                                              uint32_t(uint8_t(tag[0])) | uint32_t(uint8_t(tag[1])) << 8
                                                  | uint32_t(uint8_t(tag[2])) << 16 | uint32_t(uint8_t(tag[3])) << 24));
        CByteArray bytes;
        EXPECT_FALSE(sink.toArray(bytes));
        return toVector(bytes);
    };
    CAudioPresetBank target = makeBank("Mine", {});
    const Bytes before = payloadOf(target);
    EXPECT_EQ(firstLine(readBlock(target, block(bank + hex({0}), "abnk"))),
              "Unexpected data behind the end (" + std::to_string(bank.size()) + " of " + std::to_string(bank.size() + 1)
                  + " bytes read).");
    EXPECT_EQ(payloadOf(target), before);
    CAudioPresetList list;
    EXPECT_EQ(firstLine(readBlock(list, block(hex({0, 0, 0, 0, 0}), "alst"))),
              "Unexpected data behind the end (4 of 5 bytes read).");
    EXPECT_EQ(firstLine(readBlock(list, block({}, "alst"))),
              "Premature end of memory resource while reading (pos 0, count 4, size 0).");
    CAudioPreset preset;
    EXPECT_EQ(firstLine(readBlock(preset, block({}, "aprs"))),
              "Premature end of memory resource while reading (pos 0, count 4, size 0).");
    ASSERT_FALSE(readBlock(target, block(bank, "abnk")));
    EXPECT_EQ(payloadOf(target), bank);
}

TEST(PresetFormats, FilesHoldOneBlock)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "qel-presets-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const std::filesystem::path folder(pattern);
    const CString presetPath = CString::fromUtf8((folder / "Mine.aprs").string());
    const CString bankPath = CString::fromUtf8((folder / "Mine.abnk").string());

    const CAudioPreset preset = makePreset({"k27w:Fuller Bass", {{"bypass-enable", kBypassBlob}}});
    const CAudioPresetBank bank = makeBank("Bank", {{"k27w:A", {}}, {"k27w:B", {{"x", text("y")}}}});
    ASSERT_FALSE(preset.saveFile(presetPath));
    ASSERT_FALSE(bank.saveFile(bankPath));
    {
        std::ifstream in(folder / "Mine.aprs", std::ios::binary);
        const Bytes onDisk{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        EXPECT_EQ(onDisk, blockOf(preset));
    }
    CAudioPreset presetBack;
    ASSERT_FALSE(presetBack.loadFile(presetPath));
    EXPECT_TRUE(presetBack == preset);
    CAudioPresetBank bankBack;
    ASSERT_FALSE(bankBack.loadFile(bankPath));
    EXPECT_TRUE(bankBack == bank);
    // A file of the other kind, or none at all, leaves the target as it was.
    EXPECT_EQ(firstLine(presetBack.loadFile(bankPath)).rfind("Invalid ID encountered", 0), 0u);
    EXPECT_TRUE(presetBack == preset);
    const std::string missing = (folder / "None.abnk").string();
    EXPECT_EQ(firstLine(bankBack.loadFile(CString::fromUtf8(missing))).rfind("Unable to open file '" + missing + "'", 0), 0u);
    EXPECT_TRUE(bankBack == bank);

    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

// ---- round trips

std::string randomText(std::mt19937& random, size_t maxLength, bool isKey)
{
    static const char16_t kWide[] = {u'é', u'ß', u'Ω', u'ж', u'→', u'日', u'€'};
    std::u16string units;
    const size_t length = random() % (maxLength + 1);
    for (size_t i = 0; i < length; ++i) {
        const uint32_t pick = random() % 10;
        if (isKey)
            units.push_back(pick == 0 ? u'.' : pick == 1 ? u'-' : char16_t(u'a' + random() % 26));
        else
            units.push_back(pick == 0 ? kWide[random() % std::size(kWide)] : char16_t(0x20 + random() % 0x5f));
    }
    return CString(units.data(), int(units.size())).toUtf8();
}

PresetModel randomPreset(std::mt19937& random)
{
    PresetModel p;
    p.name = randomText(random, 3, false) + ":" + randomText(random, 24, false);
    std::map<std::string, Bytes> entries;
    const size_t count = random() % 12;
    for (size_t i = 0; i < count; ++i) {
        Bytes blob(random() % 200);
        for (uint8_t& b : blob)
            b = uint8_t(random());
        entries[randomText(random, 30, true)] = blob;
    }
    for (auto& [key, blob] : entries)
        p.entries.push_back({key, blob});
    return p;
}

TEST(PresetFormats, RandomRoundTrips)
{
    std::mt19937 random(2024);
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        std::vector<PresetModel> presets(random() % 6);
        for (PresetModel& p : presets)
            p = randomPreset(random);
        const std::string name = randomText(random, 16, false);
        Layout expected;
        bankLayout(expected, name, presets);

        // The writer's bytes are the layout's; the reader gives back what was written.
        const CAudioPresetBank bank = makeBank(name, presets);
        ASSERT_EQ(payloadOf(bank), expected.bytes);
        CAudioPresetBank bankBack, blockBack;
        ASSERT_FALSE(readPayload(bankBack, expected.bytes));
        ASSERT_TRUE(bankBack == bank);
        ASSERT_FALSE(readBlock(blockBack, blockOf(bank)));
        ASSERT_TRUE(blockBack == bank);
        ASSERT_EQ(blockOf(blockBack), blockOf(bank));

        for (const PresetModel& model : presets) {
            Layout one;
            presetLayout(one, model);
            CAudioPreset preset, blockPreset;
            ASSERT_FALSE(readPayload(preset, one.bytes));
            ASSERT_EQ(payloadOf(preset), one.bytes);
            ASSERT_FALSE(readBlock(blockPreset, blockOf(makePreset(model))));
            ASSERT_EQ(payloadOf(blockPreset), one.bytes);
        }

        const CAudioPresetList list(makeBank("", presets));
        CAudioPresetList listBack;
        ASSERT_FALSE(readBlock(listBack, blockOf(list)));
        ASSERT_TRUE(listBack == list);
        ASSERT_EQ(payloadOf(listBack), payloadOf(list));
    }
}

// ---- damage

TEST(PresetFormats, EveryCutIsRefusedWithItsMessageAndChangesNothing)
{
    std::mt19937 random(7);
    std::vector<PresetModel> presets = {{"k27w:Default", {{"bypass-enable", kBypassBlob}, {"preset-name", kPresetNameBlob}}},
                                       {"k27w:Drum Bus", {}}};
    presets.push_back(randomPreset(random));
    Layout bank;
    bankLayout(bank, "Bank", presets);
    Layout preset;
    presetLayout(preset, presets[0]);
    Layout list;
    list.u32(1);
    bankLayout(list, "", presets);

    const auto expectCutsRefused = [](auto& target, const Layout& layout) {
        const Bytes before = payloadOf(target);
        for (size_t n = 0; n < layout.bytes.size(); ++n)
            ASSERT_EQ(firstLine(readPayload(target, Bytes(layout.bytes.begin(), layout.bytes.begin() + std::ptrdiff_t(n)))),
                      layout.cutMessage(n))
                << n;
        EXPECT_EQ(payloadOf(target), before);
    };
    CAudioPresetBank bankTarget = makeBank("Mine", {{"k27w:Kept", {{"a", text("b")}}}});
    CAudioPreset presetTarget = bankTarget.preset(0);
    CAudioPresetList listTarget(bankTarget);
    expectCutsRefused(bankTarget, bank);
    expectCutsRefused(presetTarget, preset);
    expectCutsRefused(listTarget, list);
    const Bytes bankBefore = payloadOf(bankTarget);

    // Cut blocks: in the head, the head's read; in the compressed stream, its end.
    const Bytes block = blockOf(makeBank("Bank", presets));
    for (size_t n = 0; n < block.size(); ++n) {
        const std::string expected =
            n < 4    ? "Premature end of memory resource while reading (pos 0, count 4, size " + std::to_string(n) + ")."
            : n < 12 ? "Premature end of memory resource while reading (pos 4, count 8, size " + std::to_string(n) + ")."
                     : "Premature end of file.";
        ASSERT_EQ(firstLine(readBlock(bankTarget, Bytes(block.begin(), block.begin() + std::ptrdiff_t(n)))), expected)
            << n;
    }
    EXPECT_EQ(payloadOf(bankTarget), bankBefore);
}

TEST(PresetFormats, GarbageIsRefusedWithItsMessageAndChangesNothing)
{
    CAudioPresetBank target = makeBank("Mine", {{"k27w:Kept", {{"a", text("b")}}}});
    const Bytes before = payloadOf(target);
    auto expectRefused = [&](const Layout& l, const std::string& message) {
        SCOPED_TRACE(message);
        EXPECT_EQ(firstLine(readPayload(target, l.bytes)), message);
        EXPECT_EQ(payloadOf(target), before);
    };
    // Counts and lengths that promise more than there is fail where the data ends, without
    // allocating what they promise first.
    Layout manyPresets;
    manyPresets.str("Bank").u32(0xffffffffu);
    presetLayout(manyPresets, {"k27w:One", {}});
    expectRefused(manyPresets, manyPresets.endMessage(4));
    Layout manyEntries;
    manyEntries.str("Bank").u32(1).str("k27w:One").u32(0x7fffffff).str("key").blob(text("v"));
    expectRefused(manyEntries, manyEntries.endMessage(4));
    Layout hugeBlob;
    hugeBlob.str("Bank").u32(1).str("k27w:One").u32(1).str("key").u32(0xfffffff0u);
    hugeBlob.bytes.resize(hugeBlob.bytes.size() + 100);
    expectRefused(hugeBlob, "Premature end of memory resource while reading (pos " + std::to_string(hugeBlob.bytes.size() - 100)
                                + ", count 4096, size " + std::to_string(hugeBlob.bytes.size()) + ").");
    Layout longName;
    longName.u32(61441);
    longName.bytes.resize(61445, 'a');
    expectRefused(longName, "String length 61441 too long in readString().");
    Layout longKey;
    longKey.str("Bank").u32(1).str("k27w:One").u32(1).u32(0x80000000u);
    expectRefused(longKey, "String length 2147483648 too long in readString().");
    Layout trailing;
    bankLayout(trailing, "Bank", {{"k27w:One", {}}}).u32(0);
    expectRefused(trailing, "Unexpected data behind the end (" + std::to_string(trailing.bytes.size() - 4) + " of "
                                + std::to_string(trailing.bytes.size()) + " bytes read).");

    // Noise of every length up to a few hundred bytes.
    std::mt19937 random(99);
    for (int k = 0; k < 300; ++k) {
        Bytes noise(size_t(random() % 400));
        for (uint8_t& b : noise)
            b = uint8_t(random());
        CAudioPresetBank bank = target;
        CAudioPreset preset = target.preset(0);
        CAudioPresetList list;
        EXPECT_TRUE(readPayload(bank, noise)) << k;
        EXPECT_TRUE(readPayload(preset, noise)) << k;
        EXPECT_TRUE(bank == target);
        EXPECT_TRUE(preset == target.preset(0));
        if (noise != hex({0, 0, 0, 0})) {
            EXPECT_TRUE(readPayload(list, noise)) << k;
        }
        EXPECT_FALSE(list.hasBank());
        // Noise behind a good block's head is no zlib stream.
        CWriteSeqBuffer sink;
        ASSERT_FALSE(sink.writeCompressedData(before.data(), before.size(), CAudioPresetBank::kTag));
        CByteArray head;
        ASSERT_FALSE(sink.toArray(head));
        Bytes damaged(head.data(), head.data() + 12);
        damaged.insert(damaged.end(), noise.begin(), noise.end());
        EXPECT_TRUE(readBlock(bank, damaged)) << k;
        EXPECT_TRUE(bank == target);
    }
}

TEST(PresetFormats, WritersRefuseWhatNoReaderWouldTake)
{
    const std::string tooLong(61441, 'x');
    CAudioPreset preset{CString(tooLong.c_str())};
    CByteArray bytes;
    EXPECT_EQ(firstLine(preset.toBytes(bytes)), "String length 61441 too long in writeString().");
    CAudioPreset withKey(CString("k27w:A"));
    withKey.entry(CString(tooLong.c_str()));
    EXPECT_EQ(firstLine(withKey.toBytes(bytes)), "String length 61441 too long in writeString().");
    CAudioPresetBank bank(CString("Bank"));
    bank.addPreset(withKey);
    EXPECT_EQ(firstLine(bank.toBytes(bytes)), "String length 61441 too long in writeString().");
    // A name of exactly the limit is fine.
    CAudioPreset longest{CString(std::string(61440, 'y').c_str())};
    ASSERT_FALSE(longest.toBytes(bytes));
    CAudioPreset back;
    ASSERT_FALSE(back.fromBytes(bytes));
    EXPECT_TRUE(back == longest);
}

} // namespace
