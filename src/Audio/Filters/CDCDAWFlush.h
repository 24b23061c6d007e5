#pragma once

#include <cmath>

namespace qel::dcdaw {

// A state this small is silence for any signal a 64-bit path can show (-2000 dB), but left
// to decay it would end in denormal numbers, which cost a hundred times a normal multiply
// on x86. Kernels clear it once per block, never per sample: from 1e-100, a decay needs
// over two hundred decades more to reach the denormals, longer than a block at any pole
// radius the product's filters have.
constexpr double kFlushBelow = 1e-100;

inline void flushTiny(double& v)
{
    if (std::fabs(v) < kFlushBelow)
        v = 0.0;
}

} // namespace qel::dcdaw
