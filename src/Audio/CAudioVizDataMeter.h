#pragma once

#include "Audio/CAudioVizData.h"

namespace qel {

// One frame of a level meter: the smoothed level and the held peak, both linear
// amplitudes (a level of 0 travels as it is; decibels are the display's matter).
class CAudioVizDataMeter : public CAudioVizData
{
public:
    // Bytes of the stored form: the common fields, then rms and peak.
    static constexpr uint32_t kSize = kBaseSize + 8 + 8;

    CAudioVizDataMeter() : CAudioVizData(TypeMeter) {}

    CErrorPtr save(COutputStream& out) const override;
    CErrorPtr load(CInputStream& in) override;

    double rms = 0.0;
    double peak = 0.0;
};

} // namespace qel
