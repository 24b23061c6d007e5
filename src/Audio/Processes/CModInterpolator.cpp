#include "Audio/Processes/CModInterpolator.h"

#include "Audio/CSampleBufferPool.h"

namespace qel {

void CModInterpolator::reset()
{
    CAudioProcessBase::reset();
    m_isStarting = true;
}

void CModInterpolator::update()
{
    if (!m_reconfigured)
        return;
    passInputFormat(2.0 * m_inputRate, 2 * m_latency);
}

void CModInterpolator::process()
{
    pull();
    const int32_t n = m_blockLength;
    double* buffers[CAudioStream::kMaxChannels];
    int32_t count = 0;
    for (CAudioPort& p : m_ports) {
        for (int32_t c = 0; c < p.channelCount && count < m_outCount; ++c) {
            const double* __restrict in = p.channels[c].buffer;
            double* __restrict out = n > 0 && in && m_pool ? m_pool->take(2 * n) : nullptr;
            if (out) {
                for (int32_t i = 0; i < n; ++i) {
                    out[2 * i] = 2.0 * in[i];
                    out[2 * i + 1] = 0.0;
                }
                if (m_isStarting)
                    m_silence.run(out, 1);
            }
            buffers[count++] = out;
        }
    }
    for (int32_t i = count; i < m_outCount; ++i)
        buffers[i] = nullptr;
    if (n > 0)
        m_isStarting = false;
    // What goes on is twice as long as what came in.
    m_blockLength = 2 * n;
    handOutputs(buffers);
    m_blockLength = n;
    releasePortBuffers();
}

} // namespace qel
