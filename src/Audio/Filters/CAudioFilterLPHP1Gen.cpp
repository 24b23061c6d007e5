#include "Audio/Filters/CAudioFilterLPHP1Gen.h"

#include "Audio/Filters/CDCDAWKernelSet.h"

#include <cmath>
#include <numbers>

namespace qel {

CErrorPtr CAudioFilterLPHP1Gen::init()
{
    QEL_RETURN_IF_ERROR(CAudioFilterGen::init(), getFullName());
    int32_t type = 0;
    QEL_RETURN_IF_ERROR(readType("@qelstr_CAudioFilterLPHP1Gen_init_InvalidType Invalid filter type '%1' specified.", 0, 2, type),
                        getFullName());
    m_type = Type(type);
    return nullptr;
}

// With x = 2 - cos w the pole is r = x - sqrt(x^2 - 1). Near w = 0 both x^2 - 1 and 1 - r
// vanish, and forming them from cos w would leave few digits of a 1 Hz pole at a megahertz
// rate. With h = 1 - cos w = 2 sin^2(w / 2): x^2 - 1 = h (h + 2) and k = 1 - r =
// sqrt(h (h + 2)) - h, both from terms known to full precision.
double CAudioFilterLPHP1Gen::coefficientFor(double w)
{
    const double half = std::sin(0.5 * w);
    const double h = 2.0 * half * half;
    return std::sqrt(h * (h + 2.0)) - h;
}

void CAudioFilterLPHP1Gen::createFilter(CDCDAWFilterWorkspace&, double sampleRate, const CAudioFilterParams& params,
                                        CAudioFilterStageList& stages) const
{
    double freq = 0.0;
    if (!params.find("freq", freq) || !(freq > 0.0) || !(sampleRate > 0.0) || 2.0 * freq > sampleRate)
        return;
    const double w = 2.0 * std::numbers::pi * freq / sampleRate;
    const double k = coefficientFor(w);
    double g = 1.0;
    const CDCDAWKernelSet* kernels = &dcdaw::kLowPass1;
    if (m_type == HighPass) {
        kernels = &dcdaw::kHighPass1;
    } else if (m_type == HighPassGain) {
        kernels = &dcdaw::kHighPass1Gain;
        // The high-pass is r (1 - z^-1) / (1 - r z^-1); at w, with h = 1 - cos w,
        // |1 - z^-1|^2 = 2 h and |1 - r z^-1|^2 = k^2 + 2 r h.
        const double r = 1.0 - k;
        const double half = std::sin(0.5 * w);
        const double h = 2.0 * half * half;
        const double magnitude = r * std::sqrt(2.0 * h / (k * k + 2.0 * r * h));
        g = 0.7079457843841379 / magnitude;
    }
    if (!std::isfinite(k) || !std::isfinite(g))
        return;
    CAudioFilterStage* stage = stages.append(kernels);
    if (!stage)
        return;
    stage->bCount = 2;
    stage->b[0] = k;
    stage->b[1] = g;
}

} // namespace qel
