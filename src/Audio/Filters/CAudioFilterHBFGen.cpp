#include "Audio/Filters/CAudioFilterHBFGen.h"

#include "Audio/Filters/CAudioFilterNumberList.h"
#include "Audio/Filters/CDCDAWKernelSet.h"

namespace qel {

// A list that is not numbers, or longer than the kernels go, is as unusable as an empty
// one and gets the same message.
CErrorPtr CAudioFilterHBFGen::init()
{
    QEL_RETURN_IF_ERROR(CAudioFilterGen::init(), getFullName());
    int32_t countA = 0;
    int32_t countB = 0;
    if (!parseNumberList(getAttrString(CString("a")), m_a, kMaxCoeffs, countA) || countA < 1)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterHBFGen_init_NoCoeffsA Not enough 'a' coefficients defined.");
    if (!parseNumberList(getAttrString(CString("b")), m_b, kMaxCoeffs, countB) || countB != countA)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioFilterHBFGen_init_NoCoeffsB Not enough 'b' coefficients defined.");
    m_count = countA;
    return nullptr;
}

void CAudioFilterHBFGen::createFilter(CDCDAWFilterWorkspace&, double, const CAudioFilterParams&,
                                      CAudioFilterStageList& stages) const
{
    CAudioFilterStage* stage = m_count > 0 ? stages.append(dcdaw::halfBandKernels(m_count)) : nullptr;
    if (!stage)
        return;
    stage->bCount = m_count;
    stage->aCount = m_count;
    for (int32_t i = 0; i < m_count; ++i) {
        stage->b[i] = m_a[i];
        stage->a[i] = m_b[i];
    }
}

} // namespace qel
