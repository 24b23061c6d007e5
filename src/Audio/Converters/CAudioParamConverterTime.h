#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// A time (tag audio:cvt-time). The DSP works in one unit and the user in another: text
// and display are value / `scale`, so scale 0.001 keeps seconds inside and shows
// milliseconds. The law is logarithmic (`is-log`), linear (`is-exact`) or by default a
// square law that gives short times more travel. `is-precise` adds a decimal to texts.
class CAudioParamConverterTime : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    bool isLog() const { return m_isLog; }
    double scale() const { return m_scale; }
    bool isExact() const { return m_isExact; }
    int precision() const { return m_precision; }

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
    double normToValue(const CAudioParamInfo& info, int pos, double norm) const override;
    double valueToNorm(const CAudioParamInfo& info, int pos, double value) const override;
    double normToDisplay(const CAudioParamInfo& info, int pos, double norm) const override;
    double displayToNorm(const CAudioParamInfo& info, int pos, double display) const override;

private:
    bool m_isLog = false;
    double m_scale = 0.0;
    bool m_isExact = false;
    int m_precision = 0;
};

} // namespace qel
