#include "CVst3ParameterChanges.h"

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

CVst3ParameterChanges::CVst3ParameterChanges(int maxQueues, int maxPointsPerQueue)
{
    m_queues.reserve(static_cast<size_t>(maxQueues > 0 ? maxQueues : 1));
    for (int i = 0; i < (maxQueues > 0 ? maxQueues : 1); ++i)
        m_queues.push_back(new CVst3ParamValueQueue(maxPointsPerQueue));
}

CVst3ParameterChanges::~CVst3ParameterChanges()
{
    for (CVst3ParamValueQueue* queue : m_queues)
        queue->release();
}

CVst3ParamValueQueue* CVst3ParameterChanges::queueFor(ParamID id)
{
    for (int32 i = 0; i < m_used; ++i)
        if (m_queues[static_cast<size_t>(i)]->getParameterId() == id)
            return m_queues[static_cast<size_t>(i)];
    if (m_used == static_cast<int32>(m_queues.size()))
        return nullptr;
    CVst3ParamValueQueue* queue = m_queues[static_cast<size_t>(m_used++)];
    queue->reset(id);
    return queue;
}

bool CVst3ParameterChanges::addChange(ParamID id, int32 sampleOffset, ParamValue value)
{
    CVst3ParamValueQueue* queue = queueFor(id);
    int32 index = 0;
    return queue && queue->addPoint(sampleOffset, value, index) == kResultOk;
}

IParamValueQueue* PLUGIN_API CVst3ParameterChanges::getParameterData(int32 index)
{
    if (index < 0 || index >= m_used)
        return nullptr;
    return m_queues[static_cast<size_t>(index)];
}

IParamValueQueue* PLUGIN_API CVst3ParameterChanges::addParameterData(const ParamID& id, int32& index)
{
    CVst3ParamValueQueue* queue = queueFor(id);
    if (!queue)
        return nullptr;
    for (int32 i = 0; i < m_used; ++i)
        if (m_queues[static_cast<size_t>(i)] == queue)
            index = i;
    return queue;
}

} // namespace qel
