#include "Audio/CAudioPreset.h"

#include "Audio/CAudioPresetBlock.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

#include <utility>

namespace qel {

const CPresetEntry* CAudioPreset::findEntry(const CString& key) const
{
    const auto found = m_entries.find(key);
    return found == m_entries.end() ? nullptr : &found->second;
}

CPresetEntry& CAudioPreset::entry(const CString& key) { return m_entries[key]; }

void CAudioPreset::clear()
{
    m_name = CString();
    m_entries.clear();
}

CErrorPtr CAudioPreset::write(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeString(m_name), m_name);
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(m_entries.size())), m_name);
    for (const auto& [key, entry] : m_entries) {
        QEL_RETURN_IF_ERROR(out.writeString(key), m_name);
        QEL_RETURN_IF_ERROR(entry.write(out), key);
    }
    return nullptr;
}

CErrorPtr CAudioPreset::read(CInputStream& in)
{
    CString name;
    uint32_t count = 0;
    QEL_RETURN_IF_ERROR(in.readString(name), CString());
    QEL_RETURN_IF_ERROR(in.readU32(count), name);
    // Entries are added as they arrive, so a damaged count fails at the end of the data.
    CEntries entries;
    for (uint32_t i = 0; i < count; ++i) {
        CString key;
        QEL_RETURN_IF_ERROR(in.readString(key), name);
        CPresetEntry entry;
        QEL_RETURN_IF_ERROR(entry.read(in), key);
        entries[key] = std::move(entry);
    }
    m_name = std::move(name);
    m_entries = std::move(entries);
    return nullptr;
}

CErrorPtr CAudioPreset::toBytes(CByteArray& out) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::toBytes(*this, out), m_name);
    return nullptr;
}

CErrorPtr CAudioPreset::fromBytes(const uint8_t* data, size_t size)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::fromBytes(*this, data, size), CString());
    return nullptr;
}

CErrorPtr CAudioPreset::writeBlock(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::writeBlock(*this, out, kTag), m_name);
    return nullptr;
}

CErrorPtr CAudioPreset::readBlock(CInputStream& in)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::readBlock(*this, in, kTag), CString());
    return nullptr;
}

CErrorPtr CAudioPreset::loadFile(const CString& path)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::loadFile(*this, path, kTag), CString());
    return nullptr;
}

CErrorPtr CAudioPreset::saveFile(const CString& path) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::saveFile(*this, path, kTag), m_name);
    return nullptr;
}

void CAudioPreset::splitPresetName(const CString& fullName, CString& outId, CString& outName)
{
    const int colon = fullName.find(':');
    if (colon < 0) {
        outId = CString();
        outName = fullName;
        return;
    }
    outId = fullName.substring(0, colon);
    outName = fullName.substring(colon + 1);
}

bool CAudioPreset::makeKey(const CString& paramName, const CString& hierarchy, CString& outKey)
{
    const int prefix = hierarchy.length();
    if (paramName.length() <= prefix || compareStrings(paramName.substring(0, prefix), hierarchy) != 0)
        return false;
    outKey = paramName.substring(prefix);
    return true;
}

} // namespace qel
