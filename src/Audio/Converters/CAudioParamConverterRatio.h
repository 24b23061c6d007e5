#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// A dynamics ratio (tag audio:cvt-ratio). The value is the gain factor above the
// threshold: 0.25 is a 4:1 compressor and reads "4.00:1", 2 an expander and reads "1:2.00".
// The user may type "4", "4:1" or "1:2". The law is geometric, so that 2:1 and 1:2 lie as
// far from 1:1 as each other.
class CAudioParamConverterRatio : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    int decimals() const { return m_decimals; }

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
    double normToValue(const CAudioParamInfo& info, int pos, double norm) const override;
    double valueToNorm(const CAudioParamInfo& info, int pos, double value) const override;

private:
    int32_t m_decimals = 0;
};

} // namespace qel
