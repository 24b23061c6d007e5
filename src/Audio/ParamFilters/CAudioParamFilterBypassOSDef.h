#pragma once

#include "Audio/ParamFilters/CAudioParamFilterBypassOS.h"
#include "Audio/ParamFilters/CAudioParamFilterDef.h"

namespace qel {

// Tag audio:param-filter-bypass-os.
class CAudioParamFilterBypassOSDef : public CAudioParamFilterDef
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioParamFilterDef::initClassInfo(info); }
    CAudioParamFilter* createFilter() const override { return new CAudioParamFilterBypassOS(); }
};

} // namespace qel
