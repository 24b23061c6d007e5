#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModNode.h"

#include <new>

namespace qel {

// A junction (tag audio:modNode): see CModNode.
class CModNodeDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new (std::nothrow) CModNode(); }
};

} // namespace qel
