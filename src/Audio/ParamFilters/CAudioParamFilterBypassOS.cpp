#include "Audio/ParamFilters/CAudioParamFilterBypassOS.h"

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

double CAudioParamFilterBypassOS::bypassFor(double mode, double hostMode)
{
    const double m = CAudioParamConverter::roundHalfAway(mode);
    const double host = CAudioParamConverter::roundHalfAway(hostMode);
    return m == 1.0 || (m == 0.0 && host == 0.0) ? 1.0 : 0.0;
}

void CAudioParamFilterBypassOS::process(CSources sources, CAudioParam* const*, const CAudioParamChange& change,
                                        CAudioParamUpdateContext& context)
{
    if (change.group != 0 && change.group != kParamDefaultsGroup)
        return;
    const double bypass = bypassFor(sources[0]->getElementValue(0, 0, 0, 1.0), sources[1]->getElementValue(0, 0, 0, 0.0));
    writeValue(0, change.group, bypass, change.source, context);
}

} // namespace qel
