#pragma once

#include "Audio/Processes/CGlowCoreCurve.h"

#include <cstdint>

namespace qel {

// What the harmonic stage computes from its parameters (ratios as factors, gains linear,
// feed-freq in Hz) at a sample rate: the two curves, the output for silence that every
// sample has taken off, the auto gain of the second kernel and the one-pole coefficient
// of the feed's high-pass. Pure.
struct CGlowCoreCoeffs
{
    // Values when a slot is unbound: the product's defaults, but for feed-freq.
    struct CParams
    {
        double ratioA = 1.0 / 1.05;
        double ratioB = 1.0 / 1.1;
        double kneeA = 3.5;
        double kneeB = 4.8;
        double biasI = -1.8;
        double biasV = 0.5;
        double gainI = 1.0;
        double gainV = 0.15;
        double autoGainPoint = 1.009;
        double feedFreqHz = 1000.0;
        double feedFreqInv = 0.0;
        double type = 1.0;
        double makeupGain = 1.0;
    };

    CGlowCoreCurve curveA;
    CGlowCoreCurve curveB;
    double gainI = 1.0;
    double biasI = 0.0;
    double biasV = 0.0;
    double gainV = 0.0;    // negated under feed-freq-inv
    double makeupGain = 1.0;
    double offset = 0.0;   // the output for silence
    double norm = 1.0;     // the second kernel's gain: auto-gain-point in, 1 out
    double k = 0.0;        // one-pole coefficient: z += (u - z) * k
    bool isType1 = true;

    static CGlowCoreCoeffs design(const CParams& p, double sampleRate);
};

} // namespace qel
