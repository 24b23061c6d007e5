// The routing the product takes from the host's channels: the labels become channel
// names, channels go in and out one to one in the first group, named by the layout; it is
// one undo step; it follows the host while nothing was routed by hand, and never after.

#include "WrapperTestSupport.h"

#include "AudioParamTestSupport.h"

#include "Audio/CAudioDefaultRouting.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CAudioParamUndo.h"

#include <functional>
#include <string>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

Attrs with(Attrs attrs, const Attrs& more)
{
    attrs.insert(attrs.end(), more.begin(), more.end());
    return attrs;
}

constexpr const char* kIo = "plugin.modMain.io-params.";

class DefaultRouting : public ::testing::Test
{
protected:
    ScopedApplication m_app{kProductResourceRows, "SharedData.xml"};

    static std::vector<double> list(TestWrapper& w, const char* name)
    {
        std::vector<double> out;
        for (int32_t c = 0; c < 8; ++c)
            out.push_back(w.value((std::string(kIo) + name).c_str(), 0, c));
        return out;
    }
    static std::vector<std::string> texts(TestWrapper& w, const char* name, int32_t count)
    {
        std::vector<std::string> out;
        for (int32_t i = 0; i < count; ++i)
            out.push_back(w.param((std::string(kIo) + name).c_str())->getString(0, i).toUtf8());
        return out;
    }
    static void hostGives(TestWrapper& w, const std::vector<const char*>& labels)
    {
        std::vector<CString> main;
        for (const char* l : labels)
            main.emplace_back(l);
        w.setInputLabels(main, {});
        w.updateRouting(true, CString(), CString());
    }
};

TEST_F(DefaultRouting, TheHostsLayoutNamesRoutesAndGroupsTheChannels)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    // Before the host has said anything, a registry's call changes nothing.
    w->updateRouting(false, CString(), CString());
    EXPECT_EQ(texts(*w, "group-names", 2), (std::vector<std::string>{"1", "2"}));

    hostGives(*w, {"M"});
    EXPECT_EQ(texts(*w, "in-channel-names", 1), std::vector<std::string>{"M"});
    EXPECT_EQ(texts(*w, "group-names", 8),
              (std::vector<std::string>{"MONO", "G-2", "G-3", "G-4", "G-5", "G-6", "G-7", "G-8"}));
    EXPECT_EQ(list(*w, "in-routing"), (std::vector<double>{1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(list(*w, "out-routing"), (std::vector<double>{1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(list(*w, "grouping"), (std::vector<double>{0, 0, 1, 1, 2, 2, 3, 3}));

    // Its own earlier layout is no hand routing: the host's next layout replaces it.
    hostGives(*w, {"L", "R"});
    EXPECT_EQ(texts(*w, "in-channel-names", 2), (std::vector<std::string>{"L", "R"}));
    EXPECT_EQ(texts(*w, "group-names", 1), std::vector<std::string>{"STEREO"});
    EXPECT_EQ(list(*w, "in-routing"), (std::vector<double>{1, 2, 0, 0, 0, 0, 0, 0}));

    hostGives(*w, {"L", "R", "C", "LFE", "Ls", "Rs"});
    EXPECT_EQ(texts(*w, "group-names", 1), std::vector<std::string>{"MULTI"});
    EXPECT_EQ(list(*w, "in-routing"), (std::vector<double>{1, 2, 3, 4, 5, 6, 0, 0}));
    EXPECT_EQ(list(*w, "out-routing"), (std::vector<double>{1, 2, 3, 4, 5, 6, 0, 0}));
    EXPECT_EQ(list(*w, "grouping"), (std::vector<double>{0, 0, 0, 0, 0, 0, 3, 3}));
    EXPECT_EQ(texts(*w, "in-channel-names", 6), (std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs"}));
}

TEST_F(DefaultRouting, IsOneUndoStepAndStopsWhereTheUserRouted)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    CAudioParamUndo* undo = w->paramRegistry()->undo();
    ASSERT_NE(undo, nullptr);
    std::vector<CString> history;
    int32_t position = 0;
    undo->getHistory(history, position);
    const size_t before = history.size();

    w->setInputLabels({CString("M")}, {});
    w->updateRouting(true, CString("Host"), CString("layout"));
    undo->getHistory(history, position);
    ASSERT_EQ(history.size(), before + 1);
    EXPECT_EQ(history.back().toUtf8(), "Host layout");
    // Undone, every routing parameter is back at once.
    undo->setHistoryPosition(position - 1);
    EXPECT_EQ(texts(*w, "group-names", 1), std::vector<std::string>{"1"});
    EXPECT_EQ(list(*w, "in-routing"), (std::vector<double>{1, 2, 0, 0, 0, 0, 0, 0}));
    undo->setHistoryPosition(position);
    EXPECT_EQ(texts(*w, "group-names", 1), std::vector<std::string>{"MONO"});
    // The same layout again is no new step.
    w->updateRouting(true, CString("Host"), CString("layout"));
    undo->getHistory(history, position);
    EXPECT_EQ(history.size(), before + 1);

    // Routed by hand (a group renamed, a channel moved, a group changed): the host's layouts
    // leave it alone.
    using Edit = std::function<void(TestWrapper&)>;
    const std::pair<const char*, Edit> edits[] = {
        {"group-names",
         [](TestWrapper& v) {
             CAudioParamUpdateContext context;
             v.param("plugin.modMain.io-params.group-names")->setString(0, 0, CString("Drums"), nullptr, context);
         }},
        {"in-routing", [](TestWrapper& v) { v.param("plugin.modMain.io-params.in-routing")->setElementValue(2, 0, 0, nullptr); }},
        {"grouping", [](TestWrapper& v) { v.param("plugin.modMain.io-params.grouping")->setElementValue(1, 0, 1, nullptr); }},
    };
    for (const auto& [what, edit] : edits) {
        SCOPED_TRACE(what);
        auto v = startedWrapper();
        ASSERT_TRUE(v);
        edit(*v);
        const std::vector<double> routing = list(*v, "in-routing");
        const std::vector<double> grouping = list(*v, "grouping");
        const std::vector<std::string> names = texts(*v, "group-names", 8);
        hostGives(*v, {"L", "R", "C", "LFE", "Ls", "Rs"});
        EXPECT_EQ(list(*v, "in-routing"), routing);
        EXPECT_EQ(list(*v, "grouping"), grouping);
        EXPECT_EQ(texts(*v, "group-names", 8), names);
    }
}

// A program whose preset brings the default routing gets the host's layout back in the
// same step.
TEST_F(DefaultRouting, APresetWithTheDefaultRoutingTakesTheHostsLayout)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    hostGives(*w, {"M"});
    ASSERT_FALSE(w->loadProgram(6, w.get()));
    EXPECT_EQ(texts(*w, "group-names", 1), std::vector<std::string>{"MONO"});
    EXPECT_EQ(list(*w, "in-routing"), (std::vector<double>{1, 0, 0, 0, 0, 0, 0, 0}));
}

// With sidechain channels, on parameters of its own (the product has none): the channels
// behind the main ones are keys, muted and not routed out; a single one keys every main
// channel. What it wrote stays its own, and a hand-made change ends its say.
class DefaultRoutingSidechain : public AudioParamFixture
{
protected:
    std::vector<double> list(const char* name)
    {
        std::vector<double> out;
        CAudioParam* p = m_collector->getParam(CString(name));
        for (int32_t c = 0; c < 8; ++c)
            out.push_back(p->values().getElementValue(0, c, 0, -1.0));
        return out;
    }
};

TEST_F(DefaultRoutingSidechain, KeysAreMutedAndNotRoutedOut)
{
    const Attrs text = {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"}};
    CAudioDefaultRouting::CParams p;
    p.inChannelNames = param(CString("names"), with(text, {{"def-values", ",,,,,,,"}}));
    p.groupNames = param(CString("groups"), with(text, {{"def-values", "1,2,3,4,5,6,7,8"}}));
    p.inRouting = param(CString("in"), realParam("1,2,0,0,0,0,0,0", "0", "16"));
    p.grouping = param(CString("grouping"), realParam("0,0,1,1,2,2,3,3", "0", "7"));
    p.outRouting = param(CString("out"), realParam("1,2,0,0,0,0,0,0", "0", "16"));
    p.sidechain = param(CString("side"), realParam("0,1,2,3,4,5,6,7", "0", "7"));
    p.sidechainMute = param(CString("mute"), realParam("0,0,0,0,0,0,0,0", "0", "1"));
    CAudioDefaultRouting routing(p, 8, 8);
    ASSERT_TRUE(routing.isUntouched());

    CAudioParamUpdateContext context;
    EXPECT_TRUE(routing.apply({CString("L"), CString("R")}, {CString("SL"), CString("SR")}, nullptr, context));
    EXPECT_EQ(list("in"), (std::vector<double>{1, 2, 3, 4, 0, 0, 0, 0}));
    EXPECT_EQ(list("out"), (std::vector<double>{1, 2, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(list("grouping"), (std::vector<double>{0, 0, 0, 0, 2, 2, 3, 3}));
    EXPECT_EQ(list("side"), (std::vector<double>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(list("mute"), (std::vector<double>{0, 0, 1, 1, 0, 0, 0, 0}));
    EXPECT_EQ(p.inChannelNames->getString(0, 3).toUtf8(), "SR");
    EXPECT_TRUE(routing.isUntouched());
    EXPECT_FALSE(routing.apply({CString("L"), CString("R")}, {CString("SL"), CString("SR")}, nullptr, context));

    EXPECT_TRUE(routing.apply({CString("L"), CString("R")}, {CString("S")}, nullptr, context));
    EXPECT_EQ(list("side"), (std::vector<double>{2, 2, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(list("mute"), (std::vector<double>{0, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(list("out"), (std::vector<double>{1, 2, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(routing.isUntouched());

    // A channel muted by hand is the user's routing.
    p.sidechainMute->setElementValue(1.0, 0, 5, nullptr);
    EXPECT_FALSE(routing.isUntouched());
    // So is a routing that leaves a gap.
    p.sidechainMute->setElementValue(0.0, 0, 5, nullptr);
    ASSERT_TRUE(routing.isUntouched());
    p.inRouting->setElementValue(5.0, 0, 1, nullptr);
    EXPECT_FALSE(routing.isUntouched());
}

} // namespace
