#include "Audio/Converters/CAudioParamConverterReal.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

#include <cmath>

namespace qel {

void CAudioParamConverterReal::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

CErrorPtr CAudioParamConverterReal::init()
{
    QEL_RETURN_IF_ERROR(CAudioParamConverter::init(), getFullName());
    if (!converter::readIntAttr(*this, "decimals", 0, m_decimals) || m_decimals < 0 || m_decimals > 10)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamConverterReal_init_InvalidDecimals Invalid decimals %1 specified.",
                         getAttrString(CString("decimals")));
    return nullptr;
}

void CAudioParamConverterReal::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                           const CAudioParamData*, TextMode mode) const
{
    if (mode == TextModeTiny) {
        // Four characters: one decimal only while the number has a single digit.
        out = formatReal(value, roundHalfAway(std::fabs(value) * 10.0) < 100.0 ? 1 : 0);
        return;
    }
    out = formatReal(value, m_decimals);
}

} // namespace qel
