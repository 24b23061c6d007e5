#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModBypass.h"

#include <new>

namespace qel {

class CModBypassDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModBypass(); }
};

} // namespace qel
