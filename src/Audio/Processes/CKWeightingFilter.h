#pragma once

#include <cmath>

namespace qel {

// The weighting of loudness measurement: a second-order high-pass near 38 Hz, then a high
// shelf of about +4 dB above 1.5 kHz, both designed by the bilinear transform from the
// same analog prototypes at every rate. Direct form II with the feedback terms negated:
// w = x + c1 w1 + c2 w2, y = b0 w + b1 w1 + b2 w2.
struct CKWeightingFilter
{
    struct CStage
    {
        double b0 = 1.0, b1 = 0.0, b2 = 0.0, c1 = 0.0, c2 = 0.0;
    };

    CStage highPass;
    CStage shelf;

    static CKWeightingFilter design(double sampleRate)
    {
        CKWeightingFilter f;
        {
            // 2 pi * 38.135471 Hz; 0.8809... is ln(2) / 2 * 2.541762 octaves.
            const double w0 = 239.61223106957323 / sampleRate;
            const double cw = std::cos(w0);
            const double sw = std::sin(w0);
            const double alpha = sw * std::sinh(0.8809075819772038 * w0 / sw);
            const double a0 = 1.0 + alpha;
            f.highPass.b0 = (1.0 + cw) / 2.0 / a0;
            f.highPass.b1 = -(1.0 + cw) / a0;
            f.highPass.b2 = f.highPass.b0;
            f.highPass.c1 = 2.0 * cw / a0;
            f.highPass.c2 = (alpha - 1.0) / a0;
        }
        {
            // 2 pi * 1500.817178 Hz, ln(2) / 2 * 1.887391 octaves, and a gain of A^2:
            // 2.244... is 2 sqrt(A).
            const double w0 = 9429.912441572329 / sampleRate;
            const double a = 1.2588999027632095;
            const double cw = std::cos(w0);
            const double sw = std::sin(w0);
            const double alpha = sw * std::sinh(0.6541198751321079 * w0 / sw);
            const double s = 2.244014173540987 * alpha;
            const double a0 = (a + 1.0) - (a - 1.0) * cw + s;
            f.shelf.b0 = a * ((a + 1.0) + (a - 1.0) * cw + s) / a0;
            f.shelf.b1 = -2.0 * a * ((a - 1.0) + (a + 1.0) * cw) / a0;
            f.shelf.b2 = a * ((a + 1.0) + (a - 1.0) * cw - s) / a0;
            f.shelf.c1 = 2.0 * ((a + 1.0) * cw - (a - 1.0)) / a0;
            f.shelf.c2 = -((a + 1.0) - (a - 1.0) * cw - s) / a0;
        }
        return f;
    }
};

} // namespace qel
