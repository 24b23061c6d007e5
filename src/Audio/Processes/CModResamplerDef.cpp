#include "Audio/Processes/CModResamplerDef.h"

#include "Audio/Processes/CModResampler.h"

#include <new>

namespace qel {

CErrorPtr CModResamplerDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    m_isUpsampler = getAttrBool(CString("is-upsampler"));
    return nullptr;
}

CAudioProcessBase* CModResamplerDef::newProcess() const { return new (std::nothrow) CModResampler(); }

} // namespace qel
