#pragma once

#include "Audio/Converters/CAudioParamConverter.h"

namespace qel {

// For string parameters, whose value is the id of an item in the parameter's data: the
// text is that item's string (tag audio:cvt-text). Typed text never becomes a value here;
// the string itself is stored by whoever edits it.
class CAudioParamConverterText : public CAudioParamConverter
{
public:
    static void initClassInfo(CClassInfo& info);

    double parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    double parseRawValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const override;
    void valueToText(CString& out, const CAudioParamInfo& info, int pos, double value, const CAudioParamData* data,
                     TextMode mode) const override;
};

} // namespace qel
