#include "Audio/Converters/CAudioParamConverterTime.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

#include <cmath>

namespace qel {

void CAudioParamConverterTime::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

CErrorPtr CAudioParamConverterTime::init()
{
    QEL_RETURN_IF_ERROR(CAudioParamConverter::init(), getFullName());
    // No default unit: a definition must say what its texts count in.
    if (!converter::readRealAttr(*this, "scale", 0.0, m_scale) || !(m_scale > 0.0))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamConverterTime_init_InvalidScale Invalid scale %1 specified.",
                         getAttrString(CString("scale")));
    m_isLog = getAttrBool(CString("is-log"));
    m_isExact = getAttrBool(CString("is-exact"));
    m_precision = getAttrBool(CString("is-precise")) ? 1 : 0;
    return nullptr;
}

double CAudioParamConverterTime::parseValue(const CAudioParamInfo& info, int pos, const CString& text,
                                            bool* ok) const
{
    bool read = false;
    const double shown = readNumber(text, &read);
    setOk(ok, read);
    return read ? clamp(info, pos, shown * m_scale) : minOf(info, pos);
}

double CAudioParamConverterTime::parseRawValue(const CAudioParamInfo&, int, const CString& text, bool* ok) const
{
    bool read = false;
    const double shown = readNumber(text, &read);
    setOk(ok, read);
    return read ? shown * m_scale : 0.0;
}

void CAudioParamConverterTime::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                           const CAudioParamData*, TextMode mode) const
{
    const double shown = value / m_scale;
    const double whole = roundHalfAway(std::fabs(shown));
    if (mode != TextModeTiny) {
        // About four significant digits; an exact time shows all its decimals.
        int decimals = m_precision;
        if (m_isExact || whole < 10.0)
            decimals += 2;
        else if (whole < 100.0)
            decimals += 1;
        out = formatReal(shown, decimals);
        return;
    }
    if (roundHalfAway(std::fabs(shown) * 10.0) == 0.0)
        out = formatReal(shown, 0);
    else if (whole < 10.0)
        out = formatReal(shown, 1);
    else if (whole >= 1000.0) // thousands of the unit, marked with a star: "1.2*" for 1234 ms
        out = formatReal(value * 0.001 / m_scale, whole < 10000.0 ? 1 : 0) + CString("*");
    else
        out = formatReal(shown, 0);
}

double CAudioParamConverterTime::normToValue(const CAudioParamInfo& info, int pos, double norm) const
{
    const double low = minOf(info, pos);
    const double high = maxOf(info, pos);
    if (m_isLog)
        return std::exp(std::log(low) + std::log(high / low) * norm);
    if (m_isExact)
        return CAudioParamConverter::normToValue(info, pos, norm);
    return low + norm * ((high - low) * norm);
}

double CAudioParamConverterTime::valueToNorm(const CAudioParamInfo& info, int pos, double value) const
{
    if (m_isLog) {
        const double low = minOf(info, pos);
        return std::log(value / low) / std::log(maxOf(info, pos) / low);
    }
    const double linear = CAudioParamConverter::valueToNorm(info, pos, value);
    return m_isExact ? linear : std::sqrt(std::fabs(linear));
}

double CAudioParamConverterTime::normToDisplay(const CAudioParamInfo& info, int pos, double norm) const
{
    return normToValue(info, pos, norm) / m_scale;
}

double CAudioParamConverterTime::displayToNorm(const CAudioParamInfo& info, int pos, double display) const
{
    return CAudioParamConverter::displayToNorm(info, pos, display * m_scale);
}

} // namespace qel
