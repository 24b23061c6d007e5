#include "Audio/Processes/CModFilterFIRModule.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CAudioFilterGenArray.h"
#include "Audio/Processes/CModFilterFIR.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qel {
namespace {

constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

// Half away from zero, held to what an int32_t takes; NaN reads as 0.
int32_t roundValue(double value)
{
    const double r = std::round(value);
    if (!(r > -1.0e9))
        return r != r ? 0 : -1000000000;
    return r < 1.0e9 ? int32_t(r) : 1000000000;
}

} // namespace

CModFilterFIRModule::CModFilterFIRModule(const CLayout& layout) : CAudioModule(layout.slotCount), m_layout(layout) {}

// A whole module serves every channel there can be; the memory of each comes with its
// first filter.
CErrorPtr CModFilterFIRModule::init()
{
    QEL_RETURN_IF_ERROR(CAudioModule::init(), CString());
    const size_t channels = m_layout.isWhole ? size_t(kMaxChannels) : 1;
    m_convolvers.resize(channels);
    if (m_layout.isZeroLatency)
        m_heads.resize(channels);
    // The taps of a long design: the list keeps its room from one design to the next.
    m_design.reserveTaps(4096);
    return nullptr;
}

void CModFilterFIRModule::regParams(CAudioProcessTerminalBase& owner)
{
    CAudioModule::regParams(owner);
    for (int32_t slot = 0; slot < m_layout.slotCount && slot < kMaxSlots; ++slot)
        m_bindings[slot] = owner.binding(slot);
}

double CModFilterFIRModule::elementValue(int32_t slot, int32_t element, double fallback) const
{
    if (slot < 0 || slot >= kMaxSlots || !m_bindings[slot] || !m_bindings[slot]->param)
        return fallback;
    const int32_t group = channelCount() > 0 ? channel(0).group : 0;
    return m_bindings[slot]->param->audioValues().getElementValue(group, element, 0, fallback);
}

int32_t CModFilterFIRModule::servedChannels() const
{
    return std::min(channelCount(), int32_t(m_convolvers.size()));
}

void CModFilterFIRModule::reset()
{
    for (CFIRConvolver& c : m_convolvers)
        c.reset();
    for (CFIRDirectHead& h : m_heads)
        h.reset();
}

void CModFilterFIRModule::update()
{
    m_latency = 0;
    m_tapCount = 0;
    m_blockLength = 0;
    m_filter.clear();
    for (CFIRConvolver& c : m_convolvers)
        c.clear();
    for (CFIRDirectHead& h : m_heads)
        h.clear();
    m_design.clear();
    if (!m_layout.genArray)
        return;

    // A generator parameter that has no value yet: nothing to design from.
    for (int32_t j = 0; j < m_layout.valueCount; ++j) {
        const int32_t slot = m_layout.valueSlots[j];
        if (m_bindings[slot] && m_bindings[slot]->param && std::isnan(elementValue(slot, 0, kNoValue)))
            return;
    }

    const int32_t group = channelCount() > 0 ? channel(0).group : 0;
    const int32_t named = m_layout.names.count();
    if (named > m_layout.valueCount) {
        // The point lists' shapes; the generators the product has take no points.
        const CAudioParamStorage* points[CLayout::kPointLists] = {};
        for (int32_t k = 0; k < CLayout::kPointLists; ++k) {
            const int32_t slot = m_layout.pointSlots[k];
            if (slot >= 0 && m_bindings[slot] && m_bindings[slot]->param)
                points[k] = &m_bindings[slot]->param->audioValues();
        }
        const int32_t at = m_layout.valueCount;
        m_values[at] = points[0] ? double(points[0]->elementSize()) : 0.0;
        for (int32_t k = 0; k < CLayout::kPointLists && at + 1 + k < named; ++k)
            m_values[at + 1 + k] = points[k] ? double(points[k]->elementCount(group)) : 0.0;
    }

    // More filters than a stage list holds could not be designed anyway.
    const int32_t count =
        std::clamp(roundValue(elementValue(m_layout.countSlot, 0, 1.0)), 0, CAudioFilterStageList::kMaxStages);
    for (int32_t i = 0; i < count; ++i) {
        const CAudioFilterGen* gen = m_layout.genArray->find(roundValue(elementValue(m_layout.indexSlot, i, 0.0)));
        if (!gen)
            continue;
        for (int32_t j = 0; j < m_layout.valueCount; ++j)
            m_values[j] = elementValue(m_layout.valueSlots[j], i, kNoValue);
        const bool isFixedRate = elementValue(m_layout.fixsrSlot, i, 0.0) >= 0.5;
        const CAudioFilterParams params{&m_layout.names, m_values, named};
        gen->createFilter(m_workspace, isFixedRate ? kFixedRate : sampleRate(), params, m_design);
    }

    int32_t firCount = 0;
    for (int32_t s = 0; s < m_design.count(); ++s) {
        if (m_design[s].tapCount > 0) {
            if (firCount++ == 0)
                m_tapStage = s;
        }
    }
    if (firCount == 0)
        return;
    if (firCount > 1) {
        if (auto* fir = dynamic_cast<CModFilterFIR*>(owner()))
            fir->noteCombining();
    }
    m_tapCount = firCount == 1 ? m_design[m_tapStage].tapCount : 0;
    m_latency += m_design.latency();

    if (m_layout.isZeroLatency) {
        m_blockLength = CFIRDirectHead::kMaxTaps;
    } else {
        const int32_t order = std::clamp(roundValue(elementValue(m_layout.latencySlot, 0, kDefaultLatencyOrder)), kMinLatencyOrder,
                                         kMaxLatencyOrder);
        m_blockLength = int32_t(1) << order;
        m_latency += m_blockLength;
    }
    if (m_tapCount == 0)
        return;

    const double* tapList = taps();
    const int32_t served = servedChannels();
    bool isBuilt = true;
    if (m_layout.isZeroLatency) {
        for (int32_t c = 0; c < served; ++c)
            m_heads[size_t(c)].configure(tapList, m_tapCount);
        const int32_t rest = m_tapCount - CFIRDirectHead::kMaxTaps;
        if (rest > 0)
            isBuilt = m_filter.build(tapList + CFIRDirectHead::kMaxTaps, rest, m_blockLength);
    } else {
        isBuilt = m_filter.build(tapList, m_tapCount, m_blockLength);
    }
    for (int32_t c = 0; c < served && isBuilt; ++c)
        isBuilt = m_convolvers[size_t(c)].configure(m_filter);
    // Without memory for every channel none runs a filter: the signal passes whole.
    if (!isBuilt) {
        m_filter.clear();
        for (CFIRConvolver& c : m_convolvers)
            c.clear();
        for (CFIRDirectHead& h : m_heads)
            h.clear();
    }
}

void CModFilterFIRModule::process(int32_t n)
{
    const int32_t served = servedChannels();
    for (int32_t c = 0; c < channelCount(); ++c) {
        CFIRConvolver* convolver = c < served ? &m_convolvers[size_t(c)] : nullptr;
        CFIRDirectHead* head = c < served && !m_heads.empty() ? &m_heads[size_t(c)] : nullptr;
        const bool hasStages = convolver && convolver->stageCount() > 0;
        const bool hasHead = head && head->length() > 0;
        double* out = hasStages || hasHead ? takeBuffer() : nullptr;
        if (!out) {
            passInput(c);
            continue;
        }
        const double* in = input(c);
        if (hasStages)
            convolver->run(in, out, n);
        if (hasHead)
            head->run(in, out, n, hasStages);
        setOutput(c, out);
    }
}

} // namespace qel
