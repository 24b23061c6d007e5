#include "Audio/CAudioProcessDef.h"

#include "Audio/CAudioProcess.h"
#include "Audio/CAudioProcessBypassStateDef.h"
#include "Audio/CAudioProcessLinkDef.h"

#include <new>

namespace qel {

CErrorPtr CAudioProcessDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    m_isAutoLinks = getAttrBool(CString("is-auto-links"));
    return nullptr;
}

CAudioProcessBase* CAudioProcessDef::newProcess() const { return new (std::nothrow) CAudioProcess(); }

CErrorPtr CAudioProcessDef::initChilds()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::initChilds(), getFullName());
    m_processes.clear();
    m_linksByState.clear();
    m_bypassStates.clear();
    for (int i = 0; i < childCount(); ++i) {
        CObject* c = child(i);
        if (auto* process = dynamic_cast<CAudioProcessDefBase*>(c))
            m_processes.append(process);
        else if (auto* link = dynamic_cast<CAudioProcessLinkDef*>(c))
            m_linksByState[link->stateId()].append(link);
        else if (auto* state = dynamic_cast<CAudioProcessBypassStateDef*>(c))
            m_bypassStates.append(state);
    }
    return nullptr;
}

} // namespace qel
