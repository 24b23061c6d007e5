#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CLatencyDef.h"

namespace qel {

// The delay that holds the graph's latency at one number of samples (tag
// audio:modLatencyUniformer); `latencies` is its table of target latencies by rate.
class CModLatencyUniformerDef : public CAudioProcessDefBase, public CLatencyDef
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;

protected:
    CAudioProcessBase* newProcess() const override;
};

} // namespace qel
