#include "Audio/Converters/CAudioParamConverterBW.h"

#include <cmath>

namespace qel {

void CAudioParamConverterBW::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

double CAudioParamConverterBW::parseRawValue(const CAudioParamInfo& info, int pos, const CString& text,
                                             bool* ok) const
{
    bool read = false;
    const double value = CAudioParamConverter::parseRawValue(info, pos, text, &read);
    setOk(ok, read);
    // A bandwidth of zero would make a filter degenerate; the fallback stays just above.
    return read ? value : 0.001;
}

void CAudioParamConverterBW::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                         const CAudioParamData*, TextMode mode) const
{
    out = formatReal(value, mode == TextModePrecise ? 3 : 2);
}

double CAudioParamConverterBW::normToValue(const CAudioParamInfo& info, int pos, double norm) const
{
    const double low = minOf(info, pos);
    return low + (maxOf(info, pos) - low) * norm * norm;
}

double CAudioParamConverterBW::valueToNorm(const CAudioParamInfo& info, int pos, double value) const
{
    return std::sqrt(std::fabs(CAudioParamConverter::valueToNorm(info, pos, value)));
}

} // namespace qel
