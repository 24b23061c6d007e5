#include "AudioParamTestSupport.h"

#include "Audio/CAudioProcessBypassStateDef.h"
#include "Audio/CAudioProcessDef.h"
#include "Audio/CAudioProcessLinkDef.h"

#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kProcessDefTestDefinitions[];
}

namespace {

using Range = CAudioProcessBypassStateDef::CRange;
using EndpointError = CAudioProcessLinkDef::EndpointError;

std::string str(const CString& s) { return s.toUtf8(); }

// Names joined by blanks; filed entries as "path=full-name".
template <class T>
std::string namesOf(const CPtrArray<T>& objects)
{
    std::string out;
    for (const T* o : objects)
        out.append(out.empty() ? "" : " ").append(str(o->name()));
    return out;
}

template <class T>
std::string pathsOf(const std::vector<CAudioProcessDefBaseInit::CPathEntry<T>>& entries)
{
    std::string out;
    for (const auto& e : entries)
        out.append(out.empty() ? "" : " ").append(str(e.path)).append("=").append(str(e.object->getFullName()));
    return out;
}

std::string endpoint(const CString& process, int32_t port) { return str(process) + "/" + std::to_string(port); }

// The shared tree holds the test definition; the instance tree a collector to bind to.
class ProcessDefs : public AudioParamFixture
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kProcessDefTestDefinitions,
                                           CString("TestProcessDefs.xml")));
        ASSERT_FALSE(CApplication::initRootObject(m_root, CString()));
        // A refused definition only logs and leaves the tree cut short.
        m_main = dynamic_cast<CAudioProcessDef*>(m_root->findObject(CString("shared::audio.modMain")));
        ASSERT_TRUE(m_main && m_main->state() == CObject::Complete);
        m_env = dynamic_cast<CAudioEnv*>(make(m_root.get(), "audio:audio-env", "env", {}));
        m_collector = dynamic_cast<CAudioParamCollector*>(make(m_root.get(), "audio:param-collector", "params", {{"env", "env"}}));
        ASSERT_TRUE(m_env && m_collector);
    }

    // A template of the test definition, with instance attributes over its own.
    CErrorPtr instantiate(CObject*& out, const char* templateName, const Attrs& attrs = {})
    {
        CAttrMap map;
        for (const auto& [key, value] : attrs)
            map[CString(key)].setString(CString(value));
        return m_root->createChild(out, CString(templateName), CString(nextName().c_str()), true, &map);
    }

    const CAudioProcessBypassStateDef& state(int index) const { return *m_main->bypassStates()[index]; }

    CAudioProcessDef* m_main = nullptr;
};

} // namespace

TEST(CAudioProcessDefBase, ResolvesParameterPathsAgainstTheProcessName)
{
    const char* filter = "plugin.modMain.modDLC73.modFilter";
    const std::vector<std::tuple<const char*, const char*, const char*>> cases = {
        {filter, "^eq-params.band-count", "plugin.modMain.modDLC73.eq-params.band-count"},
        {filter, "gain", "plugin.modMain.modDLC73.modFilter.gain"},
        {filter, ".gain", "plugin.modMain.modDLC73.modFilter.gain"},
        {filter, "^.gain", "plugin.modMain.modDLC73.gain"},
        {filter, "^^", "plugin.modMain"},
        {filter, "", filter},
        {filter, "x^y", "plugin.modMain.modDLC73.modFilter.x^y"},
        {filter, "/io.bypass", "io.bypass"},
        {filter, "/^x", "^x"},
        // Stripping past the first component leaves an empty base, and the '.' still joins.
        {"plugin", "^", ""},
        {"plugin.modMain", "^^^band", ".band"},
    };
    for (const auto& [base, path, expected] : cases) {
        SCOPED_TRACE(std::string(base) + " + " + path);
        EXPECT_EQ(str(CAudioProcessDefBase::resolveParamPath(CString(base), CString(path))), expected);
    }
}

TEST_F(ProcessDefs, AttributesAsWrittenAndAsAbsent)
{
    const CAudioProcessDef& m = *m_main;
    EXPECT_TRUE(m.isAutoLinks() && m.isSmoothUpdate() && m.isMultiband() && m.isStacked() && m.isChannelStack()
                && m.isTerminalWhole() && m.isPrototype() && m.isOutOfOrder() && m.isCompInput());
    EXPECT_EQ(str(m.multibandPtPorts()) + str(m.multibandFreqParam()) + str(m.multibandCountParam()) + str(m.multibandPre())
                  + str(m.multibandLp()) + str(m.multibandHp()) + str(m.stackParam()),
              "1^freqs^countprelphp^eq-params.band-count");
    EXPECT_EQ(std::make_tuple(m.stackIndexShift(), m.bypassStateId(), m.inputComboMode(), m.xfadeLengthSec()),
              std::make_tuple(2, 33, CAudioProcessDefBase::ComboMax, 0.015));

    // Nothing written: the framework's zero values, and the shortest crossfade.
    CObject* made = nullptr;
    ASSERT_FALSE(instantiate(made, "bare"));
    auto* bare = dynamic_cast<CAudioProcessDef*>(made);
    ASSERT_NE(bare, nullptr);
    EXPECT_FALSE(bare->isAutoLinks() || bare->isSmoothUpdate() || bare->isMultiband() || bare->isStacked()
                 || bare->isPrototype() || bare->isOutOfOrder() || bare->isCompInput());
    EXPECT_EQ(std::make_tuple(bare->stackIndexShift(), bare->bypassStateId(), bare->inputComboMode(), bare->xfadeLengthSec()),
              std::make_tuple(0, 0, CAudioProcessDefBase::ComboSum, 0.0001));

    using Combo = CAudioProcessDefBase::InputComboMode;
    const std::vector<std::tuple<const char*, Combo, const char*, double>> cases = {
        {"avg", CAudioProcessDefBase::ComboAvg, "0", 0.0001}, {"max", CAudioProcessDefBase::ComboMax, "-1", 0.0001},
        {"min", CAudioProcessDefBase::ComboSum, "0.00005", 0.0001}, {"AVG", CAudioProcessDefBase::ComboSum, "0.5", 0.5},
    };
    for (const auto& [combo, mode, xfade, seconds] : cases) {
        SCOPED_TRACE(std::string(combo) + " " + xfade);
        ASSERT_FALSE(instantiate(made, "bare", {{"input-combo-mode", combo}, {"xfade-length", xfade}}));
        const auto* def = dynamic_cast<CAudioProcessDefBase*>(made);
        EXPECT_EQ(def->inputComboMode(), mode);
        EXPECT_EQ(def->xfadeLengthSec(), seconds);
    }
}

TEST_F(ProcessDefs, ChildrenAreFiledByKind)
{
    const CAudioProcessDef& m = *m_main;
    std::string allocs;
    for (const auto& [index, alloc] : m.paramAllocs())
        allocs.append(std::to_string(index)).append("=").append(str(alloc->name())).append(" ");
    EXPECT_EQ(allocs, "0=allocGain 1=allocFreqAgain ");
    EXPECT_EQ(pathsOf(m.params()), ".gain=audio.modMain.gain .eq-params.band-count=audio.modMain.eq-params.band-count");
    EXPECT_EQ(pathsOf(m.sharedStorages()), ".gain=audio.modMain.store .eq-params.band-count=audio.modMain.eq-params.store");
    EXPECT_EQ(namesOf(m.remaps()), "remap");
    EXPECT_EQ(namesOf(m.paramFilters()), "agc os");

    EXPECT_EQ(namesOf(m.processes()), "modA modB");
    EXPECT_EQ(m.processes()[0]->bypassStateId(), 34);
    ASSERT_EQ(m.linksByState().size(), 2u);
    EXPECT_EQ(namesOf(m.linksByState().at(-1)), "in out");
    EXPECT_EQ(namesOf(m.linksByState().at(4)), "side");
    EXPECT_EQ(namesOf(m.bypassStates()), "osOff soloed muted");
}

TEST_F(ProcessDefs, LinksReadTheirEndpoints)
{
    const CAudioProcessLinkDef& in = *m_main->linksByState().at(-1)[0];
    const CAudioProcessLinkDef& out = *m_main->linksByState().at(-1)[1];
    const CAudioProcessLinkDef& side = *m_main->linksByState().at(4)[0];
    EXPECT_EQ(endpoint(in.srcProcess(), in.srcPort()) + " " + endpoint(in.dstProcess(), in.dstPort()), "*/0 modA/1");
    EXPECT_EQ(endpoint(out.srcProcess(), out.srcPort()) + " " + endpoint(out.dstProcess(), out.dstPort()), "modA/0 */0");
    EXPECT_EQ(endpoint(side.srcProcess(), side.srcPort()), "modB/2");
    EXPECT_EQ(in.bypassStateIds(), (std::vector<int32_t>{0, 1}));
    EXPECT_TRUE(out.bypassStateIds().empty());
    EXPECT_EQ(side.bypassStateIds(), std::vector<int32_t>{7});

    // The grammar on its own, with junk and every truncation of a good value.
    const std::vector<std::pair<std::u16string, const char*>> endpoints = {
        {u"modSatEB/1", "modSatEB/1"}, {u"modSatEB", "modSatEB/0"}, {u"*", "*/0"}, {u"a/0", "a/0"},
        {u"a/-1", "port"}, {u"a/x", "port"}, {u"a/", "port"}, {u"a//1", "port"}, {u"a/1/2", "port"},
        {u"a/1 ", "port"}, {u"a/+1", "port"}, {u"a/2147483648", "port"}, {u"a/\u0661", "port"}, {u"/", "port"},
        {u"/1", "name"}, {u"", "name"},
    };
    const auto parse = [](const CString& text) {
        CString process;
        int32_t port = -7;
        switch (CAudioProcessLinkDef::parseEndpoint(text, process, port)) {
        case EndpointError::Name: return std::string("name");
        case EndpointError::Port: return std::string("port");
        case EndpointError::None: break;
        }
        return endpoint(process, port);
    };
    for (const auto& [text, expected] : endpoints) {
        SCOPED_TRACE(str(CString(text.c_str())));
        EXPECT_EQ(parse(CString(text.c_str())), expected);
    }
    const CString full("modSatEB/12");
    for (int n = 0; n <= full.length(); ++n) {
        SCOPED_TRACE(n);
        const std::string result = parse(full.substring(0, n));
        EXPECT_EQ(result, n == 0 ? "name" : n == 9 ? "port" : n < 9 ? str(full.substring(0, n)) + "/0" : str(full.substring(0, n)));
    }

    const std::vector<std::pair<const char*, std::vector<int32_t>>> lists = {
        {"0 1", {0, 1}}, {"0 x 1", {0, 1}}, {"  2   3 ", {2, 3}}, {"-1 4", {4}},
        {"1,2", {}},     {"5\t6", {}},      {"", {}},             {"99999999999 3", {3}},
    };
    for (const auto& [text, expected] : lists) {
        SCOPED_TRACE(text);
        std::vector<int32_t> ids{42};
        CAudioProcessLinkDef::parseIdList(CString(text), ids);
        EXPECT_EQ(ids, expected);
    }
}

TEST_F(ProcessDefs, EveryRefusalNamesItsValue)
{
    const std::vector<std::pair<const char*, const char*>> cases = {
        {"negativeShift", "Invalid stack index shift value '-2' specified."},
        {"linkWithoutSrc", "No 'src' attribute defined."},
        {"linkWithoutDst", "No 'dst' attribute defined."},
        {"srcWithoutName", "Invalid process in the 'src' attribute value '/1' specified."},
        {"srcNegativePort", "Invalid port in the 'src' attribute value 'a/-1' specified."},
        {"srcWordPort", "Invalid port in the 'src' attribute value 'a/x' specified."},
        {"dstWithoutName", "Invalid process in the 'dst' attribute value '/0' specified."},
        // The loader drops an empty attribute that nothing set before: it is absent.
        {"dstEmpty", "No 'dst' attribute defined."},
        {"dstEmptyPort", "Invalid port in the 'dst' attribute value 'b/' specified."},
        {"stateBelowAlways", "Invalid state identifier '-2' specified."},
        {"stateWithoutParam", "Invalid parameter name specified."},
        {"shortRange", "Invalid 'range' attribute value '[1]' specified."},
        {"badAndRange", "Invalid 'and-range' attribute value '[1;x]' specified."},
        // A refusal deep inside a process stops the whole process.
        {"badLinkInside", "Invalid port in the 'src' attribute value 'modA/port' specified."},
    };
    for (const auto& [templateName, message] : cases) {
        SCOPED_TRACE(templateName);
        CObject* made = nullptr;
        EXPECT_EQ(firstLine(instantiate(made, templateName)), message);
        EXPECT_EQ(made, nullptr);
    }
}

TEST(CAudioProcessBypassStateDef, RangesCompareOnTheirGrid)
{
    const double nan = std::nan("");
    const std::vector<std::tuple<const char*, std::vector<double>, std::vector<double>>> cases = {
        {"[1;3]", {1, 2, 3, 0.996, 3.004}, {0.99, 3.01, nan}},
        {"(1;3)", {1.01, 2, 2.99}, {1, 3, 1.004}},
        {"[*;3]", {-1e300, 3}, {3.01}},
        {"[1;*)", {1, 1e300}, {0.99, -1e300}},
        {"[*;*]", {-1e300, 0, 1e300}, {nan}},
        {"[1;3;0.5]", {0.75, 1.2, 3.2}, {0.74, 3.3}},
        // Half away from zero, for values and bounds alike.
        {"[*;-0.5;0.5]", {-0.25, -0.75}, {0, -0.24}},
        {"[0.25;*;0.5]", {0.25, 0.5}, {0, 0.24}},
        {"[1,5;2]", {1.5, 2}, {1.49}},
    };
    for (const auto& [text, inside, outside] : cases) {
        SCOPED_TRACE(text);
        Range range;
        ASSERT_TRUE(Range::parse(CString(text), range));
        for (double x : inside)
            EXPECT_TRUE(range.contains(x)) << x;
        for (double x : outside)
            EXPECT_FALSE(range.contains(x)) << x;
    }

    for (const char* junk : {"", "[1]", "[1;]", "[1;3", "1;3]", "{1;3}", "[1;3;0.5;1]", "[a;3]", "[1;b]", "[1;3;0]",
                             "[1;3;-1]", "[1;3;*]", "[1;3;]", "[;3;1]", "[ 1;3]", "[1;3 ]", "[1e999;3]", "[[1;3]]"}) {
        SCOPED_TRACE(junk);
        Range range;
        EXPECT_FALSE(Range::parse(CString(junk), range));
    }
    const CString full("[1.5;*;0.25)");
    for (int n = 0; n < full.length(); ++n) {
        SCOPED_TRACE(n);
        Range range;
        EXPECT_FALSE(Range::parse(full.substring(0, n), range));
    }
    // Whatever the bytes, parsing returns; a range it takes has a usable step.
    std::mt19937 random(1234);
    const std::string alphabet = "[]();*0123456789.,-e+x ";
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (int n = int(random() % 14); n > 0; --n)
            text.push_back(alphabet[random() % alphabet.size()]);
        Range range;
        if (Range::parse(CString(text.c_str()), range)) {
            SCOPED_TRACE(text);
            ASSERT_GT(range.step, 0.0);
            (void)range.contains(random() * 1e-3);
        }
    }
}

TEST_F(ProcessDefs, StatesTestValuesAndCombineThem)
{
    const CAudioProcessBypassStateDef& osOff = state(0);
    const CAudioProcessBypassStateDef& soloed = state(1);
    const CAudioProcessBypassStateDef& muted = state(2);
    EXPECT_EQ(osOff.id(), 33);
    // With one parameter the second value means nothing; at 0 the distance 0.1 is exact.
    const std::vector<std::tuple<const CAudioProcessBypassStateDef*, double, double, bool>> cases = {
        {&osOff, 1, 9, true}, {&osOff, 0.95, 9, true}, {&osOff, 1.09, 9, true}, {&osOff, 0.89, 1, false},
        {&muted, 0.1, 9, true}, {&muted, -0.1, 9, true}, {&muted, 0.1000001, 0, false},
        // In [1;3] and within 0.1 of 2, turned over: holds when either test fails.
        {&soloed, 2, 2, false}, {&soloed, 3, 2.05, false}, {&soloed, 0, 2, true}, {&soloed, 2, 5, true},
        {&soloed, std::nan(""), 2, true},
    };
    for (const auto& [def, value, andValue, holds] : cases) {
        SCOPED_TRACE(str(def->name()) + " " + std::to_string(value) + " " + std::to_string(andValue));
        EXPECT_EQ(def->matches(value, andValue), holds);
    }
}

TEST_F(ProcessDefs, BoundStateReadsItsProcessGroupAndElement)
{
    const CString process("plugin.modMain.modDLC73.modFilter");
    const CAudioProcessBypassStateDef::CBinding os = state(0).bind(*m_collector, process);
    const CAudioProcessBypassStateDef::CBinding solo = state(1).bind(*m_collector, process);
    EXPECT_EQ(os.param(), m_collector->getParam(CString("plugin.modMain.modDLC73.io.oversampling")));
    EXPECT_EQ(os.andParam(), nullptr);
    EXPECT_EQ(solo.param(), m_collector->getParam(CString("plugin.modMain.modDLC73.modFilter.solo")));
    EXPECT_EQ(solo.andParam(), m_collector->getParam(CString("io.mode")));
    // No definitions yet: nothing can be read, so no test passes.
    EXPECT_FALSE(os.isBypassed(0, 0));
    EXPECT_TRUE(solo.isBypassed(0, 0));

    param(CString("plugin.modMain.modDLC73.io.oversampling"), realParam("0"))->setValue(1, 1, nullptr);
    CAudioParam* soloParam = param(CString("plugin.modMain.modDLC73.modFilter.solo"), realParam("0"));
    soloParam->setElementValue(2, 0, 1, nullptr);
    soloParam->setElementValue(2, 2, 1, nullptr);
    param(CString("io.mode"), realParam("2"))->setElementValue(0, 2, 1, nullptr);
    EXPECT_FALSE(os.isBypassed(1, 0)); // the audio side has not seen the change yet
    drain();
    EXPECT_FALSE(os.isBypassed(0, 0));
    EXPECT_TRUE(os.isBypassed(1, 0));
    EXPECT_FALSE(solo.isBypassed(0, 1));
    EXPECT_TRUE(solo.isBypassed(0, 0)); // element 0 keeps its default
    EXPECT_TRUE(solo.isBypassed(2, 1)); // group 2's mode fails
}
