#include "Audio/VST/CAudioWrapperVST3ProgramParameter.h"

#include "Audio/CAudioWrapper.h"
#include "Audio/VST/CVST3Text.h"
#include "Core/CError.h"

#include <algorithm>
#include <cmath>

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

CAudioWrapperVST3ProgramParameter::CAudioWrapperVST3ProgramParameter(CAudioWrapper* wrapper)
    : m_wrapper(wrapper), m_slots(std::max<int32>(wrapper->programSlotCount(), 1))
{
    info = {};
    info.id = kId;
    CVST3Text::toString128(CString("Program"), info.title);
    info.stepCount = m_slots - 1;
    info.defaultNormalizedValue = normalizedOf(wrapper->currentProgram());
    info.unitId = kRootUnitId;
    info.flags = ParameterInfo::kIsProgramChange | ParameterInfo::kIsList;
    valueNormalized = info.defaultNormalizedValue;
}

int32 CAudioWrapperVST3ProgramParameter::indexOf(ParamValue valueNorm) const
{
    const double index = std::round(std::clamp(valueNorm, 0.0, 1.0) * double(m_slots - 1));
    return std::clamp(int32(index), int32(0), m_slots - 1);
}

ParamValue CAudioWrapperVST3ProgramParameter::normalizedOf(int32 index) const
{
    return std::clamp(double(index) / span(), 0.0, 1.0);
}

bool CAudioWrapperVST3ProgramParameter::setNormalized(ParamValue value)
{
    value = std::clamp(value, 0.0, 1.0);
    if (CErrorPtr error = m_wrapper->loadProgram(indexOf(value), m_wrapper))
        logError(error.get());
    return Parameter::setNormalized(value);
}

void CAudioWrapperVST3ProgramParameter::storeNormalized(ParamValue value)
{
    valueNormalized = std::clamp(value, 0.0, 1.0);
}

void CAudioWrapperVST3ProgramParameter::toString(ParamValue valueNorm, String128 string) const
{
    const int32 index = indexOf(valueNorm);
    CString name;
    m_wrapper->programName(index, name);
    CString text = CString::number(index + 1);
    text += " ";
    text += name;
    CVST3Text::toString128(text, string);
}

bool CAudioWrapperVST3ProgramParameter::fromString(const TChar* string, ParamValue& valueNorm) const
{
    if (!string)
        return false;
    const CString wanted = CVST3Text::fromHost(string, 128);
    for (int32 index = 0; index < m_slots; ++index) {
        String128 text;
        toString(normalizedOf(index), text);
        CString name;
        m_wrapper->programName(index, name);
        if (wanted == CString(text) || wanted == name) {
            valueNorm = normalizedOf(index);
            return true;
        }
    }
    return false;
}

ParamValue CAudioWrapperVST3ProgramParameter::toPlain(ParamValue valueNorm) const
{
    return valueNorm * double(m_slots - 1);
}

ParamValue CAudioWrapperVST3ProgramParameter::toNormalized(ParamValue plain) const
{
    return std::clamp(plain / span(), 0.0, 1.0);
}

} // namespace qel
