#include "Core/CLog.h"
#include "Core/CThread.h"
#include "Core/CThreadId.h"
#include "Core/CWorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

using namespace qel;

namespace {

constexpr double kPatience = 30.0; // only a hang comes near it

class CProbeThread : public CThread
{
public:
    CProbeThread(const char* name, bool fail) : CThread(CString(name)), m_fail(fail) {}
    ~CProbeThread() override { stop(); }
    CEvent started;
    char seenName[16] = {};

protected:
    CErrorPtr run() override
    {
        pthread_getname_np(pthread_self(), seenName, sizeof seenName);
        started.set();
        if (m_fail)
            return QEL_ERROR(CString(), "@qelstr_Test_run_Fail Probe failed.");
        while (!stopRequested())
            wakeEvent().wait();
        return nullptr;
    }

private:
    bool m_fail;
};

struct LogCapture : ILogSink
{
    LogCapture() : previous(CLog::setSink(this)) {}
    ~LogCapture() override { CLog::setSink(previous); }
    void logText(const char* text, bool) override
    {
        std::lock_guard<std::mutex> guard(lock);
        all += text;
    }
    ILogSink* previous;
    std::mutex lock;
    std::string all;
};

struct Outcome
{
    bool met = false;
    uint32_t ranOn = 0;
};

// A share of parallel work. The shares of a round wait for each other before finishing,
// which only ends if the pool really runs them at the same time.
struct Share : CWorkerThread
{
    Share(std::atomic<int>& arrived, int total, std::atomic<int>* deleted = nullptr, Outcome* outcome = nullptr,
          const char* failure = nullptr)
        : m_arrived(arrived), m_total(total), m_deleted(deleted), m_outcome(outcome), m_failure(failure) {}
    ~Share() override
    {
        if (m_deleted)
            ++*m_deleted;
    }
    CErrorPtr run() override
    {
        ++m_arrived;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(kPatience);
        while (m_arrived.load() < m_total && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        if (m_outcome) // the pool deletes the share: what it saw goes to the test
            *m_outcome = Outcome{m_arrived.load() >= m_total, currentThreadId()};
        if (m_failure)
            return QEL_ERROR(CString(), "@qelstr_Test_run_Fail %1", CString(m_failure));
        return nullptr;
    }

private:
    std::atomic<int>& m_arrived;
    int m_total;
    std::atomic<int>* m_deleted;
    Outcome* m_outcome;
    const char* m_failure;
};

} // namespace

TEST(CThread, EventsThreadsAndFailingBodies)
{
    CEvent event;
    event.set();
    event.set(); // counts once
    EXPECT_TRUE(event.waitFor(0));
    EXPECT_FALSE(event.waitFor(0.01));

    // Each set wakes the other side exactly once.
    CEvent ping, pong;
    constexpr int kRounds = 2000;
    std::thread other([&] {
        for (int i = 0; i < kRounds; ++i) {
            ping.wait();
            pong.set();
        }
    });
    int answered = 0;
    for (int i = 0; i < kRounds; ++i) {
        ping.set();
        answered += pong.waitFor(kPatience) ? 1 : 0;
    }
    other.join();
    EXPECT_EQ(answered, kRounds);

    CProbeThread thread("a-rather-long-thread-name", false);
    thread.stop(); // not running: nothing
    ASSERT_FALSE(thread.runThread(false));
    ASSERT_TRUE(thread.started.waitFor(kPatience));
    EXPECT_STREQ(thread.seenName, "a-rather-long-t");
    CErrorPtr again = thread.runThread(false);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->line(0).toUtf8(), "Thread is already running.");
    thread.stop();
    EXPECT_FALSE(thread.isRunning());
    ASSERT_FALSE(thread.runThread(true)); // a refused priority doesn't fail
    ASSERT_TRUE(thread.started.waitFor(kPatience));
    thread.stop();

    LogCapture log;
    CProbeThread failing("failing", true);
    ASSERT_FALSE(failing.runThread(false));
    ASSERT_TRUE(failing.started.waitFor(kPatience));
    failing.stop();
    EXPECT_NE(log.all.find("Probe failed."), std::string::npos);
}

TEST(CWorkerPool, SharesRunTogetherOnReusedThreads)
{
    CWorkerPool::shutdown();
    std::atomic<int> arrived{0}, deleted{0};
    Outcome outcomes[5];
    CWorkerThread* jobs[4];
    for (int i = 0; i < 4; ++i)
        jobs[i] = new Share(arrived, 5, &deleted, &outcomes[i]);
    Share own(arrived, 5, nullptr, &outcomes[4]);
    ASSERT_FALSE(CWorkerPool::run(jobs, 4, &own));
    EXPECT_EQ(deleted.load(), 4);
    EXPECT_EQ(outcomes[4].ranOn, currentThreadId());
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(outcomes[i].met) << i;
        for (int j = 0; j < i; ++j)
            EXPECT_NE(outcomes[i].ranOn, outcomes[j].ranOn);
    }
    EXPECT_EQ(CWorkerPool::idleCount(), 4);
    arrived = 0;
    CWorkerThread* two[] = {new Share(arrived, 2), new Share(arrived, 2)};
    ASSERT_FALSE(CWorkerPool::run(two, 2, nullptr));
    EXPECT_EQ(CWorkerPool::idleCount(), 4); // taken from the idle ones

    // The caller's error first, else the first failing job's; all jobs still end first.
    arrived = 0;
    deleted = 0;
    LogCapture log;
    CWorkerThread* failing[] = {new Share(arrived, 3, &deleted), new Share(arrived, 3, &deleted, nullptr, "first"),
                                new Share(arrived, 3, &deleted, nullptr, "second")};
    CErrorPtr error = CWorkerPool::run(failing, 3, nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line(0).toUtf8(), "first");
    EXPECT_NE(log.all.find("second"), std::string::npos);
    EXPECT_EQ(deleted.load(), 3);
    arrived = 0;
    Share ownFailing(arrived, 2, nullptr, nullptr, "caller");
    CWorkerThread* one[] = {new Share(arrived, 2, nullptr, nullptr, "worker")};
    error = CWorkerPool::run(one, 1, &ownFailing);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line(0).toUtf8(), "caller");

    // Several callers at once share the list.
    std::thread callers[4];
    std::atomic<int> failures{0};
    for (std::thread& caller : callers) {
        caller = std::thread([&failures] {
            for (int round = 0; round < 50; ++round) {
                std::atomic<int> met{0};
                CWorkerThread* three[] = {new Share(met, 3), new Share(met, 3), new Share(met, 3)};
                failures += CWorkerPool::run(three, 3, nullptr) ? 1 : 0;
            }
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_LE(CWorkerPool::idleCount(), 12);
    CWorkerPool::shutdown();
    EXPECT_EQ(CWorkerPool::idleCount(), 0);
}
