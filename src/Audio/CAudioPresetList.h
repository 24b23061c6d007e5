#pragma once

#include "Audio/CAudioPresetBank.h"
#include "Core/CByteArray.h"
#include "Core/CDataTag.h"
#include "Core/CError.h"

#include <cstdint>

namespace qel {

class CInputStream;
class COutputStream;

// A list of presets as the application data stores keep it: the mode presets of an
// enumerated registry, the routing presets, the colour presets. Its stream:
//
//   has bank (u32): 0, and nothing follows; else a bank follows (its name empty).
//
// A writer puts 1 for "has bank". A reader takes any word other than 0 as 1, as the
// stores' readers always have; what it writes again is then the canonical form. In the
// stores the list is a compressed block of tag `alst`, which must hold the list and
// nothing behind it. Readers decode into a temporary and hand it over only when all of
// it read: a damaged list leaves this one as it was.
//
// A plain value; not synchronised.
class CAudioPresetList
{
public:
    static constexpr uint32_t kTag = makeTag("alst");

    CAudioPresetList() = default;
    explicit CAudioPresetList(const CAudioPresetBank& bank) : m_hasBank(true), m_bank(bank) {}

    bool hasBank() const { return m_hasBank; }
    // Empty when there is none.
    const CAudioPresetBank& bank() const { return m_bank; }
    void setBank(const CAudioPresetBank& bank);
    // No bank: the list holds no states.
    void clear();

    CErrorPtr write(COutputStream& out) const;
    CErrorPtr read(CInputStream& in);
    // The stream form as a whole piece of data, as a store hands it over; it must end with
    // the list.
    CErrorPtr toBytes(CByteArray& out) const;
    CErrorPtr fromBytes(const uint8_t* data, size_t size);
    CErrorPtr fromBytes(const CByteArray& bytes) { return fromBytes(bytes.data(), bytes.size()); }
    // The `alst` block.
    CErrorPtr writeBlock(COutputStream& out) const;
    CErrorPtr readBlock(CInputStream& in);

    bool operator==(const CAudioPresetList& other) const
    {
        return m_hasBank == other.m_hasBank && m_bank == other.m_bank;
    }

private:
    bool m_hasBank = false;
    CAudioPresetBank m_bank;
};

} // namespace qel
