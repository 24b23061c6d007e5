#pragma once

#include "Audio/CAudioStream.h"
#include "Audio/CSampleBufferPool.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioProcessBase;

// One input side of a process: the streams that deliver to it, and the table of the
// channels it receives, one entry per channel index whatever the number of sources.
//
// The channel table is a fixed array, so that a block allocates nothing. The two lists
// can grow only while the graph is planned; reserve them then.
//
// Audio thread.
struct CAudioPort
{
    static constexpr int32_t kMaxChannels = 16;

    struct CChannel
    {
        int32_t key = 0;
        int32_t group = 0;
        int32_t latency = 0;        // the process's latency, which every source is aligned to
        int32_t sourceCount = 0;
        CChannel* nextMix = nullptr; // the process's list of channels that must be mixed
        double* buffer = nullptr;
    };

    // For a composite: where the channels of this port go on inside it.
    struct CFeed
    {
        CAudioProcessBase* process = nullptr;
        int32_t port = 0;
        CAudioStream* stream = nullptr;
    };

    int32_t id = 0;
    std::vector<CAudioStream*> sources;
    std::vector<CFeed> feeds;
    CChannel channels[kMaxChannels];
    int32_t channelCount = 0;
    // Bumped whenever the channel table changes, so that whoever built on it knows.
    int32_t changeCounter = 0;

    explicit CAudioPort(int32_t portId = 0) : id(portId) {}

    void reserve(int32_t sourceCount, int32_t feedCount)
    {
        sources.reserve(size_t(sourceCount));
        feeds.reserve(size_t(feedCount));
    }

    CChannel* find(int32_t key)
    {
        for (int32_t i = 0; i < channelCount; ++i)
            if (channels[i].key == key)
                return &channels[i];
        return nullptr;
    }

    // Port 0 always stays; another port with nothing in or out goes when ports refresh.
    bool isUnused() const { return id != 0 && sources.empty() && feeds.empty(); }

    // Drops the reference of every channel on its buffer.
    void releaseBuffers()
    {
        for (int32_t i = 0; i < channelCount; ++i) {
            CSampleBufferPool::release(channels[i].buffer);
            channels[i].buffer = nullptr;
        }
    }
};

} // namespace qel
