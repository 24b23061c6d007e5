#include "Core/CAttrDoubler.h"

#include "Core/CPtrArray.h"

namespace qel {

void CAttrDoubler::initClassInfo(CClassInfo& info)
{
    CObject::initClassInfo(info);
    info.addAttr<CAttrDoubler, &CAttrDoubler::attrValue>(CString("value"));
}

CErrorPtr CAttrDoubler::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    CPtrArray<CString, true> paths;
    getAttrString(CString("target")).split(' ', paths, true, true);
    if (paths.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CAttrDoubler_init_NoTargets No target objects specified.");
    m_targets.clear();
    for (const CString* path : paths) {
        CObject* target = findObject(*path);
        if (!target) {
            m_targets.clear();
            return QEL_ERROR(getFullName(), "@qelstr_CAttrDoubler_init_TargetNotFound Target object '%1' not found.", *path);
        }
        m_targets.push_back(target);
    }
    m_attr = getAttrString(CString("attr"));
    return nullptr;
}

CErrorPtr CAttrDoubler::attrValue(CAttrValue& value)
{
    for (CObject* target : m_targets)
        QEL_RETURN_IF_ERROR(target->setAttr(m_attr, value, true), getFullName());
    return nullptr;
}

} // namespace qel
