#include "Core/CUpdateNotifier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using qel::CUpdateListener;
using qel::CUpdateMessage;
using qel::CUpdateNotifier;

namespace {

struct Counter : CUpdateListener
{
    ~Counter() override { setNotifier(nullptr, 0); }
    void onUpdate(const CUpdateMessage* message) override
    {
        ++count;
        lastSource = message ? message->source : 0;
        if (onHeard)
            onHeard(this);
    }
    std::atomic<int> count{0};
    uint64_t lastSource = 0;
    void (*onHeard)(Counter*) = nullptr;
};

} // namespace

TEST(CUpdateNotifier, KeysSelectListeners)
{
    CUpdateNotifier notifier;
    Counter a, b, zero;
    a.setNotifier(&notifier, 1);
    b.setNotifier(&notifier, 2);
    zero.setNotifier(&notifier, 0);
    const CUpdateMessage one{77, 1};
    notifier.notify(&one);
    notifier.notify(nullptr); // key 0
    EXPECT_EQ(a.count, 1);
    EXPECT_EQ(a.lastSource, 77u);
    EXPECT_EQ(b.count, 0);
    EXPECT_EQ(zero.count, 1);

    // Moving to another key leaves the first.
    a.setNotifier(&notifier, 2);
    const CUpdateMessage two{0, 2};
    notifier.notify(&one);
    notifier.notify(&two);
    EXPECT_EQ(a.count, 2);
    EXPECT_EQ(b.count, 1);
    EXPECT_EQ(notifier.listenerCount(1), 0u);
    EXPECT_EQ(notifier.listenerCount(2), 2u);
    a.setNotifier(nullptr, 0);
    EXPECT_EQ(notifier.listenerCount(2), 1u);
}

TEST(CUpdateNotifier, EitherSideMayGoFirst)
{
    auto notifier = std::make_unique<CUpdateNotifier>();
    auto listener = std::make_unique<Counter>();
    listener->setNotifier(notifier.get(), 5);
    notifier.reset();          // the notifier first...
    listener->setNotifier(nullptr, 0);
    listener.reset();          // ...then the listener, without touching freed memory

    notifier = std::make_unique<CUpdateNotifier>();
    listener = std::make_unique<Counter>();
    listener->setNotifier(notifier.get(), 5);
    listener.reset();          // the listener first
    const CUpdateMessage m{0, 5};
    notifier->notify(&m);
    EXPECT_EQ(notifier->listenerCount(5), 0u);

    // A listener that dies inside a notification, and one that destroys the notifier.
    Counter* doomed = new Counter;
    Counter survivor;
    doomed->setNotifier(notifier.get(), 5);
    survivor.setNotifier(notifier.get(), 5);
    doomed->onHeard = [](Counter* self) { delete self; };
    notifier->notify(&m);
    EXPECT_EQ(survivor.count, 1);
    EXPECT_EQ(notifier->listenerCount(5), 1u);
    static CUpdateNotifier* s_toDestroy = nullptr;
    s_toDestroy = notifier.release();
    survivor.onHeard = [](Counter*) { delete s_toDestroy; };
    s_toDestroy->notify(&m);
    EXPECT_EQ(survivor.count, 2);
}

TEST(CUpdateNotifier, DestructionRacesInBothOrdersFromTwoThreads)
{
    // Each round, one thread destroys the notifier while another detaches or destroys a
    // listener, with a third notifying; the sanitizers catch any touch of freed memory
    // and the test catches a deadlock by not finishing.
    for (int round = 0; round < 300; ++round) {
        auto* notifier = new CUpdateNotifier;
        std::vector<std::unique_ptr<Counter>> listeners;
        for (int i = 0; i < 8; ++i) {
            listeners.push_back(std::make_unique<Counter>());
            listeners.back()->setNotifier(notifier, i % 2);
        }
        std::atomic<bool> go{false};
        std::atomic<bool> notifierGone{false};
        std::thread notifying([&] {
            while (!go) {
            }
            const CUpdateMessage m{0, 1};
            for (int i = 0; i < 20 && !notifierGone; ++i)
                notifier->notify(&m); // stops before the notifier is destroyed
        });
        std::thread detaching([&] {
            while (!go) {
            }
            for (size_t i = 0; i < listeners.size(); i += 2)
                listeners[i]->setNotifier(nullptr, 0);
            for (size_t i = 1; i < listeners.size(); i += 2)
                listeners[i].reset();
        });
        go = true;
        notifying.join();
        if (round % 2) {
            notifierGone = true;
            delete notifier;
            detaching.join();
        } else {
            detaching.join();
            notifierGone = true;
            delete notifier;
        }
    }
}
