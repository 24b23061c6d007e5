#pragma once

#include "Audio/Converters/CAudioParamConverterLog.h"

namespace qel {

// A gain: the DSP multiplies by the linear factor, the user reads and types decibels
// (tag audio:cvt-gain). The display number is in decibels too.
class CAudioParamConverterGain : public CAudioParamConverterLog
{
public:
    // 20 / ln(10): decibels per natural-log unit of an amplitude factor.
    static constexpr double kDbPerNeper = 8.685889638065037;

    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    int decimals() const { return m_decimals; }

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
    double normToDisplay(const CAudioParamInfo& info, int pos, double norm) const override;
    double displayToNorm(const CAudioParamInfo& info, int pos, double display) const override;

private:
    int32_t m_decimals = 0;
};

} // namespace qel
