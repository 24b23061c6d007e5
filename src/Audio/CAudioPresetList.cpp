#include "Audio/CAudioPresetList.h"

#include "Audio/CAudioPresetBlock.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

#include <utility>

namespace qel {

void CAudioPresetList::setBank(const CAudioPresetBank& bank)
{
    m_bank = bank;
    m_hasBank = true;
}

void CAudioPresetList::clear()
{
    m_bank.clear();
    m_hasBank = false;
}

CErrorPtr CAudioPresetList::write(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeU32(m_hasBank ? 1 : 0), CString());
    if (m_hasBank)
        QEL_RETURN_IF_ERROR(m_bank.write(out), CString());
    return nullptr;
}

CErrorPtr CAudioPresetList::read(CInputStream& in)
{
    uint32_t hasBank = 0;
    QEL_RETURN_IF_ERROR(in.readU32(hasBank), CString());
    CAudioPresetBank bank;
    if (hasBank != 0)
        QEL_RETURN_IF_ERROR(bank.read(in), CString());
    m_hasBank = hasBank != 0;
    m_bank = std::move(bank);
    return nullptr;
}

CErrorPtr CAudioPresetList::toBytes(CByteArray& out) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::toBytes(*this, out), CString());
    return nullptr;
}

CErrorPtr CAudioPresetList::fromBytes(const uint8_t* data, size_t size)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::fromBytes(*this, data, size), CString());
    return nullptr;
}

CErrorPtr CAudioPresetList::writeBlock(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::writeBlock(*this, out, kTag), CString());
    return nullptr;
}

CErrorPtr CAudioPresetList::readBlock(CInputStream& in)
{
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::readBlock(*this, in, kTag), CString());
    return nullptr;
}

} // namespace qel
