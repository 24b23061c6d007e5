#pragma once

// The matched peaking filter worked out from the five conditions that define it, not from
// its closed-form design. Its squared magnitude is a ratio of quadratics in u = 1 - cos w,
// fixed by: 1 at DC, G^2 with a zero slope at the centre, and the analog prototype's values
// at half the Nyquist frequency and at the Nyquist frequency. The prototype, with
// frequencies relative to the Nyquist frequency and B^2 set so that the band edge fb has
// the power G:
//   |H(jW)|^2 = ((f0^2 - W^2)^2 + G^2 B^2 W^2) / ((f0^2 - W^2)^2 + B^2 W^2), B^2 = (f0^2 - fb^2)^2 / (G fb^2).
// The complex response is the minimum-phase one of that magnitude, 1 at DC: each quadratic
// is split into its roots, and each root into the zero or pole inside the unit circle that
// gives it.

#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <utility>

namespace qel::test {

class MatchedPeakReference
{
public:
    using Complex = std::complex<double>;

    // `gain` linear at the centre, `bw` the width in octaves. The design moves a centre
    // close to half the Nyquist frequency a little and holds one close to the Nyquist
    // frequency back; this does neither, so it stands for centres below about 0.45 of it.
    MatchedPeakReference(double rate, double freq, double gain, double bw)
    {
        const double f0 = 2.0 * freq / rate;
        const double fb = f0 * std::pow(0.5, bw / 2.0);
        const double G = gain;
        const double B2 = (f0 * f0 - fb * fb) * (f0 * f0 - fb * fb) / (G * fb * fb);
        const auto prototype = [&](double W) {
            const double d = f0 * f0 - W * W;
            return (d * d + G * G * B2 * W * W) / (d * d + B2 * W * W);
        };
        const double h = std::sin(std::numbers::pi * f0 / 2.0);
        const double u0 = 2.0 * h * h;
        // Unknowns n1 n2 d1 d2 of (1 + n1 u + n2 u^2) / (1 + d1 u + d2 u^2); rows: centre
        // value, centre slope, u = 1, u = 2.
        const double G2 = G * G;
        double m[4][5] = {
            {u0, u0 * u0, -G2 * u0, -G2 * u0 * u0, G2 - 1.0},
            {1.0, 2.0 * u0, -G2, -2.0 * G2 * u0, 0.0},
            {1.0, 1.0, -prototype(0.5), -prototype(0.5), prototype(0.5) - 1.0},
            {2.0, 4.0, -2.0 * prototype(1.0), -4.0 * prototype(1.0), prototype(1.0) - 1.0},
        };
        for (int col = 0; col < 4; ++col) {
            int pivot = col;
            for (int r = col + 1; r < 4; ++r)
                if (std::fabs(m[r][col]) > std::fabs(m[pivot][col]))
                    pivot = r;
            for (int k = 0; k < 5; ++k)
                std::swap(m[col][k], m[pivot][k]);
            for (int r = 0; r < 4; ++r) {
                if (r == col)
                    continue;
                const double f = m[r][col] / m[col][col];
                for (int k = col; k < 5; ++k)
                    m[r][k] -= f * m[col][k];
            }
        }
        for (int i = 0; i < 4; ++i)
            m_x[size_t(i)] = m[i][4] / m[i][i];
        m_zeros = factor(m_x[0], m_x[1]);
        m_poles = factor(m_x[2], m_x[3]);
    }

    // |H| at w radians per sample, from the solved quadratics themselves.
    double magnitude(double w) const
    {
        const double u = oneMinusCos(w);
        return std::sqrt((1.0 + m_x[0] * u + m_x[1] * u * u) / (1.0 + m_x[2] * u + m_x[3] * u * u));
    }

    // H at w radians per sample: the minimum-phase filter of that magnitude.
    Complex response(double w) const
    {
        // 1 - e^-jw without the cancellation near DC.
        const Complex z1 = std::polar(1.0, -w);
        const Complex oneMinusZ1 = Complex(0.0, 2.0 * std::sin(w / 2.0)) * std::polar(1.0, -w / 2.0);
        Complex h = 1.0;
        for (size_t i = 0; i < 2; ++i)
            h *= (oneMinusZ1 + m_zeros[i] * z1) / (oneMinusZ1 + m_poles[i] * z1) * (m_poles[i] / m_zeros[i]);
        return h;
    }

private:
    static double oneMinusCos(double w)
    {
        const double h = std::sin(w / 2.0);
        return 2.0 * h * h;
    }

    // 1 + c1 u + c2 u^2 as (1 - u / u1)(1 - u / u2). On the unit circle
    // (1 - r e^-jw)(1 - r e^jw) = (1 - r)^2 + 2 r u, so each root ui is met by the r inside
    // the circle with (1 - r)^2 = -2 r ui, and 1 - u / ui = |1 - r e^-jw|^2 / (1 - r)^2 (for
    // a complex pair, over the pair). Returns 1 - r for both, which is what the response
    // needs and, near DC, more precise than r.
    static std::array<Complex, 2> factor(double c1, double c2)
    {
        const Complex s = std::sqrt(Complex(c1 * c1 - 4.0 * c2));
        const Complex q = std::abs(c1 + s) > std::abs(c1 - s) ? -0.5 * (c1 + s) : -0.5 * (c1 - s);
        const Complex roots[2] = {q / c2, 1.0 / q};
        std::array<Complex, 2> out{};
        for (size_t i = 0; i < 2; ++i) {
            // r^2 - 2 (1 - ui) r + 1 = 0: r = 1 - ui -+ sqrt(-ui (2 - ui)); the root outside
            // the circle is found without cancellation, and the one inside is its inverse.
            const Complex u = roots[i];
            const Complex d = std::sqrt(-u * (2.0 - u));
            const Complex outsideLess1 = std::abs(1.0 - u + d) > std::abs(1.0 - u - d) ? d - u : -d - u;
            out[i] = outsideLess1 / (1.0 + outsideLess1);
        }
        return out;
    }

    std::array<double, 4> m_x{};
    std::array<Complex, 2> m_zeros{}; // 1 - r of the zeros
    std::array<Complex, 2> m_poles{}; // 1 - r of the poles
};

} // namespace qel::test
