#include "Audio/Processes/CGlowCoreCoeffs.h"

#include <cmath>
#include <numbers>

namespace qel {

CGlowCoreCoeffs CGlowCoreCoeffs::design(const CParams& p, double sampleRate)
{
    CGlowCoreCoeffs k;
    k.curveA = CGlowCoreCurve::design(p.ratioA, p.kneeA);
    k.curveB = CGlowCoreCurve::design(p.ratioB, p.kneeB);
    k.gainI = p.gainI;
    k.biasI = p.biasI;
    k.biasV = p.biasV;
    k.makeupGain = p.makeupGain;
    k.isType1 = std::lround(p.type) == 1;

    const double a0 = k.curveA(p.biasI);
    const double b0 = k.curveB(p.biasI);
    k.offset = a0 + (b0 - a0) * p.biasV;
    const double point = p.gainI * p.autoGainPoint + p.biasI;
    const double a1 = k.curveA(point);
    const double b1 = k.curveB(point);
    const double span = a1 + (b1 - a1) * (p.biasV - p.gainV * p.autoGainPoint) - k.offset;
    // A point that the curves map onto silence has no gain to undo: none is applied.
    k.norm = span != 0.0 && std::isfinite(1.0 / span) ? 1.0 / span : 1.0;

    // The one-pole of the same form as the filter generators' first-order sections.
    const double freqHz = p.feedFreqHz > 0.0 && sampleRate > 0.0 ? p.feedFreqHz : 0.0;
    const double w = freqHz > 0.0 ? 2.0 * std::numbers::pi * freqHz / sampleRate : 0.0;
    const double x = 2.0 - std::cos(w);
    k.k = 1.0 - x + std::sqrt(x * x - 1.0);
    // Inverting the feed turns its high-pass upside down. Negating k itself would put the
    // pole outside the unit circle and the stage would run away within a few samples.
    k.gainV = p.feedFreqInv > 0.5 ? -p.gainV : p.gainV;
    return k;
}

} // namespace qel
