#include "Core/CSharedAttribute.h"

#include "Core/CMemoryReader.h"

namespace qel {

CSharedAttribute::CSharedAttribute() : m_listener(this) {}

CSharedAttribute::~CSharedAttribute()
{
    m_listener.detach();
}

void CSharedAttribute::initClassInfo(CClassInfo& info)
{
    CObject::initClassInfo(info);
    info.addEvent<CSharedAttribute, &CSharedAttribute::update>(CString("update"));
}

CErrorPtr CSharedAttribute::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    const CString storageType = getAttrString(CString("storage-type"));
    m_store = CAppData::byStorageType(storageType);
    if (!m_store)
        return QEL_ERROR(getFullName(), "@qelstr_CSharedAttribute_init_InvalidStorageType Invalid storage type \"%1\" specified.",
                         storageType);
    m_attribute = getAttrString(CString("attribute"));
    if (m_attribute.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CSharedAttribute_init_NoAttribute No attached attribute name specified.");
    m_dataName = getAttrString(CString("data-name"));
    if (m_dataName.isEmpty())
        m_dataName = name();
    m_defValue = getAttrString(CString("def-value"));

    // Writers on other threads post to us from the moment we listen, and must not read our
    // attributes to do it.
    m_updateParams = prepareBridgeEvent(getFullName(), CString("update"));
    m_listener.attach(m_store, m_dataName);
    QEL_RETURN_IF_ERROR(update(), getFullName());
    return nullptr;
}

void CSharedAttribute::releaseLinks()
{
    // First, before the tree around us is taken apart: a writer may be posting to us.
    m_listener.detach();
    CObject::releaseLinks();
}

CErrorPtr CSharedAttribute::update()
{
    if (!m_store)
        return nullptr;
    CByteArray bytes;
    m_store->readData(m_dataName, bytes, CAppData::kTagString, false);
    CString value;
    if (bytes.isEmpty()) {
        value = m_defValue;
    } else {
        CMemoryReader reader(bytes.data(), bytes.size());
        if (CErrorPtr damaged = reader.readString(value))
            value = CString();
    }
    QEL_RETURN_IF_ERROR(setAttrString(m_attribute, value, true), getFullName());
    return nullptr;
}

void CSharedAttribute::setSharedValue(const CAttrValue& value)
{
    setSharedValue(value.toString());
}

void CSharedAttribute::setSharedValue(const CString& value)
{
    if (m_store)
        m_store->setString(m_dataName, value, this);
}

void CSharedAttribute::CSharedAttributeListener::onUpdate(const CUpdateMessage*)
{
    // On the writer's thread, which must not touch our tree: the value is read again on
    // the tree's own thread.
    CErrorPtr ignored = m_owner->postBridgeEvent(m_owner->m_updateParams);
}

} // namespace qel
