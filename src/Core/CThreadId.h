#pragma once

#include <cstdint>

namespace qel {

// The system's id of the calling thread.
uint32_t currentThreadId();

} // namespace qel
