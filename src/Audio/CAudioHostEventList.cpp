#include "Audio/CAudioHostEventList.h"

#include <algorithm>

namespace qel {

void CAudioHostEventList::prepare(int32_t sampleCount)
{
    const int32_t last = std::max(sampleCount - 1, 0);
    for (int32_t i = m_read; i < m_count; ++i)
        m_events[i].offset = std::clamp(m_events[i].offset, 0, last);
    for (int32_t i = m_read + 1; i < m_count; ++i) {
        const CAudioHostEvent event = m_events[i];
        int32_t j = i;
        for (; j > m_read && m_events[j - 1].offset > event.offset; --j)
            m_events[j] = m_events[j - 1];
        m_events[j] = event;
    }
}

} // namespace qel
