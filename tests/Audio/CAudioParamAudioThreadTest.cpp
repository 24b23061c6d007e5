// The audio side of the parameter queue: writers on two threads against a draining audio
// thread, and the promise that draining allocates nothing. Also built with ThreadSanitizer,
// which brings its own allocator: there nothing is counted.

#include "AudioParamTestSupport.h"
#include "RealTimeCounting.h"

#include <atomic>
#include <thread>

using namespace qel;
using namespace qel::test;

namespace {

class AudioSideTest : public AudioParamFixture
{
protected:
    std::vector<CAudioParam*> params(int count, const char* defValues)
    {
        std::vector<CAudioParam*> out;
        for (int i = 0; i < count; ++i)
            out.push_back(param(CString("p").append(CString::number(i)), realParam(defValues, "0", "1000000")));
        return out;
    }
};

TEST_F(AudioSideTest, ApplyingQueuedFloatChangesAllocatesNothing)
{
#ifdef QEL_TSAN
    GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
#endif
    const std::vector<CAudioParam*> ps = params(8, "1,2");
    std::vector<uint8_t> flags(ps.size());
    std::vector<uint32_t> masks(ps.size());
    for (size_t i = 0; i < ps.size(); ++i)
        ps[i]->addListener(&flags[i], &masks[i], -1, -1); // let go with the parameter
    m_env->setActive(true);
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        for (size_t i = 0; i < ps.size(); ++i) {
            const int32_t group = int32_t(i) % 8;
            ps[i]->setValue(round, group, nullptr);                // cuts the list to one
            ps[i]->setElementValue(round + 1, group, 12, nullptr); // grows it to 13
            ps[i]->setElementValue(round + 2, (group + 1) % 8, 15, nullptr);
        }
        CAudioParamChange defaults = ps[0]->defaults().makeChange(0, 0, 2, true);
        defaults.group = kParamDefaultsGroup;
        CAudioParamUpdateContext context;
        ps[0]->change(defaults, context);
        ps[0]->setElementValue(round, 3, 7, nullptr);

        // Round 0 warms up; the queued changes themselves go back to the block allocator.
        CAudioParamQueuedChange* list = m_collector->takePendingChanges();
        t_news = t_mallocs = 0;
        t_counting = round > 0;
        CAudioParamCollector::applyPendingChanges(list);
        t_counting = false;
        CAudioParamQueuedChange::freeList(list);
#ifdef QEL_COUNTING
        EXPECT_EQ(t_news + t_mallocs, 0u);
#endif
        EXPECT_EQ(ps[1]->audioValues().getElementValue(1, 12, 0, -1), round + 1);
        EXPECT_EQ(ps[1]->audioValues().elementCount(2), 16);
        EXPECT_EQ(ps[0]->audioValues().getElementValue(3, 7, 0, -1), round);
        EXPECT_EQ(ps[0]->audioValues().elementCount(0), 2);
    }
}

TEST_F(AudioSideTest, TwoWritersAndAnAudioThread)
{
    // Each writer owns four groups of every parameter and counts up in each; both meet on
    // every parameter's lock, and first writes into a group grow the lists meanwhile.
    constexpr int kWrites = 6000;
    constexpr size_t kGroups = 8;
    const std::vector<CAudioParam*> ps = params(6, "0");
    using Table = std::vector<std::vector<double>>;
    Table last(ps.size(), std::vector<double>(kGroups, 0.0)), seen = last;
    m_env->setActive(true);

    std::atomic<int> writing{2};
    auto writer = [&](size_t firstGroup) {
        for (int i = 0; i < kWrites; ++i) {
            const size_t k = size_t(i) % ps.size();
            const size_t g = firstGroup + 2 * ((size_t(i) / ps.size()) % (kGroups / 2));
            const double v = ++last[k][g];
            if (i % 3)
                ps[k]->setValue(v, int32_t(g), nullptr);
            else
                ps[k]->setElementValue(v, int32_t(g), 0, nullptr);
        }
        writing.fetch_sub(1, std::memory_order_release);
    };
    bool backwards = false;
    std::thread audio([&] {
        for (bool done = false; !done; std::this_thread::yield()) {
            done = writing.load(std::memory_order_acquire) == 0;
            drain();
            for (size_t k = 0; k < ps.size(); ++k) {
                for (size_t g = 0; g < kGroups; ++g) {
                    const double v = ps[k]->audioValues().getValue(int32_t(g), 0, -1);
                    backwards = backwards || v < seen[k][g];
                    seen[k][g] = v;
                }
            }
        }
    });
    std::thread first(writer, 0), second(writer, 1);
    first.join();
    second.join();
    audio.join();
    EXPECT_FALSE(backwards);
    EXPECT_EQ(seen, last);
    for (size_t k = 0; k < ps.size(); ++k)
        for (size_t g = 0; g < kGroups; ++g)
            EXPECT_EQ(ps[k]->values().getValue(int32_t(g), 0, -1), last[k][g]) << k << "/" << g;
    EXPECT_GT(last[0][0], 100.0);
    EXPECT_EQ(m_collector->pendingCount(), 0u);
}

} // namespace
