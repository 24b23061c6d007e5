#include "Audio/Processes/CModLatencyUniformerDef.h"

#include "Audio/Processes/CModLatencyUniformer.h"

#include <new>

namespace qel {

CErrorPtr CModLatencyUniformerDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    parseLatencies(getAttrString(CString("latencies")));
    return nullptr;
}

CAudioProcessBase* CModLatencyUniformerDef::newProcess() const { return new (std::nothrow) CModLatencyUniformer(); }

} // namespace qel
