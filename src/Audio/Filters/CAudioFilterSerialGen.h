#pragma once

#include "Audio/Filters/CAudioFilterGen.h"

#include <vector>

namespace qel {

class CAudioFilterSerialGenItem;

// Generators in series (tag audio:fltgen-serial): each item designs into the same stage
// list, from the values as the item adjusts them. `hp1b` is two one-poles at 0.6435815012
// times the frequency, whose product is -3 dB at the frequency; `peak_magnusB_fixed` narrows
// the matched peak so that its edges come close to half the peak's decibels.
class CAudioFilterSerialGen : public CAudioFilterGen
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    CErrorPtr initChilds() override;
    void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                      CAudioFilterStageList& stages) const override;

    int32_t itemCount() const { return int32_t(m_items.size()); }

private:
    std::vector<const CAudioFilterSerialGenItem*> m_items;
};

} // namespace qel
