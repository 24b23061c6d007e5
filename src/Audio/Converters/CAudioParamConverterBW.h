#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// A filter's bandwidth in octaves (tag audio:cvt-bw). A square law gives the narrow end,
// where small changes matter, more of the knob's travel.
class CAudioParamConverterBW : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);

    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
    double normToValue(const CAudioParamInfo& info, int pos, double norm) const override;
    double valueToNorm(const CAudioParamInfo& info, int pos, double value) const override;
};

} // namespace qel
