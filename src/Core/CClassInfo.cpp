#include "Core/CClassInfo.h"

namespace qel {

void CClassInfo::addEvent(const CString& name, CEventHandler handler)
{
    CEventRecord& record = m_events[name];
    record.handler = handler;
    record.handlerWithParams = nullptr;
    record.takesParams = false;
}

void CClassInfo::addEvent(const CString& name, CEventHandlerWithParams handler)
{
    CEventRecord& record = m_events[name];
    record.handler = nullptr;
    record.handlerWithParams = handler;
    record.takesParams = true;
}

CAttrSetter CClassInfo::findSetter(const CString& name) const
{
    auto it = m_attrs.find(name);
    return it == m_attrs.end() ? nullptr : it->second;
}

const CEventRecord* CClassInfo::findEvent(const CString& name) const
{
    auto it = m_events.find(name);
    return it == m_events.end() ? nullptr : &it->second;
}

} // namespace qel
