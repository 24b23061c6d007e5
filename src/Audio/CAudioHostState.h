#pragma once

#include "Audio/CAudioParamStorage.h"
#include "Audio/CAudioPreset.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioParam;
class CAudioParamCollector;
class CInputStream;
class COutputStream;

// The state a host keeps in its project for one instance: the master preset of the
// instance's parameters, as one `aprs` block. The preset holds every parameter under
// `hierarchy` (a prefix ending in ".") that the definition marks storable or persistent,
// keyed by its name less that prefix, and is named `family:name`.
//
// Reading is all or nothing: the whole block is decoded, and every entry of a stored
// parameter parsed and checked against it, before anything is applied; applying cannot
// fail. An entry whose key names no stored parameter of this instance is left aside, so
// that a state written by a later version still loads; a stored parameter without an
// entry goes back to its defaults. A preset of another family is refused.
//
// Host main thread; changes reach the audio thread through the collector's queue in one
// piece, so the audio side never runs a block with half a state.
class CAudioHostState
{
public:
    CAudioHostState(const CString& hierarchy, const CString& family);

    // The parameters that belong in the state.
    static bool isStored(const CAudioParam& param);

    // Takes the current values of the collector's stored parameters.
    CErrorPtr capture(CAudioParamCollector& collector, const CString& presetName);
    CErrorPtr write(COutputStream& out) const;
    // Decodes a block against the collector's parameters; on error nothing is kept.
    CErrorPtr read(CInputStream& in, CAudioParamCollector& collector);
    // Writes the values read to the live parameters.
    void apply(CAudioParamCollector& collector) const;

    const CAudioPreset& preset() const { return m_preset; }

private:
    struct CDecoded
    {
        CAudioParam* param = nullptr;
        CAudioParamStorage values;
    };

    CErrorPtr decode(CAudioParamCollector& collector, std::vector<CDecoded>& out) const;

    CString m_hierarchy;
    CString m_family;
    CAudioPreset m_preset;
    std::vector<CDecoded> m_decoded;
};

} // namespace qel
