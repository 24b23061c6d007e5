#pragma once

#include "Core/CCheckedObject.h"
#include "Core/CError.h"

#include <cstdint>

namespace qel {

// A stream with a position and a size, both 64-bit.
class CPosStream : public CCheckedObject
{
public:
    virtual CErrorPtr getPosition(int64_t& outPosition) = 0;
    virtual CErrorPtr setPosition(int64_t position) = 0;
    virtual CErrorPtr getSize(int64_t& outSize) = 0;

    // The same as 32-bit values; streams above 2 GB fail.
    CErrorPtr getPositionInt32(int32_t& outPosition);
    CErrorPtr getSizeInt(int32_t& outSize);
};

} // namespace qel
