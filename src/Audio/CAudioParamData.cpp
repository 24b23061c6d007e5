#include "Audio/CAudioParamData.h"

namespace qel {

std::unique_ptr<CAudioParamDataItem> CAudioParamDataItemString::clone() const
{
    return std::make_unique<CAudioParamDataItemString>(m_text);
}

CErrorPtr CAudioParamDataItemString::save(COutputStream& out) const
{
    return out.writeString(m_text);
}

CErrorPtr CAudioParamDataItemString::load(CInputStream& in)
{
    QEL_RETURN_IF_ERROR(in.readString(m_text), CString());
    if (m_text == CString(" "))
        m_text = CString();
    return nullptr;
}

std::unique_ptr<CAudioParamDataItem> CAudioParamDataItemRaw::clone() const
{
    return std::make_unique<CAudioParamDataItemRaw>(m_bytes);
}

CErrorPtr CAudioParamDataItemRaw::save(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeU32(static_cast<uint32_t>(m_bytes.size())), CString());
    return out.write(m_bytes.data(), m_bytes.size());
}

CErrorPtr CAudioParamDataItemRaw::load(CInputStream& in)
{
    uint32_t size = 0;
    QEL_RETURN_IF_ERROR(in.readU32(size), CString());
    // Grows with what arrives, so a damaged size can't ask for gigabytes up front.
    m_bytes.clear();
    uint8_t chunk[4096];
    while (size > 0) {
        const uint32_t piece = size < sizeof chunk ? size : uint32_t(sizeof chunk);
        QEL_RETURN_IF_ERROR(in.read(chunk, piece), CString());
        m_bytes.append(chunk, piece);
        size -= piece;
    }
    return nullptr;
}

CAudioParamData& CAudioParamData::operator=(const CAudioParamData& other)
{
    if (this != &other)
        copyFrom(other);
    return *this;
}

uint32_t CAudioParamData::add(std::unique_ptr<CAudioParamDataItem> item)
{
    const uint32_t id = ++m_lastId;
    m_items[id] = std::move(item);
    return id;
}

uint32_t CAudioParamData::addString(const CString& text)
{
    return add(std::make_unique<CAudioParamDataItemString>(text));
}

uint32_t CAudioParamData::addRaw()
{
    return add(std::make_unique<CAudioParamDataItemRaw>());
}

uint32_t CAudioParamData::addRaw(const CByteArray& bytes)
{
    return add(std::make_unique<CAudioParamDataItemRaw>(bytes));
}

uint32_t CAudioParamData::copyItem(uint32_t id, const CAudioParamData& source)
{
    const CAudioParamDataItem* item = source.find(id);
    return item ? add(item->clone()) : 0;
}

void CAudioParamData::removeItem(uint32_t id)
{
    m_items.erase(id);
}

void CAudioParamData::clear()
{
    m_items.clear();
}

void CAudioParamData::copyFrom(const CAudioParamData& other)
{
    m_items.clear();
    for (const auto& [id, item] : other.m_items)
        m_items[id] = item->clone();
    m_lastId = other.m_lastId;
}

const CAudioParamDataItem* CAudioParamData::find(uint32_t id) const
{
    auto it = m_items.find(id);
    return it == m_items.end() ? nullptr : it->second.get();
}

CString CAudioParamData::getString(uint32_t id) const
{
    const CAudioParamDataItem* item = find(id);
    return item && item->getType() == CAudioParamDataItem::String
               ? static_cast<const CAudioParamDataItemString*>(item)->text()
               : CString();
}

CByteArray CAudioParamData::getRaw(uint32_t id) const
{
    const CAudioParamDataItem* item = find(id);
    return item && item->getType() == CAudioParamDataItem::Raw ? static_cast<const CAudioParamDataItemRaw*>(item)->bytes()
                                                                : CByteArray();
}

CErrorPtr CAudioParamData::save(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeU32(static_cast<uint32_t>(m_items.size())), CString());
    for (const auto& [id, item] : m_items) {
        QEL_RETURN_IF_ERROR(out.writeU32(id), CString());
        QEL_RETURN_IF_ERROR(out.writeU32(item->getType()), CString());
        QEL_RETURN_IF_ERROR(item->save(out), CString());
    }
    return nullptr;
}

CErrorPtr CAudioParamData::load(CInputStream& in)
{
    // Read aside and swapped in at the end: damaged data leaves the table as it was.
    CMap<uint32_t, std::unique_ptr<CAudioParamDataItem>> items;
    uint32_t lastId = 0;
    uint32_t count = 0;
    QEL_RETURN_IF_ERROR(in.readU32(count), CString());
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t id = 0, type = 0;
        QEL_RETURN_IF_ERROR(in.readU32(id), CString());
        QEL_RETURN_IF_ERROR(in.readU32(type), CString());
        std::unique_ptr<CAudioParamDataItem> item;
        if (type == CAudioParamDataItem::String)
            item = std::make_unique<CAudioParamDataItemString>();
        else if (type == CAudioParamDataItem::Raw)
            item = std::make_unique<CAudioParamDataItemRaw>();
        else
            return QEL_ERROR(CString(), "@qelstr_CAudioParamData_load_TypeError Unknown data type %1 encountered",
                             CString::number(type));
        QEL_RETURN_IF_ERROR(item->load(in), CString());
        items[id] = std::move(item);
        if (id > lastId)
            lastId = id;
    }
    m_items.swap(items);
    m_lastId = lastId;
    return nullptr;
}

} // namespace qel
