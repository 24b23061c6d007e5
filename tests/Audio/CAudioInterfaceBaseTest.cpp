// The product's undo history: an edit of several parameters undone and redone over the
// whole instance, bit for bit in the values and on the audio side after a block.

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

// Per parameter, every group's element count and value bits (or string items' texts).
using Saved = std::map<std::string, std::string>;

std::string bits(double v) { return std::to_string(std::bit_cast<uint64_t>(v)); }

std::string describe(const CAudioParamStorage& s)
{
    std::string out;
    for (int32_t g = 0; g < 8; ++g) {
        const int32_t count = s.elementCount(g);
        out.append(CString::number(count).toUtf8()).append(":");
        const double* values = s.groupValues(g);
        for (int32_t i = 0; i < count * s.elementSize(); ++i) {
            if (s.dataType() == CAudioParamStorage::Float)
                out.append(bits(values[i])).append(",");
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
            out.append(bits(s.getElementValue(g, e, 0, -1.0))).append(",");
    return out;
}

// The auto-gain filter rewrites the input gain while its sources are restored: an absent
// list may come back as an explicit one of the same value, so compare what readers see.
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

TEST_F(ProductUndo, UndoesAnEditOfSeveralParametersOverTheWholeInstance)
{
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    auto* base = dynamic_cast<CAudioInterfaceBase*>(w->pluginObject()->findChild(CString("interface-base")));
    ASSERT_TRUE(base);
    EXPECT_EQ(base->maxEntries(), 32);
    EXPECT_EQ(base->collector(), w->paramCollector());
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
