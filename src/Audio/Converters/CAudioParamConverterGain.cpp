#include "Audio/Converters/CAudioParamConverterGain.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

#include <cmath>

namespace qel {

void CAudioParamConverterGain::initClassInfo(CClassInfo& info)
{
    CAudioParamConverterLog::initClassInfo(info);
}

CErrorPtr CAudioParamConverterGain::init()
{
    QEL_RETURN_IF_ERROR(CAudioParamConverterLog::init(), getFullName());
    if (!converter::readIntAttr(*this, "decimals", 0, m_decimals) || m_decimals < 0 || m_decimals > 10)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamConverterGain_init_InvalidDecimals Invalid 'decimals' attribute value %1 specified.",
                         getAttrString(CString("decimals")));
    return nullptr;
}

double CAudioParamConverterGain::parseValue(const CAudioParamInfo& info, int pos, const CString& text,
                                            bool* ok) const
{
    bool read = false;
    const double db = readNumber(text, &read);
    setOk(ok, read);
    return read ? clamp(info, pos, std::exp(db / kDbPerNeper)) : minOf(info, pos);
}

double CAudioParamConverterGain::parseRawValue(const CAudioParamInfo&, int, const CString& text, bool* ok) const
{
    bool read = false;
    const double db = readNumber(text, &read);
    setOk(ok, read);
    // Unreadable is 0 dB: a factor of 1 leaves the signal alone.
    return std::exp((read ? db : 0.0) / kDbPerNeper);
}

void CAudioParamConverterGain::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                           const CAudioParamData*, TextMode mode) const
{
    const double db = std::log(value) * kDbPerNeper;
    if (mode == TextModePrecise) {
        out = formatReal(db, 2);
        return;
    }
    if (mode == TextModeTiny) {
        // A decimal only while the number has a single digit, and none at 0 dB itself.
        const double magnitude = std::fabs(db);
        const bool oneDecimal = roundHalfAway(magnitude * 10.0) < 100.0 && roundHalfAway(magnitude * 100.0) >= 1.0;
        out = formatReal(db, oneDecimal ? 1 : 0);
        return;
    }
    out = formatReal(db, m_decimals);
}

double CAudioParamConverterGain::normToDisplay(const CAudioParamInfo& info, int pos, double norm) const
{
    return std::log(normToValue(info, pos, norm)) * kDbPerNeper;
}

double CAudioParamConverterGain::displayToNorm(const CAudioParamInfo& info, int pos, double display) const
{
    return valueToNorm(info, pos, clamp(info, pos, std::exp(display / kDbPerNeper)));
}

} // namespace qel
