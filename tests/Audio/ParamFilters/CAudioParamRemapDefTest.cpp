// The remap language on its own and through the compiler, refusals and garbage included;
// remaps applied where processes are built; refusals of shared storage and filter definitions.

#include "ParamFilterTestSupport.h"

#include "Audio/ParamFilters/CAudioParamRemapDef.h"
#include "Audio/ParamFilters/CAudioParamSharedStorage.h"
#include "Core/CAppData.h"

#include <random>
#include <string>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

std::string str(const CString& s) { return s.toUtf8(); }

Pairs toPairs(const std::vector<CAudioParamRemapDef::CPair>& pairs)
{
    Pairs out;
    for (const auto& p : pairs)
        out.emplace_back(str(p.orig), str(p.target));
    return out;
}

// The pairs of a list, or the first line of its refusal.
std::string parse(const std::string& text, Pairs* pairs = nullptr)
{
    std::vector<CAudioParamRemapDef::CPair> out;
    CErrorPtr error = CAudioParamRemapDef::parseList(CString::fromUtf8(text), out, CString("r"));
    if (pairs)
        *pairs = toPairs(out);
    return firstLine(error);
}

std::string invalid(const std::string& text) { return "Invalid remapping string '" + text + "' defined."; }

using Remaps = ParamFilterFixture;

TEST(RemapLanguage, PairsSplitAtSemicolonsElseAtBlanks)
{
    const std::vector<std::pair<std::string, Pairs>> cases = {
        {"a = b;", {{"a", "b"}}},
        {"  modFilter.index = index; modFilter.freq = freq; ", {{"modFilter.index", "index"}, {"modFilter.freq", "freq"}}},
        {"a=b c=d\te=f\r\ng=h", {{"a", "b"}, {"c", "d"}, {"e", "f"}, {"g", "h"}}},
        {"a=b;c d=e f", {{"a", "b"}, {"c d", "e f"}}}, // with a ';' blanks are part of the names
        {"x = ^y; p.q = /plugin.modMain.r;;", {{"x", "^y"}, {"p.q", "/plugin.modMain.r"}}},
        {"", {}},
        {" ;  ; ", {}},
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        Pairs pairs;
        EXPECT_EQ(parse(text, &pairs), "");
        EXPECT_EQ(pairs, expected);
    }
}

TEST(RemapLanguage, EveryMalformedPairIsRefusedByName)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"a b", invalid("a")},                  // blanks separate: "a" has no '='
        {"a = b = c;", invalid("a = b = c")},   // two '='
        {"a = ;", invalid("a =")},              // nothing to point to
        {"= b;", invalid("= b")},               // nothing to point from
        {"a = b; c", invalid("c")},             // the second pair
        {"a = b;\n c = d = e ;", invalid("c = d = e")},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(text);
        Pairs pairs{{"kept", "as it was"}};
        std::vector<CAudioParamRemapDef::CPair> out{{CString("kept"), CString("as it was")}};
        EXPECT_EQ(firstLine(CAudioParamRemapDef::parseList(CString::fromUtf8(text), out, CString("r"))), message);
        EXPECT_EQ(toPairs(out), pairs); // a refused list adds nothing
    }
}

TEST(RemapLanguage, GarbageAndTruncationsEitherReadOrAreRefused)
{
    // Every prefix of a good list, and random text of the characters that matter: clean
    // pairs or the refusal, never anything in between.
    const std::string good = "modSatEB.drive = sateb-drive; modSatEBOut.drive = ^sateb-drive; x=/y.z;";
    std::vector<std::string> texts;
    for (size_t n = 0; n <= good.size(); ++n)
        texts.push_back(good.substr(0, n));
    std::mt19937 random(7);
    const std::string alphabet = "ab.=;^/ \t\r\n-=;";
    for (int i = 0; i < 3000; ++i) {
        std::string text(size_t(random() % 24), ' ');
        for (char& c : text)
            c = alphabet[random() % alphabet.size()];
        texts.push_back(text);
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        Pairs pairs;
        const std::string error = parse(text, &pairs);
        if (!error.empty()) {
            EXPECT_EQ(error.rfind("Invalid remapping string '", 0), 0u);
            EXPECT_TRUE(pairs.empty());
            continue;
        }
        const bool bySemicolon = text.find(';') != std::string::npos;
        for (const auto& [orig, target] : pairs) {
            for (const std::string& name : {orig, target}) {
                ASSERT_FALSE(name.empty());
                EXPECT_EQ(name.find_first_of("=;"), std::string::npos);
                // Trimmed; without a ';' no blank can be inside either.
                EXPECT_EQ(name.find_first_not_of(" \t\r\n"), 0u);
                EXPECT_EQ(name.find_last_not_of(" \t\r\n"), name.size() - 1);
                if (!bySemicolon) {
                    EXPECT_EQ(name.find_first_of(" \t\r\n"), std::string::npos);
                }
            }
        }
    }
    // The well-formed prefixes give what they hold.
    Pairs pairs;
    EXPECT_EQ(parse(good.substr(0, good.find(';')), &pairs), invalid("modSatEB.drive")); // no ';': blanks separate
    EXPECT_EQ(parse(good.substr(0, good.find(';') + 1), &pairs), "");
    EXPECT_EQ(pairs, (Pairs{{"modSatEB.drive", "sateb-drive"}}));
}

TEST_F(Remaps, TheCompiledFormsStandSideBySide)
{
    CObject* made = nullptr;
    ASSERT_FALSE(instantiateTemplate(made, "remapMixed"));
    const auto* remap = dynamic_cast<CAudioParamRemapDef*>(made);
    ASSERT_NE(remap, nullptr);
    // The attribute pair first, then the text before and after the child element.
    EXPECT_EQ(toPairs(remap->pairs()), (Pairs{{"mode", "^oversampling"}, {"a", "b"}, {"c.d", "/e.f"}}));

    const std::vector<std::pair<const char*, std::string>> refused = {
        {"remapNothing", "No remappings defined."},
        {"remapSeparatorsOnly", "No remappings defined."},
        {"remapOrigOnly", invalid("mode = ")},
        {"remapNewOnly", invalid(" = ^oversampling")},
        {"remapBadSecondList", invalid("c = d = e")},
        {"processBadRemap", invalid("a =")},
    };
    for (const auto& [templateName, message] : refused) {
        SCOPED_TRACE(templateName);
        made = nullptr;
        EXPECT_EQ(firstLine(instantiateTemplate(made, templateName)), message);
        EXPECT_EQ(made, nullptr);
    }
}

TEST_F(Remaps, SharedStorageAndFilterDefinitionsRefuseGarbage)
{
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"storageNoParam", "Invalid parameter name specified."},
        {"storageNoData", "Invalid shared data name specified."},
        {"storageDisk", "Invalid storage type \"disk\" specified."},
        {"storageNoType", "Invalid storage type \"\" specified."},
        {"storageUpper", "Invalid storage type \"Local\" specified."},
        {"filterNoSrc", "No source parameters defined."},
        {"filterCommasOnly", "No source parameters defined."},
        {"filterNoDst", "No destination parameters defined."},
    };
    for (const auto& [templateName, message] : cases) {
        SCOPED_TRACE(templateName);
        CObject* made = nullptr;
        EXPECT_EQ(firstLine(instantiateTemplate(made, templateName)), message);
        EXPECT_EQ(made, nullptr);
    }
    // The three store names pick the three stores.
    const CAudioProcessDefBase* prefs = nullptr;
    ASSERT_FALSE(CApplication::sharedRoot()->findObjectChecked(prefs, CString("audio.prefs")));
    std::vector<CAppData*> stores;
    std::string paths;
    for (const auto& entry : prefs->sharedStorages()) {
        stores.push_back(entry.object->store());
        paths += str(entry.path) + "=" + str(entry.object->dataName()) + " ";
    }
    EXPECT_EQ(stores, (std::vector<CAppData*>{&CAppData::local(), &CAppData::group(), &CAppData::global(), &CAppData::group()}));
    EXPECT_EQ(paths, ".release=test-release-time .label=test-label .blob=test-blob .undeclared=test-undeclared ");
}

TEST_F(Remaps, OneParameterDrivesEveryStageThatIsRemappedToIt)
{
    Graph& g = build("shared");
    // Four stages with slot defaults of 5 all read sat-params.gain (default 1): not 625 times louder.
    CAudioParam* gain = param("shared.sat-params.gain");
    for (const char* stage : {"shared.stage1.gain", "shared.stage2.gain", "shared.inner.stage3.gain", "shared.stage4.gain"})
        EXPECT_EQ(param(stage), gain) << stage;
    EXPECT_EQ(str(gain->info()->fullName), "audio.shared.sat-params.gain");
    const Signal in = tones(1, 256);
    Signal out = g.run(in, 64);
    EXPECT_EQ(out[0], in[0]);

    // One write, four stages: the gain comes in four times.
    gain->setValue(0.5, 0, nullptr);
    out = g.run(in, 64);
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_EQ(out[0][i], in[0][i] * 0.5 * 0.5 * 0.5 * 0.5) << i;
    // The stages' own slot names lead to the one parameter, however a caller asks.
    for (const char* stage : {"plugin.shared.stage1.gain", "plugin.shared.inner.stage3.gain"}) {
        EXPECT_TRUE(m_collector->isAliased(CString(stage)));
        EXPECT_EQ(m_collector->findParam(CString(stage)), gain);
    }
    EXPECT_FALSE(m_collector->isAliased(CString("plugin.shared.sat-params.gain")));
}

} // namespace
