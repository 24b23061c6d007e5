#include "Audio/Processes/CModStatsModule.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CAudioVizData.h"
#include "Audio/CAudioVizReceiver.h"

#include <algorithm>
#include <cmath>

namespace qel {
namespace {

// Samples per frame at a rate of frames; at least one, whatever the rates say.
int32_t framesToSamples(double sampleRate, double fps)
{
    const double v = fps > 0.0 ? std::round(sampleRate / fps) : 1.0;
    return std::isfinite(v) && v >= 1.0 ? int32_t(std::min(v, 1e9)) : 1;
}

} // namespace

CModStatsModule::CModStatsModule(int32_t slotCount, const CSettings& settings)
    : CAudioModule(slotCount), m_settings(&settings), m_frameRate(settings.fps)
{
}

void CModStatsModule::restartFraming()
{
    m_sideIndex = -1;
    if (owner() && channelCount() > 0) {
        const CAudioPort& side = owner()->port(1);
        const int32_t key = channelKey(keyChannel(channel(0).key), 1);
        for (int32_t i = 0; i < side.channelCount && m_sideIndex < 0; ++i)
            if (side.channels[i].key == key)
                m_sideIndex = i;
    }
    m_frameLength = framesToSamples(sampleRate(), m_frameRate);
    m_samplesToFrame = m_frameLength;
    const CAudioEnv* env = owner() ? owner()->env() : nullptr;
    m_frameTime = env ? env->streamPosition() : 0.0;
    statsRecalc();
}

const double* CModStatsModule::sideInput() const
{
    if (m_sideIndex >= 0) {
        const CAudioPort& side = owner()->port(1);
        if (m_sideIndex < side.channelCount && side.channels[m_sideIndex].buffer)
            return side.channels[m_sideIndex].buffer;
    }
    return channelCount() >= 2 ? input(1) : input(0);
}

void CModStatsModule::process(int32_t n)
{
    const double* in = input(0);
    const double* side = sideInput();
    // Without a buffer (no memory upstream) the frames still advance, measuring nothing.
    const bool isMeasured = in && side;
    const double rate = sampleRate();
    int32_t at = 0;
    int32_t left = n;
    while (left > 0) {
        if (left < m_samplesToFrame) {
            if (isMeasured)
                statsProcess(in + at, side + at, left);
            m_samplesToFrame -= left;
            m_frameTime += double(left) / rate;
            return;
        }
        const int32_t span = m_samplesToFrame;
        if (isMeasured)
            statsProcess(in + at, side + at, span);
        m_frameTime += double(span) / rate;
        at += span;
        left -= span;
        endFrame();
    }
}

void CModStatsModule::endFrame()
{
    CAudioVizData& record = statsMakeData();
    const CChannel* ch = channelCount() > 0 ? &channel(0) : nullptr;
    record.channel = ch ? uint32_t(keyChannel(ch->key)) : 0;
    record.group = ch ? uint32_t(ch->group) : 0;
    record.element = owner() ? uint32_t(owner()->element()) : 0;
    record.time = m_frameTime - 0.5 * double(m_frameLength) / sampleRate();
    record.slot = -1;
    if (m_settings->receiver && m_settings->source)
        m_settings->receiver->submit(m_settings->source, record);
    ++m_frameCount;

    if (!m_settings->isFpsFixed) {
        // The rate in force is written by this thread, at the start of the block.
        const CAudioEnv* env = owner() ? owner()->env() : nullptr;
        const double fps = env ? env->updateRate() : m_frameRate;
        if (fps > 0.0 && std::isfinite(fps)) {
            m_frameRate = fps;
            const int32_t v = framesToSamples(sampleRate(), fps);
            m_frameLength = std::max(v + (v & 1), kMinFrameLength);
        }
    }
    m_samplesToFrame = m_frameLength;
}

} // namespace qel
