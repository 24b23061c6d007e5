#include "Audio/ParamFilters/CAudioParamSharedStorage.h"

#include "Core/CAppData.h"

namespace qel {

CErrorPtr CAudioParamSharedStorage::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    m_paramName = getAttrString(CString("param"));
    if (m_paramName.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamSharedStorage_init_InvalidParamName Invalid parameter name specified.");
    m_dataName = getAttrString(CString("data-name"));
    if (m_dataName.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamSharedStorage_init_InvalidDataName Invalid shared data name specified.");
    const CString storageType = getAttrString(CString("storage-type"));
    m_store = CAppData::byStorageType(storageType);
    if (!m_store)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamSharedStorage_init_InvalidStorageType Invalid storage type \"%1\" specified.",
                         storageType);
    return nullptr;
}

} // namespace qel
