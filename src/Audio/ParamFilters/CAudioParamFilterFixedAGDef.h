#pragma once

#include "Audio/ParamFilters/CAudioParamFilterDef.h"
#include "Audio/ParamFilters/CAudioParamFilterFixedAG.h"

namespace qel {

// Tag audio:param-filter-fixedag; adds `coeffs`, one per band, as "-0.35,-0.35,-0.2".
class CAudioParamFilterFixedAGDef : public CAudioParamFilterDef
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioParamFilterDef::initClassInfo(info); }
    CErrorPtr init() override
    {
        QEL_RETURN_IF_ERROR(CAudioParamFilterDef::init(), getFullName());
        m_coeffsText = getAttrString(CString("coeffs"));
        return nullptr;
    }

    const CString& coeffsText() const { return m_coeffsText; }
    CAudioParamFilter* createFilter() const override { return new CAudioParamFilterFixedAG(); }

private:
    CString m_coeffsText;
};

} // namespace qel
