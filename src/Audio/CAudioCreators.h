#pragma once

#include "Core/CCreatorRegistry.h"

namespace qel {

// The creator rows of the classes this library defines; ends with a null row.
extern const CCreatorRow kAudioCreatorRows[];

} // namespace qel
