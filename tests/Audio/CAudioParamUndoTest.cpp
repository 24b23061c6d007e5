// The undo history: recording on the path of a change, limits, merging of drags, string
// parameters, parked and copied histories, and a long random walk through the history
// checked against states noted by the test after every edit, on both the values and the
// audio thread's copy. Plain undo, redo and the cut of the redo tail are the walk's.

#include "AudioParamTestSupport.h"

#include "Audio/CAudioInterfaceBase.h"
#include "Audio/CAudioParamUndo.h"
#include "Core/CCreatorRegistry.h"

#include <bit>
#include <cmath>
#include <deque>
#include <random>

namespace qel::test {
namespace {

// Counts what the history tells its subclasses.
class CCountingUndo : public CAudioParamUndo
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioParamUndo::initClassInfo(info); }
    void onHistoryChanged() override { ++notifications; }
    int notifications = 0;
};

const CCreatorRow kUndoTestCreatorRows[] = {
    creatorRow<CCountingUndo>("test:counting-undo"),
    {nullptr, nullptr, nullptr},
};

// One group's list as stored: element count and the bits of each value, or the texts of a
// string parameter.
struct GroupState
{
    int32_t count = 0;
    std::vector<uint64_t> bits;
    std::vector<std::string> texts;
    bool operator==(const GroupState&) const = default;
};

using ParamState = std::vector<GroupState>; // groups 0 to 7

std::string numbered(const char* prefix, int number)
{
    return CString(prefix).append(CString::number(number)).toUtf8();
}

ParamState stateOf(const CAudioParamStorage& storage)
{
    ParamState state(8);
    for (int32_t g = 0; g < 8; ++g) {
        GroupState& out = state[size_t(g)];
        out.count = storage.elementCount(g);
        const double* values = storage.groupValues(g);
        for (int32_t i = 0; i < out.count * storage.elementSize(); ++i) {
            if (storage.dataType() == CAudioParamStorage::Float)
                out.bits.push_back(std::bit_cast<uint64_t>(values[i]));
            else
                out.texts.push_back(storage.data().getString(uint32_t(std::lround(values[i]))).toUtf8());
        }
    }
    return state;
}

class ParamUndo : public AudioParamFixture
{
protected:
    void SetUp() override
    {
        AudioParamFixture::SetUp();
        ASSERT_FALSE(CCreatorRegistry::registerTable(kUndoTestCreatorRows));
    }

    CCountingUndo* undo(const char* maxCount)
    {
        Attrs attrs = {{"param-collector", "params"}};
        if (maxCount)
            attrs.push_back({"undo-count-max", maxCount});
        return dynamic_cast<CCountingUndo*>(make(m_root.get(), "test:counting-undo", nextName().c_str(), attrs));
    }

    // A storable float parameter.
    CAudioParam* stored(const std::string& name, const char* defValues, bool singleGroup = false)
    {
        Attrs attrs = realParam(defValues, "-1000", "1000");
        attrs.push_back({"is-storable", "true"});
        if (singleGroup)
            attrs.push_back({"is-single-group", "true"});
        return param(CString::fromUtf8(name), attrs);
    }

    // A storable string parameter of one text per element.
    CAudioParam* storedText(const char* name, const char* defValues)
    {
        return param(CString(name), {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"},
                                     {"is-storable", "true"}, {"def-values", defValues}});
    }

    // Writes `values` (whole elements) from `first` on, into the entry.
    static void write(CAudioParam* p, CAudioParamUndoData* entry, int32_t group, int32_t first,
                      std::vector<double> values, bool isListEnd = false)
    {
        CAudioParamChange c;
        {
            CLockGuard guard(p->lock());
            c = p->values().makeChange(group, first, int32_t(values.size()) / p->values().elementSize(), isListEnd);
        }
        c.values = values.data();
        CAudioParamUpdateContext context;
        context.undo = entry;
        p->change(c, context);
    }

    static std::unique_ptr<CAudioParamUndoData> action(const std::string& name, bool mergeable = false, int32_t tag = -1)
    {
        return std::make_unique<CAudioParamUndoData>(CString::fromUtf8(name), mergeable, tag);
    }

    // One action setting element 0 of the group to `value`.
    void edit(CAudioParamUndo* u, CAudioParam* p, double value, const std::string& name = "edit", int32_t group = 0,
              bool mergeable = false, int32_t tag = -1)
    {
        auto entry = action(name, mergeable, tag);
        write(p, entry.get(), group, 0, {value});
        u->submit(std::move(entry));
    }

    // One action setting one text of group 0.
    void type(CAudioParamUndo* u, CAudioParam* p, int32_t element, const char* text, bool mergeable = false,
              int32_t tag = -1)
    {
        auto entry = action("text", mergeable, tag);
        CAudioParamUpdateContext context;
        context.undo = entry.get();
        p->setString(0, element, CString(text), nullptr, context);
        u->submit(std::move(entry));
    }

    static double value(CAudioParam* p, int32_t group = 0, int32_t element = 0)
    {
        CLockGuard guard(p->lock());
        return p->values().getElementValue(group, element, 0, -1.0);
    }

    static std::vector<std::string> names(CAudioParamUndo* u, int32_t* position = nullptr)
    {
        std::vector<CString> list;
        int32_t at = -1;
        u->getHistory(list, at);
        if (position)
            *position = at;
        std::vector<std::string> out;
        for (const CString& name : list)
            out.push_back(name.toUtf8());
        return out;
    }
};

TEST_F(ParamUndo, KeepsTheNewestActionsUpToItsLimitAndTakesSmallLimitsAsFour)
{
    const std::vector<std::pair<const char*, int32_t>> cases = {{"3", 4}, {"4", 4}, {"5", 5}, {"0", 4}, {"-7", 4},
                                                                 {nullptr, 4}, {"32", 32}, {"100", 100}};
    for (size_t c = 0; c < cases.size(); ++c) {
        const auto& [text, limit] = cases[c];
        SCOPED_TRACE(text ? text : "(none)");
        CCountingUndo* u = undo(text);
        ASSERT_TRUE(u);
        EXPECT_EQ(u->maxEntries(), limit);
        CAudioParam* p = stored(numbered("p", int(c)), "0");
        for (int i = 1; i <= limit + 1; ++i)
            edit(u, p, i, numbered("step ", i));
        int32_t position = -1;
        const auto list = names(u, &position);
        ASSERT_EQ(list.size(), size_t(limit) + 1);
        EXPECT_EQ(list[0], "Undo history start");
        EXPECT_EQ(list[1], "step 2"); // the first action went
        EXPECT_EQ(list.back(), numbered("step ", limit + 1));
        EXPECT_EQ(position, limit);
        EXPECT_EQ(u->notifications, limit + 1);

        // All the way back ends at the state before step 2, not before step 1.
        u->setHistoryPosition(0);
        EXPECT_EQ(value(p), 1.0);
        u->setHistoryPosition(limit);
        EXPECT_EQ(value(p), double(limit + 1));
    }
}

TEST_F(ParamUndo, RefusesAMissingCollector)
{
    EXPECT_NE(initError("audio:interface-base", {{"undo-count-max", "32"}, {"param-collector", "nowhere"}}), "");
    EXPECT_NE(initError("audio:interface-base", {{"undo-count-max", "32"}}), "");
    EXPECT_EQ(initError("audio:interface-base", {{"undo-count-max", "32"}, {"param-collector", "params"}}), "");
}

TEST_F(ParamUndo, TakesAPositionWithoutAnEntryAsNoRequest)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "7");
    int32_t position = -1;
    EXPECT_EQ(names(u, &position), std::vector<std::string>{"Undo history start"});
    EXPECT_EQ(position, 0);
    // Without a history not even position 0 is one.
    u->setHistoryPosition(0);
    u->setHistoryPosition(1);
    EXPECT_EQ(u->notifications, 0);

    edit(u, p, 1.0, "one");
    edit(u, p, 2.0, "two");
    u->setHistoryPosition(1);
    const int before = u->notifications;
    u->setHistoryPosition(-1);
    u->setHistoryPosition(3);
    EXPECT_EQ(u->notifications, before);
    EXPECT_EQ(value(p), 1.0);
    EXPECT_EQ(names(u, &position).size(), 3u);
    EXPECT_EQ(position, 1);
}

TEST_F(ParamUndo, FoldsADragIntoOneStepOnlyWhereBothStepsMatch)
{
    // What a folded step undoes and redoes is the random walk's to check.
    CCountingUndo* u = undo("32");
    CAudioParam* a = stored("a", "0");
    CAudioParam* b = stored("b", "0");
    edit(u, a, 5.0, "set");
    edit(u, a, 6.0, "drag a", 0, true, 3);
    const int afterFirst = u->notifications;
    edit(u, a, 7.0, "drag a", 0, true, 3);
    edit(u, a, 8.0, "drag a", 0, true, 3);
    EXPECT_EQ(names(u).size(), 3u);
    EXPECT_EQ(u->notifications, afterFirst); // a fold tells nobody

    edit(u, b, 2.0, "drag b", 0, true, 3); // another parameter
    EXPECT_EQ(names(u).size(), 4u);
    edit(u, b, 3.0, "drag b", 1, true, 3); // another group
    EXPECT_EQ(names(u).size(), 5u);
    edit(u, b, 4.0, "drag b", 1, true, 4); // another tag
    EXPECT_EQ(names(u).size(), 6u);
    edit(u, b, 5.0, "set b", 1); // not mergeable itself
    EXPECT_EQ(names(u).size(), 7u);
    edit(u, b, 6.0, "drag b", 1, true, 4); // the last one is not mergeable
    EXPECT_EQ(names(u).size(), 8u);

    // A different element count after the change is another kind of step too.
    auto longer = action("drag b", true, 4);
    write(b, longer.get(), 1, 0, {7.0, 7.5}, true);
    u->submit(std::move(longer));
    EXPECT_EQ(names(u).size(), 9u);

    // An action on two parameters does not fold into one on a single parameter.
    auto both = action("drag b", true, 4);
    write(b, both.get(), 1, 0, {8.0, 8.5}, true);
    write(a, both.get(), 0, 0, {8.0});
    u->submit(std::move(both));
    EXPECT_EQ(names(u).size(), 10u);
}

TEST_F(ParamUndo, RecordsStorableAndPersistentParametersButNeverTheDefaults)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "0");
    Attrs attrs = realParam("3");
    attrs.push_back({"is-persistent", "true"});
    CAudioParam* kept = param(CString("kept"), attrs);
    CAudioParam* passing = param(CString("passing"), realParam("0")); // neither storable nor persistent
    edit(u, p, 1.0);
    edit(u, kept, 2.0);
    EXPECT_EQ(names(u).size(), 3u);

    // An action without records is dropped, and tells nobody.
    const int before = u->notifications;
    edit(u, passing, 4.0);
    u->submit(action("empty"));
    u->submit(nullptr);
    int32_t position = -1;
    EXPECT_EQ(names(u, &position).size(), 3u);
    EXPECT_EQ(position, 2);
    EXPECT_EQ(u->notifications, before);
    EXPECT_EQ(value(passing), 4.0); // written all the same

    auto defaults = action("defaults");
    write(kept, defaults.get(), kParamDefaultsGroup, 0, {9.0}, true);
    EXPECT_EQ(defaults->recordCount(), 0);
}

TEST_F(ParamUndo, RecordsTheFirstStateOfAGroupOnce)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "0,0,0");
    CAudioParam* single = stored("s", "0", true);
    edit(u, p, 1.0);
    auto entry = action("several writes");
    write(p, entry.get(), 0, 1, {2.0});
    write(p, entry.get(), 0, 4, {3.0}); // grows the list, with defaults in the gap
    write(p, entry.get(), 2, 0, {4.0});
    write(single, entry.get(), 5, 0, {5.0}); // a single-group parameter lives in group 0
    EXPECT_EQ(entry->recordCount(), 3);
    EXPECT_EQ(entry->paramCount(), 2);
    u->submit(std::move(entry));
    u->setHistoryPosition(1);
    CLockGuard guard(p->lock());
    EXPECT_EQ(p->values().elementCount(0), 3);
    EXPECT_EQ(p->values().getElementValue(0, 0, 0, -1), 1.0);
    EXPECT_EQ(p->values().getElementValue(0, 1, 0, -1), 0.0);
    EXPECT_EQ(p->values().elementCount(2), 0);
    EXPECT_EQ(value(single, 0), 0.0);
}

TEST_F(ParamUndo, RestoresTextsLeavingNoItemBehindAndFoldsTypingIntoItsLastText)
{
    CCountingUndo* u = undo("32");
    CAudioParam* text = storedText("name", "Default");
    auto items = [&] {
        CLockGuard guard(text->lock());
        return text->values().data().count();
    };
    type(u, text, 0, "First");
    type(u, text, 0, "Second");
    const size_t itemsOfSecond = items();
    type(u, text, 2, "Third");
    EXPECT_EQ(text->getString(0, 2).toUtf8(), "Third");
    u->setHistoryPosition(2);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Second");
    {
        CLockGuard guard(text->lock());
        EXPECT_EQ(text->values().elementCount(0), 1);
    }
    // No item of an undone text stays behind.
    EXPECT_EQ(items(), itemsOfSecond);
    u->setHistoryPosition(0);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Default");
    u->setHistoryPosition(3);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Second");
    EXPECT_EQ(text->getString(0, 1).toUtf8(), "Default");
    EXPECT_EQ(text->getString(0, 2).toUtf8(), "Third");

    // Typing is one step that ends with its last text.
    for (const char* typed : {"A", "Ab", "Abc"})
        type(u, text, 0, typed, true, 5);
    EXPECT_EQ(names(u).size(), 5u);
    u->setHistoryPosition(3);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Second");
    u->setHistoryPosition(4);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Abc");
}

TEST_F(ParamUndo, SendsAStepAsOneBatchAndNothingForTheCurrentPosition)
{
    CCountingUndo* u = undo("32");
    CAudioParam* a = stored("a", "0");
    CAudioParam* b = stored("b", "0");
    m_env->setActive(true); // nothing is folded: the queue shows every change sent
    auto entry = action("two");
    write(a, entry.get(), 0, 0, {1.0});
    write(b, entry.get(), 3, 0, {2.0});
    write(b, entry.get(), 4, 0, {3.0});
    u->submit(std::move(entry));
    drain();
    const int before = u->notifications;
    u->setHistoryPosition(1);
    EXPECT_EQ(m_collector->pendingCount(), 0u);
    EXPECT_EQ(u->notifications, before);

    // An undo reaches the audio thread as one batch: one change per record, and nothing
    // before the audio thread takes them.
    u->setHistoryPosition(0);
    EXPECT_EQ(m_collector->pendingCount(), 3u);
    EXPECT_EQ(u->notifications, before + 1);
    EXPECT_EQ(b->audioValues().getElementValue(3, 0, 0, -1), 2.0);
    drain();
    EXPECT_EQ(b->audioValues().getElementValue(3, 0, 0, -1), 0.0);
    EXPECT_EQ(a->audioValues().getElementValue(0, 0, 0, -1), 0.0);
    EXPECT_EQ(a->audioValues().elementCount(0), 1);
}

TEST_F(ParamUndo, ParksAndCopiesHistories)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "0");
    std::unique_ptr<CAudioParamUndoHistory> copy;
    u->copyHistory(copy);
    EXPECT_FALSE(copy); // nothing yet

    edit(u, p, 1.0, "one");
    edit(u, p, 2.0, "two");
    edit(u, p, 3.0, "drag", 0, true, 1);
    u->copyHistory(copy);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->count(), 3);
    EXPECT_EQ(copy->position, 3);
    // Folded into the active history's last entry only: the copy's entries are its own.
    edit(u, p, 4.0, "drag", 0, true, 1);

    // Parking makes the other history active; nothing is applied by the exchange itself.
    std::unique_ptr<CAudioParamUndoHistory> parked;
    const int before = u->notifications;
    u->swapHistories(parked, copy);
    EXPECT_EQ(u->notifications, before + 1);
    EXPECT_FALSE(copy);
    ASSERT_TRUE(parked);
    EXPECT_EQ(value(p), 4.0);
    u->setHistoryPosition(2);
    EXPECT_EQ(value(p), 2.0);
    u->setHistoryPosition(3);
    EXPECT_EQ(value(p), 3.0); // the drag as it was when copied
    u->setHistoryPosition(1);

    // An empty slot gives an empty history; one slot given twice is an exchange.
    std::unique_ptr<CAudioParamUndoHistory> empty;
    std::unique_ptr<CAudioParamUndoHistory> second;
    u->swapHistories(second, empty);
    EXPECT_EQ(names(u).size(), 1u);
    u->swapHistories(parked, parked);
    EXPECT_FALSE(parked); // the active one was empty
    u->setHistoryPosition(2);
    EXPECT_EQ(value(p), 2.0);
    u->setHistoryPosition(3);
    EXPECT_EQ(value(p), 4.0); // the parked history kept its fold
    u->swapHistories(second, second);
    int32_t position = -1;
    EXPECT_EQ(names(u, &position).size(), 4u);
    EXPECT_EQ(position, 1);
}

TEST_F(ParamUndo, RecordsNothingFromRecordsOfAnotherFormat)
{
    CAudioParam* p = stored("a", "0");
    CAudioParam* text = storedText("t", "x");
    CAudioParamUndoData entry(CString("e"));
    {
        CLockGuard guard(p->lock());
        CAudioParamUndo::closeRecord(entry, CString("a"), 0, p->values(), false); // nothing open
        EXPECT_EQ(entry.recordCount(), 0);
        CAudioParamUndo::openRecord(entry, CString("a"), 0, p->values(), true);
    }
    {
        CLockGuard guard(text->lock());
        CAudioParamUndo::closeRecord(entry, CString("a"), 0, text->values(), false);
    }
    const CAudioParamUndoRecord& record = entry.params().begin()->second.front();
    EXPECT_EQ(record.oldCount, 0); // opened as an empty list
    EXPECT_EQ(record.newCount, 0);
    EXPECT_EQ(record.dataType, uint32_t(CAudioParamStorage::Float));
}

// 50 random edits of list lengths, elements, groups and texts, walked back and forth: each
// position shows exactly the state the test noted when it was reached, in the values and,
// once the audio thread has taken the queue, in the audio side's copy; and the history
// tells of every change of its list or position, and of nothing else.
class ParamUndoWalk : public ParamUndo, public ::testing::WithParamInterface<bool>
{
};

TEST_P(ParamUndoWalk, ReturnsToEveryEarlierStateBitForBit)
{
    CCountingUndo* u = undo("8");
    CAudioParam* list = stored("list", "1,2,3");
    CAudioParam* wide = param(CString("wide"), {{"element-size", "2"}, {"converter", "real"}, {"converter2", "real"},
                                                {"min-values", "-1000 -1000"}, {"max-values", "1000 1000"},
                                                {"def-values", "1 2,3 4"}, {"is-storable", "true"}});
    CAudioParam* single = stored("single", "5", true);
    CAudioParam* text = storedText("text", "Default");
    const std::vector<CAudioParam*> all = {list, wide, single, text};
    m_env->setActive(GetParam());

    using Snapshot = std::vector<ParamState>;
    std::deque<Snapshot> states; // states[k]: the state at position k
    auto snapshot = [&](bool audioSide) {
        Snapshot s;
        for (CAudioParam* p : all) {
            CLockGuard guard(p->lock());
            s.push_back(stateOf(audioSide ? p->audioValues() : p->values()));
        }
        return s;
    };
    int32_t at = 0;
    int32_t walks = 0, dropped = 0, folded = 0, cut = 0;
    auto moveTo = [&](int32_t to) {
        const int told = u->notifications;
        u->setHistoryPosition(to);
        drain();
        EXPECT_EQ(u->notifications, told + (to == at ? 0 : 1)) << to;
        at = to;
        return snapshot(false) == states[size_t(to)] && snapshot(true) == states[size_t(to)];
    };

    std::mt19937 random(20240611);
    auto pick = [&](int32_t n) { return int32_t(random() % uint32_t(n)); };
    auto number = [&] { return std::uniform_real_distribution<double>(-1000.0, 1000.0)(random); };

    // Where one write of an action goes; a drag repeats the writes of its first action with
    // new values, as a mouse drag sends many small actions.
    struct Write
    {
        CAudioParam* param;
        int32_t group, first, count;
        bool isListEnd;
    };
    std::vector<Write> drag;

    states.push_back(snapshot(false));
    for (int step = 0; step < 50; ++step) {
        const auto countBefore = int32_t(names(u).size()) - 1;
        const int32_t before = at;
        const bool mergeable = before == countBefore && pick(3) == 0;
        const std::string name = numbered("edit ", step);
        auto entry = action(name, mergeable, 9);
        std::vector<Write> writes;
        if (mergeable && !drag.empty() && pick(4) != 0) {
            writes = drag;
        } else {
            for (int w = 0, n = 1 + pick(3); w < n; ++w)
                writes.push_back({all[size_t(pick(int32_t(all.size())))], pick(8), pick(5), pick(3), pick(3) == 0});
        }
        drag = mergeable ? writes : std::vector<Write>();
        for (const Write& w : writes) {
            if (w.param == text) {
                CAudioParamUpdateContext context;
                context.undo = entry.get();
                text->setString(w.group, w.first, CString("t").append(CString::number(pick(1000))), nullptr, context);
                continue;
            }
            std::vector<double> values;
            for (int32_t i = 0; i < w.count * (w.param == wide ? 2 : 1); ++i)
                values.push_back(number());
            write(w.param, entry.get(), w.group, w.first, values, w.isListEnd);
        }
        const int told = u->notifications;
        u->submit(std::move(entry));
        drain();

        int32_t position = 0;
        const auto listed = names(u, &position);
        if (listed.back() == name) {
            EXPECT_EQ(u->notifications, told + 1) << step;
            cut += before < countBefore ? 1 : 0;
            states.resize(size_t(before) + 1); // the redo tail is gone
            if (position == before) {
                states.pop_front(); // the oldest step went
                ++dropped;
            }
            states.push_back(snapshot(false));
        } else {
            ASSERT_TRUE(mergeable) << step;
            ASSERT_EQ(position, before);
            EXPECT_EQ(u->notifications, told) << step;
            states[size_t(position)] = snapshot(false);
            ++folded;
        }
        ASSERT_EQ(states.size(), listed.size());
        at = position;

        // Now and then a walk through the history, ending where it stands or elsewhere.
        for (int moves = pick(3) == 0 ? 1 + pick(3) : 0; moves > 0; --moves, ++walks) {
            const int32_t to = pick(int32_t(states.size()));
            ASSERT_TRUE(moveTo(to)) << "step " << step << " to " << to;
        }
    }
    // Every position, down and up again.
    const int32_t last = int32_t(states.size()) - 1;
    for (int32_t to = last; to >= 0; --to)
        ASSERT_TRUE(moveTo(to)) << to;
    for (int32_t to = 0; to <= last; ++to)
        ASSERT_TRUE(moveTo(to)) << to;
    EXPECT_GT(walks, 15);
    EXPECT_GT(dropped, 0);
    EXPECT_GT(folded, 0);
    EXPECT_GT(cut, 0);
}

INSTANTIATE_TEST_SUITE_P(AudioStoppedAndRunning, ParamUndoWalk, ::testing::Bool());

} // namespace
} // namespace qel::test
