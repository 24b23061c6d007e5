#include "Audio/Converters/CAudioParamConverterRatio.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

#include <cmath>

namespace qel {
namespace {

// "a" is a:1 and "a:b" is b/a.
bool readRatio(const CString& text, double& value)
{
    const int colon = text.find(':');
    bool ok = false;
    const double first = CAudioParamConverter::readNumber(converter::trimmed(colon < 0 ? text : text.substring(0, colon)), &ok);
    if (!ok || first == 0.0)
        return false;
    double second = 1.0;
    if (colon >= 0) {
        const CString rest = text.substring(colon + 1);
        if (rest.find(':') >= 0)
            return false;
        second = CAudioParamConverter::readNumber(converter::trimmed(rest), &ok);
        if (!ok)
            return false;
    }
    value = second / first;
    // 1:1 would switch the processor off; the factor keeps the side it came from.
    if (std::fabs(value - 1.0) < 0.001)
        value = value > 1.0 ? 1.001 : 0.999;
    return true;
}

} // namespace

void CAudioParamConverterRatio::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

CErrorPtr CAudioParamConverterRatio::init()
{
    QEL_RETURN_IF_ERROR(CAudioParamConverter::init(), getFullName());
    // At least one decimal: the text loses one above 10:1, and must still tell 1.05 apart.
    if (!converter::readIntAttr(*this, "decimals", 0, m_decimals) || m_decimals < 1 || m_decimals > 10)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamConverterRatio_init_InvalidDecimals Invalid decimals %1 specified.",
                         getAttrString(CString("decimals")));
    return nullptr;
}

double CAudioParamConverterRatio::parseValue(const CAudioParamInfo& info, int pos, const CString& text,
                                             bool* ok) const
{
    double value = 0.0;
    const bool read = readRatio(text, value);
    setOk(ok, read);
    return read ? clamp(info, pos, value) : minOf(info, pos);
}

double CAudioParamConverterRatio::parseRawValue(const CAudioParamInfo&, int, const CString& text, bool* ok) const
{
    double value = 0.0;
    const bool read = readRatio(text, value);
    setOk(ok, read);
    return read ? value : 0.5;
}

void CAudioParamConverterRatio::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                            const CAudioParamData*, TextMode mode) const
{
    int decimalsLeft = mode == TextModeTiny ? 1 : m_decimals;
    const double inverse = 1.0 / value;
    if (roundHalfAway(1000.0 * inverse) < 1001.0) {
        if (roundHalfAway(10.0 * value) >= 100.0)
            --decimalsLeft;
        out = CString("1:") + formatReal(value, decimalsLeft);
        return;
    }
    if (roundHalfAway(1000.0 * inverse) >= 10000.0)
        --decimalsLeft;
    out = formatReal(inverse, decimalsLeft) + CString(":1");
}

double CAudioParamConverterRatio::normToValue(const CAudioParamInfo& info, int pos, double norm) const
{
    const double logMin = std::log(minOf(info, pos));
    return std::exp(logMin + (std::log(maxOf(info, pos)) - logMin) * norm);
}

double CAudioParamConverterRatio::valueToNorm(const CAudioParamInfo& info, int pos, double value) const
{
    const double logMin = std::log(minOf(info, pos));
    return (std::log(value) - logMin) / (std::log(maxOf(info, pos)) - logMin);
}

} // namespace qel
