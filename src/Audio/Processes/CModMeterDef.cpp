#include "Audio/Processes/CModMeterDef.h"

#include "Audio/Processes/CModMeter.h"

#include <cmath>
#include <new>

namespace qel {

CErrorPtr CModMeterDef::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
    const CString fps("fps");
    m_hasFixedFps = hasAttr(fps);
    m_fps = kFallbackFps;
    double value = 0.0;
    if (m_hasFixedFps && getAttrString(fps).toReal(value) && std::isfinite(value) && value > 0.0)
        m_fps = value;
    m_isDiff = getAttrBool(CString("is-diff"));
    m_isCompression = getAttrBool(CString("is-compression"));
    m_isInverted = getAttrBool(CString("is-inverted"));
    return nullptr;
}

CAudioProcessBase* CModMeterDef::newProcess() const { return new (std::nothrow) CModMeter(); }

} // namespace qel
