#include "Audio/Converters/CAudioParamConverterLog.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

#include <cmath>

namespace qel {
namespace {

// A power this close to 1 is 1: the pow calls would only add rounding.
constexpr double kPlainPowerTolerance = 2.220446049250313e-16;

} // namespace

void CAudioParamConverterLog::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

CErrorPtr CAudioParamConverterLog::init()
{
    QEL_RETURN_IF_ERROR(CAudioParamConverter::init(), getFullName());
    if (!converter::readRealAttr(*this, "scale-power", 1.0, m_scalePower) || !(m_scalePower > 0.0))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamConverterLog_init_InvalidScalePower Invalid 'scale-power' attribute value %1 specified.",
                         getAttrString(CString("scale-power")));
    if (!converter::readRealAttr(*this, "scale-threshold", -1.0, m_scaleThreshold) || !(m_scaleThreshold <= 1.0))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamConverterLog_init_InvalidScaleThreshold Invalid 'scale-threshold' attribute value %1 specified.",
                         getAttrString(CString("scale-threshold")));
    return nullptr;
}

double CAudioParamConverterLog::normToValue(const CAudioParamInfo& info, int pos, double norm) const
{
    const double threshold = m_scaleThreshold;
    double low = minOf(info, pos);
    double high = maxOf(info, pos);
    double u = norm;
    bool bend = true;
    if (threshold > 0.0 && norm >= threshold) {
        // The upper part is never bent. A threshold of exactly 1 leaves it no width: the
        // top of the travel is then the factor 1, where the lower part ends.
        const double width = 1.0 - threshold;
        u = width > 0.0 ? (norm - threshold) / width : 0.0;
        low = 1.0;
        bend = false;
    } else if (threshold > 0.0) {
        u = norm / threshold;
        high = 1.0;
    }
    if (bend && std::fabs(m_scalePower - 1.0) > kPlainPowerTolerance)
        u = std::pow(u, 1.0 / m_scalePower);
    return std::exp(std::log(low) + std::log(high / low) * u);
}

double CAudioParamConverterLog::valueToNorm(const CAudioParamInfo& info, int pos, double value) const
{
    const double threshold = m_scaleThreshold;
    const double low = minOf(info, pos);
    const double max = maxOf(info, pos);
    if (threshold > 0.0 && value >= 1.0)
        return std::log(value) / std::log(max) * (1.0 - threshold) + threshold;
    const double high = threshold > 0.0 ? 1.0 : max;
    const double scale = threshold > 0.0 ? threshold : 1.0;
    const double r = std::log(value / low) / std::log(high / low);
    if (std::fabs(m_scalePower - 1.0) <= kPlainPowerTolerance)
        return r * scale;
    return std::pow(r, m_scalePower) * scale;
}

} // namespace qel
