#include "Audio/CAudioProcessDefBaseInit.h"

#include "Audio/CAudioParamDef.h"

namespace qel {

namespace {

CString lastComponent(const CString& dotted)
{
    return dotted.substring(dotted.findLast('.') + 1);
}

} // namespace

std::vector<std::pair<int32_t, CString>> CAudioProcessDefBaseInit::slotRows(int32_t slotLimit) const
{
    std::vector<std::pair<int32_t, CString>> rows;
    for (const auto& [index, row] : m_paramAllocs)
        if (index >= 0 && index < slotLimit)
            rows.emplace_back(index, row->plainParamName());
    return rows;
}

CErrorPtr CAudioProcessDefBaseInit::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    m_paramAllocs.clear();
    m_params.clear();
    m_remaps.clear();
    m_sharedStorages.clear();
    m_paramFilters.clear();

    const CString groupTag("core:object");
    for (int i = 0; i < childCount(); ++i) {
        CObject* c = child(i);
        if (auto* alloc = dynamic_cast<CAudioParamAllocDef*>(c)) {
            m_paramAllocs[alloc->index()] = alloc;
        } else if (auto* remap = dynamic_cast<CAudioParamRemapDef*>(c)) {
            m_remaps.append(remap);
        } else if (!fileParamChild(c, CString()) && c->tag() == groupTag) {
            const CString groupPath = CString(".").append(c->name());
            // Only one level: a group's own groups, allocs and remaps mean nothing here.
            for (int j = 0; j < c->childCount(); ++j)
                fileParamChild(c->child(j), groupPath);
        }
    }
    return nullptr;
}

bool CAudioProcessDefBaseInit::fileParamChild(CObject* object, const CString& groupPath)
{
    // Inside a group a name keeps only its last component: the group stands for the rest.
    const auto pathOf = [&](const CString& name) {
        return CString(groupPath).append(".").append(groupPath.isEmpty() ? name : lastComponent(name));
    };
    if (auto* storage = dynamic_cast<CAudioParamSharedStorage*>(object)) {
        m_sharedStorages.push_back({pathOf(storage->paramName()), storage});
        return true;
    }
    if (auto* filter = dynamic_cast<CAudioParamFilterDef*>(object)) {
        m_paramFilters.append(filter);
        return true;
    }
    if (auto* param = dynamic_cast<CAudioParamDef*>(object)) {
        m_params.push_back({pathOf(object->name()), param});
        return true;
    }
    return false;
}

} // namespace qel
