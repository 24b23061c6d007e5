#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModSatEB.h"

#include <new>

namespace qel {

// `is-output` makes the stage the second half, behind the filters.
class CModSatEBDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override
    {
        QEL_RETURN_IF_ERROR(CAudioProcessDefBase::init(), getFullName());
        m_isOutput = getAttrBool(CString("is-output"));
        return nullptr;
    }

    bool isOutput() const { return m_isOutput; }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModSatEB(); }

private:
    bool m_isOutput = false;
};

} // namespace qel
