#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// A fraction shown as a percentage: the DSP works with 0.25, the user reads and types 25
// (tag audio:cvt-percent). Honours the parameter's switch.
class CAudioParamConverterPercent : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
    double normToDisplay(const CAudioParamInfo& info, int pos, double norm) const override;
    double displayToNorm(const CAudioParamInfo& info, int pos, double display) const override;
};

} // namespace qel
