#pragma once

#include <cstdint>

namespace qel {

class CAudioParamData;

// The group that addresses a parameter's defaults.
constexpr int32_t kParamDefaultsGroup = 9999;

// The one record by which every modification of a parameter travels. It points at its
// values and items and owns nothing; ids in `values` are valid only in `data`.
struct CAudioParamChange
{
    int32_t group = 0;
    int32_t firstElement = 0;
    int32_t elementCount = 0;
    bool isListEnd = false;   // the group's list ends behind the written elements
    const void* source = nullptr;
    int32_t elementSize = 1;
    uint32_t dataType = 0;
    bool isSingleGroup = false;
    bool isSingleElement = false;
    const double* values = nullptr; // elementCount * elementSize
    const CAudioParamData* data = nullptr;
};

} // namespace qel
