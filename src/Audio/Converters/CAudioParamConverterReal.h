#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// A plain number on a linear range, printed with a fixed number of decimals
// (tag audio:cvt-real).
class CAudioParamConverterReal : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);
    CErrorPtr init() override;

    int decimals() const { return m_decimals; }

    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;

private:
    int32_t m_decimals = 0;
};

} // namespace qel
