#include "Audio/Processes/CModFilterIIRDef.h"

#include "Audio/Processes/CModFilterIIR.h"

#include <new>

namespace qel {

CErrorPtr CModFilterIIRDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    m_genArrayPath = getAttrString(CString("gen-array"));
    return nullptr;
}

CAudioProcessBase* CModFilterIIRDef::newProcess() const { return new (std::nothrow) CModFilterIIR(); }

} // namespace qel
