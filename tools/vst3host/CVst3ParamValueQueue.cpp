#include "CVst3ParamValueQueue.h"

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

CVst3ParamValueQueue::CVst3ParamValueQueue(int capacity)
    : m_offsets(static_cast<size_t>(capacity > 0 ? capacity : 1)),
      m_values(static_cast<size_t>(capacity > 0 ? capacity : 1))
{
}

void CVst3ParamValueQueue::reset(ParamID id)
{
    m_id = id;
    m_count = 0;
}

tresult PLUGIN_API CVst3ParamValueQueue::getPoint(int32 index, int32& sampleOffset, ParamValue& value)
{
    if (index < 0 || index >= m_count)
        return kInvalidArgument;
    sampleOffset = m_offsets[static_cast<size_t>(index)];
    value = m_values[static_cast<size_t>(index)];
    return kResultOk;
}

tresult PLUGIN_API CVst3ParamValueQueue::addPoint(int32 sampleOffset, ParamValue value, int32& index)
{
    if (sampleOffset < 0)
        return kInvalidArgument;
    // Points nearly always come in order, so the search starts at the back.
    int32 at = m_count;
    while (at > 0 && m_offsets[static_cast<size_t>(at - 1)] > sampleOffset)
        --at;
    if (at > 0 && m_offsets[static_cast<size_t>(at - 1)] == sampleOffset) {
        m_values[static_cast<size_t>(at - 1)] = value;
        index = at - 1;
        return kResultOk;
    }
    if (m_count == capacity())
        return kResultFalse;
    for (int32 i = m_count; i > at; --i) {
        m_offsets[static_cast<size_t>(i)] = m_offsets[static_cast<size_t>(i - 1)];
        m_values[static_cast<size_t>(i)] = m_values[static_cast<size_t>(i - 1)];
    }
    m_offsets[static_cast<size_t>(at)] = sampleOffset;
    m_values[static_cast<size_t>(at)] = value;
    ++m_count;
    index = at;
    return kResultOk;
}

} // namespace qel
