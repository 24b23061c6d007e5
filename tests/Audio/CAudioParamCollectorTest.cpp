#include "AudioParamTestSupport.h"

#include "Audio/CAudioExtParam.h"
#include "Audio/CAudioExtParamHostBridge.h"
#include "Audio/CAudioParamInfo.h"

#include <algorithm>
#include <thread>

using namespace qel;
using namespace qel::test;

namespace {

using Calls = std::vector<std::pair<int, double>>;

// Records what the host hears, and whether the watched parameter's lock was free then:
// another thread must be able to take it while the host is being called.
struct RecordingBridge : CAudioExtParamHostBridge
{
    void onExtParamChanged(int index, double norm) override
    {
        calls.emplace_back(index, norm);
        bool isFree = false;
        std::thread([&] {
            isFree = watched->lock().try_lock();
            if (isFree)
                watched->lock().unlock();
        }).join();
        calledUnderLock = calledUnderLock || !isFree;
    }
    Calls taken()
    {
        std::sort(calls.begin(), calls.end());
        return std::exchange(calls, {});
    }

    CAudioParam* watched = nullptr;
    Calls calls;
    bool calledUnderLock = false;
};

class CollectorTest : public AudioParamFixture
{
protected:
    CAudioExtParam* ext(const char* paramName, int group, int element)
    {
        const std::string g = CString::number(group).toUtf8(), e = CString::number(element).toUtf8();
        return dynamic_cast<CAudioExtParam*>(make(m_root.get(), "audio:ext-param", nextName().c_str(),
                                                  {{"ext-name", "x"}, {"param-collector", "params"}, {"param-name", paramName},
                                                   {"group", g.c_str()}, {"element-index", e.c_str()}}));
    }

    static std::vector<double> list(const CAudioParamStorage& s, int32_t group)
    {
        std::vector<double> out;
        for (int32_t i = 0; i < s.elementCount(group) * s.elementSize(); ++i)
            out.push_back(s.getValue(group, i, -1));
        return out;
    }

    const Attrs m_text = {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"}, {"def-values", "a"}};
};

TEST_F(CollectorTest, ParameterBeforeAndAfterItsDefinition)
{
    m_collector->addAlias(CString("old"), CString("p"));
    CAudioParam* p = m_collector->getParam(CString("p"));
    EXPECT_EQ(m_collector->getParam(CString("old")), p);
    EXPECT_TRUE(m_collector->isAliased(CString("old")));
    EXPECT_EQ(p->info(), nullptr);
    p->setValue(5, 0, nullptr);
    p->setElementValue(5, 0, 1, nullptr);
    EXPECT_FALSE(p->values().isFormatSet());
    EXPECT_EQ(p->values().getValue(0, 0, -1), -1.0);
    EXPECT_EQ(m_collector->pendingCount(), 0u);

    const CAudioParamInfo* info = def(realParam("2,1,3;4"));
    CAudioParamUpdateContext context;
    p->attachDefinition(info, context);
    EXPECT_EQ(p->info(), info);
    for (const CAudioParamStorage* s : {&p->values(), &p->defaults(), &p->audioValues()}) {
        EXPECT_EQ(list(*s, 0), (std::vector<double>{2, 1, 3}));
        EXPECT_EQ(list(*s, 1), std::vector<double>{4});
        EXPECT_EQ(s->getValue(3, 5, -1), 2.0);
    }
    EXPECT_EQ(m_collector->pendingCount(), 0u); // audio stopped: the copy took them at once
}

TEST_F(CollectorTest, SingleGroupAndSingleElementOnEveryPath)
{
    Attrs attrs = realParam("40");
    attrs.emplace_back("is-single-element", "true");
    CAudioParam* one = param(CString("one"), attrs);
    CAudioExtParam* third = ext("one", 0, 2);
    EXPECT_DOUBLE_EQ(third->getNormalized(), 0.4);
    third->setNormalized(0.7);
    drain();
    for (const CAudioParamStorage* s : {&one->values(), &one->audioValues()}) {
        EXPECT_EQ(s->elementCount(0), 1);
        EXPECT_DOUBLE_EQ(s->getElementValue(0, 2, 0, -1), 70.0);
        EXPECT_DOUBLE_EQ(s->getValue(0, 7, -1), 70.0);
    }
    EXPECT_DOUBLE_EQ(third->getNormalized(), 0.7);

    attrs = m_text;
    attrs.insert(attrs.end(), {{"is-single-group", "true"}, {"is-single-element", "true"}});
    CAudioParam* text = param(CString("text"), attrs);
    CAudioParamUpdateContext context;
    text->setString(3, 4, CString("z"), nullptr, context);
    EXPECT_EQ(text->values().groupCount(), 1);
    for (int32_t g : {0, 3, 6})
        EXPECT_EQ(text->getString(g, 5).toUtf8(), "z");
}

TEST_F(CollectorTest, HostHearsOtherWritersOnlyAndOutsideEveryLock)
{
    CAudioParam* p = param(CString("level"), realParam("50"));
    RecordingBridge bridge;
    bridge.watched = p;
    CAudioExtParam* exts[] = {ext("level", 0, 0), ext("level", 0, 0), ext("level", 0, 1)};
    for (int i = 0; i < 3; ++i)
        exts[i]->setHostBridge(&bridge, i);

    exts[0]->setNormalized(0.25); // no echo to the writer; element 1 is not touched
    EXPECT_EQ(bridge.taken(), (Calls{{1, 0.25}}));
    p->setValue(75, 0, nullptr); // a list end: element 1 now reads its default
    EXPECT_EQ(bridge.taken(), (Calls{{0, 0.75}, {1, 0.75}, {2, 0.5}}));
    p->setValue(75, 0, nullptr);
    EXPECT_EQ(bridge.taken(), Calls{}); // no position moved
    {
        CAudioParamLock hold(*p);
        exts[1]->setNormalized(0.1);
        EXPECT_EQ(bridge.calls, Calls{});
    }
    EXPECT_EQ(bridge.taken(), (Calls{{0, 0.1}}));
    EXPECT_FALSE(bridge.calledUnderLock);
}

TEST_F(CollectorTest, QueueFoldsWhileAudioIsStopped)
{
    CAudioParam* p = param(CString("fold"), realParam("0", "0", "5000"));
    CAudioParam* q = param(CString("other"), realParam("0", "0", "5000"));
    CAudioParam* text = param(CString("text"), m_text);
    // A batch is folded too, even into an empty queue; a string change in it stays here.
    CAudioParamQueuedChange* batch = nullptr;
    CAudioParamUpdateContext batched;
    batched.batchTail = &batch;
    for (double v = 1; v <= 500; ++v) {
        CAudioParamChange c = p->values().makeChange(0, 0, 1, false);
        c.values = &v;
        p->change(c, batched);
    }
    text->setString(0, 0, CString("s"), nullptr, batched);
    m_collector->postChanges(batch);
    for (int i = 501; i <= 1000; ++i)
        p->setElementValue(i, 0, 0, nullptr);
    EXPECT_EQ(m_collector->pendingCount(), 1u);
    EXPECT_EQ(text->audioValues().data().getString(uint32_t(text->audioValues().getValue(0, 0, 0))).toUtf8(), "s");

    CAudioParamChange defaults = p->defaults().makeChange(0, 0, 1, true);
    defaults.group = kParamDefaultsGroup;
    CAudioParamUpdateContext context;
    p->change(defaults, context);
    p->setValue(7, 0, nullptr); // not folded over the defaults
    p->setValue(8, 0, nullptr);
    q->setValue(9, 0, nullptr);
    EXPECT_EQ(m_collector->pendingCount(), 4u);
    CAudioParamQueuedChange* taken = m_collector->takePendingChanges();
    EXPECT_EQ(taken->change().values[0], 1000.0);
    CAudioParamCollector::applyPendingChanges(taken);
    CAudioParamQueuedChange::freeList(taken);
    EXPECT_EQ(list(p->audioValues(), 0), std::vector<double>{8});
    EXPECT_EQ(list(q->audioValues(), 0), std::vector<double>{9});

    m_env->setActive(true); // now every change is queued as it comes
    for (int i = 1; i <= 3; ++i)
        p->setValue(i, 0, nullptr);
    EXPECT_EQ(m_collector->pendingCount(), 3u);
    EXPECT_EQ(list(p->audioValues(), 0), std::vector<double>{8});
    drain();
    EXPECT_EQ(list(p->audioValues(), 0), std::vector<double>{3});
}

TEST_F(CollectorTest, WriteBehindTheListFillsTheGapWithDefaults)
{
    CAudioParam* p = param(CString("gap"), realParam("5"));
    ext("gap", 0, 2)->setNormalized(0.3);
    drain();
    m_env->setActive(true);
    ext("gap", 1, 2)->setNormalized(0.4); // group 1 has no list of its own yet
    drain();
    for (const CAudioParamStorage* s : {&p->values(), &p->audioValues()}) {
        EXPECT_EQ(list(*s, 0), (std::vector<double>{5, 5, 30}));
        EXPECT_EQ(list(*s, 1), (std::vector<double>{5, 5, 40}));
    }
}

TEST_F(CollectorTest, ListenersMatchAndFlag)
{
    uint8_t flag = 9;
    uint32_t mask = 9;
    CAudioParam* bare = m_collector->getParam(CString("bare"));
    bare->removeListener(bare->addListener(&flag, &mask, -1, -1));
    EXPECT_EQ(flag + mask, 0u);

    CAudioParam* plain = param(CString("plain"), realParam("1,2,3"));
    Attrs attrs = realParam("1");
    attrs.insert(attrs.end(), {{"is-single-group", "true"}, {"is-single-element", "true"}});
    CAudioParam* single = param(CString("single"), attrs);
    const struct
    {
        CAudioParam* param;
        int32_t group, element;           // the claim
        int32_t changeGroup, first, count; // the change
        bool isListEnd;
        uint32_t mask; // 0: no match
    } cases[] = {
        {plain, -1, -1, 2, 0, 1, false, 1u << 2}, {plain, 2, -1, 2, 0, 1, false, 1u << 2},
        {plain, 1, -1, 2, 0, 1, false, 0},        {plain, 2, 1, 2, 0, 1, false, 0},
        {plain, 2, 1, 2, 1, 1, false, 1u << 2},   {plain, 2, 1, 2, 0, 1, true, 1u << 2},
        {plain, 2, 0, 2, 1, 0, true, 0},          {plain, 3, 5, kParamDefaultsGroup, 0, 3, true, ~0u},
        {single, 3, 4, 0, 0, 1, false, 1u},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.group << "/" << c.element << " <- " << c.changeGroup << "/" << c.first);
        CAudioParamListener* node = c.param->addListener(&flag, &mask, c.group, c.element);
        flag = 0;
        mask = 0;
        const std::vector<double> values(size_t(c.count), 1.0);
        CAudioParamChange change = c.param->audioValues().makeChange(c.changeGroup, c.first, c.count, c.isListEnd);
        change.values = values.data();
        c.param->applyToAudio(change);
        EXPECT_EQ(flag, c.mask ? 1 : 0);
        EXPECT_EQ(mask, c.mask);
        c.param->removeListener(node);
    }
    plain->addListener(&flag, &mask, -1, -1); // still claimed when the collector goes
    plain->setValue(1, 1, nullptr);
    plain->setValue(1, 2, nullptr);
    drain();
    EXPECT_EQ(mask, 1u << 2); // the last change's group, not both
}

} // namespace
