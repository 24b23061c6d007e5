#pragma once

// The product's small-signal response, worked out here from the design formulas of its
// stages, without any of the plug-in's own code: the band filters (a matched peaking
// filter solved from the conditions that define it, and two shelves), the one-pole
// high-passes, and the linearised saturator and harmonic stages around their resting
// points. At a small amplitude every stage of the chain is linear to well within a
// hundredth of a decibel, so the whole plug-in is one transfer function: the auto-gain, the
// saturator pair around the bands (whose level detector makes it frequency dependent below
// some 30 Hz), and the 1 Hz high-pass.

#include "../Filters/MatchedPeakReference.h"

#include <cmath>
#include <complex>
#include <numbers>

namespace qel::test {

using Complex = std::complex<double>;

inline double dbToGain(double db) { return std::pow(10.0, db / 20.0); }
inline double gainToDb(double gain) { return 20.0 * std::log10(gain); }

// b0 + b1 z^-1 + b2 z^-2 over 1 + a1 z^-1 + a2 z^-2, coefficients already divided by a0.
struct Biquad
{
    double b0 = 1.0, b1 = 0.0, b2 = 0.0, a1 = 0.0, a2 = 0.0;

    static Biquad normalised(double b0, double b1, double b2, double a0, double a1, double a2)
    {
        return Biquad{b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
    }

    Complex at(double freq, double rate) const
    {
        const Complex z1 = std::polar(1.0, -2.0 * std::numbers::pi * freq / rate);
        const Complex z2 = z1 * z1;
        return (b0 + b1 * z1 + b2 * z2) / (1.0 + a1 * z1 + a2 * z2);
    }
};

// The shelves of the usual bilinear cookbook, their slope set by `bw` in octaves.
inline Biquad shelf(bool isHigh, double freq, double gain, double bw, double rate)
{
    const double w = 2.0 * std::numbers::pi * freq / rate;
    const double c = std::cos(w);
    const double A = std::sqrt(gain);
    const double alpha = std::sin(w) * std::sinh(std::log(2.0) / 2.0 * bw);
    const double beta = 2.0 * std::sqrt(A) * alpha;
    if (isHigh)
        return Biquad::normalised(A * ((A + 1) + (A - 1) * c + beta), -2 * A * ((A - 1) + (A + 1) * c),
                                  A * ((A + 1) + (A - 1) * c - beta), (A + 1) - (A - 1) * c + beta,
                                  2 * ((A - 1) - (A + 1) * c), (A + 1) - (A - 1) * c - beta);
    return Biquad::normalised(A * ((A + 1) - (A - 1) * c + beta), 2 * A * ((A - 1) - (A + 1) * c),
                              A * ((A + 1) - (A - 1) * c - beta), (A + 1) + (A - 1) * c + beta,
                              -2 * ((A - 1) + (A + 1) * c), (A + 1) + (A - 1) * c - beta);
}

// A one-pole high-pass that is 3 dB down at `corner`: z += k (in - z), out = in - z.
inline Complex onePoleHighPass(double corner, double freq, double rate)
{
    const double x = 2.0 - std::cos(2.0 * std::numbers::pi * corner / rate);
    const double r = x - std::sqrt(x * x - 1.0);
    const Complex z1 = std::polar(1.0, -2.0 * std::numbers::pi * freq / rate);
    return r * (1.0 - z1) / (1.0 - r * z1);
}

// The equalizer's band by its mode: 1 the peak (its width narrowed by 0.924825), 2 the low
// shelf, 3 the high shelf; "Off" passes.
inline Complex bandFilter(int mode, double freq, double gainDb, double bw, double at, double rate)
{
    const double gain = dbToGain(gainDb);
    switch (mode) {
    case 1: {
        // At a gain of exactly 1 the design is singular; it runs at 0.999 instead.
        const double G = std::abs(gain - 1.0) < 0.001 ? 0.999 : gain;
        return MatchedPeakReference(rate, freq, G, bw * 0.924825).response(2.0 * std::numbers::pi * at / rate);
    }
    case 2:
        return shelf(false, freq, gain, bw, rate).at(at, rate);
    case 3:
        return shelf(true, freq, gain, bw, rate).at(at, rate);
    default:
        return 1.0;
    }
}

// ---- the saturator pair

struct SaturatorParams
{
    double drive, biasGain, biasGain2, makeupGain, makeupCorr, curveGain, curvature, shift, constBias, rmsTime;
};

// The stage's curve of the bias-and-signal sum t at the level e.
inline double saturatorCurve(const SaturatorParams& p, double t, double e)
{
    if (t <= 0.0)
        return t;
    const double g = p.curvature / (p.curveGain * e + 1.0);
    const double c = -g / (p.shift * p.shift);
    const double d = t - p.shift;
    const double r = g + (1.0 + c) * t + c * d * d;
    if (d > 0.0)
        return r;
    const double w = (d / p.shift) * (d / p.shift);
    return t * w + r * (1.0 - w);
}

// Input stage, bands, output stage, linearised around the resting point. Both stages are
// biased by the level e, the root of the mean square of the input stage's curve output
// over the last N samples. For a small signal that level moves with the signal's running
// mean: e = sqrt(y0^2 + 2 y0 mean(dy) + 1e-5) moves by y0 / e times the moving average of
// dy. Far above 1 / rms-time the average is nil and the pair is a plain gain; below it the
// level feeds back into the input stage and forward into the output stage, and the two
// cancel only while the bands between them are flat.
class SaturatorPair
{
public:
    explicit SaturatorPair(const SaturatorParams& p) : m_p(p)
    {
        // The resting level: the level follows the output and the output the level.
        double e = std::sqrt(1e-5);
        double y = 0.0;
        const double cb = p.drive * p.constBias;
        for (int i = 0; i < 15; ++i) {
            const double t = cb + (p.biasGain2 * e) * (p.biasGain2 * e) + p.biasGain * e;
            y = saturatorCurve(p, t, e);
            e = std::sqrt(y * y + 1e-5);
        }
        m_e = e;
        m_y0 = y;
        const double t0 = cb + (p.biasGain2 * e) * (p.biasGain2 * e) + p.biasGain * e;
        const double t1 = cb - y + p.biasGain * e;
        const double driveDb = 20.0 * std::log10(p.drive);
        m_outGain = -p.makeupGain * std::pow(10.0, (p.makeupCorr - 1.0) * driveDb / 20.0);
        m_slopeIn = dt(t0);
        m_slopeOut = dt(t1);
        // How the level moves each stage's curve: through the bias terms and the curve's height.
        m_levelIn = m_slopeIn * (p.biasGain + 2.0 * p.biasGain2 * p.biasGain2 * e) + de(t0);
        m_levelOut = m_slopeOut * p.biasGain + de(t1);
    }

    // The gain far above 1 / rms-time.
    double plainGain() const { return -m_slopeIn * m_p.drive * m_outGain * m_slopeOut; }

    // Input stage, the bands' response `bands`, output stage, at `freq`.
    Complex at(const Complex& bands, double freq, double rate) const
    {
        const int n = int(std::lround(m_p.rmsTime * rate));
        const Complex z1 = std::polar(1.0, -2.0 * std::numbers::pi * freq / rate);
        // The mean over the N samples before this one.
        const Complex mean = z1 * (1.0 - std::pow(z1, double(n))) / (double(n) * (1.0 - z1));
        const Complex level = (m_y0 / m_e) * mean; // level per unit of the curve's output
        const Complex curveOut = m_slopeIn * m_p.drive / (1.0 - m_levelIn * level);
        const Complex pairOut = -m_slopeOut * bands + m_levelOut * level;
        return m_outGain * curveOut * pairOut;
    }

private:
    double dt(double t) const
    {
        const double h = 1e-7;
        return (saturatorCurve(m_p, t + h, m_e) - saturatorCurve(m_p, t - h, m_e)) / (2.0 * h);
    }
    double de(double t) const
    {
        const double h = 1e-7;
        return (saturatorCurve(m_p, t, m_e + h) - saturatorCurve(m_p, t, m_e - h)) / (2.0 * h);
    }

    SaturatorParams m_p;
    double m_e = 0.0, m_y0 = 0.0, m_outGain = 0.0;
    double m_slopeIn = 0.0, m_slopeOut = 0.0, m_levelIn = 0.0, m_levelOut = 0.0;
};

// ---- the harmonic stage of a band

struct HarmonicParams
{
    double ratioA, ratioB, kneeA, kneeB, biasI, biasV, gainI, gainV, feedFreq, makeupGain;
};

// A line of slope 1, an arc, and a line through the origin of slope `ratio`.
inline double harmonicCurve(double ratio, double knee, double v)
{
    const double m = ratio > 0.9999 ? -9.999999999998899e-5 : ratio <= 0.002 ? -1.0 : ratio - 1.0;
    const double t = -0.5 * knee;
    const double theta = std::numbers::pi - std::atan(-m);
    const double c = std::tan(theta / 2.0) * t;
    const double e = t - c * std::sin(theta);
    if (v <= t)
        return v;
    if (v >= e)
        return (1.0 + m) * v;
    return c + v + std::sqrt(c * c - (v - t) * (v - t));
}

// For a small signal the stage is out = g1 * filtered - g2 * hp(unfiltered), hp being the
// one-pole high-pass at `feedFreq` that moves the blend of the two curves.
inline Complex harmonicStage(const HarmonicParams& p, const Complex& filtered, double freq, double rate)
{
    const double h = 1e-7;
    const auto a = [&](double v) { return harmonicCurve(p.ratioA, p.kneeA, v); };
    const auto b = [&](double v) { return harmonicCurve(p.ratioB, p.kneeB, v); };
    const double v0 = p.biasI;
    const double slopeA = (a(v0 + h) - a(v0 - h)) / (2.0 * h);
    const double slopeB = (b(v0 + h) - b(v0 - h)) / (2.0 * h);
    const double g1 = p.makeupGain * p.gainI * (slopeA + p.biasV * (slopeB - slopeA));
    const double g2 = p.makeupGain * p.gainV * (b(v0) - a(v0));
    return g1 * filtered - g2 * onePoleHighPass(p.feedFreq, freq, rate);
}

} // namespace qel::test
