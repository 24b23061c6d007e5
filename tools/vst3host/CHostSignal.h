#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qel {

// A whole signal in memory: one array per channel, all the same length.
struct CHostSignal
{
    double sampleRate = 48000.0;
    std::vector<std::vector<double>> channels;

    int channelCount() const { return static_cast<int>(channels.size()); }
    int64_t frameCount() const { return channels.empty() ? 0 : static_cast<int64_t>(channels.front().size()); }
    double seconds() const { return sampleRate > 0.0 ? static_cast<double>(frameCount()) / sampleRate : 0.0; }

    void resize(int channelCount, int64_t frames)
    {
        channels.assign(static_cast<size_t>(channelCount), std::vector<double>(static_cast<size_t>(frames), 0.0));
    }
};

} // namespace qel
