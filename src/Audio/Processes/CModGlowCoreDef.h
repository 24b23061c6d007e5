#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModGlowCore.h"

#include <new>

namespace qel {

class CModGlowCoreDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModGlowCore(); }
};

} // namespace qel
