#include "CPresetListCompiler.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioParamStorage.h"
#include "Core/CApplication.h"
#include "Core/CByteOrder.h"
#include "Core/CCoreCreators.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace qel {
extern const CResourceRow kPresetCheckDefinitions[];

namespace {

CErrorPtr compile(const std::string& text, CAudioPresetList& out)
{
    return compilePresetList(text.data(), text.size(), out);
}

std::string firstLine(const CErrorPtr& error)
{
    return error ? error->line(0).toUtf8() : std::string();
}

// The bytes a stored entry must hold, written out by hand: the definition's name, then a
// storage of one group with one value (or one id) per element.
struct Bytes
{
    std::vector<uint8_t> data;
    void u32(uint32_t v)
    {
        for (int i = 0; i < 4; ++i)
            data.push_back(uint8_t(v >> (8 * i)));
    }
    void f64(double v)
    {
        uint64_t bits;
        std::memcpy(&bits, &v, 8);
        for (int i = 0; i < 8; ++i)
            data.push_back(uint8_t(bits >> (8 * i)));
    }
    void str(const std::string& s)
    {
        u32(uint32_t(s.size()));
        data.insert(data.end(), s.begin(), s.end());
    }
};

std::vector<uint8_t> blobOf(const CAudioPreset& preset, const char* key)
{
    const CPresetEntry* entry = preset.findEntry(CString(key));
    return entry ? std::vector<uint8_t>(entry->blob.data(), entry->blob.data() + entry->blob.size())
                 : std::vector<uint8_t>();
}

const char* const kGood = R"(<preset-list family="QMXX" definitions="audio.modMain.part">
  <common>
    <value key="shared" v="1.5"/>
    <value key="level" v="9"/>
  </common>
  <preset name="First">
    <text key="mode-name" v="First"/>
    <value key="level" v="0.25,-2,1e-3"/>
  </preset>
  <preset name="Second one">
    <text key="names" v="L,,R"/>
    <text key="empty" v=""/>
  </preset>
</preset-list>)";

TEST(CPresetListCompilerTest, PresetsKeepTheSourceOrderAndEntriesTheKeyOrder)
{
    CAudioPresetList list;
    CErrorPtr error = compile(kGood, list);
    ASSERT_FALSE(error) << error->text().toUtf8();
    ASSERT_TRUE(list.hasBank());
    EXPECT_TRUE(list.bank().name().isEmpty());
    ASSERT_EQ(list.bank().presetCount(), 2);
    const CAudioPreset& first = list.bank().preset(0);
    const CAudioPreset& second = list.bank().preset(1);
    EXPECT_EQ(first.name(), CString("QMXX:First"));
    EXPECT_EQ(second.name(), CString("QMXX:Second one"));
    std::vector<std::string> keys;
    for (const auto& [key, entry] : first.entries())
        keys.push_back(key.toUtf8());
    // The preset's own "level" wins over the common one; "shared" comes from the block.
    EXPECT_EQ(keys, (std::vector<std::string>{"level", "mode-name", "shared"}));
    keys.clear();
    for (const auto& [key, entry] : second.entries())
        keys.push_back(key.toUtf8());
    EXPECT_EQ(keys, (std::vector<std::string>{"empty", "level", "names", "shared"}));
}

TEST(CPresetListCompilerTest, EntriesHoldTheDefinitionNameAndOneGroupOfValues)
{
    CAudioPresetList list;
    ASSERT_FALSE(compile(kGood, list));
    const CAudioPreset& first = list.bank().preset(0);

    Bytes level;
    level.str("audio.modMain.part.level");
    level.u32(1); // storage version
    level.u32(1); // element size
    level.u32(0); // float
    level.u32(1); // one group
    level.u32(3); // elements
    level.f64(0.25);
    level.f64(-2.0);
    level.f64(1e-3);
    EXPECT_EQ(blobOf(first, "level"), level.data);

    Bytes shared;
    shared.str("audio.modMain.part.shared");
    for (uint32_t v : {1u, 1u, 0u, 1u, 1u})
        shared.u32(v);
    shared.f64(1.5);
    EXPECT_EQ(blobOf(first, "shared"), shared.data);

    // Strings: the table of the items, then the ids of the elements.
    Bytes names;
    names.str("audio.modMain.part.names");
    names.u32(1); // version
    names.u32(1); // element size
    names.u32(1); // string
    names.u32(1); // one group
    names.u32(3); // items
    names.u32(1);
    names.u32(1);
    names.str("L");
    names.u32(2);
    names.u32(1);
    names.str("");
    names.u32(3);
    names.u32(1);
    names.str("R");
    names.u32(3); // elements
    names.u32(1);
    names.u32(2);
    names.u32(3);
    EXPECT_EQ(blobOf(list.bank().preset(1), "names"), names.data);

    // An empty text is one empty element.
    CAudioParamStorage values;
    values.setFormat(1, CAudioParamStorage::String, false, false);
    CString definition;
    ASSERT_FALSE(list.bank().preset(1).findEntry(CString("empty"))->parse(definition, values));
    EXPECT_EQ(values.elementCount(0), 1);
    EXPECT_EQ(definition, CString("audio.modMain.part.empty"));
}

TEST(CPresetListCompilerTest, TheListReadsBackFromItsOwnBytes)
{
    CAudioPresetList list;
    ASSERT_FALSE(compile(kGood, list));
    CByteArray bytes;
    ASSERT_FALSE(list.toBytes(bytes));
    // "has bank" first.
    ASSERT_GE(bytes.size(), 4u);
    EXPECT_EQ(loadU32LE(bytes.data()), 1u);
    CAudioPresetList again;
    ASSERT_FALSE(again.fromBytes(bytes));
    EXPECT_TRUE(again == list);
}

TEST(CPresetListCompilerTest, BadSourcesAreRefusedWithTheirLineAndChangeNothing)
{
    struct Case
    {
        const char* what;
        std::string source;
        const char* message;
    };
    const std::string head = R"(<preset-list family="QMXX" definitions="a.b">)";
    const Case cases[] = {
        {"garbage", "\x01\x02 not xml at all", "The source is not well-formed XML."},
        {"truncated", std::string(kGood).substr(0, 200), "The source is not well-formed XML."},
        {"empty", "", "The source is not well-formed XML."},
        {"other root", "<definition/>", "The source's root is not <preset-list> or <preset-bank>."},
        {"short family", R"(<preset-list family="QMX" definitions="a"><preset name="p"/></preset-list>)",
         "Invalid preset family 'QMX': four letters expected."},
        {"colon in family", R"(<preset-list family="QM:X" definitions="a"><preset name="p"/></preset-list>)",
         "Invalid preset family 'QM:X': four letters expected."},
        {"no definitions", R"(<preset-list family="QMXX"><preset name="p"/></preset-list>)",
         "Attribute 'definitions' of <preset-list> missing."},
        {"empty definitions", R"(<preset-list family="QMXX" definitions=""><preset name="p"/></preset-list>)",
         "No 'definitions' attribute given."},
        {"unknown attribute", head + R"(<preset name="p" colour="red"/></preset-list>)",
         "Unknown attribute 'colour' of <preset>."},
        {"unknown element", head + R"(<bank/></preset-list>)",
         "Unexpected element <bank>; a <common> block before the presets, then <preset> elements, are expected."},
        {"common after a preset", head + R"(<preset name="p"/><common/></preset-list>)",
         "Unexpected element <common>; a <common> block before the presets, then <preset> elements, are expected."},
        {"no presets", head + "</preset-list>", "The list holds no preset."},
        {"nameless preset", head + R"(<preset name=""/></preset-list>)", "A preset without a name."},
        {"bad entry element", head + R"(<preset name="p"><number key="k" v="1"/></preset></preset-list>)",
         "Unexpected element <number>; <value> or <text> expected."},
        {"no key", head + R"(<preset name="p"><value key="" v="1"/></preset></preset-list>)", "An entry without a key."},
        {"no value attribute", head + R"(<preset name="p"><value key="k"/></preset></preset-list>)",
         "Attribute 'v' of <value> missing."},
        {"key twice", head + R"(<preset name="p"><value key="k" v="1"/><text key="k" v="x"/></preset></preset-list>)",
         "Key 'k' given twice."},
        {"not a number", head + R"(<preset name="p"><value key="k" v="1,2x"/></preset></preset-list>)",
         "Value '2x' of 'k' is not a number."},
        {"empty number", head + R"(<preset name="p"><value key="k" v="1,,2"/></preset></preset-list>)",
         "Value '' of 'k' is not a number."},
        {"no values", head + R"(<preset name="p"><value key="k" v=""/></preset></preset-list>)",
         "No value given for 'k'."},
    };
    // What was there stays as it was.
    CAudioPresetList list;
    ASSERT_FALSE(compile(kGood, list));
    const CAudioPresetList before = list;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CErrorPtr error = compile(c.source, list);
        ASSERT_TRUE(error);
        EXPECT_EQ(firstLine(error), c.message);
        EXPECT_TRUE(list == before);
    }
}

TEST(CPresetListCompilerTest, AnErrorNamesTheLineItWasFoundOn)
{
    const std::string source = "<preset-list family=\"QMXX\" definitions=\"a\">\n"
                               "  <preset name=\"p\">\n"
                               "    <value key=\"k\" v=\"zz\"/>\n"
                               "  </preset>\n"
                               "</preset-list>\n";
    CAudioPresetList list;
    CErrorPtr error = compile(source, list);
    ASSERT_TRUE(error);
    EXPECT_NE(error->text().toUtf8().find("line 3"), std::string::npos) << error->text().toUtf8();
}

// ---- banks

const char* const kBank = R"(<preset-bank name="Bank" family="QMXX" definitions="audio.modMain.part">
  <common>
    <value key="shared" v="2"/>
  </common>
  <preset name="One"><value key="level" v="1"/></preset>
  <preset name="Two"><value key="level" v="2"/></preset>
  <preset name="Three"/>
</preset-bank>)";

TEST(CPresetListCompilerTest, ABankKeepsItsNameAndPresetsAndReadsBackFromItsBlock)
{
    CAudioPresetBank bank;
    CErrorPtr error = compilePresetBank(kBank, std::strlen(kBank), bank);
    ASSERT_FALSE(error) << error->text().toUtf8();
    EXPECT_EQ(bank.name(), CString("Bank"));
    ASSERT_EQ(bank.presetCount(), 3);
    EXPECT_EQ(bank.preset(0).name(), CString("QMXX:One"));
    EXPECT_EQ(bank.preset(2).name(), CString("QMXX:Three"));
    EXPECT_EQ(bank.preset(2).entryCount(), 1);

    Bytes level;
    level.str("audio.modMain.part.level");
    for (uint32_t v : {1u, 1u, 0u, 1u, 1u})
        level.u32(v);
    level.f64(2.0);
    EXPECT_EQ(blobOf(bank.preset(1), "level"), level.data);

    // The bank's stream: its name, the count, the presets with no sizes between them.
    CByteArray bytes;
    ASSERT_FALSE(bank.toBytes(bytes));
    ASSERT_GE(bytes.size(), 12u);
    EXPECT_EQ(loadU32LE(bytes.data()), 4u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()) + 4, 4), "Bank");
    EXPECT_EQ(loadU32LE(bytes.data() + 8), 3u);
    CAudioPresetBank again;
    ASSERT_FALSE(again.fromBytes(bytes));
    EXPECT_TRUE(again == bank);

    // Either kind through the one entry point, as the tool takes it.
    CCompiledPresets compiled;
    ASSERT_FALSE(compilePresets(kBank, std::strlen(kBank), compiled));
    EXPECT_TRUE(compiled.isBank);
    EXPECT_TRUE(compiled.bank == bank);
    ASSERT_FALSE(compilePresets(kGood, std::strlen(kGood), compiled));
    EXPECT_FALSE(compiled.isBank);
    EXPECT_TRUE(compiled.bank.name().isEmpty());
}

TEST(CPresetListCompilerTest, AListIsNoBankAndABankNoListAndBadBanksAreRefused)
{
    CAudioPresetBank bank;
    ASSERT_FALSE(compilePresetBank(kBank, std::strlen(kBank), bank));
    const CAudioPresetBank before = bank;
    CAudioPresetList list;
    ASSERT_FALSE(compile(kGood, list));
    const CAudioPresetList listBefore = list;

    CErrorPtr error = compilePresetBank(kGood, std::strlen(kGood), bank);
    EXPECT_EQ(firstLine(error), "The source is a preset list, not a bank.");
    error = compile(kBank, list);
    EXPECT_EQ(firstLine(error), "The source is a bank, not a preset list.");
    EXPECT_TRUE(list == listBefore);

    struct Case
    {
        const char* what;
        std::string source;
        const char* message;
    };
    const Case cases[] = {
        {"no name", R"(<preset-bank family="QMXX" definitions="a"><preset name="p"/></preset-bank>)",
         "Attribute 'name' of <preset-bank> missing."},
        {"no presets", R"(<preset-bank name="B" family="QMXX" definitions="a"></preset-bank>)", "The list holds no preset."},
        {"truncated", std::string(kBank).substr(0, 120), "The source is not well-formed XML."},
        {"garbage", std::string("\xff\xfe<preset-bank", 14), "The source is not well-formed XML."},
        {"unknown attribute", R"(<preset-bank name="B" family="QMXX" definitions="a" id="1"><preset name="p"/></preset-bank>)",
         "Unknown attribute 'id' of <preset-bank>."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        error = compilePresetBank(c.source.data(), c.source.size(), bank);
        ASSERT_TRUE(error);
        EXPECT_EQ(firstLine(error), c.message);
        EXPECT_TRUE(bank == before);
    }
}

// ---- checks against a definition

class CheckedPresets : public ::testing::Test
{
protected:
    void SetUp() override
    {
        CErrorPtr error = CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kPresetCheckDefinitions,
                                                CString("PresetCheckDefs.xml"));
        ASSERT_FALSE(error) << error->text().toUtf8();
        m_root = CApplication::sharedRoot();
        ASSERT_TRUE(m_root && m_root->findObject(CString("part.level")));
    }
    void TearDown() override { CApplication::finalize(); }

    CErrorPtr check(const std::string& entries, CAudioPresetBank& out)
    {
        const std::string source = R"(<preset-bank name="B" family="QMXX" definitions="part"><preset name="p">)" + entries
                                   + "</preset></preset-bank>";
        return compilePresetBank(source.data(), source.size(), out, m_root);
    }

    const CObject* m_root = nullptr;
};

// The message's numbers as the compiler prints them.
std::string real(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

TEST_F(CheckedPresets, EntriesThatFitTheirParametersCompileUnderTheDefinitionsOwnNames)
{
    // -6 and +12 dB are the level's ends, 0.02 and 0.5 the ratio's.
    const double lo = std::pow(10.0, -6.0 / 20.0);
    const double hi = std::pow(10.0, 12.0 / 20.0);
    CAudioPresetBank bank;
    CErrorPtr error = check("<value key=\"level\" v=\"" + real(lo * 1.0000001) + ",1," + real(hi * 0.9999999)
                                + "\"/><value key=\"ratio\" v=\"0.02,0.5\"/><value key=\"mode\" v=\"3\"/>"
                                  "<text key=\"names\" v=\"x,y,z\"/><value key=\"deeper.switch\" v=\"1\"/>",
                            bank);
    ASSERT_FALSE(error) << error->text().toUtf8();
    const CAudioPreset& preset = bank.preset(0);
    EXPECT_EQ(preset.entryCount(), 5);

    // A single-group, single-element parameter's entry: its definition's full name, one
    // group, one element.
    Bytes mode;
    mode.str("part.mode");
    for (uint32_t v : {1u, 1u, 0u, 1u, 1u})
        mode.u32(v);
    mode.f64(3.0);
    EXPECT_EQ(blobOf(preset, "mode"), mode.data);

    CAudioParamStorage values;
    values.setFormat(1, CAudioParamStorage::Float, false, false);
    CString definition;
    ASSERT_FALSE(preset.findEntry(CString("deeper.switch"))->parse(definition, values));
    EXPECT_EQ(definition, CString("part.deeper.switch"));
    EXPECT_EQ(values.getValue(0, 0, -1.0), 1.0);
}

TEST_F(CheckedPresets, EntriesThatDontFitAreRefusedWithTheirKeyAndLine)
{
    const std::string gainRange = real(std::pow(10.0, -6.0 / 20.0)) + " to " + real(std::pow(10.0, 12.0 / 20.0));
    struct Case
    {
        const char* what;
        std::string entries;
        std::string message;
    };
    const Case cases[] = {
        {"unknown key", R"(<value key="lvl" v="1"/>)", "Key 'lvl' names no parameter definition ('part.lvl')."},
        {"not a parameter", R"(<value key="deeper" v="1"/>)", "Key 'deeper' names no parameter definition ('part.deeper')."},
        {"above the range", R"(<value key="level" v="1,4"/>)", "Value '4' of 'level' lies outside its range " + gainRange + "."},
        {"below the range", R"(<value key="level" v="0.5"/>)",
         "Value '0.5' of 'level' lies outside its range " + gainRange + "."},
        {"minimum above maximum", R"(<value key="ratio" v="0.6"/>)", "Value '0.6' of 'ratio' lies outside its range 0.02 to 0.5."},
        {"far out", R"(<value key="mode" v="1e300"/>)", "Value '1e300' of 'mode' lies outside its range 0 to 3."},
        {"text for numbers", R"(<text key="level" v="loud"/>)",
         "The parameter of key 'level' holds numbers; a <text> entry can't give them."},
        {"numbers for text", R"(<value key="names" v="1"/>)",
         "The parameter of key 'names' holds strings; a <value> entry can't give them."},
        {"two elements of a single one", R"(<value key="mode" v="1,2"/>)",
         "The parameter of key 'mode' takes one element; 2 given."},
        {"two values per element", R"(<value key="pair" v="1"/>)",
         "The parameter of key 'pair' has 2 values per element; only one is supported."},
    };
    CAudioPresetBank bank;
    ASSERT_FALSE(check(R"(<value key="level" v="1"/>)", bank));
    const CAudioPresetBank before = bank;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CErrorPtr error = check(c.entries, bank);
        ASSERT_TRUE(error);
        EXPECT_EQ(firstLine(error), c.message);
        EXPECT_NE(error->text().toUtf8().find("line 1: "), std::string::npos) << error->text().toUtf8();
        EXPECT_TRUE(bank == before);
    }

    // The covered part itself must exist.
    const std::string source = R"(<preset-list family="QMXX" definitions="elsewhere"><preset name="p"/></preset-list>)";
    CAudioPresetList list;
    CErrorPtr error = compilePresetList(source.data(), source.size(), list, m_root);
    EXPECT_EQ(firstLine(error), "The definition holds no object 'elsewhere'.");
    EXPECT_FALSE(list.hasBank());
}

} // namespace
} // namespace qel
