#include "Audio/Processes/CModFilterFIRDef.h"

#include "Audio/Processes/CModFilterFIR.h"

#include <new>

namespace qel {

CErrorPtr CModFilterFIRDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    m_genArrayPath = getAttrString(CString("gen-array"));
    m_isZeroLatency = getAttrBool(CString("is-zero-latency"));
    return nullptr;
}

CAudioProcessBase* CModFilterFIRDef::newProcess() const { return new (std::nothrow) CModFilterFIR(); }

} // namespace qel
