#include "Audio/Processes/CModOutput.h"

#include "Audio/CAudioEnv.h"

namespace qel {

void CModOutput::update()
{
    if (m_reconfigured && m_env)
        m_env->setLatency(m_latency);
}

void CModOutput::process() { pull(); }

} // namespace qel
