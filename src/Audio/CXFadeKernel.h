#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace qel {

// Raised-cosine crossfade from an old signal to a new one, for anything that switches
// between two sources without a click: a delay line changing its length, a leaf process
// changing its module.
//
// Over N samples the old signal has weight 0.5 + s[k] and the new one 0.5 - s[k], with
// s[k] = 0.5 * cos(pi * k / N), k = 0 .. N - 1; afterwards the new signal passes alone.
// The weights always sum to one, so equal signals go through unchanged.
//
// s comes from the oscillator recurrence s[k+1] = 2 cos(pi/N) s[k] - s[k-1], started at
// s[0] = 0.5 and s[-1] = 0.5 sin(pi/2 - pi/N): a multiply and a subtraction per sample
// where a cosine would cost dozens of cycles. The recurrence does not damp its rounding
// errors; each grows to at most 1 / sin(pi/N), about N / pi, times itself, so after N steps
// the drift stays below 4 N (N + 1) 2^-53: about 2e-10 at N = 662, far below anything
// audible, and the fade is too short for it to matter.
//
// Audio thread; one instance per channel. The state is copied into locals for the loop and
// written back after it, so that the compiler can keep it in registers.
class CXFadeKernel
{
public:
    // Samples of a fade of `seconds` at `sampleRate`, rounded half away from zero
    // (0.015 s at 44100 Hz is 661.5, hence 662).
    static int32_t lengthFor(double sampleRate, double seconds)
    {
        const double n = sampleRate * seconds;
        if (!(n > 0.0))
            return 0;
        return n < 2.0e9 ? int32_t(std::lround(n)) : 2000000000;
    }

    // Arms a fade of `length` samples; 0 makes the next run pass the new signal at once.
    void start(int32_t length)
    {
        m_remaining = length > 0 ? length : 0;
        const double step = std::numbers::pi / double(m_remaining > 0 ? m_remaining : 1);
        m_coef = 2.0 * std::cos(step);
        m_s = 0.5;
        m_sPrev = 0.5 * std::sin(std::numbers::pi / 2.0 - step);
    }
    // Ends the fade where it is; the new signal passes from now on.
    void stop() { m_remaining = 0; }

    bool isRunning() const { return m_remaining > 0; }
    int32_t remaining() const { return m_remaining; }
    // s of the next sample: the old signal's weight is 0.5 + level().
    double level() const { return m_s; }

    // Moves on by n samples without mixing anything, exactly as run would: one fade can
    // then be run from copies for several channels and advanced once.
    void skip(int32_t n) noexcept
    {
        const int32_t fade = n < m_remaining ? n : m_remaining;
        const double c = m_coef;
        double s = m_s;
        double sPrev = m_sPrev;
        for (int32_t i = 0; i < fade; ++i) {
            const double next = c * s - sPrev;
            sPrev = s;
            s = next;
        }
        m_s = s;
        m_sPrev = sPrev;
        m_remaining -= fade;
    }

    // Mixes the next min(n, remaining()) samples and copies `newIn` for the rest. `out` may
    // be `oldIn` or `newIn`, so callers can fade in place; no __restrict for that reason, and
    // the recurrence serialises the loop anyway.
    void run(const double* oldIn, const double* newIn, double* out, int32_t n) noexcept
    {
        const int32_t fade = n < m_remaining ? n : m_remaining;
        const double c = m_coef;
        double s = m_s;
        double sPrev = m_sPrev;
        for (int32_t i = 0; i < fade; ++i) {
            out[i] = oldIn[i] * (0.5 + s) + newIn[i] * (0.5 - s);
            const double next = c * s - sPrev;
            sPrev = s;
            s = next;
        }
        m_s = s;
        m_sPrev = sPrev;
        m_remaining -= fade;
        if (out != newIn)
            for (int32_t i = fade; i < n; ++i)
                out[i] = newIn[i];
    }

private:
    double m_coef = 0.0;
    double m_s = 0.5;
    double m_sPrev = 0.5;
    int32_t m_remaining = 0;
};

} // namespace qel
