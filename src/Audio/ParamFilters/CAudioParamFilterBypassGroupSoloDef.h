#pragma once

#include "Audio/ParamFilters/CAudioParamFilterBypassGroupSolo.h"
#include "Audio/ParamFilters/CAudioParamFilterDef.h"

namespace qel {

// Tag audio:param-filter-bypass-group-solo.
class CAudioParamFilterBypassGroupSoloDef : public CAudioParamFilterDef
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioParamFilterDef::initClassInfo(info); }
    CAudioParamFilter* createFilter() const override { return new CAudioParamFilterBypassGroupSolo(); }
};

} // namespace qel
