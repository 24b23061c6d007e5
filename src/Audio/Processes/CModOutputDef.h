#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModOutput.h"

#include <new>

namespace qel {

// The end of the graph (tag audio:modOutput): see CModOutput.
class CModOutputDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModOutput(); }
};

} // namespace qel
