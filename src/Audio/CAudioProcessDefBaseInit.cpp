#include "Audio/CAudioProcessDefBaseInit.h"

#include "Audio/CAudioParamDef.h"

namespace qel {

namespace {

bool hasTagPrefix(const CObject& object, const CString& prefix)
{
    return object.tag().substring(0, prefix.length()) == prefix;
}

CString lastComponent(const CString& dotted)
{
    return dotted.substring(dotted.findLast('.') + 1);
}

} // namespace

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
        } else if (c->tag() == CString("audio:param-remap")) {
            m_remaps.append(c);
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
    if (object->tag() == CString("audio:param-shared-storage")) {
        m_sharedStorages.push_back({pathOf(object->getAttrString(CString("param"))), object});
        return true;
    }
    if (hasTagPrefix(*object, CString("audio:param-filter-"))) {
        m_paramFilters.append(object);
        return true;
    }
    if (auto* param = dynamic_cast<CAudioParamDef*>(object)) {
        m_params.push_back({pathOf(object->name()), param});
        return true;
    }
    return false;
}

} // namespace qel
