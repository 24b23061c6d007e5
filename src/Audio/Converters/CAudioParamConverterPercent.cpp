#include "Audio/Converters/CAudioParamConverterPercent.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

namespace qel {
namespace {

bool readPercent(const CAudioParamInfo& info, const CString& text, double& value)
{
    if (converter::switchFromText(info, text, value))
        return true;
    bool ok = false;
    value = CAudioParamConverter::readNumber(text, &ok) * 0.01;
    return ok;
}

} // namespace

void CAudioParamConverterPercent::initClassInfo(CClassInfo& info)
{
    CAudioParamConverter::initClassInfo(info);
}

double CAudioParamConverterPercent::parseValue(const CAudioParamInfo& info, int pos, const CString& text,
                                               bool* ok) const
{
    double value = 0.0;
    const bool read = readPercent(info, text, value);
    setOk(ok, read);
    return read ? clamp(info, pos, value) : minOf(info, pos);
}

double CAudioParamConverterPercent::parseRawValue(const CAudioParamInfo& info, int, const CString& text,
                                                  bool* ok) const
{
    double value = 0.0;
    const bool read = readPercent(info, text, value);
    setOk(ok, read);
    return read ? value : 0.0;
}

void CAudioParamConverterPercent::valueToText(CString& out, const CAudioParamInfo& info, int, double value,
                                              const CAudioParamData*, TextMode mode) const
{
    if (converter::isSwitchValue(info, value)) {
        out = info.switchNames.front();
        return;
    }
    out = formatReal(value * 100.0, mode == TextModeTiny ? 0 : 1);
}

double CAudioParamConverterPercent::normToDisplay(const CAudioParamInfo& info, int pos, double norm) const
{
    return normToValue(info, pos, norm) * 100.0;
}

double CAudioParamConverterPercent::displayToNorm(const CAudioParamInfo& info, int pos, double display) const
{
    return CAudioParamConverter::displayToNorm(info, pos, display * 0.01);
}

} // namespace qel
