#include "Audio/Filters/CAudioFilterGenArrayItem.h"

#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CAudioFilterGenArray.h"

namespace qel {

CErrorPtr CAudioFilterGenArrayItem::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    if (!dynamic_cast<CAudioFilterGenArray*>(parent()))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterGenArrayItem_init_InvalidParent CAudioFilterGenArray class parent expected.");
    const CAttrValue* value = findAttr(CString("index"));
    m_index = 0;
    if (value && value->isSet() && !value->tryInt(m_index))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterGenArrayItem_init_InvalidIndex Invalid index '%1' specified.",
                         getAttrString(CString("index")));
    return nullptr;
}

// The generator may stand anywhere before this item in the definition.
CErrorPtr CAudioFilterGenArrayItem::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    CAudioFilterGen* generator = nullptr;
    QEL_RETURN_IF_ERROR(findObjectByAttr(generator, CString("fltgen")), getFullName());
    m_generator = generator;
    return nullptr;
}

} // namespace qel
