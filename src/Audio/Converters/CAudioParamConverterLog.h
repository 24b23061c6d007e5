#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// Logarithmic law for ranges that span decades (frequencies, gain factors). A
// `scale-power` other than 1 bends the curve: the position is taken to 1/power before the
// exponential. A `scale-threshold` in 0..1 pins the factor 1.0 to that position: below it
// min..1 follows the (bent) curve, above it 1..max is logarithmic, so unity gain can sit
// at the knob's centre whatever the range's extent on either side.
class CAudioParamConverterLog : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    double scalePower() const { return m_scalePower; }
    double scaleThreshold() const { return m_scaleThreshold; }

    double normToValue(const CAudioParamInfo& info, int pos, double norm) const override;
    double valueToNorm(const CAudioParamInfo& info, int pos, double value) const override;

protected:
    double m_scalePower = 1.0;
    double m_scaleThreshold = -1.0;
};

} // namespace qel
