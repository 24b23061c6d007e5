#include "Audio/VST/CAudioWrapperVST3Parameter.h"

#include "Audio/CAudioExtParam.h"
#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/Converters/CAudioParamConverter.h"
#include "Audio/VST/CVST3Text.h"

#include <algorithm>

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// The normalised default of the row's element; 0.5 when the parameter has no definition.
ParamValue defaultNormalized(CAudioExtParam& ext)
{
    CAudioParam* param = ext.param();
    const CAudioParamInfo* info = param ? param->info() : nullptr;
    if (!info || info->converters.empty())
        return 0.5;
    CLockGuard guard(param->lock());
    const double value = param->defaults().getElementValue(ext.group(), ext.elementIndex(), 0, 0.0);
    return std::clamp(info->converters[0]->valueToNorm(*info, 0, value), 0.0, 1.0);
}

} // namespace

CAudioWrapperVST3Parameter::CAudioWrapperVST3Parameter(CAudioExtParam* extParam, int32 id) : m_extParam(extParam)
{
    info = {};
    CVST3Text::toString128(extParam->extName(), info.title);
    CString label;
    extParam->getLabel(label);
    CVST3Text::toString128(label, info.units);
    info.id = ParamID(id);
    info.unitId = kRootUnitId;
    info.stepCount = 0;
    info.flags = ParameterInfo::kCanAutomate;
    if (extParam->extName() == CString("Bypass")) {
        info.flags |= ParameterInfo::kIsBypass;
        info.stepCount = 1;
    }
    info.defaultNormalizedValue = defaultNormalized(*extParam);
    storeNormalized(extParam->getNormalized());
    valueNormalized = currentNormalized();
}

bool CAudioWrapperVST3Parameter::setNormalized(ParamValue value)
{
    value = std::clamp(value, 0.0, 1.0);
    m_extParam->setNormalized(value);
    const ParamValue before = m_value.exchange(value, std::memory_order_relaxed);
    return before != value;
}

void CAudioWrapperVST3Parameter::storeNormalized(ParamValue value)
{
    m_value.store(std::clamp(value, 0.0, 1.0), std::memory_order_relaxed);
}

void CAudioWrapperVST3Parameter::toString(ParamValue valueNorm, String128 string) const
{
    CString text;
    m_extParam->normToText(text, valueNorm);
    CVST3Text::toString128(text, string);
}

bool CAudioWrapperVST3Parameter::fromString(const TChar* string, ParamValue& valueNorm) const
{
    if (!string)
        return false;
    valueNorm = m_extParam->textToNorm(CVST3Text::fromHost(string, 128));
    return true;
}

} // namespace qel
