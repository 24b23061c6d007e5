#pragma once

#include "Audio/ParamFilters/CAudioParamFilterDef.h"
#include "Audio/ParamFilters/CAudioParamRemapDef.h"
#include "Audio/ParamFilters/CAudioParamSharedStorage.h"
#include "Core/CMap.h"
#include "Core/CObject.h"
#include "Core/CPtrArray.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace qel {

class CAudioParamAllocDef;
class CAudioParamDef;

// Sorts what a process definition says about parameters out of its children, once they
// all exist. Parameters are kept with the path by which the process names them: "." and
// the parameter's own name, or "." group "." name for one inside a plain core:object
// group, so that the path rules of the process resolve them beside its full name.
class CAudioProcessDefBaseInit : public CObject
{
public:
    template <class T>
    struct CPathEntry
    {
        CString path;
        T* object = nullptr;
    };

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr initChilds() override;

    // By slot index; a later row with the same index replaced an earlier one.
    const CMap<int32_t, CAudioParamAllocDef*>& paramAllocs() const { return m_paramAllocs; }
    // The rows a module with `slotLimit` slots can bind, in index order, each with the last
    // part of its parameter's name.
    std::vector<std::pair<int32_t, CString>> slotRows(int32_t slotLimit) const;
    const std::vector<CPathEntry<CAudioParamDef>>& params() const { return m_params; }
    const CPtrArray<CAudioParamRemapDef>& remaps() const { return m_remaps; }
    const std::vector<CPathEntry<CAudioParamSharedStorage>>& sharedStorages() const { return m_sharedStorages; }
    const CPtrArray<CAudioParamFilterDef>& paramFilters() const { return m_paramFilters; }

private:
    // Files a parameter, a shared storage or a filter; `groupPath` is empty at the top
    // level, else "." and the group's name. Returns whether the child was one of them.
    bool fileParamChild(CObject* object, const CString& groupPath);

    CMap<int32_t, CAudioParamAllocDef*> m_paramAllocs;
    std::vector<CPathEntry<CAudioParamDef>> m_params;
    CPtrArray<CAudioParamRemapDef> m_remaps;
    std::vector<CPathEntry<CAudioParamSharedStorage>> m_sharedStorages;
    CPtrArray<CAudioParamFilterDef> m_paramFilters;
};

} // namespace qel
