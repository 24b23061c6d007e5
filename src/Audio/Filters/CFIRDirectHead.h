#pragma once

#include <cstdint>

namespace qel {

// The first taps of a filter run without latency, as a plain FIR, in front of a
// partitioned convolution of the rest that starts at tap kMaxTaps with blocks of that
// length: together they have no latency of their own.
//
// The history is a ring of twice the length in which every sample is written at two
// places, so that the taps always read one straight run of it. After reset the ring fills
// with the first sample, as the convolution's seed does.
//
// Audio thread; configure allocates nothing.
class CFIRDirectHead
{
public:
    static constexpr int32_t kMaxTaps = 64;

    // The first min(count, kMaxTaps) taps.
    void configure(const double* taps, int32_t count);
    void clear() { m_length = 0; }
    void reset() { m_isSeedPending = true; }
    // Writes `out`, or adds to it.
    void run(const double* in, double* out, int32_t n, bool isAdding);

    int32_t length() const { return m_length; }

private:
    int32_t m_length = 0;
    int32_t m_pos = 0;
    bool m_isSeedPending = true;
    double m_reversed[kMaxTaps] = {}; // h[L - 1] .. h[0], so the oldest sample meets h[L - 1]
    double m_ring[2 * kMaxTaps] = {};
};

} // namespace qel
