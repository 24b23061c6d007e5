#pragma once

#include <cstdint>

namespace qel {

// The high-resolution counter: nanoseconds of a monotonic clock.
class CHighResCounter
{
public:
    static int64_t now();
    static constexpr double frequency() { return 1e9; }
    // Sampled when the module's static data is initialised.
    static int64_t startCounter();
    static double secondsSince(int64_t counter) { return double(now() - counter) / frequency(); }
    // The time that log lines print behind "@".
    static double secondsSinceStart() { return secondsSince(startCounter()); }
};

} // namespace qel
