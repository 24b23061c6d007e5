#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// Whole numbers on a linear range: every position lands on the nearest integer, so a
// knob steps through the values instead of gliding between them.
class CAudioParamConverterRound : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);

    double normToValue(const CAudioParamInfo& info, int pos, double norm) const override;
};

} // namespace qel
