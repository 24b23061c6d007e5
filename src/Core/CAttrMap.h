#pragma once

#include "Core/CAttrValue.h"
#include "Core/CMap.h"

namespace qel {

// Attributes by name, in name order; also the parameters of events. Values stay where
// they are while the map lives, so an object's pending list can point into it.
using CAttrMap = CMap<CString, CAttrValue>;

} // namespace qel
