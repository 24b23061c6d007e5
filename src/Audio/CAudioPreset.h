#pragma once

#include "Audio/CPresetEntry.h"
#include "Core/CByteArray.h"
#include "Core/CDataTag.h"
#include "Core/CError.h"
#include "Core/CMap.h"
#include "Core/CString.h"

#include <cstdint>

namespace qel {

class CInputStream;
class COutputStream;

// One preset: a name `id:name`, where the id is the four letters of the preset family
// (an empty id when there is no ':'), and the stored parameters as entries, by key in key
// order. The key is the parameter's name relative to the part of the tree the preset
// covers. Its stream:
//
//   name (string), entry count (u32), then per entry in key order: key (string), blob
//   size (u32), blob.
//
// Presets reach files, stores and the host's project as a compressed block of tag `aprs`.
// Readers decode into a temporary and hand it over only when all of it read: a damaged
// preset leaves this one as it was. A key that appears twice keeps its last blob.
//
// A plain value; not synchronised.
class CAudioPreset
{
public:
    static constexpr uint32_t kTag = makeTag("aprs");
    using CEntries = CMap<CString, CPresetEntry>;

    CAudioPreset() = default;
    explicit CAudioPreset(const CString& name) : m_name(name) {}

    const CString& name() const { return m_name; }
    void setName(const CString& name) { m_name = name; }
    const CEntries& entries() const { return m_entries; }
    int32_t entryCount() const { return int32_t(m_entries.size()); }
    const CPresetEntry* findEntry(const CString& key) const;
    // Finds the entry of the key or makes an empty one.
    CPresetEntry& entry(const CString& key);
    void removeEntry(const CString& key) { m_entries.erase(key); }
    // Name and entries.
    void clear();

    // The stream form, on its own or inside a bank.
    CErrorPtr write(COutputStream& out) const;
    CErrorPtr read(CInputStream& in);
    // The stream form as a whole piece of data, which must end with the preset.
    CErrorPtr toBytes(CByteArray& out) const;
    CErrorPtr fromBytes(const uint8_t* data, size_t size);
    CErrorPtr fromBytes(const CByteArray& bytes) { return fromBytes(bytes.data(), bytes.size()); }
    // The `aprs` block.
    CErrorPtr writeBlock(COutputStream& out) const;
    CErrorPtr readBlock(CInputStream& in);
    // A preset file (or a resource of that name) holding the block.
    CErrorPtr loadFile(const CString& path);
    CErrorPtr saveFile(const CString& path) const;

    // "QMIO:Stereo" gives "QMIO" and "Stereo"; without ':' the id is empty.
    static void splitPresetName(const CString& fullName, CString& outId, CString& outName);
    // The key of a parameter under `hierarchy`, a prefix that ends in "." (such as
    // "plugin.modMain."): the name must begin with it and be longer.
    static bool makeKey(const CString& paramName, const CString& hierarchy, CString& outKey);

    bool operator==(const CAudioPreset& other) const { return m_name == other.m_name && m_entries == other.m_entries; }

private:
    CString m_name;
    CEntries m_entries;
};

} // namespace qel
