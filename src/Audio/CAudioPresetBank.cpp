#include "Audio/CAudioPresetBank.h"

#include "Audio/CAudioPresetBlock.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

#include <memory>
#include <utility>

namespace qel {

CAudioPresetBank::CAudioPresetBank(const CAudioPresetBank& other) : m_name(other.m_name)
{
    for (const CAudioPreset* preset : other.m_presets)
        m_presets.append(new CAudioPreset(*preset));
}

CAudioPresetBank& CAudioPresetBank::operator=(const CAudioPresetBank& other)
{
    if (this != &other) {
        CAudioPresetBank copy(other);
        *this = std::move(copy);
    }
    return *this;
}

CAudioPreset& CAudioPresetBank::addPreset(const CAudioPreset& preset)
{
    auto* added = new CAudioPreset(preset);
    m_presets.append(added);
    return *added;
}

void CAudioPresetBank::clear()
{
    m_name = CString();
    m_presets.clear();
}

CErrorPtr CAudioPresetBank::write(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeString(m_name), m_name);
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(m_presets.count())), m_name);
    for (const CAudioPreset* preset : m_presets)
        QEL_RETURN_IF_ERROR(preset->write(out), m_name);
    return nullptr;
}

CErrorPtr CAudioPresetBank::read(CInputStream& in)
{
    CString name;
    uint32_t count = 0;
    QEL_RETURN_IF_ERROR(in.readString(name), CString());
    QEL_RETURN_IF_ERROR(in.readU32(count), name);
    // Presets are added as they arrive, so a damaged count fails at the end of the data.
    CPtrArray<CAudioPreset, true> presets;
    for (uint32_t i = 0; i < count; ++i) {
        auto preset = std::make_unique<CAudioPreset>();
        if (CErrorPtr error = preset->read(in))
            return QEL_TRAIL(error, name + CString(" #") + CString::number(i));
        presets.append(preset.release());
    }
    m_name = std::move(name);
    m_presets = std::move(presets);
    return nullptr;
}

CErrorPtr CAudioPresetBank::toBytes(CByteArray& out) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::toBytes(*this, out), m_name);
    return nullptr;
}

CErrorPtr CAudioPresetBank::fromBytes(const uint8_t* data, size_t size)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::fromBytes(*this, data, size), CString());
    return nullptr;
}

CErrorPtr CAudioPresetBank::writeBlock(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::writeBlock(*this, out, kTag), m_name);
    return nullptr;
}

CErrorPtr CAudioPresetBank::readBlock(CInputStream& in)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::readBlock(*this, in, kTag), CString());
    return nullptr;
}

CErrorPtr CAudioPresetBank::loadFile(const CString& path)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::loadFile(*this, path, kTag), CString());
    return nullptr;
}

CErrorPtr CAudioPresetBank::saveFile(const CString& path) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::saveFile(*this, path, kTag), m_name);
    return nullptr;
}

bool CAudioPresetBank::operator==(const CAudioPresetBank& other) const
{
    if (m_name != other.m_name || m_presets.count() != other.m_presets.count())
        return false;
    for (int i = 0; i < m_presets.count(); ++i)
        if (!(*m_presets[i] == *other.m_presets[i]))
            return false;
    return true;
}

} // namespace qel
