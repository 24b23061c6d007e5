#include "Audio/Filters/CAudioFilterRBJGen.h"

#include "Audio/Filters/CDCDAWKernelSet.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qel {

CErrorPtr CAudioFilterRBJGen::init()
{
    QEL_RETURN_IF_ERROR(CAudioFilterGen::init(), getFullName());
    int32_t type = 0;
    QEL_RETURN_IF_ERROR(readType("@qelstr_CAudioFilterRBJGen_init_InvalidType Invalid filter type '%1' specified.", 0, 10, type),
                        getFullName());
    m_type = Type(type);
    m_isQ = getAttrBool(CString("is-q"));
    m_isType2 = getAttrBool(CString("is-type2"));
    m_isInverted = getAttrBool(CString("is-inverted"));
    m_isGainQ = getAttrBool(CString("is-gain-q"));
    return nullptr;
}

void CAudioFilterRBJGen::createFilter(CDCDAWFilterWorkspace&, double sampleRate, const CAudioFilterParams& params,
                                      CAudioFilterStageList& stages) const
{
    double freq = 0.0;
    double gain = 0.0;
    double bw = 0.0;
    if (!params.find("freq", freq) || !params.find("gain", gain) || !params.find("bw", bw))
        return;
    if (!(freq > 0.0) || !(sampleRate > 0.0) || 2.0 * freq > sampleRate)
        return;
    const double w = 2.0 * std::numbers::pi * freq / sampleRate;
    const double c = std::cos(w);
    const double s = std::sin(w);
    // 1 - cos w from the half angle: at 20 Hz and a megahertz rate cos w is 1 - 1e-9, and
    // the difference would keep only half of its digits.
    const double half = std::sin(0.5 * w);
    const double h = 2.0 * half * half;
    const double A = std::sqrt(gain);

    const bool isQ = m_isQ || m_isGainQ;
    const double q = m_isGainQ ? gain : bw;
    double alpha = 0.0;
    double beta = 0.0;
    if (isQ) {
        alpha = s / (2.0 * q);
        beta = s * std::sqrt(A) / q;
    } else {
        // w / sin w grows without bound towards the Nyquist frequency, and sinh would
        // overflow there; held at sinh(300) the band is as wide as it gets, which is the
        // limit the formula tends to.
        const double octaves = m_isType2 ? bw : bw * (s != 0.0 ? w / s : 1.0);
        alpha = s * std::sinh(std::min(kHalfLn2 * octaves, kMaxSinhArg));
        beta = 2.0 * std::sqrt(A) * alpha;
    }

    const CDCDAWKernelSet* kernels = &dcdaw::kBiquadCommon;
    double b0 = 0.0, b1 = 0.0, b2 = 0.0, a0 = 1.0 + alpha, a1 = -2.0 * c, a2 = 1.0 - alpha;
    switch (m_type) {
    case LowPass:
        b0 = b2 = 0.5 * h;
        b1 = h;
        kernels = &dcdaw::kBiquadLowPass;
        break;
    case HighPass:
        b0 = b2 = 0.5 * (1.0 + c);
        b1 = -(1.0 + c);
        kernels = &dcdaw::kBiquadHighPass;
        break;
    case BandPass:
        b0 = alpha;
        b2 = -alpha;
        kernels = &dcdaw::kBiquadBandPass;
        break;
    case BandPassSkirt:
        b0 = 0.5 * s;
        b2 = -0.5 * s;
        kernels = &dcdaw::kBiquadBandPass;
        break;
    case Notch:
        b0 = b2 = 1.0;
        b1 = -2.0 * c;
        kernels = &dcdaw::kBiquadNotch;
        break;
    case AllPass:
        b0 = 1.0 - alpha;
        b1 = -2.0 * c;
        b2 = 1.0 + alpha;
        break;
    case Peaking:
        b0 = 1.0 + alpha * A;
        b1 = -2.0 * c;
        b2 = 1.0 - alpha * A;
        a0 = 1.0 + alpha / A;
        a2 = 1.0 - alpha / A;
        break;
    case LowShelf:
    case HighShelf: {
        // (A+1) -+ (A-1) c and (A-1) +- (A+1) c written around c = 1, where the shelf's
        // poles and zeros crowd together at low frequencies.
        const double p = 2.0 + (A - 1.0) * h;       // (A+1) - (A-1) c
        const double m = 2.0 * A - (A - 1.0) * h;   // (A+1) + (A-1) c
        const double u = 2.0 * A - (A + 1.0) * h;   // (A-1) + (A+1) c
        const double v = -2.0 + (A + 1.0) * h;      // (A-1) - (A+1) c
        if (m_type == LowShelf) {
            b0 = A * (p + beta);
            b1 = 2.0 * A * v;
            b2 = A * (p - beta);
            a0 = m + beta;
            a1 = -2.0 * u;
            a2 = m - beta;
        } else {
            b0 = A * (m + beta);
            b1 = -2.0 * A * u;
            b2 = A * (m - beta);
            a0 = p + beta;
            a1 = 2.0 * v;
            a2 = p - beta;
        }
        break;
    }
    case AllPassRadius:
        b0 = q * q;
        b1 = -2.0 * c * q;
        b2 = c * c + s * s;
        a0 = 1.0;
        a1 = -2.0 * c * q;
        a2 = (c * q) * (c * q) + (s * q) * (s * q);
        break;
    case Type10:
        b0 = -c;
        b1 = 2.0;
        b2 = -c;
        break;
    }
    if (m_isInverted && (m_type == LowPass || m_type == HighPass)) {
        b0 = -b0;
        b1 = -b1;
        b2 = -b2;
    }
    appendBiquad(stages, kernels, b0, b1, b2, a0, a1, a2);
}

} // namespace qel
