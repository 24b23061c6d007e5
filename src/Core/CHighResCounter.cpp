#include "Core/CHighResCounter.h"

#include <chrono>

namespace qel {

int64_t CHighResCounter::now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int64_t CHighResCounter::startCounter()
{
    static const int64_t s_start = now();
    return s_start;
}

namespace {
// Takes the sample while the module's static data is set up, not at the first log line.
[[maybe_unused]] const int64_t s_sampleAtLoad = CHighResCounter::startCounter();
} // namespace

} // namespace qel
