#pragma once

#include "Core/CAttrMap.h"
#include "Core/CError.h"

namespace qel {

// Carries events to the thread of a tree from any other thread, as copied maps that name
// their receiver by full name and object id, never by pointer.
class CObjectEventBridge
{
public:
    virtual ~CObjectEventBridge() = default;
    // Any thread.
    virtual CErrorPtr post(const CAttrMap& params) = 0;
};

} // namespace qel
