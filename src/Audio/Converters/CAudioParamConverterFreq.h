#pragma once

#include "Audio/Converters/CAudioParamConverterLog.h"

namespace qel {

// A frequency in Hz on the logarithmic law (tag audio:cvt-freq). Texts above 1 kHz use a
// "k" suffix, which the user may type too ("1.5k", "1,5K"). Honours the parameter's switch.
class CAudioParamConverterFreq : public CAudioParamConverterLog
{
public:
    static void initClassInfo(CClassInfo& info);

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
};

} // namespace qel
