#include "Audio/Processes/CModProcessSwitchDef.h"

#include "Audio/Processes/CModProcessSwitch.h"
#include "Core/CPtrArray.h"

#include <new>

namespace qel {

CErrorPtr CModProcessSwitchDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    m_defIndex = getAttrInt(CString("def-index"));
    m_defChildName = getAttrString(CString("def-child-name"));
    m_isAllpassBank = getAttrBool(CString("is-allpass-bank"));
    return nullptr;
}

// The table names other definitions by path, so it is read once they all exist.
CErrorPtr CModProcessSwitchDef::initChilds()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::initChilds(), getFullName());
    m_table.clear();
    CPtrArray<CString, true> items;
    getAttrString(CString("process-list")).split(';', items, true, true);
    for (int i = 0; i < items.count(); ++i) {
        const CString& item = *items[i];
        const CString number = CString::number(i);
        const int colon = item.find(':');
        if (colon < 0)
            return QEL_ERROR(getFullName(), "@qelstr_CModProcessSwitchDef_init_NoIndex No index delimiter ':' found in item #%1.", number);
        const CString indexText = item.substring(0, colon);
        int32_t index = 0;
        if (!indexText.toInt(index))
            return QEL_ERROR(getFullName(), "@qelstr_CModProcessSwitchDef_init_IndexError Invalid index value '%1' in item #%2.",
                             indexText, number);
        if (m_table.count(index) != 0)
            return QEL_ERROR(getFullName(), "@qelstr_CModProcessSwitchDef_init_IndexDupeError Duplicate index value '%1' used in item #%2.",
                             indexText, number);
        const CString target = item.substring(colon + 1);
        const int equals = target.find('=');
        const CString path = equals < 0 ? target : target.substring(0, equals);
        CEntry entry;
        entry.childName = equals < 0 ? m_defChildName : target.substring(equals + 1);
        CAudioProcessDefBase* def = nullptr;
        QEL_RETURN_IF_ERROR(findObjectChecked(def, path), getFullName());
        entry.def = def;
        m_table[index] = entry;
    }
    return nullptr;
}

const CModProcessSwitchDef::CEntry* CModProcessSwitchDef::lookUp(int32_t index) const
{
    auto it = m_table.find(index);
    if (it == m_table.end())
        it = m_table.find(m_defIndex);
    return it == m_table.end() ? nullptr : &it->second;
}

CAudioProcessBase* CModProcessSwitchDef::newProcess() const { return new (std::nothrow) CModProcessSwitch(); }

} // namespace qel
