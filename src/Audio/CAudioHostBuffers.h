#pragma once

#include <cstdint>

namespace qel {

// How a host lays out the samples of one bus.
struct CAudioHostFormat
{
    bool isDouble = false;
    // One buffer of frames of `channelCount` samples, instead of a buffer per channel.
    bool isInterleaved = false;
    int32_t channelCount = 0;
};

// Moves samples between the host's buffers and the graph's 64-bit blocks.
//
// Reading keeps the graph clean of what a host may hand in: NaN, infinities and denormal
// numbers become 0. One bad sample would otherwise stay in every recursive filter behind
// it for good, and denormals would slow them down. A null bus or a null channel reads as
// silence.
class CAudioHostBuffers
{
public:
    // `count` samples of `channel`, from frame `from`, into `dst`.
    static void read(double* dst, void* const* buffers, const CAudioHostFormat& format, int32_t channel,
                     int32_t from, int32_t count);
    // `count` samples into the host's non-interleaved channel at frame `at`; a null channel
    // is skipped.
    static void write(void* const* buffers, bool isDouble, int32_t channel, int32_t at, const double* src,
                      int32_t count);
    static void clear(void* const* buffers, bool isDouble, int32_t channel, int32_t at, int32_t count);

    // What read makes of one sample.
    static double clean(double x)
    {
        const double magnitude = x < 0.0 ? -x : x;
        // False for NaN as well.
        return magnitude >= kSmallestNormal && magnitude <= kLargestFinite ? x : 0.0;
    }

private:
    static constexpr double kSmallestNormal = 2.2250738585072014e-308;
    static constexpr double kLargestFinite = 1.7976931348623157e308;
};

} // namespace qel
