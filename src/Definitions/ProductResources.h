#pragma once

#include "Core/CApplication.h"

namespace qel {

// The module's resource table: the compiled product definition "SharedData.xml". The
// module hands it to its CModuleLifetime.
extern const CResourceRow kProductResourceRows[];

} // namespace qel
