#include "Audio/ParamFilters/CAudioParamFilterDef.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

namespace qel {

CErrorPtr CAudioParamFilterDef::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    splitNames(getAttrString(CString("src")), m_sourceNames);
    if (m_sourceNames.empty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamFilterDef_init_NoSrcParams No source parameters defined.");
    splitNames(getAttrString(CString("dst")), m_destinationNames);
    if (m_destinationNames.empty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamFilterDef_init_NoDstParams No destination parameters defined.");
    return nullptr;
}

CAudioParamFilter* CAudioParamFilterDef::createFilter() const { return nullptr; }

void CAudioParamFilterDef::splitNames(const CString& text, std::vector<CString>& out)
{
    out.clear();
    int start = 0;
    while (start <= text.length()) {
        int end = text.find(',', start);
        if (end < 0)
            end = text.length();
        const CString name = converter::trimmed(text.substring(start, end - start));
        if (!name.isEmpty())
            out.push_back(name);
        start = end + 1;
    }
}

} // namespace qel
