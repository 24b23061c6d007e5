#pragma once

#include "Core/CApplication.h"

namespace qel {

// The module's resource table: the compiled product definition "SharedData.xml" and the
// seeds of the application data stores (the mode banks and the routing presets). The
// module hands it to its CModuleLifetime.
extern const CResourceRow kProductResourceRows[];

} // namespace qel
