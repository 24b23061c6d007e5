#include "Audio/Processes/CSatEBCoeffs.h"

#include <algorithm>
#include <cmath>

namespace qel {

namespace {

// Below this a drive, shift or make-up gain would turn its logarithm or reciprocal
// infinite; the parameter ranges stay far above it.
constexpr double kTiny = 1e-9;

} // namespace

CSatEBCoeffs CSatEBCoeffs::design(const CParams& p)
{
    CSatEBCoeffs k;
    k.drive = std::max(p.drive, kTiny);
    k.biasGain = p.biasGain;
    k.biasGain2 = p.biasGain2;
    k.curveGain = p.curveGain;
    k.curvature = p.curvature;
    k.shift = std::max(p.shift, kTiny);
    k.cb = k.drive * p.constBias;
    k.invShift = 1.0 / k.shift;
    k.negInvShift2 = -1.0 / (k.shift * k.shift);
    // The output gain takes back (1 - makeup-corr) of the drive in decibels.
    const double driveDb = 20.0 * std::log10(k.drive);
    k.outGain = -std::max(p.makeupGain, kTiny) * std::pow(10.0, ((p.makeupCorr - 1.0) * driveDb) / 20.0);
    k.invOutGain = -1.0 / k.outGain;

    double e = std::sqrt(kLevelFloor);
    double y = 0.0;
    for (int32_t i = 0; i < kRestIterations; ++i) {
        const double be = k.biasGain2 * e;
        const double t = k.cb + be * be + k.biasGain * e;
        y = k.curve(t, e);
        e = std::sqrt(y * y + kLevelFloor);
    }
    k.y0 = y;
    k.restLevel = e;
    k.cbOut = k.cb - k.y0;
    k.y0out = k.curve(k.cbOut + k.biasGain * e, e);
    return k;
}

} // namespace qel
