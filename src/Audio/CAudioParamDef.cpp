#include "Audio/CAudioParamDef.h"

namespace qel {

CErrorPtr CAudioParamDef::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    CAudioParamInfo& info = m_info;
    info.elementSize = getAttrInt(CString("element-size"));
    if (info.elementSize <= 0)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamDef_init_InvalidElementSize Invalid element size %1 specified.",
                         CString::number(info.elementSize));
    const CString type = getAttrString(CString("data-type"));
    if (type == CString("string") || type == CString("str") || type == CString("1"))
        info.dataType = CAudioParamStorage::String;
    else if (type == CString("raw"))
        info.dataType = CAudioParamStorage::Raw;
    else
        info.dataType = CAudioParamStorage::Float;
    if (info.dataType != CAudioParamStorage::Float && info.elementSize > 1)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamDef_init_ElementSizeStr Invalid element size %1 for non-float data specified.",
                         CString::number(info.elementSize));

    // Persistent wins over storable; either makes the parameter global.
    info.isPersistent = getAttrBool(CString("is-persistent"));
    info.isStorable = !info.isPersistent && getAttrBool(CString("is-storable"));
    info.isGlobal = info.isPersistent || info.isStorable || getAttrBool(CString("is-global"));
    info.isSingleGroup = getAttrBool(CString("is-single-group"));
    info.isSingleElement = getAttrBool(CString("is-single-element"));
    info.visualName = getAttrString(CString("visual-name"));
    info.fullName = getFullName();
    info.registryName = getAttrString(CString("param-registry"));

    info.converterNames.clear();
    for (int32_t pos = 0; pos < info.elementSize; ++pos) {
        CString attr("converter");
        if (pos > 0)
            attr.append(CString::number(pos + 1));
        info.converterNames.push_back(getAttrString(attr));
    }
    QEL_RETURN_IF_ERROR(info.parseConverterNames(*this), getFullName());
    QEL_RETURN_IF_ERROR(info.parseMinMaxValues(getAttrString(CString("min-values")), getAttrString(CString("max-values"))),
                        getFullName());
    QEL_RETURN_IF_ERROR(info.parseStateNames(getAttrString(CString("state-names"))), getFullName());
    info.parseSwitches(getAttrString(CString("switch-values")), getAttrString(CString("switch-names")));
    QEL_RETURN_IF_ERROR(info.defaults.parseDefValues(getAttrString(CString("def-values")), info), getFullName());
    return nullptr;
}

CErrorPtr CAudioParamAllocDef::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    m_paramName = getAttrString(CString("param-name"));
    if (m_paramName.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamAllocDef_init_InvalidParamName Invalid parameter name specified.");
    m_index = getAttrInt(CString("index"));
    if (m_index < 0)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamAllocDef_init_InvalidIndex Invalid parameter's '%1' index '%2' specified.",
                         m_paramName, CString::number(m_index));
    m_useAllGroups = getAttrBool(CString("use-all-groups"));
    m_useAllElements = getAttrBool(CString("use-all-elements"));
    m_isSmoothUpdate = getAttrBool(CString("is-smooth-update"));
    return nullptr;
}

CString CAudioParamAllocDef::plainParamName() const
{
    int start = 0;
    for (int i = 0; i < m_paramName.length(); ++i)
        if (m_paramName.at(i) == '.' || m_paramName.at(i) == '^')
            start = i + 1;
    return m_paramName.substring(start);
}

} // namespace qel
