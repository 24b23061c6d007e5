// The queue that carries what the audio thread noticed to a thread that may log it: each
// notice told once, in order, with its own copy of the name; a full queue drops and says
// how many; writers on several threads against a reader that flushes meanwhile.

#include "Audio/CAudioDiagnostics.h"
#include "Core/CLog.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

using namespace qel;

namespace {

// What the tellers were handed; only the flushing thread writes it.
std::vector<std::tuple<std::string, int32_t, double>> g_told;

void record(const CString& name, int32_t integer, double real) { g_told.emplace_back(name.toUtf8(), integer, real); }

struct Lines : ILogSink
{
    Lines() { previous = CLog::setSink(this); }
    ~Lines() override { CLog::setSink(previous); }
    void logText(const char* text, bool) override { lines.emplace_back(text); }
    std::vector<std::string> lines;
    ILogSink* previous = nullptr;
};

TEST(AudioDiagnostics, NoticesAreToldOnceInOrderWithTheirOwnCopyOfTheName)
{
    g_told.clear();
    CAudioDiagnostics queue;
    {
        // The process that noticed is gone before the log is written.
        CString name("plugin.modMain.modLatencyUniformer");
        queue.note(name, record, 600, 44100.0);
        name = CString("plugin.modMain");
        queue.note(name, record);
        const std::string longName(300, 'x');
        queue.note(CString(longName.c_str()), record, -1, 0.5);
    }
    Lines log;
    EXPECT_EQ(queue.flush(), 3);
    ASSERT_EQ(g_told.size(), 3u);
    EXPECT_EQ(g_told[0], std::make_tuple(std::string("plugin.modMain.modLatencyUniformer"), 600, 44100.0));
    EXPECT_EQ(g_told[1], std::make_tuple(std::string("plugin.modMain"), 0, 0.0));
    // A name longer than a cell holds is cut, not lost.
    EXPECT_EQ(g_told[2], std::make_tuple(std::string(CAudioDiagnostics::kNameBytes, 'x'), -1, 0.5));
    EXPECT_EQ(queue.flush(), 0);
    EXPECT_TRUE(log.lines.empty());

    // Full: what does not fit is counted, and the queue goes on round its cells.
    g_told.clear();
    for (int32_t i = 0; i < CAudioDiagnostics::kCapacity + 5; ++i)
        queue.note(CString("p"), record, i);
    EXPECT_EQ(queue.flush(), CAudioDiagnostics::kCapacity + 1);
    ASSERT_EQ(g_told.size(), size_t(CAudioDiagnostics::kCapacity));
    EXPECT_EQ(std::get<1>(g_told.back()), CAudioDiagnostics::kCapacity - 1);
    EXPECT_EQ(log.lines, std::vector<std::string>{"5 further audio notices were dropped"});
    for (int32_t round = 0; round < 3; ++round) {
        g_told.clear();
        for (int32_t i = 0; i < CAudioDiagnostics::kCapacity - 1; ++i)
            queue.note(CString("q"), record, i);
        EXPECT_EQ(queue.flush(), CAudioDiagnostics::kCapacity - 1);
        for (int32_t i = 0; i < CAudioDiagnostics::kCapacity - 1; ++i)
            ASSERT_EQ(std::get<1>(g_told[size_t(i)]), i);
    }
}

// Three writers (an audio thread and set-up threads of one instance) and a reader: every
// notice comes out whole exactly once or is counted as dropped, and each writer's notices
// keep their order.
TEST(AudioDiagnostics, WritersOnSeveralThreadsAgainstAFlushingReader)
{
    g_told.clear();
    CAudioDiagnostics queue;
    constexpr int32_t kWriters = 3;
    constexpr int32_t kEach = 3000;
    std::atomic<int32_t> running{kWriters};
    std::vector<std::thread> writers;
    for (int32_t w = 0; w < kWriters; ++w) {
        writers.emplace_back([&, w] {
            const CString name(std::to_string(w).c_str());
            for (int32_t i = 0; i < kEach; ++i) {
                queue.note(name, record, i, double(w));
                // Now and then room for the reader, so that the cells go round many times.
                if (i % 16 == 0)
                    std::this_thread::yield();
            }
            running.fetch_sub(1);
        });
    }
    Lines log;
    while (running.load() > 0)
        queue.flush();
    queue.flush();
    for (auto& t : writers)
        t.join();

    int32_t dropped = 0;
    for (const std::string& line : log.lines) {
        int32_t n = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%d further audio notices were dropped", &n), 1) << line;
        dropped += n;
    }
    int32_t last[kWriters] = {-1, -1, -1};
    for (const auto& [name, i, real] : g_told) {
        const int32_t w = std::stoi(name);
        ASSERT_TRUE(w >= 0 && w < kWriters);
        ASSERT_EQ(real, double(w));
        ASSERT_GT(i, last[w]);
        last[w] = i;
    }
    EXPECT_EQ(int32_t(g_told.size()) + dropped, kWriters * kEach);
}

} // namespace
