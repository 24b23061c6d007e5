#pragma once

#include "Audio/Converters/CAudioParamConverterRound.h"

#include <vector>

namespace qel {

// A choice among named states (tag audio:cvt-enum). The value minus the range's minimum
// is the index of the state. Names come from the converter's own `state-names`
// ("Long|Short;Long2|Short2", the short form at most 7 characters) and, for indexes past
// those, from the parameter's; an index that neither names reads "Reserve".
class CAudioParamConverterEnum : public CAudioParamConverterRound
{
public:
    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    const std::vector<CString>& stateNames() const { return m_stateNames; }
    const std::vector<CString>& shortStateNames() const { return m_shortStateNames; }

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;

private:
    // A number typed as such, else the index of a matching name plus `base`.
    bool readState(const CAudioParamInfo& info, const CString& text, double base, double& value) const;
    bool findName(const CAudioParamInfo& info, const CString& text, size_t& index) const;

    std::vector<CString> m_stateNames;
    std::vector<CString> m_shortStateNames;
};

} // namespace qel
