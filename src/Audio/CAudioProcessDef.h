#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Core/CMap.h"
#include "Core/CPtrArray.h"

#include <cstdint>

namespace qel {

class CAudioProcessBypassStateDef;
class CAudioProcessLinkDef;

// A composite process (tag audio:process-def): child processes, the links between them
// and the bypass states that switch both while audio runs. With `is-auto-links` the
// children form a chain in definition order besides any explicit links.
class CAudioProcessDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;
    CErrorPtr initChilds() override;

    bool isAutoLinks() const { return m_isAutoLinks; }
    // In definition order, prototypes included: the planner skips those.
    const CPtrArray<CAudioProcessDefBase>& processes() const { return m_processes; }
    // Links by their link state, in definition order within a state. No link state is
    // ever selected yet, so the planner takes every list as always active.
    const CMap<int32_t, CPtrArray<CAudioProcessLinkDef>>& linksByState() const { return m_linksByState; }
    const CPtrArray<CAudioProcessBypassStateDef>& bypassStates() const { return m_bypassStates; }

protected:
    CAudioProcessBase* newProcess() const override;

private:
    bool m_isAutoLinks = false;
    CPtrArray<CAudioProcessDefBase> m_processes;
    CMap<int32_t, CPtrArray<CAudioProcessLinkDef>> m_linksByState;
    CPtrArray<CAudioProcessBypassStateDef> m_bypassStates;
};

} // namespace qel
