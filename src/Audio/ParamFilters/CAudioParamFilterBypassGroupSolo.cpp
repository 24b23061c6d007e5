#include "Audio/ParamFilters/CAudioParamFilterBypassGroupSolo.h"

namespace qel {

void CAudioParamFilterBypassGroupSolo::process(CSources sources, CAudioParam* const*, const CAudioParamChange& change,
                                               CAudioParamUpdateContext& context)
{
    const CAudioParamStorage& solo = *sources[0];
    double bypass = 1.0;
    for (int32_t g = 0; g < solo.groupCount(); ++g)
        if (solo.elementCount(g) > 0 && solo.getElementValue(g, 0, 0, 0.0) >= 0.5)
            bypass = 0.0;
    writeValue(0, change.group == kParamDefaultsGroup ? kParamDefaultsGroup : 0, bypass, change.source, context);
}

} // namespace qel
