#pragma once

#include "Audio/Filters/CAudioFilterParams.h"
#include "Core/CObject.h"

#include <cstdint>

namespace qel {

class CAudioFilterGen;

// One call of a serial generator (tag audio:fltgen-serial-item): the generator at the path
// `fltgen`, fed the values scaled by `adjust` and raised to `adjust-pow`, both lists of
// numbers by the position of the value; a missing entry is 1.
class CAudioFilterSerialGenItem : public CObject
{
public:
    static constexpr int32_t kMaxValues = CAudioFilterParamNames::kMaxNames;

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;
    CErrorPtr initChilds() override;

    const CAudioFilterGen* generator() const { return m_generator; }
    // adjust[j] * value^adjust-pow[j]; a value that is missing (not a number) stays so.
    double adjusted(int32_t j, double value) const;

private:
    const CAudioFilterGen* m_generator = nullptr;
    double m_adjust[kMaxValues] = {};
    double m_power[kMaxValues] = {};
    int32_t m_adjustCount = 0;
    int32_t m_powerCount = 0;
};

} // namespace qel
