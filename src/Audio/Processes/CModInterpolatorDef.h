#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModInterpolator.h"

#include <new>

namespace qel {

class CModInterpolatorDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModInterpolator(); }
};

} // namespace qel
