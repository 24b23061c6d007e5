#pragma once

// Small pieces the converter classes share but that are no part of their interface.

#include "Audio/CAudioParamInfo.h"
#include "Core/CObject.h"

#include <cmath>
#include <cstdint>

namespace qel::converter {

// An attribute that is absent takes `fallback`; one that is present but does not read as
// a number returns false, so that the caller reports it instead of working with zero.
inline bool readRealAttr(const CObject& object, const char* name, double fallback, double& out)
{
    const CAttrValue* value = object.findAttr(CString(name));
    if (!value || !value->isSet()) {
        out = fallback;
        return true;
    }
    return value->tryReal(out);
}

inline bool readIntAttr(const CObject& object, const char* name, int32_t fallback, int32_t& out)
{
    const CAttrValue* value = object.findAttr(CString(name));
    if (!value || !value->isSet()) {
        out = fallback;
        return true;
    }
    return value->tryInt(out);
}

// Blanks, tabs and line ends: what a definition's layout or a typing user leaves around.
inline bool isBlank(char16_t c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

inline CString trimmed(const CString& text)
{
    int start = 0;
    int end = text.length();
    while (start < end && isBlank(text.at(start)))
        ++start;
    while (end > start && isBlank(text.at(end - 1)))
        --end;
    return text.substring(start, end - start);
}

// Rounded half away from zero and held inside int64, so that infinities and NaN (a
// parameter's value should never be either) cannot make the conversion undefined.
inline int64_t roundToInt64(double value)
{
    const double rounded = value >= 0.0 ? std::floor(value + 0.5) : -std::floor(0.5 - value);
    if (std::isnan(rounded))
        return 0;
    if (rounded <= -9.2e18)
        return -int64_t(9200000000000000000);
    if (rounded >= 9.2e18)
        return int64_t(9200000000000000000);
    return static_cast<int64_t>(rounded);
}

// Only the first switch counts: a parameter has at most one special value with a name
// ("Off" at the bottom of a frequency range, for instance).
inline bool hasSwitch(const CAudioParamInfo& info)
{
    return !info.switchValues.empty() && !info.switchNames.empty();
}

inline bool switchFromText(const CAudioParamInfo& info, const CString& text, double& value)
{
    if (!hasSwitch(info) || text != info.switchNames.front())
        return false;
    value = info.switchValues.front();
    return true;
}

// Near enough is the switch: relative to its size, with an absolute floor so that a
// switch at 0 can be hit at all.
inline bool isSwitchValue(const CAudioParamInfo& info, double value)
{
    if (!hasSwitch(info))
        return false;
    const double target = info.switchValues.front();
    const double distance = std::fabs(value - target);
    return distance < 0.005 * target || distance < 0.005;
}

} // namespace qel::converter
