#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModDecimator.h"

#include <new>

namespace qel {

class CModDecimatorDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModDecimator(); }
};

} // namespace qel
