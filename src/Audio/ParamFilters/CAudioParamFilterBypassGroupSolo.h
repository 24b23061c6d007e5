#pragma once

#include "Audio/ParamFilters/CAudioParamFilter.h"

namespace qel {

// Source `channel-group-solo`, destination `group-solo-bypass`: the solo flags of all
// groups combined with OR. The bypass is on (1.0) while no group is soloed, that is while
// no group that has an element holds at least 0.5 in its first one. The result belongs
// to the whole instance and is written to group 0 (or to the defaults, for a change of
// them), whichever group the solo changed in.
class CAudioParamFilterBypassGroupSolo : public CAudioParamFilter
{
protected:
    void process(CSources sources, CAudioParam* const* destinations, const CAudioParamChange& change,
                 CAudioParamUpdateContext& context) override;
};

} // namespace qel
