#pragma once

#include "Core/CAppData.h"
#include "Core/CObject.h"

namespace qel {

// Keeps one of its own attributes equal to a string in an application data store, across
// every instance of the product in the process and between sessions. Tag
// core:shared-attribute.
//
//   storage-type  "local", "group" or "global": which store
//   attribute     the attribute of this object that mirrors the stored value (required)
//   data-name     the key; when empty, the last segment of the object's full name
//   def-value     the text used while the store holds nothing
//
// A write from any instance reaches the others over their trees' bridges, so each re-reads
// the value on its own tree's thread. A tree without a bridge hears nothing.
class CSharedAttribute : public CObject
{
public:
    CSharedAttribute();
    ~CSharedAttribute() override;

    static void initClassInfo(CClassInfo& info);

    CErrorPtr init() override;
    void releaseLinks() override;

    // Event `update`: reads the stored value (or def-value) into the attribute.
    CErrorPtr update();
    // Stores the value's text, which every instance then takes over.
    void setSharedValue(const CAttrValue& value);
    void setSharedValue(const CString& value);

    CAppData* store() const { return m_store; }
    const CString& dataName() const { return m_dataName; }

private:
    class CSharedAttributeListener : public CAppDataListener<CSharedAttribute>
    {
    public:
        using CAppDataListener<CSharedAttribute>::CAppDataListener;
        ~CSharedAttributeListener() override { detach(); }
        void onUpdate(const CUpdateMessage* message) override;
    };

    CSharedAttributeListener m_listener;
    CAppData* m_store = nullptr;
    CString m_attribute;
    CString m_dataName;
    CString m_defValue;
    CAttrMap m_updateParams;
};

} // namespace qel
