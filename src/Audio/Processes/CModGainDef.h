#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModGain.h"

#include <new>

namespace qel {

class CModGainDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModGain(); }
};

} // namespace qel
