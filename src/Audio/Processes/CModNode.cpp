#include "Audio/Processes/CModNode.h"

namespace qel {

void CModNode::update()
{
    if (!m_reconfigured)
        return;
    passInputFormat(m_inputRate, m_latency);
}

void CModNode::process()
{
    pull();
    // The port's reference moves on: the table holds the channels in the order update
    // published them.
    double* buffers[CAudioStream::kMaxChannels];
    int32_t count = 0;
    for (CAudioPort& p : m_ports) {
        for (int32_t i = 0; i < p.channelCount && count < m_outCount && m_blockLength > 0; ++i) {
            buffers[count++] = p.channels[i].buffer;
            p.channels[i].buffer = nullptr;
        }
    }
    for (int32_t i = count; i < m_outCount; ++i)
        buffers[i] = nullptr;
    handOutputs(buffers);
    releasePortBuffers();
}

} // namespace qel
