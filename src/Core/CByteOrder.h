#pragma once

#include <cstdint>

namespace qel {

// Every integer the product stores is little-endian, whatever the machine.
inline uint32_t loadU32LE(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

inline void storeU32LE(uint8_t* p, uint32_t value)
{
    p[0] = uint8_t(value);
    p[1] = uint8_t(value >> 8);
    p[2] = uint8_t(value >> 16);
    p[3] = uint8_t(value >> 24);
}

} // namespace qel
