#pragma once

#include "Core/CMemoryReader.h"

namespace qel {

// A memory reader over data that outlives it (the module's resources), so readers may keep
// pointers into the data instead of copying it.
class CMemoryReaderStatic : public CMemoryReader
{
public:
    using CMemoryReader::CMemoryReader;

    const uint8_t* getDirectPointer() const override { return m_data; }
};

} // namespace qel
