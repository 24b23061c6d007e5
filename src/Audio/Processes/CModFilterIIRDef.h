#pragma once

#include "Audio/CAudioProcessDefBase.h"

namespace qel {

// Definition of a recursive filter process: `gen-array`, the path of its generator array
// ("/x" and "shared::x" are absolute), resolved when a process is made, once the whole
// definition exists.
class CModFilterIIRDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;

    const CString& genArrayPath() const { return m_genArrayPath; }

protected:
    CAudioProcessBase* newProcess() const override;

private:
    CString m_genArrayPath;
};

} // namespace qel
