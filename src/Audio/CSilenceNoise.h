#pragma once

#include <cstdint>

namespace qel {

// What a module writes where it must be silent: a signal of amplitude 1e-11 with a random
// sign per sample, never zeros, so that a recursive filter behind it never decays into
// denormal numbers (which cost a hundred times a normal multiply on x86). At -220 dB it is
// far below anything a 64-bit or even a 24-bit path can show.
//
// The sign is bit 23 of a 32-bit linear congruential generator, state * 30013 + 30011 with
// wrap-around; 2.384185791015625e-18 is 2e-11 / 2^23, so the bit maps to 0 or 2e-11 before
// the offset. One instance per module; it starts at 0 and at every reset.
//
// Audio thread.
struct CSilenceNoise
{
    static constexpr double kBitScale = 2.384185791015625e-18;
    static constexpr double kOffset = 1e-11;

    uint32_t state = 0;

    void reset() { state = 0; }

    void run(double* out, int32_t n) noexcept
    {
        uint32_t s = state;
        for (int32_t i = 0; i < n; ++i) {
            s = s * 30013u + 30011u;
            out[i] = double(s & 0x800000u) * kBitScale - kOffset;
        }
        state = s;
    }
};

} // namespace qel
