// The product's instance with its undo history: the object the registries name, and an
// edit of several parameters undone and redone over the whole instance, byte for byte in
// the saved values and on the audio side after a block.

#include "WrapperTestSupport.h"

#include "AudioParamTestSupport.h"

#include "Audio/CAudioInterfaceBase.h"
#include "Audio/CAudioParamInfo.h"

#include <bit>
#include <cmath>
#include <map>
#include <string>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

// Per parameter, what a reader of every group sees: the element count and the bits of each
// value (or the text of a string item), group by group.
using Saved = std::map<std::string, std::string>;

std::string hex(uint64_t bits)
{
    std::string out;
    for (int shift = 60; shift >= 0; shift -= 4)
        out += "0123456789abcdef"[(bits >> shift) & 15];
    return out;
}

std::string describe(const CAudioParamStorage& s)
{
    std::string out;
    for (int32_t g = 0; g < 8; ++g) {
        const int32_t count = s.elementCount(g);
        out.append(CString::number(count).toUtf8()).append(":");
        const double* values = s.groupValues(g);
        for (int32_t i = 0; i < count * s.elementSize(); ++i) {
            if (s.dataType() == CAudioParamStorage::Float)
                out.append(hex(std::bit_cast<uint64_t>(values[i]))).append(",");
            else
                out.append("'").append(s.data().getString(uint32_t(std::lround(values[i]))).toUtf8()).append("',");
        }
        out += ";";
    }
    return out;
}

// What a reader of the first eight elements of every group sees, lists short or long.
std::string readerView(const CAudioParamStorage& s)
{
    std::string out;
    for (int32_t g = 0; g < 8; ++g)
        for (int32_t e = 0; e < 8; ++e)
            out.append(hex(std::bit_cast<uint64_t>(s.getElementValue(g, e, 0, -1.0)))).append(",");
    return out;
}

// The input gain is the auto-gain filter's destination: the filter writes it again while
// its sources are restored, so a group that read the default from an absent list may come
// back with an explicit list of the same value. Readers see the same.
const char kFilterDestination[] = "plugin.modMain.modDLC73.ingain";

Saved savedInstance(CAudioParamCollector& collector, bool audioSide)
{
    std::vector<CAudioParam*> params;
    collector.getParams(params);
    Saved out;
    for (CAudioParam* p : params) {
        CLockGuard guard(p->lock());
        if (!p->info())
            continue;
        const CAudioParamStorage& storage = audioSide ? p->audioValues() : p->values();
        out[p->name().toUtf8()] = p->name().toUtf8() == kFilterDestination ? readerView(storage) : describe(storage);
    }
    return out;
}

// The names whose states differ, for a readable failure.
std::vector<std::string> differing(const Saved& a, const Saved& b)
{
    std::vector<std::string> names;
    for (const auto& [name, state] : a) {
        auto other = b.find(name);
        if (other == b.end() || other->second != state)
            names.push_back(name);
    }
    for (const auto& [name, state] : b)
        if (!a.count(name))
            names.push_back(name);
    return names;
}

class ProductUndo : public ::testing::Test
{
protected:
    ScopedApplication m_app{kProductResourceRows, "SharedData.xml"};
};

TEST_F(ProductUndo, HasItsHistoryBesideTheCollector)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    auto* base = dynamic_cast<CAudioInterfaceBase*>(w->pluginObject()->findChild(CString("interface-base")));
    ASSERT_TRUE(base);
    EXPECT_EQ(base->maxEntries(), 32);
    EXPECT_EQ(base->collector(), w->paramCollector());
}

TEST_F(ProductUndo, UndoesAnEditOfSeveralParametersOverTheWholeInstance)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    auto* base = dynamic_cast<CAudioInterfaceBase*>(w->pluginObject()->findChild(CString("interface-base")));
    ASSERT_TRUE(base);
    const HostSetup setup;
    prepare(*w, setup);
    const Signal silence(2, std::vector<double>(64, 0.0));
    processOne(*w, setup, silence, 0, 64);
    CAudioParamCollector& collector = *w->paramCollector();
    const Saved before = savedInstance(collector, false);

    auto entry = std::make_unique<CAudioParamUndoData>(CString("Knobs"));
    CAudioParamUpdateContext context;
    context.undo = entry.get();
    auto write = [&](const char* name, int32_t group, int32_t element, double value) {
        CAudioParam* p = w->param(name);
        CLockGuard guard(p->lock());
        CAudioParamChange c = p->values().makeChange(group, element, 1, false);
        c.values = &value;
        p->change(c, context);
    };
    write("plugin.modMain.modDLC73.outgain", 2, 0, 0.5);
    write("plugin.modMain.modDLC73.eq-params.gain", 0, 1, 2.0);
    write("plugin.modMain.modDLC73.eq-params.gain", 3, 2, 0.25);
    base->submit(std::move(entry));
    processOne(*w, setup, silence, 0, 64);
    const Saved after = savedInstance(collector, false);
    using Names = std::vector<std::string>;
    // The input gain follows the other gains through the instance's filter, in the same action.
    ASSERT_EQ(differing(before, after), (Names{"plugin.modMain.modDLC73.eq-params.gain",
                                               "plugin.modMain.modDLC73.ingain", "plugin.modMain.modDLC73.outgain"}));
    EXPECT_EQ(differing(savedInstance(collector, true), after), Names{});

    base->setHistoryPosition(0);
    EXPECT_EQ(differing(savedInstance(collector, false), before), Names{});
    processOne(*w, setup, silence, 0, 64);
    EXPECT_EQ(differing(savedInstance(collector, true), before), Names{});

    base->setHistoryPosition(1);
    EXPECT_EQ(differing(savedInstance(collector, false), after), Names{});
    processOne(*w, setup, silence, 0, 64);
    EXPECT_EQ(differing(savedInstance(collector, true), after), Names{});
}

} // namespace
