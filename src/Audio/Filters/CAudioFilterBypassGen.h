#pragma once

#include "Audio/Filters/CAudioFilterGen.h"

namespace qel {

// The generator of a filter that is off (tag audio:fltgen-bypass): no stage, so the
// process hands its input on by reference.
class CAudioFilterBypassGen : public CAudioFilterGen
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    void createFilter(CDCDAWFilterWorkspace&, double, const CAudioFilterParams&, CAudioFilterStageList&) const override {}
};

} // namespace qel
