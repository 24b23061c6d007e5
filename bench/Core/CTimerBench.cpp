// How closely the timer thread keeps to its grid: what an animation at 40 frames a second
// sees of the timer queue, measured as the callbacks' distance from the ideal firing times.

#include "Core/CEvent.h"
#include "Core/CHighResCounter.h"
#include "Core/CTimerQueue.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace qel;

namespace {

constexpr uint32_t kPeriodMs = 25; // 40 Hz
constexpr int kFirings = 80;       // two seconds

struct Firings
{
    int64_t at[kFirings] = {};
    std::atomic<int> count{0};
    CEvent done;

    static void callback(void* context)
    {
        Firings* self = static_cast<Firings*>(context);
        const int64_t now = CHighResCounter::now();
        const int index = self->count.load();
        if (index >= kFirings)
            return;
        self->at[index] = now;
        self->count = index + 1;
        if (index + 1 == kFirings)
            self->done.set();
    }
};

void BM_TimerJitter40Hz(benchmark::State& state)
{
    if (CErrorPtr error = CTimerQueue::addUser()) {
        state.SkipWithError("no timer thread");
        return;
    }
    Firings firings;
    int64_t created = 0;
    for (auto _ : state) {
        CQueueTimer* timer = nullptr;
        created = CHighResCounter::now();
        if (CTimerQueue::createTimer(timer, 0, kPeriodMs, &Firings::callback, &firings) != 0) {
            state.SkipWithError("no timer");
            break;
        }
        firings.done.waitFor(60.0);
        CTimerQueue::deleteTimer(timer);
    }
    CTimerQueue::removeUser();
    const int count = firings.count.load();
    if (count < 2)
        return;

    // The ideal grid starts when the timer was made (it is due at once). A firing the
    // thread dropped shows as a skipped grid point and is counted apart, not as a huge
    // deviation. The spread (standard deviation) tells jitter from a constant lateness.
    const double period = double(kPeriodMs) * 1e6;
    double sum = 0.0, sumSquares = 0.0, largest = 0.0;
    int64_t lastPoint = -1, missed = 0;
    for (int i = 0; i < count; ++i) {
        const double offset = double(firings.at[i] - created);
        const int64_t point = std::max<int64_t>(0, std::llround(offset / period));
        missed += std::max<int64_t>(0, point - lastPoint - 1);
        lastPoint = point;
        const double deviation = std::fabs(offset - double(point) * period) / 1e3;
        sum += deviation;
        sumSquares += deviation * deviation;
        largest = std::max(largest, deviation);
    }
    const double mean = sum / count;
    state.counters["jitter_mean_us"] = mean;
    state.counters["jitter_max_us"] = largest;
    state.counters["jitter_sd_us"] = std::sqrt(std::max(0.0, sumSquares / count - mean * mean));
    state.counters["firings"] = count;
    state.counters["missed"] = double(missed);
}
BENCHMARK(BM_TimerJitter40Hz)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
