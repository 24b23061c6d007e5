#pragma once

#include "Core/CString.h"

#include <cstddef>
#include <cstdint>

namespace qel {

// The data embedded in the module, by the name every reader asks for it with. Filled once
// at start-up from the module's resource table; the data itself is never copied.
// Any thread.
class CResourceRegistry
{
public:
    // A block whose first 4 bytes are its little-endian size, the data behind them.
    static void addSizedBlock(const CString& name, const uint8_t* block);
    static void add(const CString& name, const uint8_t* data, size_t size);
    static void remove(const CString& name);
    static bool find(const CString& name, const uint8_t*& outData, size_t& outSize);
};

} // namespace qel
