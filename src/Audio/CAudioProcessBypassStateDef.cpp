#include "Audio/CAudioProcessBypassStateDef.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioProcessDefBase.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace qel {

namespace {

// Position on the grid, half away from zero. Beyond the int64 range a quotient is pinned
// to its end, which keeps the comparisons right for bounds and values alike.
bool toGrid(double value, double step, int64_t& out)
{
    const double steps = std::round(value / step);
    if (std::isnan(steps))
        return false;
    constexpr double kLimit = 9.0e18;
    if (steps >= kLimit)
        out = std::numeric_limits<int64_t>::max();
    else if (steps <= -kLimit)
        out = std::numeric_limits<int64_t>::min();
    else
        out = static_cast<int64_t>(steps);
    return true;
}

// A bound field: '*' leaves the side open.
bool parseBound(const CString& field, double step, bool& outHas, int64_t& outSteps)
{
    outHas = !(field == CString("*"));
    double value = 0.0;
    return !outHas || (field.toReal(value) && toGrid(value, step, outSteps));
}

// Whether the range, if there is one, is valid.
bool readTest(const CObject& object, const char* valueName, const char* rangeName, CAudioProcessBypassStateDef::CTest& out)
{
    out = CAudioProcessBypassStateDef::CTest();
    out.value = object.getAttrReal(CString(valueName));
    const CString range = object.getAttrString(CString(rangeName));
    out.hasRange = !range.isEmpty();
    return !out.hasRange || CAudioProcessBypassStateDef::CRange::parse(range, out.range);
}

} // namespace

bool CAudioProcessBypassStateDef::CRange::parse(const CString& text, CRange& out)
{
    out = CRange();
    const int n = text.length();
    if (n < 5)
        return false;
    const char16_t open = text.at(0);
    const char16_t close = text.at(n - 1);
    if ((open != '[' && open != '(') || (close != ']' && close != ')'))
        return false;
    out.isMinInside = open == '[';
    out.isMaxInside = close == ']';

    CPtrArray<CString, true> fields;
    text.substring(1, n - 2).split(';', fields, false, true);
    if (fields.count() != 2 && fields.count() != 3)
        return false;
    if (fields.count() == 3 && !(fields[2]->toReal(out.step) && out.step > 0.0))
        return false;
    return parseBound(*fields[0], out.step, out.hasMin, out.minSteps)
           && parseBound(*fields[1], out.step, out.hasMax, out.maxSteps);
}

bool CAudioProcessBypassStateDef::CRange::contains(double value) const
{
    int64_t steps = 0;
    if (!toGrid(value, step, steps))
        return false;
    if (hasMin && (isMinInside ? steps < minSteps : steps <= minSteps))
        return false;
    if (hasMax && (isMaxInside ? steps > maxSteps : steps >= maxSteps))
        return false;
    return true;
}

bool CAudioProcessBypassStateDef::CTest::matches(double x) const
{
    return hasRange ? range.contains(x) : std::fabs(x - value) <= kTolerance;
}

CErrorPtr CAudioProcessBypassStateDef::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    m_id = getAttrInt(CString("id"));
    m_param = getAttrString(CString("param"));
    if (m_param.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessBypassStateDef_init_InvalidParam Invalid parameter name specified.");
    if (!readTest(*this, "value", "range", m_test))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessBypassStateDef_init_InvalidRange Invalid 'range' attribute value '%1' specified.",
                         getAttrString(CString("range")));
    m_andParam = getAttrString(CString("and-param"));
    if (!readTest(*this, "and-value", "and-range", m_andTest))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessBypassStateDef_init_InvalidAndRange Invalid 'and-range' attribute value '%1' specified.",
                         getAttrString(CString("and-range")));
    m_isInverted = getAttrBool(CString("is-inverted"));
    return nullptr;
}

bool CAudioProcessBypassStateDef::matches(double value, double andValue) const
{
    bool holds = m_test.matches(value);
    if (hasAndParam())
        holds = holds && m_andTest.matches(andValue);
    return holds != m_isInverted;
}

CAudioProcessBypassStateDef::CBinding CAudioProcessBypassStateDef::bind(CAudioParamCollector& collector,
                                                                        const CString& processFullName) const
{
    CAudioParam* param = collector.getParam(CAudioProcessDefBase::resolveParamPath(processFullName, m_param));
    CAudioParam* andParam = hasAndParam()
                                ? collector.getParam(CAudioProcessDefBase::resolveParamPath(processFullName, m_andParam))
                                : nullptr;
    return CBinding(this, param, andParam);
}

bool CAudioProcessBypassStateDef::CBinding::isBypassed(int32_t group, int32_t element) const
{
    if (!m_state || !m_param)
        return false;
    // A parameter without its definition has no values: NaN matches no test.
    constexpr double kUnread = std::numeric_limits<double>::quiet_NaN();
    const double value = m_param->audioValues().getElementValue(group, element, 0, kUnread);
    const double andValue = m_andParam ? m_andParam->audioValues().getElementValue(group, element, 0, kUnread) : kUnread;
    return m_state->matches(value, andValue);
}

} // namespace qel
