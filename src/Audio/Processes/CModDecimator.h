#pragma once

#include "Audio/CAudioProcessBase.h"

namespace qel {

// Halves the rate of every channel (tag audio:modDecimator): out[i] = in[2i], the half-band
// filter ahead of it having removed what would fold back. Block lengths halve (an odd
// length drops its last sample, which a chain that doubled first never hands it).
//
// A latency L at the input becomes (L + (L & 1)) / 2 at the output. An odd L would lie
// half-way between two output samples, so each channel is first delayed by one sample,
// which makes it even and keeps the reported latency exact: the delay line of one sample
// is the last sample of the block before, carried over per channel.
class CModDecimator : public CAudioProcessBase
{
public:
    void reset() override;
    void update() override;
    void process() override;

    // ---- for tests
    bool isDelayingOne() const { return m_isDelayingOne; }

private:
    bool m_isDelayingOne = false;
    // By output record: the last input sample of the block before.
    double m_held[CAudioStream::kMaxChannels] = {};
};

} // namespace qel
