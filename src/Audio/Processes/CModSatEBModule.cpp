#include "Audio/Processes/CModSatEBModule.h"

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CSampleBufferPool.h"
#include "Audio/Processes/CModSatEBDef.h"

#include <algorithm>
#include <cmath>

namespace qel {

using Pool = CSampleBufferPool;

CModSatEBModule::~CModSatEBModule()
{
    for (double*& ring : m_rings) {
        Pool::release(ring);
        ring = nullptr;
    }
}

CErrorPtr CModSatEBModule::init()
{
    const auto* def = owner() ? dynamic_cast<const CModSatEBDef*>(owner()->def()) : nullptr;
    m_isOutput = def && def->isOutput();
    // The input stage hands its level on beside its signal.
    setOutputPortCount(m_isOutput ? 1 : 2);
    return nullptr;
}

int32_t CModSatEBModule::takeRing(int32_t c, int32_t length)
{
    double*& ring = m_rings[c];
    const int32_t capacity = ring ? Pool::capacityBytes(ring) / int32_t(sizeof(double)) : 0;
    if (capacity >= length)
        return length;
    CSampleBufferPool* pool = owner() ? owner()->pool() : nullptr;
    // Room for the longest window at this rate, so that changing modes while playing
    // finds the ring large enough and never goes to the heap.
    const double longest = std::round(kReserveSec * sampleRate());
    const int32_t reserve = longest > double(length) ? int32_t(std::min(longest, double(kMaxWindow))) : length;
    double* larger = pool ? pool->take(reserve) : nullptr;
    if (!larger && pool && reserve > length)
        larger = pool->take(length);
    // Without memory for a longer window the old ring serves at its own length.
    if (!larger)
        return capacity;
    Pool::release(ring);
    ring = larger;
    return length;
}

void CModSatEBModule::update()
{
    CSatEBCoeffs::CParams p;
    p.drive = paramValue(SlotDrive, p.drive);
    p.biasGain = paramValue(SlotBiasGain, p.biasGain);
    p.biasGain2 = paramValue(SlotBiasGain2, p.biasGain2);
    p.makeupGain = paramValue(SlotMakeupGain, p.makeupGain);
    p.makeupCorr = paramValue(SlotMakeupCorr, p.makeupCorr);
    p.curveGain = paramValue(SlotCurveGain, p.curveGain);
    p.curvature = paramValue(SlotCurvature, p.curvature);
    p.shift = paramValue(SlotShift, p.shift);
    p.constBias = paramValue(SlotConstBias, p.constBias);
    p.rmsTimeSec = paramValue(SlotRmsTime, p.rmsTimeSec);
    m_coeffs = CSatEBCoeffs::design(p);

    if (m_isOutput) {
        const CAudioPort& levels = owner()->port(1);
        for (int32_t c = 0; c < channelCount(); ++c) {
            const CChannel& ch = channel(c);
            m_levelIndex[c] = -1;
            for (int32_t i = 0; i < levels.channelCount; ++i)
                if (keyChannel(levels.channels[i].key) == keyChannel(ch.key) && levels.channels[i].group == ch.group)
                    m_levelIndex[c] = i;
        }
        return;
    }

    // Half away from zero: 34.6 ms at 96 kHz is 3321.6, hence 3322.
    const double samples = std::round(p.rmsTimeSec * sampleRate());
    const int32_t length = samples >= double(kMaxWindow) ? kMaxWindow : samples >= 1.0 ? int32_t(samples) : 1;
    for (int32_t c = 0; c < channelCount(); ++c) {
        const int32_t window = takeRing(c, length);
        m_hasRing[c] = window > 0;
        m_kernels[c].start(m_rings[c], window);
    }
}

void CModSatEBModule::process(int32_t n)
{
    if (m_isOutput)
        processOutput(n);
    else
        processInput(n);
}

void CModSatEBModule::processInput(int32_t n)
{
    for (int32_t c = 0; c < channelCount(); ++c) {
        double* out = m_hasRing[c] ? takeBuffer() : nullptr;
        double* level = out ? takeBuffer() : nullptr;
        if (!level) {
            // Without memory the signal goes on unsaturated and the level reads as silence.
            Pool::release(out);
            passInput(c);
            continue;
        }
        m_kernels[c].runInput(m_coeffs, input(c), out, level, n);
        setOutput(c, out);
        setOutput(c, level, 1);
    }
}

void CModSatEBModule::processOutput(int32_t n)
{
    const CAudioPort& levels = owner()->port(1);
    for (int32_t c = 0; c < channelCount(); ++c) {
        double* out = takeBuffer();
        if (!out) {
            passInput(c);
            continue;
        }
        const int32_t index = m_levelIndex[c];
        const double* level = index >= 0 && index < levels.channelCount ? levels.channels[index].buffer : nullptr;
        if (level)
            m_kernels[c].runOutput(m_coeffs, input(c), level, out, n);
        else
            std::fill(out, out + n, 0.0);
        setOutput(c, out);
    }
}

} // namespace qel
