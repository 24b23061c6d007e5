#include "Audio/Processes/CModFilterIIRModule.h"

#include "Audio/CSampleBufferPool.h"
#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CAudioFilterGenArray.h"

#include <cmath>
#include <limits>

namespace qel {
namespace {

bool sameCoeffs(const CAudioFilterStage& x, const CAudioFilterStage& y)
{
    if (x.bCount != y.bCount || x.aCount != y.aCount)
        return false;
    for (int32_t i = 0; i < x.bCount; ++i)
        if (x.b[i] != y.b[i])
            return false;
    for (int32_t i = 0; i < x.aCount; ++i)
        if (x.a[i] != y.a[i])
            return false;
    return true;
}

int32_t roundIndex(double value)
{
    const double r = std::round(value); // half away from zero
    if (!(r > -1.0e9))
        return r != r ? 0 : -1000000000;
    return r < 1.0e9 ? int32_t(r) : 1000000000;
}

} // namespace

CModFilterIIRModule::CModFilterIIRModule(const CLayout& layout) : CAudioModule(layout.slotCount), m_layout(layout) {}

// A module serves one channel, or every channel there can be when it is whole.
CErrorPtr CModFilterIIRModule::init()
{
    QEL_RETURN_IF_ERROR(CAudioModule::init(), CString());
    m_stateChannels = m_layout.isWhole ? kMaxChannels : 1;
    m_states.assign(size_t(m_stateChannels * kMaxStages), CDCDAWStageState());
    return nullptr;
}

int32_t CModFilterIIRModule::stateChannels() const
{
    return channelCount() < m_stateChannels ? channelCount() : m_stateChannels;
}

void CModFilterIIRModule::initStage(int32_t i)
{
    const CAudioFilterStage& stage = m_stages[i];
    for (int32_t c = 0; c < m_stateChannels; ++c)
        stage.kernels->init(stateOf(c, i), stage, sampleRate());
}

void CModFilterIIRModule::reset()
{
    for (int32_t i = 0; i < m_stageCount; ++i)
        initStage(i);
}

void CModFilterIIRModule::update()
{
    m_index = m_layout.indexSlot >= 0 ? roundIndex(paramValue(m_layout.indexSlot, 0.0)) : 0;
    m_generator = m_layout.genArray ? m_layout.genArray->find(m_index) : nullptr;
    if (!m_generator) {
        m_stageCount = 0;
        return;
    }
    const int32_t count = m_layout.names.count();
    for (int32_t j = 0; j < count; ++j)
        m_values[j] = paramValue(m_layout.valueSlots[j], std::numeric_limits<double>::quiet_NaN());
    m_design.clear();
    m_generator->createFilter(m_workspace, sampleRate(), CAudioFilterParams{&m_layout.names, m_values, count}, m_design);

    // Coefficients made for another rate never morph: the stages start again.
    const bool isSameRate = m_designRate == sampleRate();
    int32_t kept = 0;
    for (int32_t d = 0; d < m_design.count(); ++d) {
        const CAudioFilterStage& next = m_design[d];
        // A tap list is for a convolution, not for this process.
        if (!next.kernels || !next.kernels->process)
            continue;
        const int32_t i = kept++;
        CAudioFilterStage& current = m_stages[i];
        const bool isSameKind = isSameRate && i < m_stageCount && current.kernels == next.kernels;
        if (isSameKind && next.kernels->update) {
            current = next;
            for (int32_t c = 0; c < m_stateChannels; ++c)
                next.kernels->update(stateOf(c, i), next);
        } else if (!isSameKind || !sameCoeffs(current, next)) {
            current = next;
            initStage(i);
        }
    }
    m_stageCount = kept;
    m_designRate = sampleRate();
}

void CModFilterIIRModule::process(int32_t n)
{
    const int32_t served = stateChannels();
    for (int32_t c = 0; c < channelCount(); ++c) {
        double* out = c < served && m_stageCount > 0 ? takeBuffer() : nullptr;
        // Without a stage, a state block or memory the channel goes on unchanged.
        if (!out) {
            passInput(c);
            continue;
        }
        const double* from = input(c);
        for (int32_t i = 0; i < m_stageCount; ++i) {
            m_stages[i].kernels->process(stateOf(c, i), from, out, n);
            from = out;
        }
        setOutput(c, out);
    }
}

} // namespace qel
