// The undo history: recording on the path of a change, limits, merging of drags, the redo
// tail, string parameters, parked and copied histories, and a long random walk through
// the history checked against states noted by the test after every edit, on both the
// values and the audio thread's copy.

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
    CAudioParam* stored(const char* name, const char* defValues, bool singleGroup = false)
    {
        Attrs attrs = realParam(defValues, "-1000", "1000");
        attrs.push_back({"is-storable", "true"});
        if (singleGroup)
            attrs.push_back({"is-single-group", "true"});
        return param(CString(name), attrs);
    }

    // Writes `values` from `first` on, into the entry.
    static void write(CAudioParam* p, CAudioParamUndoData* entry, int32_t group, int32_t first,
                      std::vector<double> values, bool isListEnd = false)
    {
        CAudioParamChange c;
        {
            CLockGuard guard(p->lock());
            c = p->values().makeChange(group, first, int32_t(values.size()), isListEnd);
        }
        c.values = values.data();
        CAudioParamUpdateContext context;
        context.undo = entry;
        p->change(c, context);
    }

    static std::unique_ptr<CAudioParamUndoData> action(const char* name, bool mergeable = false, int32_t tag = -1)
    {
        return std::make_unique<CAudioParamUndoData>(CString(name), mergeable, tag);
    }

    // One action setting element 0 of the group to `value`.
    void edit(CAudioParamUndo* u, CAudioParam* p, double value, const char* name = "edit", int32_t group = 0,
              bool mergeable = false, int32_t tag = -1)
    {
        auto entry = action(name, mergeable, tag);
        write(p, entry.get(), group, 0, {value});
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

TEST_F(ParamUndo, KeepsTheNewestActionsUpToItsLimit)
{
    CCountingUndo* u = undo("32");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->maxEntries(), 32);
    CAudioParam* p = stored("a", "0");
    for (int i = 1; i <= 33; ++i)
        edit(u, p, i, CString("step ").append(CString::number(i)).toUtf8().c_str());
    int32_t position = -1;
    const auto list = names(u, &position);
    ASSERT_EQ(list.size(), 33u);
    EXPECT_EQ(list[0], "Undo history start");
    EXPECT_EQ(list[1], "step 2"); // the first action went
    EXPECT_EQ(list[32], "step 33");
    EXPECT_EQ(position, 32);
    EXPECT_EQ(u->notifications, 33);

    // All the way back ends at the state before step 2, not before step 1.
    u->setHistoryPosition(0);
    EXPECT_EQ(value(p), 1.0);
    u->setHistoryPosition(32);
    EXPECT_EQ(value(p), 33.0);
}

TEST_F(ParamUndo, TakesSmallLimitsAsFour)
{
    const std::vector<std::pair<const char*, int32_t>> cases = {{"3", 4}, {"4", 4}, {"5", 5}, {"0", 4}, {"-7", 4},
                                                                 {nullptr, 4}, {"100", 100}};
    CAudioParam* p = stored("a", "0");
    for (const auto& [text, limit] : cases) {
        CCountingUndo* u = undo(text);
        ASSERT_TRUE(u);
        EXPECT_EQ(u->maxEntries(), limit) << (text ? text : "(none)");
        for (int i = 0; i < 10; ++i)
            edit(u, p, i);
        EXPECT_EQ(names(u).size(), size_t(std::min(limit, 10) + 1)) << (text ? text : "(none)");
    }
}

TEST_F(ParamUndo, RefusesAMissingCollector)
{
    EXPECT_NE(initError("audio:interface-base", {{"undo-count-max", "32"}, {"param-collector", "nowhere"}}), "");
    EXPECT_NE(initError("audio:interface-base", {{"undo-count-max", "32"}}), "");
    EXPECT_EQ(initError("audio:interface-base", {{"undo-count-max", "32"}, {"param-collector", "params"}}), "");
}

TEST_F(ParamUndo, HasAnEmptyListBeforeTheFirstAction)
{
    CCountingUndo* u = undo("32");
    int32_t position = -1;
    EXPECT_EQ(names(u, &position), std::vector<std::string>{"Undo history start"});
    EXPECT_EQ(position, 0);
    // Without a history a position is no request.
    u->setHistoryPosition(0);
    u->setHistoryPosition(1);
    EXPECT_EQ(u->notifications, 0);
}

TEST_F(ParamUndo, UndoesAndRedoesStepByStep)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "7");
    edit(u, p, 1.0, "one");
    edit(u, p, 2.0, "two");
    edit(u, p, 3.0, "three");

    u->setHistoryPosition(1);
    EXPECT_EQ(value(p), 1.0);
    int32_t position = -1;
    EXPECT_EQ(names(u, &position).size(), 4u);
    EXPECT_EQ(position, 1);
    u->setHistoryPosition(0);
    EXPECT_EQ(value(p), 7.0);
    u->setHistoryPosition(3);
    EXPECT_EQ(value(p), 3.0);
    u->setHistoryPosition(2);
    EXPECT_EQ(value(p), 2.0);

    // Out of range is no request.
    const int before = u->notifications;
    u->setHistoryPosition(-1);
    u->setHistoryPosition(4);
    EXPECT_EQ(u->notifications, before);
    EXPECT_EQ(value(p), 2.0);
}

TEST_F(ParamUndo, ANewActionCutsTheRedoTail)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "0");
    edit(u, p, 1.0, "one");
    edit(u, p, 2.0, "two");
    edit(u, p, 3.0, "three");
    u->setHistoryPosition(1);
    edit(u, p, 9.0, "nine");
    int32_t position = -1;
    EXPECT_EQ(names(u, &position), (std::vector<std::string>{"Undo history start", "one", "nine"}));
    EXPECT_EQ(position, 2);
    u->setHistoryPosition(1);
    EXPECT_EQ(value(p), 1.0);
    u->setHistoryPosition(2);
    EXPECT_EQ(value(p), 9.0);
}

TEST_F(ParamUndo, FoldsADragIntoOneStep)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "0");
    edit(u, p, 5.0, "set");
    edit(u, p, 6.0, "drag", 0, true, 3);
    const int afterFirst = u->notifications;
    edit(u, p, 7.0, "drag", 0, true, 3);
    edit(u, p, 8.0, "drag", 0, true, 3);
    EXPECT_EQ(names(u).size(), 3u);
    EXPECT_EQ(u->notifications, afterFirst); // a fold tells nobody

    u->setHistoryPosition(1);
    EXPECT_EQ(value(p), 5.0); // before the first part of the drag
    u->setHistoryPosition(2);
    EXPECT_EQ(value(p), 8.0); // after the last
}

TEST_F(ParamUndo, StartsANewStepWhereADragCannotFold)
{
    CCountingUndo* u = undo("32");
    CAudioParam* a = stored("a", "0");
    CAudioParam* b = stored("b", "0");
    edit(u, a, 1.0, "drag a", 0, true, 3);
    edit(u, b, 2.0, "drag b", 0, true, 3); // another parameter
    EXPECT_EQ(names(u).size(), 3u);
    edit(u, b, 3.0, "drag b", 1, true, 3); // another group
    EXPECT_EQ(names(u).size(), 4u);
    edit(u, b, 4.0, "drag b", 1, true, 4); // another tag
    EXPECT_EQ(names(u).size(), 5u);
    edit(u, b, 5.0, "set b", 1); // not mergeable itself
    EXPECT_EQ(names(u).size(), 6u);
    edit(u, b, 6.0, "drag b", 1, true, 4); // the last one is not mergeable
    EXPECT_EQ(names(u).size(), 7u);

    // A different element count after the change is another kind of step too.
    auto longer = action("drag b", true, 4);
    write(b, longer.get(), 1, 0, {7.0, 7.5}, true);
    u->submit(std::move(longer));
    EXPECT_EQ(names(u).size(), 8u);

    // An action on two parameters does not fold into one on a single parameter.
    auto both = action("drag b", true, 4);
    write(b, both.get(), 1, 0, {8.0, 8.5}, true);
    write(a, both.get(), 0, 0, {8.0});
    u->submit(std::move(both));
    EXPECT_EQ(names(u).size(), 9u);
}

TEST_F(ParamUndo, DropsAnActionWithoutRecords)
{
    CCountingUndo* u = undo("32");
    CAudioParam* p = stored("a", "0");
    CAudioParam* passing = param(CString("passing"), realParam("0")); // neither storable nor persistent
    edit(u, p, 1.0);
    const int before = u->notifications;
    edit(u, passing, 4.0);
    u->submit(action("empty"));
    u->submit(nullptr);
    int32_t position = -1;
    EXPECT_EQ(names(u, &position).size(), 2u);
    EXPECT_EQ(position, 1);
    EXPECT_EQ(u->notifications, before);
    EXPECT_EQ(value(passing), 4.0); // written all the same
}

TEST_F(ParamUndo, RecordsPersistentParametersAndNeverTheDefaults)
{
    CCountingUndo* u = undo("32");
    Attrs attrs = realParam("3");
    attrs.push_back({"is-persistent", "true"});
    CAudioParam* p = param(CString("kept"), attrs);
    edit(u, p, 1.0);
    EXPECT_EQ(names(u).size(), 2u);

    auto defaults = action("defaults");
    std::vector<double> values = {9.0};
    CAudioParamChange c;
    {
        CLockGuard guard(p->lock());
        c = p->values().makeChange(0, 0, 1, true);
    }
    c.group = kParamDefaultsGroup;
    c.values = values.data();
    CAudioParamUpdateContext context;
    context.undo = defaults.get();
    p->change(c, context);
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

TEST_F(ParamUndo, RestoresTheTextOfAStringParameter)
{
    CCountingUndo* u = undo("32");
    CAudioParam* text = param(CString("name"), {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"},
                                                {"is-storable", "true"}, {"def-values", "Default"}});
    auto rename = [&](const char* to, int32_t element) {
        auto entry = action("rename");
        CAudioParamUpdateContext context;
        context.undo = entry.get();
        text->setString(0, element, CString(to), nullptr, context);
        u->submit(std::move(entry));
    };
    auto items = [&] {
        CLockGuard guard(text->lock());
        return text->values().data().count();
    };
    rename("First", 0);
    rename("Second", 0);
    const size_t itemsOfSecond = items();
    rename("Third", 2);
    EXPECT_EQ(text->getString(0, 2).toUtf8(), "Third");
    u->setHistoryPosition(2);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Second");
    {
        CLockGuard guard(text->lock());
        EXPECT_EQ(text->values().elementCount(0), 1);
    }
    // No item of an undone text stays behind.
    EXPECT_EQ(items(), itemsOfSecond);
    u->setHistoryPosition(1);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "First");
    u->setHistoryPosition(0);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Default");
    u->setHistoryPosition(3);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Second");
    EXPECT_EQ(text->getString(0, 1).toUtf8(), "Default");
    EXPECT_EQ(text->getString(0, 2).toUtf8(), "Third");
}

TEST_F(ParamUndo, FoldsTypingIntoOneStepWithItsLastText)
{
    CCountingUndo* u = undo("32");
    CAudioParam* text = param(CString("name"), {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"},
                                                {"is-storable", "true"}, {"def-values", "Default"}});
    for (const char* typed : {"A", "Ab", "Abc"}) {
        auto entry = action("typing", true, 5);
        CAudioParamUpdateContext context;
        context.undo = entry.get();
        text->setString(0, 0, CString(typed), nullptr, context);
        u->submit(std::move(entry));
    }
    EXPECT_EQ(names(u).size(), 2u);
    u->setHistoryPosition(0);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Default");
    u->setHistoryPosition(1);
    EXPECT_EQ(text->getString(0, 0).toUtf8(), "Abc");
}

TEST_F(ParamUndo, SendsNothingForTheCurrentPosition)
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
    CAudioParam* text = param(CString("t"), {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"},
                                             {"is-storable", "true"}, {"def-values", "x"}});
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
// once the audio thread has taken the queue, in the audio side's copy.
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
    CAudioParam* text = param(CString("text"), {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"},
                                                {"is-storable", "true"}, {"def-values", "Default"}});
    const std::vector<CAudioParam*> all = {list, wide, single, text};
    m_env->setActive(GetParam());

    using Snapshot = std::vector<ParamState>;
    auto now = [&] {
        Snapshot s;
        for (CAudioParam* p : all) {
            CLockGuard guard(p->lock());
            s.push_back(stateOf(p->values()));
        }
        return s;
    };
    auto audioSide = [&] {
        Snapshot s;
        for (CAudioParam* p : all)
            s.push_back(stateOf(p->audioValues()));
        return s;
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

    std::deque<Snapshot> states = {now()}; // states[k]: the state at position k
    int32_t walks = 0, dropped = 0, folded = 0;
    for (int step = 0; step < 50; ++step) {
        int32_t position = 0;
        const size_t countBefore = names(u, &position).size() - 1;
        const int32_t before = position;
        const bool mergeable = before == int32_t(countBefore) && pick(3) == 0;
        const std::string name = CString("edit ").append(CString::number(step)).toUtf8();
        auto entry = action(name.c_str(), mergeable, 9);
        std::vector<Write> writes;
        if (mergeable && !drag.empty() && pick(4) != 0) {
            writes = drag;
        } else {
            for (int w = 0, n = 1 + pick(3); w < n; ++w)
                writes.push_back({all[size_t(pick(int32_t(all.size())))], pick(8), pick(5), pick(3), pick(3) == 0});
        }
        drag = mergeable ? writes : std::vector<Write>();
        for (const Write& w : writes) {
            CAudioParamUpdateContext context;
            context.undo = entry.get();
            if (w.param == text) {
                text->setString(w.group, w.first, CString("t").append(CString::number(pick(1000))), nullptr, context);
                continue;
            }
            const int32_t size = w.param == wide ? 2 : 1;
            std::vector<double> values;
            for (int32_t i = 0; i < w.count * size; ++i)
                values.push_back(number());
            CAudioParamChange c;
            {
                CLockGuard guard(w.param->lock());
                c = w.param->values().makeChange(w.group, w.first, w.count, w.isListEnd);
            }
            c.values = values.data();
            w.param->change(c, context);
        }
        u->submit(std::move(entry));
        drain();

        const auto listed = names(u, &position);
        if (listed.back() == name) {
            states.resize(size_t(before) + 1); // the redo tail is gone
            if (position == before) {
                states.pop_front(); // the oldest step went
                ++dropped;
            }
            states.push_back(now());
        } else {
            ASSERT_TRUE(mergeable) << step;
            ASSERT_EQ(position, before);
            states[size_t(position)] = now();
            ++folded;
        }
        ASSERT_EQ(states.size(), listed.size());

        // Now and then a walk through the history, ending where it stands or elsewhere.
        for (int moves = pick(3) == 0 ? 1 + pick(3) : 0; moves > 0; --moves) {
            const int32_t to = pick(int32_t(states.size()));
            u->setHistoryPosition(to);
            drain();
            ++walks;
            ASSERT_TRUE(now() == states[size_t(to)]) << "step " << step << " to " << to;
            ASSERT_TRUE(audioSide() == states[size_t(to)]) << "step " << step << " to " << to;
        }
    }
    // Every position, down and up again.
    const int32_t last = int32_t(states.size()) - 1;
    for (int32_t to = last; to >= 0; --to) {
        u->setHistoryPosition(to);
        drain();
        ASSERT_TRUE(now() == states[size_t(to)]) << to;
        ASSERT_TRUE(audioSide() == states[size_t(to)]) << to;
    }
    for (int32_t to = 0; to <= last; ++to) {
        u->setHistoryPosition(to);
        drain();
        ASSERT_TRUE(now() == states[size_t(to)]) << to;
        ASSERT_TRUE(audioSide() == states[size_t(to)]) << to;
    }
    EXPECT_GT(walks, 15);
    EXPECT_GT(dropped, 0);
    EXPECT_GT(folded, 0);
}

INSTANTIATE_TEST_SUITE_P(AudioStoppedAndRunning, ParamUndoWalk, ::testing::Bool());

} // namespace
} // namespace qel::test
