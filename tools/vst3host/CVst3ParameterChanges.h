#pragma once

#include "CVst3Object.h"
#include "CVst3ParamValueQueue.h"

#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <vector>

namespace qel {

// The parameter changes of one block: a queue per parameter, taken from a pool made up
// front, so filling and reading it on the audio thread never allocates.
class CVst3ParameterChanges : public CVst3Object<Steinberg::Vst::IParameterChanges>
{
public:
    // main thread
    CVst3ParameterChanges(int maxQueues, int maxPointsPerQueue);

    // audio thread
    void clear() { m_used = 0; }
    // The queue of `id`, taken from the pool when the block has none yet; null when the
    // pool is used up.
    CVst3ParamValueQueue* queueFor(Steinberg::Vst::ParamID id);
    // A point for `id`; false when its queue or the pool is full.
    bool addChange(Steinberg::Vst::ParamID id, Steinberg::int32 sampleOffset, Steinberg::Vst::ParamValue value);

    Steinberg::int32 PLUGIN_API getParameterCount() override { return m_used; }
    Steinberg::Vst::IParamValueQueue* PLUGIN_API getParameterData(Steinberg::int32 index) override;
    Steinberg::Vst::IParamValueQueue* PLUGIN_API addParameterData(const Steinberg::Vst::ParamID& id,
                                                                  Steinberg::int32& index) override;

private:
    ~CVst3ParameterChanges() override;

    std::vector<CVst3ParamValueQueue*> m_queues; // each holds one reference of ours
    Steinberg::int32 m_used = 0;
};

} // namespace qel
