#include "Audio/CAudioProcessDefBase.h"

namespace qel {

CErrorPtr CAudioProcessDefBase::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBaseInit::init(), getFullName());
    m_isSmoothUpdate = getAttrBool(CString("is-smooth-update"));
    m_isMultiband = getAttrBool(CString("is-multiband"));
    m_multibandPtPorts = getAttrString(CString("multiband-pt-ports"));
    m_multibandFreqParam = getAttrString(CString("multiband-freq-param"));
    m_multibandCountParam = getAttrString(CString("multiband-count-param"));
    m_multibandPre = getAttrString(CString("multiband-pre"));
    m_multibandLp = getAttrString(CString("multiband-lp"));
    m_multibandHp = getAttrString(CString("multiband-hp"));
    m_isStacked = getAttrBool(CString("is-stacked"));
    m_stackParam = getAttrString(CString("stack-param"));
    m_stackIndexShift = getAttrInt(CString("stack-index-shift"));
    if (m_stackIndexShift < 0)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessDefBase_init_InvalidStackIndexShift Invalid stack index shift value '%1' specified.",
                         getAttrString(CString("stack-index-shift")));
    m_isChannelStack = getAttrBool(CString("is-channel-stack"));
    m_isTerminalWhole = getAttrBool(CString("is-terminal-whole"));
    m_isPrototype = getAttrBool(CString("is-prototype"));
    m_isOutOfOrder = getAttrBool(CString("is-outoforder"));
    m_bypassStateId = getAttrInt(CString("bypass-state-id"));
    m_isCompInput = getAttrBool(CString("is-comp-input"));

    const CString combo = getAttrString(CString("input-combo-mode"));
    m_inputComboMode = combo == CString("avg") ? ComboAvg : combo == CString("max") ? ComboMax : ComboSum;

    // Also catches an absent value, which reads as 0.
    m_xfadeLengthSec = getAttrReal(CString("xfade-length"));
    if (!(m_xfadeLengthSec >= kMinXfadeLengthSec))
        m_xfadeLengthSec = kMinXfadeLengthSec;
    return nullptr;
}

CErrorPtr CAudioProcessDefBase::createProcess(CAudioProcess*& outProcess, CAudioProcess*, const CString&, CAudioEnv*,
                                              int32_t, int32_t, CSampleBufferPool*, bool, bool) const
{
    outProcess = nullptr;
    return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessDefBase_createProcess_NotAvailable Audio process creation is not available.");
}

CString CAudioProcessDefBase::resolveParamPath(const CString& baseName, const CString& path)
{
    if (!path.isEmpty() && path.at(0) == '/')
        return path.substring(1);
    CString base(baseName);
    int pos = 0;
    for (; pos < path.length() && path.at(pos) == '^'; ++pos) {
        const int dot = base.findLast('.');
        base = dot < 0 ? CString() : base.substring(0, dot);
    }
    const CString rest = path.substring(pos);
    if (rest.isEmpty())
        return base;
    if (rest.at(0) != '.')
        base.append(".");
    return base.append(rest);
}

} // namespace qel
