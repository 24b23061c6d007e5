#include "Audio/Filters/CAudioFilterFIRLPGen.h"

#include "Audio/Filters/CDCDAWKernelSet.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qel {

double CAudioFilterFIRLPGen::besselI0(double x)
{
    const double ax = std::fabs(x);
    if (ax < 3.75) {
        const double t = ax / 3.75;
        const double y = t * t;
        return 1.0 + y * (3.5156229 + y * (3.0899424 + y * (1.2067492 + y * (0.2659732 + y * (0.0360768 + y * 0.0045813)))));
    }
    const double y = 3.75 / ax;
    return (std::exp(ax) / std::sqrt(ax)) *
           (0.39894228 + y * (0.01328592 + y * (0.00225319 + y * (-0.00157565 + y * (0.00916281 +
            y * (-0.02057706 + y * (0.02635537 + y * (-0.01647633 + y * 0.00392377))))))));
}

void CAudioFilterFIRLPGen::createFilter(CDCDAWFilterWorkspace&, double sampleRate, const CAudioFilterParams& params,
                                        CAudioFilterStageList& stages) const
{
    double freq = 0.0;
    double length = 0.0;
    double beta = 0.0;
    if (!params.find("freq", freq) || !params.find("length", length) || !params.find("beta", beta))
        return;
    if (!(freq > 0.0) || !(sampleRate > 0.0) || 2.0 * freq > sampleRate || !(length > 0.0))
        return;
    const double H = sampleRate * sampleRate * length / (8.0 * freq);
    if (!(H < kMaxHalfLength))
        return;
    const auto M = int32_t(std::floor(H));
    const double w = 2.0 * std::numbers::pi * freq / sampleRate;
    const double B = std::clamp(beta, 1.0, 350.0);
    double* taps = stages.appendTaps(&dcdaw::kFirTaps, 2 * M + 1);
    if (!taps)
        return;
    const double norm = 1.0 / besselI0(B);
    const auto window = [&](int32_t k) {
        const double r = double(k) / H;
        const double arg = 1.0 - r * r;
        return arg < 0.0 ? 0.0 : besselI0(B * std::sqrt(arg)) * norm;
    };
    double* centre = taps + M;
    centre[0] = w / std::numbers::pi * window(0);
    // sin(k w) by the oscillator recurrence, from s[0] = 0 and s[1] = sin w.
    const double twoCos = 2.0 * std::cos(w);
    double sPrev = 0.0;
    double s = std::sin(w);
    for (int32_t k = 1; k <= M; ++k) {
        const double tap = s / (std::numbers::pi * double(k)) * window(k);
        centre[k] = tap;
        centre[-k] = tap;
        const double next = twoCos * s - sPrev;
        sPrev = s;
        s = next;
    }
    stages.addLatency(M);
}

} // namespace qel
