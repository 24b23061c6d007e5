#include "SharedRootFixture.h"

#include "Core/CEvent.h"
#include "Core/CStdEventBridge.h"
#include "Core/CThreadId.h"
#include "Core/CTimerQueue.h"
#include "Core/CTimerQueued.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

using namespace qel;
using qel::test::SharedRootFixture;

namespace {

// Only a hang comes near it.
constexpr double kPatience = 30.0;
constexpr int64_t kSecond = 1000000000;

std::atomic<int64_t> g_now{0};
int64_t fakeNow() { return g_now.load(); }

// A core:timer on a clock the test moves; its firings can also be made by hand.
class CFakeClockTimer : public CTimerQueued
{
public:
    CFakeClockTimer() { setCounterSource(&fakeNow); }
    static void initClassInfo(CClassInfo& info) { CTimerQueued::initClassInfo(info); }
    using CTimerQueued::onQueueTimer;
};

int g_ticks = 0;
uint32_t g_tickThread = 0;
int64_t g_handlerCost = 0; // what each tick handler takes on the fake clock

class CTickListener : public CObject
{
public:
    static void initClassInfo(CClassInfo& info)
    {
        CObject::initClassInfo(info);
        info.addEvent<CTickListener, &CTickListener::onTick>(CString("on-tick"));
    }
    CErrorPtr onTick()
    {
        ++g_ticks;
        g_tickThread = currentThreadId();
        g_now += g_handlerCost;
        return nullptr;
    }
};

const CCreatorRow kRows[] = {creatorRow<CFakeClockTimer>("test:fake-clock-timer"),
                             creatorRow<CTickListener>("test:tick-listener"),
                             {nullptr, nullptr, nullptr}};

class CTimerQueuedTest : public SharedRootFixture
{
protected:
    const CCreatorRow* testCreators() const override { return kRows; }

    void SetUp() override
    {
        SharedRootFixture::SetUp();
        g_ticks = 0;
        g_handlerCost = 0;
        g_now = 1000 * kSecond;
        CObject* made = nullptr;
        ASSERT_FALSE(m_root->addChild(made, CString("ui:ui-event-bridge"), CString("ui"), false));
        m_bridge = dynamic_cast<CStdEventBridge*>(made);
        ASSERT_NE(m_bridge, nullptr);
        m_listener = add(m_bridge, "test:tick-listener", "listener");
    }

    template <class T = CTimerQueued>
    T* makeTimer(const char* tag, const char* name)
    {
        T* timer = dynamic_cast<T*>(add(m_bridge, tag, name));
        EXPECT_NE(timer, nullptr);
        if (timer)
            m_listener->listenObject(timer->getFullName(), CString("tick"), CString("on-tick"));
        return timer;
    }

    bool pendingReaches(size_t count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(kPatience);
        while (m_bridge->queue().pendingCount() < count) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return m_bridge->queue().pendingCount() == count;
    }

    CStdEventBridge* m_bridge = nullptr;
    CObject* m_listener = nullptr;
};

class CFakeWindowTimers : public IWindowTimerService
{
public:
    int32_t registerTimer(uint32_t periodMs, CWindowTimerCallback tick, uint64_t& outId) override
    {
        lastPeriodMs = periodMs;
        callback = tick;
        outId = ++lastId;
        live.push_back(outId);
        return 0;
    }
    void unregisterTimer(uint64_t id) override { std::erase(live, id); }

    uint32_t lastPeriodMs = 0;
    uint64_t lastId = 0;
    CWindowTimerCallback callback = nullptr;
    std::vector<uint64_t> live;
};

} // namespace

TEST_F(CTimerQueuedTest, AttributesSetTheIntervalAndRealTicksArrive)
{
    CTimerQueued* timer = makeTimer("core:timer", "timer");
    EXPECT_FALSE(timer->isRunning()); // neither attribute: no timer
    const std::pair<const char*, double> settings[] = {{"fps", 0.0}, {"fps", 5000.0}, {"interval", -1.0}, {"fps", 4.0}};
    const double intervals[] = {1000.0, 0.001, 0.001, 0.25};
    for (int i = 0; i < 4; ++i) {
        ASSERT_FALSE(timer->setAttrReal(CString(settings[i].first), settings[i].second, true));
        EXPECT_EQ(timer->interval(), intervals[i]) << i;
    }
    EXPECT_TRUE(timer->isRunning());
    EXPECT_EQ(CTimerQueue::userCount(), 1);

    // Real ticks come over the bridge, and are fired on the thread that drains it.
    ASSERT_FALSE(timer->setAttrReal(CString("fps"), 200.0, true));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(kPatience);
    while (g_ticks < 3 && std::chrono::steady_clock::now() < deadline) {
        m_bridge->queue().drain();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GE(g_ticks, 3);
    EXPECT_EQ(g_tickThread, currentThreadId());
    deleteObject(timer);
    EXPECT_EQ(CTimerQueue::userCount(), 0);
}

TEST_F(CTimerQueuedTest, TicksInFlightAndSlowHandlersHoldBackPosts)
{
    // A 1000 s period: after its first firing, every firing here is made by hand.
    auto* timer = makeTimer<CFakeClockTimer>("test:fake-clock-timer", "timer");
    ASSERT_FALSE(timer->setAttrReal(CString("fps"), 0.001, true));
    ASSERT_TRUE(pendingReaches(1));

    // Nobody drains: firings post nothing until the tick counts as lost.
    g_now += 19 * kSecond / 10;
    timer->onQueueTimer();
    EXPECT_EQ(m_bridge->queue().pendingCount(), 1u);
    g_now += 2 * kSecond / 10;
    timer->onQueueTimer();
    EXPECT_EQ(m_bridge->queue().pendingCount(), 2u);

    // Setting the interval it has already changes nothing: the tick is still in flight.
    ASSERT_FALSE(timer->setAttrReal(CString("interval"), 1000.0, true));
    timer->onQueueTimer();
    EXPECT_EQ(m_bridge->queue().pendingCount(), 2u);
    m_bridge->queue().drain();
    EXPECT_EQ(g_ticks, 2);

    // Handlers that take 3.5 intervals: the next three firings pass, the fourth posts.
    g_handlerCost = 3500 * kSecond;
    timer->onQueueTimer();
    ASSERT_EQ(m_bridge->queue().drain(), 1);
    g_handlerCost = 0;
    for (int i = 0; i < 3; ++i) {
        timer->onQueueTimer();
        EXPECT_EQ(m_bridge->queue().pendingCount(), 0u) << i;
    }
    timer->onQueueTimer();
    EXPECT_EQ(m_bridge->queue().pendingCount(), 1u);
    m_bridge->queue().drain();

    // A new interval restarts the timer, whose first firing is due at once.
    timer->onQueueTimer();
    ASSERT_EQ(m_bridge->queue().pendingCount(), 1u);
    ASSERT_FALSE(timer->setAttrReal(CString("interval"), 500.0, true));
    EXPECT_TRUE(pendingReaches(2));
}

TEST_F(CTimerQueuedTest, WindowTimersComeFromTheInstalledService)
{
    CTimerQueued* timer = makeTimer("core:timer", "timer");
    ASSERT_FALSE(timer->setAttrBool(CString("is-high-precision"), false, true)); // no interval yet
    CErrorPtr error = timer->setAttrReal(CString("interval"), 0.5, true);
    ASSERT_TRUE(error); // no service
    EXPECT_EQ(error->line(0).toUtf8(), "Timer creation error 38.");

    CFakeWindowTimers service;
    CTimerQueued::setWindowTimerService(&service);
    ASSERT_FALSE(timer->setAttrReal(CString("interval"), 0.0125, true));
    EXPECT_EQ(service.lastPeriodMs, 13u); // 12.5 ms: halves go up
    ASSERT_EQ(service.live, std::vector<uint64_t>{1});
    EXPECT_EQ(CTimerQueue::userCount(), 0);
    service.callback(1); // over the bridge even on the run loop's thread
    service.callback(77); // unknown: ignored
    EXPECT_EQ(g_ticks, 0);
    EXPECT_EQ(m_bridge->queue().drain(), 1);
    EXPECT_EQ(g_ticks, 1);

    // To the timer thread and back.
    ASSERT_FALSE(timer->setAttrBool(CString("is-high-precision"), true, true));
    EXPECT_TRUE(service.live.empty());
    EXPECT_EQ(CTimerQueue::userCount(), 1);
    ASSERT_FALSE(timer->setAttrBool(CString("is-high-precision"), false, true));
    EXPECT_EQ(CTimerQueue::userCount(), 0);
    ASSERT_EQ(service.live, std::vector<uint64_t>{2});

    deleteObject(timer);
    EXPECT_TRUE(service.live.empty());
    m_bridge->queue().drain(); // whatever came before
    service.callback(2); // late, for a deleted timer
    EXPECT_EQ(m_bridge->queue().pendingCount(), 0u);
    CTimerQueued::setWindowTimerService(nullptr);
}

TEST_F(CTimerQueuedTest, DeletingWaitsForTheTimerThreadInsideItsCallback)
{
    // The post wakes the owner's loop; this waker holds the timer thread there.
    struct HoldingWaker : IEventBridgeWaker
    {
        void wake() override
        {
            entered.set();
            release.waitFor(kPatience);
            finished = true;
        }
        CEvent entered, release;
        std::atomic<bool> finished{false};
    };

    for (bool plainDelete : {false, true}) {
        HoldingWaker waker;
        m_bridge->queue().setWaker(&waker);
        CTimerQueued* timer = makeTimer("core:timer", "timer");
        ASSERT_FALSE(timer->setAttrReal(CString("fps"), 0.001, true));
        ASSERT_TRUE(waker.entered.waitFor(kPatience));
        std::thread releaser([&waker] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            waker.release.set();
        });
        if (plainDelete)
            delete timer;
        else
            deleteObject(timer);
        EXPECT_TRUE(waker.finished.load()) << plainDelete;
        releaser.join();
        m_bridge->queue().setWaker(nullptr);
        EXPECT_EQ(m_bridge->queue().drain(), 1); // delivered to nobody
        EXPECT_EQ(g_ticks, 0);
        EXPECT_EQ(CTimerQueue::userCount(), 0);
    }
}
