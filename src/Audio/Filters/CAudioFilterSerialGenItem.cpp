#include "Audio/Filters/CAudioFilterSerialGenItem.h"

#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CAudioFilterNumberList.h"
#include "Audio/Filters/CAudioFilterSerialGen.h"

#include <cmath>

namespace qel {

CErrorPtr CAudioFilterSerialGenItem::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    if (!dynamic_cast<CAudioFilterSerialGen*>(parent()))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterSerialGenItem_init_InvalidParent CAudioFilterSerialGen class parent expected.");
    for (const char* name : {"adjust", "adjust-pow"}) {
        const bool isAdjust = name[6] == '\0';
        const CString text = getAttrString(CString(name));
        if (!parseNumberList(text, isAdjust ? m_adjust : m_power, kMaxValues, isAdjust ? m_adjustCount : m_powerCount))
            return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterSerialGenItem_init_InvalidList Invalid number list '%1' in attribute '%2'.",
                             text, CString(name));
    }
    return nullptr;
}

// The generator may stand anywhere before this item in the definition.
CErrorPtr CAudioFilterSerialGenItem::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    CAudioFilterGen* generator = nullptr;
    QEL_RETURN_IF_ERROR(findObjectByAttr(generator, CString("fltgen")), getFullName());
    m_generator = generator;
    return nullptr;
}

double CAudioFilterSerialGenItem::adjusted(int32_t j, double value) const
{
    const double factor = j < m_adjustCount ? m_adjust[j] : 1.0;
    const double power = j < m_powerCount ? m_power[j] : 1.0;
    return factor * (power == 1.0 ? value : std::pow(value, power));
}

} // namespace qel
