#pragma once

#include "Core/CCheckedObject.h"

namespace qel {

struct CAudioParamUpdateContext;

// Whoever can rebuild the default routing from the host's channel layout; the master
// parameter registry asks for it after a preset was applied.
class CAudioRoutingInfoProvider : public CCheckedObject
{
public:
    ~CAudioRoutingInfoProvider() override = default;
    virtual void updateRouting(CAudioParamUpdateContext& context) = 0;
};

} // namespace qel
