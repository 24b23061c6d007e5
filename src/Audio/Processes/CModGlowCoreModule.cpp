#include "Audio/Processes/CModGlowCoreModule.h"

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CSampleBufferPool.h"

namespace qel {

void CModGlowCoreModule::reset()
{
    for (CGlowCoreKernel& kernel : m_kernels)
        kernel.reset();
}

void CModGlowCoreModule::update()
{
    CGlowCoreCoeffs::CParams p;
    p.ratioA = paramValue(SlotRatioA, p.ratioA);
    p.ratioB = paramValue(SlotRatioB, p.ratioB);
    p.kneeA = paramValue(SlotKneeA, p.kneeA);
    p.kneeB = paramValue(SlotKneeB, p.kneeB);
    p.biasI = paramValue(SlotBiasI, p.biasI);
    p.biasV = paramValue(SlotBiasV, p.biasV);
    p.gainI = paramValue(SlotGainI, p.gainI);
    p.gainV = paramValue(SlotGainV, p.gainV);
    p.autoGainPoint = paramValue(SlotAutoGainPoint, p.autoGainPoint);
    p.feedFreqHz = paramValue(SlotFeedFreq, p.feedFreqHz);
    p.feedFreqInv = paramValue(SlotFeedFreqInv, p.feedFreqInv);
    p.type = paramValue(SlotType, p.type);
    p.makeupGain = paramValue(SlotMakeupGain, p.makeupGain);
    m_coeffs = CGlowCoreCoeffs::design(p, sampleRate());

    const CAudioPort& feeds = owner()->port(1);
    for (int32_t c = 0; c < channelCount(); ++c) {
        const CChannel& ch = channel(c);
        m_feedIndex[c] = -1;
        for (int32_t i = 0; i < feeds.channelCount; ++i)
            if (keyChannel(feeds.channels[i].key) == keyChannel(ch.key) && feeds.channels[i].group == ch.group)
                m_feedIndex[c] = i;
        m_kinds[c] = CGlowCoreKernel::kindFor(m_coeffs, m_feedIndex[c] >= 0);
        m_kernels[c].reset();
    }
}

void CModGlowCoreModule::process(int32_t n)
{
    const CAudioPort& feeds = owner()->port(1);
    for (int32_t c = 0; c < channelCount(); ++c) {
        double* out = takeBuffer();
        if (!out) {
            // Without memory the band goes on uncoloured rather than not at all.
            passInput(c);
            continue;
        }
        const int32_t index = m_feedIndex[c];
        const double* feed = index >= 0 && index < feeds.channelCount ? feeds.channels[index].buffer : nullptr;
        CGlowCoreKernel::Kind kind = m_kinds[c];
        if (!feed && kind == CGlowCoreKernel::Kind::Type1)
            kind = CGlowCoreKernel::Kind::Type1NoFeed;
        else if (!feed && kind == CGlowCoreKernel::Kind::Feedback)
            kind = CGlowCoreKernel::Kind::FeedbackNoFeed;
        m_kernels[c].run(kind, m_coeffs, input(c), feed, out, n);
        setOutput(c, out);
    }
}

} // namespace qel
