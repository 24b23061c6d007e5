#pragma once

namespace qel {

// Where host-visible parameters report their new positions: the wrapper, which passes
// them to the host. Never called with a parameter's lock held.
class CAudioExtParamHostBridge
{
public:
    virtual ~CAudioExtParamHostBridge() = default;
    virtual void onExtParamChanged(int index, double normValue) = 0;
};

} // namespace qel
