#pragma once

#include <cstdint>

namespace qel {

// Four ASCII letters held as one little-endian u32: makeTag("aprs") is the u32 whose bytes
// in a stream read 'a', 'p', 'r', 's'.
constexpr uint32_t makeTag(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) | uint32_t(uint8_t(text[1])) << 8
           | uint32_t(uint8_t(text[2])) << 16 | uint32_t(uint8_t(text[3])) << 24;
}

} // namespace qel
