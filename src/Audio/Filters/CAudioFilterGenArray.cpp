#include "Audio/Filters/CAudioFilterGenArray.h"

#include "Audio/Filters/CAudioFilterGenArrayItem.h"
#include "Core/CLog.h"

#include <algorithm>

namespace qel {

const CAudioFilterGenArray* CAudioFilterGenArray::resolve(const CObject& from, const CString& path, const CString& owner)
{
    CString relative = path;
    if (!relative.isEmpty() && relative.at(0) == '/')
        relative = relative.substring(1);
    const auto* found = relative.isEmpty() ? nullptr : dynamic_cast<const CAudioFilterGenArray*>(from.findObject(relative));
    if (!found)
        CLog::printfObject(owner, "The 'gen-array' '%s' not found.", path.toUtf8().c_str());
    return found;
}

CErrorPtr CAudioFilterGenArray::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    m_table.clear();
    for (int i = 0; i < childCount(); ++i) {
        const auto* item = dynamic_cast<const CAudioFilterGenArrayItem*>(child(i));
        if (!item)
            continue;
        if (std::any_of(m_table.begin(), m_table.end(), [&](const auto& e) { return e.first == item->index(); }))
            return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterGenArray_initChilds_DupeIndex Duplicate index '%1' used.",
                             CString::number(item->index()));
        m_table.emplace_back(item->index(), item->generator());
        std::sort(m_table.begin(), m_table.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
    }
    return nullptr;
}

const CAudioFilterGen* CAudioFilterGenArray::find(int32_t index) const
{
    const auto it = std::lower_bound(m_table.begin(), m_table.end(), index,
                                     [](const auto& entry, int32_t value) { return entry.first < value; });
    return it != m_table.end() && it->first == index ? it->second : nullptr;
}

} // namespace qel
