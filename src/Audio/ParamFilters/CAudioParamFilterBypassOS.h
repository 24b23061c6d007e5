#pragma once

#include "Audio/ParamFilters/CAudioParamFilter.h"

namespace qel {

// Sources `oversampling` and `host-oversampling-mode`, destination `oversampling-bypass`:
// the bypass is on while the oversampling in force is 1X. The selector reads Auto, 1X,
// 2X, 4X, 8X, and Auto follows the host, whose mode 0 is 1X. Only changes of group 0 and
// of the defaults count: the setting belongs to the whole instance.
class CAudioParamFilterBypassOS : public CAudioParamFilter
{
public:
    int getMinSourceCount() const override { return 2; }

    // 1.0 for bypass, else 0.0; `mode` and `hostMode` as stored, rounded here.
    static double bypassFor(double mode, double hostMode);

protected:
    void process(CSources sources, CAudioParam* const* destinations, const CAudioParamChange& change,
                 CAudioParamUpdateContext& context) override;
};

} // namespace qel
