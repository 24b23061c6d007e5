#pragma once

#include <cstdint>

namespace qel {

// What one saturator stage computes from its parameters (all in internal units: gains as
// linear factors, rms-time in seconds, makeup-corr as a fraction): the bias-and-signal
// terms, the output gain, the curve, and the outputs for silence that each stage takes
// off so that it adds no DC. Pure: design() allocates nothing and keeps no state.
//
// The curve maps the sum t of bias and signal at level e: t itself below 0, above 0 a
// parabola whose height `curvature` the level flattens (through curve-gain), blended into
// t over the knee at `shift` with the weight ((t - shift) / shift)^2, which is 1 at t = 0:
// the curve is continuous there and bends only the positive swing.
struct CSatEBCoeffs
{
    // The level of silence: the floor 1e-5 under the mean square.
    static constexpr double kLevelFloor = 1e-5;
    // Fixed-point iterations for the resting point: the level depends on the output and
    // the output on the level, and a fixed count keeps y0 the same on every machine.
    static constexpr int32_t kRestIterations = 15;

    // Values when a slot is unbound.
    struct CParams
    {
        double drive = 1.0;
        double biasGain = 0.1;
        double biasGain2 = 0.01;
        double makeupGain = 1.0;
        double makeupCorr = -0.05;
        double curveGain = 1.0;
        double curvature = 100000.0;
        double shift = 1000.0;
        double constBias = 0.0;
        double rmsTimeSec = 0.05;
    };

    double drive = 1.0;
    double biasGain = 0.1;
    double biasGain2 = 0.01;
    double curveGain = 1.0;
    double curvature = 100000.0;
    double shift = 1000.0;
    double cb = 0.0;            // drive * const-bias
    double invShift = 0.001;
    double negInvShift2 = -1e-6;
    double outGain = -1.0;      // negative: the input stage inverts, the output stage inverts back
    double invOutGain = 1.0;    // -1 / outGain
    double y0 = 0.0;            // the input stage's output for silence
    double y0out = 0.0;         // the output stage's output for silence
    double restLevel = 0.0;     // the level at rest, the last of the iteration
    double cbOut = 0.0;         // cb - y0, the output stage's constant

    static CSatEBCoeffs design(const CParams& p);

    // The value of the curve at bias-and-signal t and level e. The division is the one
    // per sample that the level's influence costs.
    double curve(double t, double e) const noexcept
    {
        if (t <= 0.0)
            return t;
        const double g = curvature / (curveGain * e + 1.0);
        const double c = negInvShift2 * g;
        const double d = t - shift;
        const double r = g + (1.0 + c) * t + c * d * d;
        if (d > 0.0)
            return r;
        const double q = d * invShift;
        const double w = q * q;
        return t * w + r * (1.0 - w);
    }
};

} // namespace qel
