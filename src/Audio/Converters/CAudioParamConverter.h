#pragma once

#include "Core/CObject.h"

#include <cstdint>

namespace qel {

class CAudioParamInfo;
class CAudioParamData;

// Moves a parameter's value between its three forms: the internal value the DSP uses,
// the normalised position 0..1 of a knob or automation lane, and the text and display
// number the user reads. Shared by every parameter that names it; the range comes from
// the parameter's info and the value's position in the element.
// UI, host and main threads; never the audio thread.
class CAudioParamConverter : public CObject
{
public:
    enum TextMode { TextModeNormal = 0, TextModeTiny = 1, TextModeShort = 2, TextModePrecise = 3 };

    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    const CString& label() const { return m_label; }
    bool isDiscrete() const { return m_isDiscrete; }

    // Text to internal value, clamped; unreadable text sets ok false and gives the minimum.
    virtual double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const;
    // Text to internal value, not clamped; unreadable text gives the class's fallback.
    virtual double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const;
    virtual void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value,
                             const CAudioParamData* data, TextMode mode) const;
    virtual double normToValue(const CAudioParamInfo& info, int pos, double norm) const;
    virtual double valueToNorm(const CAudioParamInfo& info, int pos, double value) const;
    virtual double normToDisplay(const CAudioParamInfo& info, int pos, double norm) const;
    virtual double displayToNorm(const CAudioParamInfo& info, int pos, double display) const;

    // Half away from zero.
    static double roundHalfAway(double x);
    // Fixed point: round(value * 10^decimals) with the point placed; "-" only when the
    // rounded number is below 0.
    static CString formatReal(double value, int decimals);
    // [+-]digits[(.|,)digits][(e|E)[+-]digits], the whole text, no blanks.
    static double readNumber(const CString& text, bool* ok);

protected:
    static void setOk(bool* ok, bool value)
    {
        if (ok)
            *ok = value;
    }
    // The value limited to the range of its position, whichever way round the range is.
    static double clamp(const CAudioParamInfo& info, int pos, double value);
    static double minOf(const CAudioParamInfo& info, int pos);
    static double maxOf(const CAudioParamInfo& info, int pos);

    CString m_label;
    bool m_isDiscrete = false;
};

} // namespace qel
