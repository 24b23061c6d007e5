#pragma once

#include "Core/CByteArray.h"
#include "Core/CError.h"
#include "Core/CInputStream.h"
#include "Core/CMap.h"
#include "Core/COutputStream.h"
#include "Core/CString.h"

#include <cstdint>
#include <memory>

namespace qel {

// One item that a string or raw parameter's value refers to by id.
class CAudioParamDataItem
{
public:
    enum Type : uint32_t { String = 1, Raw = 2 };

    virtual ~CAudioParamDataItem() = default;
    virtual std::unique_ptr<CAudioParamDataItem> clone() const = 0;
    virtual CErrorPtr save(COutputStream& out) const = 0;
    virtual CErrorPtr load(CInputStream& in) = 0;
    virtual Type getType() const = 0;
};

class CAudioParamDataItemString : public CAudioParamDataItem
{
public:
    explicit CAudioParamDataItemString(const CString& text = CString()) : m_text(text) {}
    std::unique_ptr<CAudioParamDataItem> clone() const override;
    CErrorPtr save(COutputStream& out) const override;
    // A stored single blank reads back as the empty string.
    CErrorPtr load(CInputStream& in) override;
    Type getType() const override { return String; }
    const CString& text() const { return m_text; }

private:
    CString m_text;
};

class CAudioParamDataItemRaw : public CAudioParamDataItem
{
public:
    CAudioParamDataItemRaw() = default;
    explicit CAudioParamDataItemRaw(const CByteArray& bytes) : m_bytes(bytes) {}
    std::unique_ptr<CAudioParamDataItem> clone() const override;
    CErrorPtr save(COutputStream& out) const override;
    CErrorPtr load(CInputStream& in) override;
    Type getType() const override { return Raw; }
    const CByteArray& bytes() const { return m_bytes; }

private:
    CByteArray m_bytes;
};

// The items of a string or raw parameter, by positive id. Ids are never reused; ids are
// valid only in their own table, so whoever takes a value from another table copies the
// item over (copyItem) and stores the new id.
class CAudioParamData
{
public:
    CAudioParamData() = default;
    CAudioParamData(const CAudioParamData& other) { copyFrom(other); }
    CAudioParamData& operator=(const CAudioParamData& other);

    uint32_t addString(const CString& text);
    uint32_t addRaw();
    uint32_t addRaw(const CByteArray& bytes);
    // 0 when the source has no such item.
    uint32_t copyItem(uint32_t id, const CAudioParamData& source);
    void removeItem(uint32_t id);
    void clear();
    void copyFrom(const CAudioParamData& other);

    // Empty when the id is missing or of the other type.
    CString getString(uint32_t id) const;
    CByteArray getRaw(uint32_t id) const;
    const CAudioParamDataItem* find(uint32_t id) const;
    size_t count() const { return m_items.size(); }
    uint32_t lastId() const { return m_lastId; }

    CErrorPtr save(COutputStream& out) const;
    // Replaces the content; lastId becomes the greatest id read.
    CErrorPtr load(CInputStream& in);

private:
    uint32_t add(std::unique_ptr<CAudioParamDataItem> item);

    CMap<uint32_t, std::unique_ptr<CAudioParamDataItem>> m_items;
    uint32_t m_lastId = 0;
};

} // namespace qel
