#include "Audio/Processes/CModGainModule.h"

#include <cmath>

namespace qel {

void CModGainModule::update()
{
    // Linear gain, as the parameter's converter stores it.
    const double gain = paramValue(SlotGain, 1.0);
    m_isMuted = paramValue(SlotMute, 0.0) >= 0.5;
    const double sign = paramValue(SlotPhaseInvert, 0.0) >= 0.5 ? -1.0 : 1.0;
    m_factor = m_isMuted ? 0.0 : gain * sign;
    m_isActive = std::fabs(m_factor - 1.0) > kUnityTolerance;
}

void CModGainModule::process(int32_t n)
{
    for (int32_t c = 0; c < channelCount(); ++c) {
        if (!m_isActive) {
            passInput(c);
            continue;
        }
        double* out = takeBuffer();
        if (!out) {
            // Without memory the signal goes on unchanged rather than not at all.
            passInput(c);
            continue;
        }
        if (m_isMuted) {
            m_noise.run(out, n);
        } else {
            const double* __restrict in = input(c);
            double* __restrict dst = out;
            const double factor = m_factor;
            for (int32_t i = 0; i < n; ++i)
                dst[i] = in[i] * factor;
        }
        setOutput(c, out);
    }
}

} // namespace qel
