#pragma once

#include "Core/CByteArray.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <cstdint>

namespace qel {

class CAudioParamStorage;
class CInputStream;
class COutputStream;

// The stored form of one parameter inside a preset. To the preset the bytes are opaque:
// it keeps, copies and writes them without parsing, so that a preset survives parameters
// a build doesn't have. Only the parameter side looks inside, through store and parse:
//
//   the definition's full name (string), then the values as CAudioParamStorage::save
//   writes them (all groups, or one group as a group count of 1).
//
// In a preset's stream the blob stands as its byte count (u32) and the bytes.
class CPresetEntry
{
public:
    CPresetEntry() = default;
    explicit CPresetEntry(const CByteArray& bytes) : blob(bytes) {}

    // Replaces the blob by the definition's name and the values of `group` (-1: all).
    CErrorPtr store(const CString& definitionName, const CAudioParamStorage& values, int32_t group);
    // Reads the blob back into `values`, which must have the parameter's format. The blob
    // must end exactly with the values. On error `values` is left as it was.
    CErrorPtr parse(CString& outDefinitionName, CAudioParamStorage& values) const;

    // Byte count and bytes.
    CErrorPtr write(COutputStream& out) const;
    // On error the blob is left as it was. A damaged count can't make it allocate more
    // than the stream actually delivers.
    CErrorPtr read(CInputStream& in);

    bool operator==(const CPresetEntry& other) const { return blob == other.blob; }

    CByteArray blob;
};

} // namespace qel
