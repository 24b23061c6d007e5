#include "Audio/Converters/CAudioParamConverterFreq.h"

#include "Audio/Converters/CAudioParamConverterSupport.h"

namespace qel {
namespace {

bool readFrequency(const CString& text, double& value)
{
    bool ok = false;
    const int length = text.length();
    if (length > 0 && (text.at(length - 1) == 'k' || text.at(length - 1) == 'K'))
        value = CAudioParamConverter::readNumber(text.substring(0, length - 1), &ok) * 1000.0;
    else
        value = CAudioParamConverter::readNumber(text, &ok);
    return ok;
}

} // namespace

void CAudioParamConverterFreq::initClassInfo(CClassInfo& info)
{
    CAudioParamConverterLog::initClassInfo(info);
}

double CAudioParamConverterFreq::parseValue(const CAudioParamInfo& info, int pos, const CString& text,
                                            bool* ok) const
{
    double value = 0.0;
    const bool read = converter::switchFromText(info, text, value) || readFrequency(text, value);
    setOk(ok, read);
    return read ? clamp(info, pos, value) : minOf(info, pos);
}

double CAudioParamConverterFreq::parseRawValue(const CAudioParamInfo& info, int pos, const CString& text,
                                               bool* ok) const
{
    double value = 0.0;
    if (converter::switchFromText(info, text, value)) {
        setOk(ok, true);
        return clamp(info, pos, value);
    }
    const bool read = readFrequency(text, value);
    setOk(ok, read);
    return read ? value : 0.0;
}

void CAudioParamConverterFreq::valueToText(CString& out, const CAudioParamInfo& info, int, double value,
                                           const CAudioParamData*, TextMode mode) const
{
    if (converter::isSwitchValue(info, value)) {
        out = info.switchNames.front();
        return;
    }
    if (mode == TextModePrecise) {
        out = formatReal(value, 2);
        return;
    }
    const CString kilo("k");
    if (mode == TextModeTiny) {
        // As narrow as the number allows: "9.9", "9999", "12.3k", "123k".
        const double whole = roundHalfAway(value);
        if (roundHalfAway(10.0 * value) < 100.0)
            out = formatReal(value, 1);
        else if (whole < 10000.0)
            out = formatReal(value, 0);
        else if (whole < 100000.0)
            out = formatReal(value * 0.001, 1) + kilo;
        else
            out = formatReal(value * 0.001, 0) + kilo;
        return;
    }
    if (roundHalfAway(10.0 * value) < 1000.0)
        out = formatReal(value, 1);
    else if (roundHalfAway(value) < 1000.0)
        out = formatReal(value, 0);
    else if (roundHalfAway(0.1 * value) >= 1000.0)
        out = formatReal(value * 0.001, 1) + kilo;
    else
        out = formatReal(value * 0.001, 2) + kilo;
}

} // namespace qel
