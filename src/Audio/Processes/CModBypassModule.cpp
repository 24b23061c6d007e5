#include "Audio/Processes/CModBypassModule.h"

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CSampleBufferPool.h"

namespace qel {

void CModBypassModule::update()
{
    const CAudioPort& dry = owner()->port(1);
    // Any group soloed, for every channel alike.
    uint32_t soloed = 0;
    for (int32_t g = 0; g < paramGroupCount(SlotGroupSolo) && g < 32; ++g)
        if (paramValue(SlotGroupSolo, g, 0.0) >= 0.5)
            soloed |= uint32_t(1) << uint32_t(g);

    for (int32_t c = 0; c < channelCount(); ++c) {
        const CChannel& ch = channel(c);
        m_dryIndex[c] = -1;
        for (int32_t i = 0; i < dry.channelCount; ++i)
            if (keyChannel(dry.channels[i].key) == keyChannel(ch.key) && dry.channels[i].group == ch.group)
                m_dryIndex[c] = i;
        const bool isEnabled = paramValue(SlotEnable, ch.group, 0.0) >= 0.5;
        const bool isOwnSoloed = ch.group >= 0 && ch.group < 32 && (soloed & (uint32_t(1) << uint32_t(ch.group)));
        if (isEnabled && m_dryIndex[c] < 0)
            m_modes[c] = Mode::Silence;
        else if (soloed && !isOwnSoloed)
            m_modes[c] = Mode::Silence;
        else
            m_modes[c] = isEnabled ? Mode::Dry : Mode::Processed;
    }
}

void CModBypassModule::process(int32_t n)
{
    const CAudioPort& dry = owner()->port(1);
    for (int32_t c = 0; c < channelCount(); ++c) {
        double* out = nullptr;
        switch (m_modes[c]) {
        case Mode::Processed:
            out = input(c);
            CSampleBufferPool::addRef(out);
            break;
        case Mode::Dry:
            out = m_dryIndex[c] < dry.channelCount ? dry.channels[m_dryIndex[c]].buffer : nullptr;
            CSampleBufferPool::addRef(out);
            break;
        case Mode::Silence:
            if ((out = takeBuffer()))
                m_noise.run(out, n);
            break;
        }
        setOutput(c, out);
    }
}

} // namespace qel
