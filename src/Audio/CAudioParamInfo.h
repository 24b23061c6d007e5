#pragma once

#include "Audio/CAudioParamStorage.h"
#include "Core/CError.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"
#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioParamConverter;
class CObject;

// The shape of a parameter, reduced from its definition to a plain record that the audio
// side and the UI side both use: size and type, flags, names, per value of an element its
// converter and range (internal units), state names, the special switch value, defaults.
class CAudioParamInfo
{
public:
    int32_t elementSize = 1;
    uint32_t dataType = CAudioParamStorage::Float;
    bool isSingleGroup = false;
    bool isSingleElement = false;
    bool isGlobal = false;
    bool isStorable = false;
    bool isPersistent = false;
    CString visualName;
    CString fullName;
    CString registryName;
    std::vector<CString> converterNames;
    std::vector<CAudioParamConverter*> converters; // not owned
    std::vector<double> maxValues;
    std::vector<double> minValues;
    std::vector<CString> stateNames;
    std::vector<CString> shortStateNames;
    std::vector<double> switchValues;
    std::vector<CString> switchNames;
    CAudioParamStorage defaults;

    // Resolves converterNames from the shared tree's root (through `from`).
    CErrorPtr parseConverterNames(const CObject& from);
    // Reads the min and max tokens with each value's converter, unclamped.
    CErrorPtr parseMinMaxValues(const CString& minText, const CString& maxText);
    // "Long|Short;Long2|Short2", or "@list" / "@/list" for a stored preset list.
    CErrorPtr parseStateNames(const CString& text);
    void parseSwitches(const CString& valuesText, const CString& namesText);
    // The plain "Long|Short;..." form, shared with the enumerated converter.
    static void splitStateNames(const CString& text, std::vector<CString>& longNames,
                                std::vector<CString>& shortNames);

    bool sameShape(const CAudioParamInfo& other) const;

    // The record sent to a UI; the reader resolves converters again in its own tree.
    CErrorPtr save(COutputStream& out) const;
    CErrorPtr load(CInputStream& in, const CObject& resolveFrom);
};

} // namespace qel
