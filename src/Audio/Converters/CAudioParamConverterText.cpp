#include "Audio/Converters/CAudioParamConverterText.h"

#include "Audio/CAudioParamData.h"
#include "Audio/Converters/CAudioParamConverterSupport.h"

namespace qel {

void CAudioParamConverterText::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

double CAudioParamConverterText::parseValue(const CAudioParamInfo&, int, const CString&, bool* ok) const
{
    setOk(ok, true);
    return 0.0;
}

double CAudioParamConverterText::parseRawValue(const CAudioParamInfo&, int, const CString&, bool* ok) const
{
    setOk(ok, true);
    return 0.0;
}

void CAudioParamConverterText::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                           const CAudioParamData* data, TextMode) const
{
    out = CString();
    const int64_t id = converter::roundToInt64(value);
    // Ids are positive and 32-bit; anything else cannot name an item.
    if (!data || id <= 0 || id > int64_t(UINT32_MAX))
        return;
    out = data->getString(uint32_t(id));
}

} // namespace qel
