#pragma once

#include "Audio/CAudioParamStorage.h"
#include "Core/CDataTag.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioParam;
class CAudioParamCollector;
class CInputStream;
class COutputStream;

// The state a host keeps in its project for one instance: the values of every storable and
// persistent parameter, as one compressed block of tag `aprs`. Its payload:
//
//   u32 version (1), u32 entry count, then per entry in ascending order of names:
//   the parameter's full name as a string, and its values in their stored form
//   (CAudioParamStorage::save of all groups, without empty groups at the end).
//
// Reading is all or nothing: the whole block is decoded and checked against the live
// parameters first, and applying it cannot fail. Entries of parameters this instance
// doesn't have, or doesn't store, are read and ignored, so that a state written by a
// later version still loads; a stored parameter without an entry goes back to its
// defaults.
//
// Host main thread; changes reach the audio thread through the collector's queue.
class CAudioHostState
{
public:
    static constexpr uint32_t kTag = makeTag("aprs");
    static constexpr uint32_t kVersion = 1;

    // The parameters that belong in the state.
    static bool isStored(const CAudioParam& param);

    // Takes the current values of the collector's stored parameters.
    void capture(CAudioParamCollector& collector);
    CErrorPtr write(COutputStream& out) const;
    // Decodes a block against the collector's parameters; on error this state is empty.
    CErrorPtr read(CInputStream& in, CAudioParamCollector& collector);
    // Writes the values to the live parameters.
    void apply(CAudioParamCollector& collector) const;

    int32_t entryCount() const { return int32_t(m_entries.size()); }

private:
    struct CEntry
    {
        CAudioParam* param = nullptr;
        CString name;
        CAudioParamStorage values;
    };

    CErrorPtr decode(const uint8_t* data, size_t size, CAudioParamCollector& collector);

    std::vector<CEntry> m_entries;
};

} // namespace qel
