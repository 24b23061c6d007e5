#include "Audio/Filters/CAudioFilterGen.h"

#include <cmath>

namespace qel {

bool CAudioFilterGen::appendBiquad(CAudioFilterStageList& stages, const CDCDAWKernelSet* kernels, double b0, double b1,
                                   double b2, double a0, double a1, double a2)
{
    if (a0 == 0.0)
        return false;
    const double k[5] = {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
    for (double v : k)
        if (!std::isfinite(v))
            return false;
    CAudioFilterStage* stage = stages.append(kernels);
    if (!stage)
        return false;
    stage->bCount = 3;
    stage->aCount = 2;
    stage->b[0] = k[0];
    stage->b[1] = k[1];
    stage->b[2] = k[2];
    stage->a[0] = k[3];
    stage->a[1] = k[4];
    return true;
}

CErrorPtr CAudioFilterGen::readType(const char* messageId, int32_t min, int32_t max, int32_t& out) const
{
    out = 0;
    const CAttrValue* value = findAttr(CString("type"));
    if (!value || !value->isSet())
        return nullptr;
    int32_t type = 0;
    if (!value->tryInt(type) || type < min || type > max)
        return QEL_ERROR(getFullName(), messageId, getAttrString(CString("type")));
    out = type;
    return nullptr;
}

} // namespace qel
