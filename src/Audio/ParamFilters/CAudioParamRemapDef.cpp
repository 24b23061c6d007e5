#include "Audio/ParamFilters/CAudioParamRemapDef.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

namespace qel {
namespace {

using converter::isBlank;
using converter::trimmed;

CErrorPtr invalidRemap(const CString& objectName, const CString& text)
{
    return QEL_ERROR(objectName, "@qelstr_CAudioParamRemapDef_init_InvalidRemap Invalid remapping string '%1' defined.", text);
}

// "a = b": exactly one '=', and a name on each side.
CErrorPtr parsePair(const CString& text, std::vector<CAudioParamRemapDef::CPair>& out, const CString& objectName)
{
    const int equals = text.find('=');
    if (equals < 0 || text.find('=', equals + 1) >= 0)
        return invalidRemap(objectName, text);
    CAudioParamRemapDef::CPair pair{trimmed(text.substring(0, equals)), trimmed(text.substring(equals + 1))};
    // A side left empty would alias a process's own path, or point a name at nothing.
    if (pair.orig.isEmpty() || pair.target.isEmpty())
        return invalidRemap(objectName, text);
    out.push_back(std::move(pair));
    return nullptr;
}

} // namespace

CErrorPtr CAudioParamRemapDef::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    m_pairs.clear();
    const CString orig = getAttrString(CString("orig"));
    const CString target = getAttrString(CString("new"));
    if (!orig.isEmpty() || !target.isEmpty()) {
        if (orig.isEmpty() || target.isEmpty())
            return invalidRemap(getFullName(), CString(orig).append(" = ").append(target));
        m_pairs.push_back({orig, target});
    }
    const CString contentTag("content");
    for (int i = 0; i < childCount(); ++i)
        if (child(i)->tag() == contentTag)
            QEL_RETURN_IF_ERROR(parseList(child(i)->getAttrString(CString("value")), m_pairs, getFullName()),
                                getFullName());
    if (m_pairs.empty())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamRemapDef_init_NoRemapsDefined No remappings defined.");
    return nullptr;
}

CErrorPtr CAudioParamRemapDef::parseList(const CString& text, std::vector<CPair>& out, const CString& objectName)
{
    const bool bySemicolon = text.find(';') >= 0;
    std::vector<CPair> pairs;
    int start = 0;
    while (start <= text.length()) {
        int end = start;
        while (end < text.length() && (bySemicolon ? text.at(end) != ';' : !isBlank(text.at(end))))
            ++end;
        // What separators leave between them (a trailing ';', runs of blanks) is no pair.
        const CString item = trimmed(text.substring(start, end - start));
        if (!item.isEmpty())
            QEL_RETURN_IF_ERROR(parsePair(item, pairs, objectName), objectName);
        start = end + 1;
    }
    out.insert(out.end(), pairs.begin(), pairs.end());
    return nullptr;
}

} // namespace qel
