#include "Audio/CAudioStream.h"

namespace qel {

CAudioStream::CAudioStream()
{
    for (int8_t& index : map)
        index = -1;
}

// Buffers the stream still holds go back; the delays release their chunks themselves.
CAudioStream::~CAudioStream() { releaseBuffers(); }

CAudioStream::CChannel* CAudioStream::find(int32_t key)
{
    if (key < 0 || key >= kKeyCount || map[key] < 0)
        return nullptr;
    return &channels[map[key]];
}

const CAudioStream::CChannel* CAudioStream::find(int32_t key) const
{
    return const_cast<CAudioStream*>(this)->find(key);
}

bool CAudioStream::setFormat(double rate, const CChannel* records, int32_t count)
{
    CChannel next[kMaxChannels];
    int8_t nextMap[kKeyCount];
    for (int8_t& index : nextMap)
        index = -1;
    int32_t nextCount = 0;
    for (int32_t i = 0; i < count && nextCount < kMaxChannels; ++i) {
        const int32_t key = records[i].key();
        if (records[i].channel < 0 || records[i].channel > 15 || key < 0 || key >= kKeyCount || nextMap[key] >= 0)
            continue;
        next[nextCount] = records[i];
        next[nextCount].buffer = nullptr;
        nextMap[key] = int8_t(nextCount++);
    }

    bool isSame = rate == sampleRate && nextCount == channelCount;
    for (int32_t i = 0; isSame && i < nextCount; ++i) {
        const CChannel& a = channels[i];
        const CChannel& b = next[i];
        isSame = a.channel == b.channel && a.port == b.port && a.group == b.group && a.latency == b.latency;
    }
    if (isSame)
        return false;

    releaseBuffers();
    sampleRate = rate;
    channelCount = nextCount;
    for (int32_t i = 0; i < kMaxChannels; ++i)
        channels[i] = i < nextCount ? next[i] : CChannel();
    for (int32_t k = 0; k < kKeyCount; ++k)
        map[k] = nextMap[k];
    markChanged();
    return true;
}

CDSPModDelay* CAudioStream::delayFor(int32_t key, CSampleBufferPool& pool)
{
    if (!delays[key])
        delays[key] = std::make_unique<CDSPModDelay>(pool);
    return delays[key].get();
}

void CAudioStream::resetDelays()
{
    for (auto& delay : delays)
        if (delay)
            delay->reset();
}

bool CAudioStream::runDelays()
{
    bool isOk = true;
    for (int32_t i = 0; i < channelCount; ++i) {
        CChannel& c = channels[i];
        CDSPModDelay* delay = delays[c.key()].get();
        // A line stays once made, so that alignment coming back costs no allocation; while
        // it would only copy, skipping it leaves its history stale, which the next length
        // change never reads: a longer delay first waits for samples it wrote itself.
        if (delay && (delay->delay() != 0 || delay->isChanging()))
            isOk = delay->process(c.buffer, blockLength) && isOk;
    }
    return isOk;
}

void CAudioStream::clear()
{
    resetDelays();
    setFormat(0.0, nullptr, 0);
    blockLength = 0;
}

void CAudioStream::releaseBuffers()
{
    for (int32_t i = 0; i < channelCount; ++i) {
        CSampleBufferPool::release(channels[i].buffer);
        channels[i].buffer = nullptr;
    }
}

} // namespace qel
