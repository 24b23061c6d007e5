#include "Audio/Converters/CAudioParamConverterRound.h"

namespace qel {

void CAudioParamConverterRound::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

double CAudioParamConverterRound::normToValue(const CAudioParamInfo& info, int pos, double norm) const
{
    return roundHalfAway(CAudioParamConverter::normToValue(info, pos, norm));
}

} // namespace qel
