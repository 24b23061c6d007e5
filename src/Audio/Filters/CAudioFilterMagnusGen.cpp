#include "Audio/Filters/CAudioFilterMagnusGen.h"

#include "Audio/Filters/CDCDAWKernelSet.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qel {
namespace {

constexpr double kPi = std::numbers::pi;

struct Biquad
{
    double b0, b1, b2, a0, a1, a2;
};

// At a gain of exactly 1 the designs divide by zero.
double safeGain(double gain)
{
    return std::fabs(gain - 1.0) < 0.001 ? 0.999 : gain;
}

// Centre and lower band edge relative to the Nyquist frequency, kept off the Nyquist
// frequency and off its half, where the matching conditions coincide.
void matchedEdges(double freq, double bw, double sampleRate, double& f0, double& fb)
{
    f0 = std::min(2.0 * freq / sampleRate, 0.99);
    fb = std::min(2.0 * freq / sampleRate * std::pow(0.5, bw / 2.0), 0.98);
    if (std::fabs(f0 - 0.5) < 0.01) {
        f0 *= 0.99;
        fb *= 0.99;
    }
}

// The peak matched at the Nyquist frequency (H1) and at half of it (Hm), squared
// magnitudes of the analog prototype there.
Biquad peakMatched(double freq, double gain, double bw, double sampleRate)
{
    const double G = safeGain(gain);
    const double G2 = G * G;
    double f0 = 0.0, fb = 0.0;
    matchedEdges(freq, bw, sampleRate, f0, fb);
    const double f02 = f0 * f0, f04 = f02 * f02, fb2 = fb * fb, fb4 = fb2 * fb2;
    const double x = (G2 - G) * fb2;
    const double y = (G - 1.0) * (fb4 + f04);
    const double z = 2.0 * f02 * fb2 * (1.0 - G2);
    const double u = y * G2 + G * z;
    const double H1 = (x * (1.0 + f04) + u) / (x * (1.0 + f04) + y + z);
    const double Hm = (u + x * (4.0 * f04 + 0.25)) / (y + z + x * (4.0 * f04 + 0.25));
    const double g1 = std::sqrt(H1);
    const double t = std::tan(kPi * f0 / 2.0);
    const double T = t * t;
    const double P = H1 - G2;
    const double Q = Hm - G2;
    const double W = std::sqrt((1.0 - G2) / P);
    const double E = 1.0 / (P * Q);
    const double U = 2.0 * T * P;
    const double V = W * Q * U;
    const double X = U * (G2 - 1.0);
    const double Y = (H1 - Hm) * (1.0 - G2) - P * (Hm - 1.0) * T * T;
    const double Z = V * g1 + Y * G2 + Hm * X;
    const double D = std::sqrt(E * (Y + X + V));
    const double R = std::sqrt(E * Z);
    return {T + g1 * W + R, 2.0 * (T - g1 * W), T + g1 * W - R, T + W + D, 2.0 * (T - W), T + W - D};
}

// Types 0 and 3 work in radians, with the centre kept below 0.49 and the edge below 0.48 of
// the rate.
Biquad radians(int32_t type, double freq, double gain, double bw, double sampleRate)
{
    const double f = freq / sampleRate;
    const double fb = f * std::pow(0.5, bw / 2.0);
    const double w0 = 2.0 * kPi * std::min(f, 0.49000000953674316);
    const double wb = 2.0 * kPi * std::min(fb, 0.47999998927116394);
    const double P = w0 * w0;
    const double Q = wb * wb;
    const double S = P * P + Q * Q;
    const double pi2 = kPi * kPi;
    const double pi4 = pi2 * pi2;
    const double t = std::tan(w0 / 2.0);
    const double T = t * t;
    const double t2 = std::tan(P / (2.0 * kPi));
    const double T2 = t2 * t2;
    if (type == 0) {
        const double G = safeGain(gain);
        const double G2 = G * G;
        const double E = G2 - 1.0;
        const double L = -(P * P + pi4) * Q * (G2 - G);
        const double N = 2.0 * pi2 * Q * E * P;
        const double M = -S * pi2 * (G - 1.0);
        const double H = (M * G2 + N * G + L) / (N + L + M);
        const double g = std::sqrt(H);
        const double c = 1.0 / (E * T2);
        const double X0 = std::sqrt((G2 - H) * E) / std::fabs(E);
        const double X = T * X0;
        const double V = c * (T * H - T) + 2.0 * X0 - 2.0;
        const double K = g * g - g;
        const double J = (1.0 - H) * X * E * c + K;
        const double D = std::sqrt(V * T);
        const double R = std::sqrt((-J - K) * X + H * V * T);
        return {g + X + R, 2.0 * (X - g), g + X - R, 1.0 + X + D, 2.0 * (X - 1.0), 1.0 + X - D};
    }
    const double A = P * (2.0 * pi2 - 0.5 * P) - pi4 / 2.0;
    const double H = (pi2 * Q * P - S * pi2 / 2.0) / (Q * A - S * pi2 / 2.0);
    const double g = std::sqrt(H);
    const double c = 1.0 / T2;
    const double X = T * std::sqrt(1.0 - H);
    const double V = H * c * T + 2.0 * std::sqrt(1.0 - H) - 2.0;
    const double D = std::sqrt(V * T);
    const double R = std::sqrt((H * X * c - 2.0 * H) * X + H * V * T);
    return {gain * (g + R), -2.0 * gain * g, gain * (g - R), 1.0 + X + D, 2.0 * (X - 1.0), 1.0 + X - D};
}

Biquad bandPassMatched(double freq, double bw, double sampleRate)
{
    double f0 = 0.0, fb = 0.0;
    matchedEdges(freq, bw, sampleRate, f0, fb);
    const double t = std::tan(kPi * f0 / 2.0);
    const double T = t * t;
    const double A = f0 * f0;
    const double B = fb * fb;
    const double n = (A - B) * (A - B) / 2.0;
    const double l = (A * A + B * B) / 2.0 - 2.0 * A * B;
    const double Hm = n / ((B / 2.0) * (4.0 * A * A + 0.25) + l);
    const double H1 = n / ((B / 2.0) * (A * A + 1.0) + l);
    const double W = std::sqrt(1.0 / (1.0 - H1));
    const double E = 1.0 / ((Hm - 1.0) * (H1 - 1.0));
    const double a = 2.0 * T * (H1 - 1.0);
    const double b = -Hm * (T * (T * H1 - T) - 1.0) - H1;
    const double g = std::sqrt(H1);
    const double D = std::sqrt((a * (W * (Hm - 1.0) + 1.0) + b) * E);
    const double R = std::sqrt((a * Hm + b) * E);
    return {g * W + R, -2.0 * g * W, g * W - R, T + W + D, 2.0 * (T - W), T + W - D};
}

// Reference gain G0, peak Gp, edge gain Gb, centre c0 and width c1 as fractions of the rate.
Biquad prescribedEdges(double G0, double Gp, double Gb, double c0, double c1)
{
    const double w = 2.0 * kPi * c0;
    const double d = 2.0 * kPi * c1;
    const double F = std::fabs(Gb * Gb - G0 * G0);
    const double B1 = std::fabs(Gp * Gp - Gb * Gb);
    const double y = (w * w - kPi * kPi) * (w * w - kPi * kPi) * B1;
    const double z = kPi * kPi * F * d * d;
    const double G1 = std::sqrt((G0 * G0 * y + Gp * Gp * z) / (y + z));
    const double F0 = std::fabs(Gp * Gp - G0 * G0);
    const double F1 = std::fabs(Gp * Gp - G1 * G1);
    const double C = std::fabs(Gb * Gb - G1 * G1);
    const double tw = std::tan(w / 2.0);
    const double W2 = std::sqrt(F1 / F0) * tw * tw;
    const double Dw = std::tan(d / 2.0);
    const double u = 2.0 * W2 * (std::fabs(Gp * Gp - G0 * G1) - std::sqrt(F0 * F1));
    const double s = 2.0 * W2 * (std::fabs(Gb * Gb - G0 * G1) - std::sqrt(F * C));
    const double v = (std::sqrt(F / C) * W2 + 1.0) * Dw;
    const double k = v * v * C - s;
    const double A = std::sqrt((k + u) / B1);
    const double Bc = std::sqrt((Gp * Gp * k + u * Gb * Gb) / B1);
    return {G1 + Bc + G0 * W2, -2.0 * (G1 - G0 * W2), G1 - Bc + G0 * W2, 1.0 + A + W2, -2.0 * (1.0 - W2), 1.0 - A + W2};
}

} // namespace

CErrorPtr CAudioFilterMagnusGen::init()
{
    QEL_RETURN_IF_ERROR(CAudioFilterGen::init(), getFullName());
    QEL_RETURN_IF_ERROR(readType("@qelstr_CAudioFilterMagnusGen_init_InvalidType Invalid filter type '%1' specified.", 0, 5, m_type),
                        getFullName());
    return nullptr;
}

void CAudioFilterMagnusGen::createFilter(CDCDAWFilterWorkspace&, double sampleRate, const CAudioFilterParams& params,
                                         CAudioFilterStageList& stages) const
{
    double freq = 0.0;
    double gain = 0.0;
    double bw = 0.0;
    if (!params.find("freq", freq) || !params.find("gain", gain) || !params.find("bw", bw))
        return;
    // Frequencies above the Nyquist frequency are clamped inside each design, not refused.
    if (!(freq > 0.0) || !(sampleRate > 0.0) || !(gain > 0.0) || !(bw > 0.0))
        return;
    const double f = freq / sampleRate;
    Biquad q{};
    switch (m_type) {
    case 0:
    case 3: q = radians(m_type, freq, gain, bw, sampleRate); break;
    case 1: q = peakMatched(freq, gain, bw, sampleRate); break;
    case 2: {
        const double G = safeGain(gain);
        q = prescribedEdges(1.0, G, std::sqrt(G), f, f * (std::pow(2.0, bw / 2.0) - std::pow(0.5, bw / 2.0)));
        break;
    }
    case 4: q = bandPassMatched(freq, bw, sampleRate); break;
    default: {
        const double fc = std::min(f, 0.5);
        q = prescribedEdges(0.0, 1.0, 0.7071067811865476, fc,
                            std::min(0.5, fc * std::pow(2.0, bw / 2.0)) - fc * std::pow(0.5, bw / 2.0));
        break;
    }
    }
    // Every design ends in square roots of its matching conditions; a combination of values
    // outside what a design can meet gives no number there, and no stage.
    appendBiquad(stages, &dcdaw::kBiquadCommon, q.b0, q.b1, q.b2, q.a0, q.a1, q.a2);
}

} // namespace qel
