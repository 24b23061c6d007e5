#include "Audio/Processes/CModDecimator.h"

#include "Audio/CSampleBufferPool.h"

namespace qel {

void CModDecimator::reset()
{
    CAudioProcessBase::reset();
    for (double& x : m_held)
        x = 0.0;
}

void CModDecimator::update()
{
    if (!m_reconfigured)
        return;
    const int32_t odd = m_latency & 1;
    // A line that starts, or that serves other channels now, starts from zeros.
    m_isDelayingOne = odd != 0;
    for (double& x : m_held)
        x = 0.0;
    passInputFormat(0.5 * m_inputRate, (m_latency + odd) / 2);
}

void CModDecimator::process()
{
    pull();
    const int32_t n = m_blockLength;
    const int32_t half = n / 2;
    double* buffers[CAudioStream::kMaxChannels];
    int32_t count = 0;
    for (CAudioPort& p : m_ports) {
        for (int32_t c = 0; c < p.channelCount && count < m_outCount; ++c) {
            const double* __restrict in = p.channels[c].buffer;
            double* __restrict out = half > 0 && in && m_pool ? m_pool->take(half) : nullptr;
            if (out && m_isDelayingOne) {
                // Delayed by one: out[i] = in[2i - 1], the first from the block before.
                out[0] = m_held[count];
                for (int32_t i = 1; i < half; ++i)
                    out[i] = in[2 * i - 1];
            } else if (out) {
                for (int32_t i = 0; i < half; ++i)
                    out[i] = in[2 * i];
            }
            if (in && n > 0)
                m_held[count] = in[n - 1];
            buffers[count++] = out;
        }
    }
    for (int32_t i = count; i < m_outCount; ++i)
        buffers[i] = nullptr;
    m_blockLength = half;
    handOutputs(buffers);
    m_blockLength = n;
    releasePortBuffers();
}

} // namespace qel
