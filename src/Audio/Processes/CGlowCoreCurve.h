#pragma once

#include <cmath>
#include <numbers>

namespace qel {

// A soft-knee curve: slope 1 up to t = -knee / 2, then a circular arc of radius |c|
// tangent to that line at t, then from e on a line through the origin of slope `slope`
// (the ratio as a factor at or below 1). Design and evaluation; no state.
struct CGlowCoreCurve
{
    // A ratio of 1 would want an arc of infinite radius: above 0.9999 the slope stays at
    // 0.9999, whose difference from 1 in double is exactly this.
    static constexpr double kFlattestM = -9.999999999998899e-5;
    static constexpr double kFlattestRatio = 0.9999;
    // At or under this ratio the curve is flat above the knee.
    static constexpr double kSteepestRatio = 0.002;

    double slope = 1.0 + kFlattestM;
    double t = 0.0;
    double e = 0.0;
    double c = 0.0;
    double c2 = 0.0;

    static CGlowCoreCurve design(double ratio, double knee)
    {
        const double m = ratio > kFlattestRatio ? kFlattestM : ratio <= kSteepestRatio ? -1.0 : ratio - 1.0;
        CGlowCoreCurve k;
        k.slope = 1.0 + m;
        // A negative knee has no arc; it is read as none.
        k.t = -0.5 * (knee > 0.0 ? knee : 0.0);
        const double theta = std::numbers::pi - std::atan(-m);
        k.c = std::tan(theta / 2.0) * k.t;
        k.e = k.t - k.c * std::sin(theta);
        k.c2 = k.c * k.c;
        return k;
    }

    double operator()(double v) const noexcept
    {
        if (v <= t)
            return v;
        if (v >= e)
            return slope * v;
        const double d = v - t;
        return c + v + std::sqrt(c2 - d * d);
    }
};

} // namespace qel
