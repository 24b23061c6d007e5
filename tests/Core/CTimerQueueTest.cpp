#include "Core/CEvent.h"
#include "Core/CTimerQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

using namespace qel;

namespace {

constexpr double kPatience = 30.0; // only a hang comes near it

template <class Condition>
bool eventually(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(kPatience);
    while (!condition() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

struct Counting
{
    std::atomic<int> count{0};
    std::atomic<bool> onTimerThread{true};
    static void callback(void* context)
    {
        Counting* self = static_cast<Counting*>(context);
        self->onTimerThread = self->onTimerThread && CTimerQueue::isTimerThread();
        ++self->count;
    }
};

} // namespace

TEST(CTimerQueue, TheThreadLivesWithItsUsers)
{
    ASSERT_EQ(CTimerQueue::userCount(), 0);
    CQueueTimer* timer = nullptr;
    Counting counting, once;
    EXPECT_EQ(CTimerQueue::createTimer(timer, 0, 1, &Counting::callback, &counting), ESRCH); // no thread

    ASSERT_FALSE(CTimerQueue::addUser());
    ASSERT_FALSE(CTimerQueue::addUser());
    CQueueTimer* oneShot = nullptr;
    ASSERT_EQ(CTimerQueue::createTimer(oneShot, 0, 0, &Counting::callback, &once), 0);
    ASSERT_EQ(CTimerQueue::createTimer(timer, 0, 1, &Counting::callback, &counting), 0);
    EXPECT_TRUE(eventually([&] { return counting.count.load() >= 20; }));
    EXPECT_TRUE(counting.onTimerThread.load());
    EXPECT_EQ(once.count.load(), 1);
    CTimerQueue::deleteTimer(timer);
    CTimerQueue::deleteTimer(oneShot);
    CTimerQueue::removeUser();
    CTimerQueue::removeUser();
    CTimerQueue::removeUser(); // more leaving than joined: nothing
    EXPECT_EQ(CTimerQueue::userCount(), 0);

    // The next first user gets a new thread.
    ASSERT_FALSE(CTimerQueue::addUser());
    Counting again;
    ASSERT_EQ(CTimerQueue::createTimer(timer, 0, 1, &Counting::callback, &again), 0);
    EXPECT_TRUE(eventually([&] { return again.count.load() >= 2; }));
    CTimerQueue::deleteTimer(timer);
    CTimerQueue::removeUser();
}

TEST(CTimerQueue, DeletingWaitsForARunningCallbackUnlessItIsThatCallback)
{
    ASSERT_FALSE(CTimerQueue::addUser());

    // Deleted while its callback is held up: the delete returns after the callback, and
    // the context may go at once.
    struct Blocking
    {
        CEvent entered, release;
        std::atomic<bool> finished{false};
        static void callback(void* context)
        {
            Blocking* self = static_cast<Blocking*>(context);
            self->entered.set();
            self->release.waitFor(kPatience);
            self->finished = true;
        }
    };
    auto* blocking = new Blocking;
    CQueueTimer* timer = nullptr;
    ASSERT_EQ(CTimerQueue::createTimer(timer, 0, 1000, &Blocking::callback, blocking), 0);
    ASSERT_TRUE(blocking->entered.waitFor(kPatience));
    std::thread releaser([blocking] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        blocking->release.set();
    });
    CTimerQueue::deleteTimer(timer);
    EXPECT_TRUE(blocking->finished.load());
    releaser.join();
    delete blocking;

    // A callback that deletes its own timer neither waits for itself nor fires again.
    struct SelfDeleting
    {
        CEvent created;
        CQueueTimer* timer = nullptr;
        std::atomic<int> count{0};
        static void callback(void* context)
        {
            SelfDeleting* self = static_cast<SelfDeleting*>(context);
            self->created.waitFor(kPatience); // until `timer` is stored
            ++self->count;
            CTimerQueue::deleteTimer(self->timer);
        }
    } selfDeleting;
    ASSERT_EQ(CTimerQueue::createTimer(selfDeleting.timer, 0, 1, &SelfDeleting::callback, &selfDeleting), 0);
    selfDeleting.created.set();
    Counting witness; // on the same period, so it passes the other's due times
    CQueueTimer* witnessTimer = nullptr;
    ASSERT_EQ(CTimerQueue::createTimer(witnessTimer, 0, 1, &Counting::callback, &witness), 0);
    EXPECT_TRUE(eventually([&] { return witness.count.load() >= 20; }));
    EXPECT_EQ(selfDeleting.count.load(), 1);
    CTimerQueue::deleteTimer(witnessTimer);

    // Threads making and deleting fast timers whose contexts die right after.
    std::thread threads[4];
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            struct Context
            {
                int fired = 0; // the timer thread's until the delete returns
                static void callback(void* context) { ++static_cast<Context*>(context)->fired; }
            };
            for (int i = 0; i < 200; ++i) {
                auto* context = new Context;
                CQueueTimer* mine = nullptr;
                EXPECT_EQ(CTimerQueue::createTimer(mine, 0, 1, &Context::callback, context), 0);
                for (int spin = 0; spin < i % 7; ++spin)
                    std::this_thread::yield();
                CTimerQueue::deleteTimer(mine);
                context->fired = -1;
                delete context;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    CTimerQueue::removeUser();
    EXPECT_EQ(CTimerQueue::userCount(), 0);
}
