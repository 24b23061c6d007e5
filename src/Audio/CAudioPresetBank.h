#pragma once

#include "Audio/CAudioPreset.h"
#include "Core/CByteArray.h"
#include "Core/CDataTag.h"
#include "Core/CError.h"
#include "Core/CPtrArray.h"
#include "Core/CString.h"

#include <cstdint>

namespace qel {

class CInputStream;
class COutputStream;

// A named array of presets, as the factory bank, a session bank or a user's bank file
// holds them. Its stream:
//
//   name (string), preset count (u32), then the presets one behind the other, with no
//   sizes between them.
//
// Banks reach files and the module's resources as a compressed block of tag `abnk`, which
// must hold the bank and nothing behind it. Readers decode into a temporary and hand it
// over only when all of it read: a damaged bank leaves this one as it was.
//
// A plain value; not synchronised.
class CAudioPresetBank
{
public:
    static constexpr uint32_t kTag = makeTag("abnk");

    CAudioPresetBank() = default;
    explicit CAudioPresetBank(const CString& name) : m_name(name) {}
    CAudioPresetBank(const CAudioPresetBank& other);
    CAudioPresetBank& operator=(const CAudioPresetBank& other);
    CAudioPresetBank(CAudioPresetBank&&) noexcept = default;
    CAudioPresetBank& operator=(CAudioPresetBank&&) noexcept = default;

    const CString& name() const { return m_name; }
    void setName(const CString& name) { m_name = name; }
    int32_t presetCount() const { return m_presets.count(); }
    // Index within 0 .. presetCount() - 1.
    CAudioPreset& preset(int32_t index) { return *m_presets[index]; }
    const CAudioPreset& preset(int32_t index) const { return *m_presets[index]; }
    // Takes a copy; answers it.
    CAudioPreset& addPreset(const CAudioPreset& preset);
    void removePreset(int32_t index) { m_presets.remove(index); }
    // Name and presets.
    void clear();

    // The stream form, on its own or inside a list.
    CErrorPtr write(COutputStream& out) const;
    CErrorPtr read(CInputStream& in);
    // The stream form as a whole piece of data, which must end with the bank.
    CErrorPtr toBytes(CByteArray& out) const;
    CErrorPtr fromBytes(const uint8_t* data, size_t size);
    CErrorPtr fromBytes(const CByteArray& bytes) { return fromBytes(bytes.data(), bytes.size()); }
    // The `abnk` block.
    CErrorPtr writeBlock(COutputStream& out) const;
    CErrorPtr readBlock(CInputStream& in);
    // A bank file, or the module's resource of that name, holding the block.
    CErrorPtr loadFile(const CString& path);
    CErrorPtr saveFile(const CString& path) const;

    bool operator==(const CAudioPresetBank& other) const;

private:
    CString m_name;
    CPtrArray<CAudioPreset, true> m_presets;
};

} // namespace qel
