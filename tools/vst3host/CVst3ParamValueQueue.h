#pragma once

#include "CVst3Object.h"

#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <vector>

namespace qel {

// The points of one parameter within one block, kept in the order of their offsets. Its
// storage is sized once; adding to a full queue fails instead of allocating.
class CVst3ParamValueQueue : public CVst3Object<Steinberg::Vst::IParamValueQueue>
{
public:
    // main thread
    explicit CVst3ParamValueQueue(int capacity);

    // audio thread: empties the queue and gives it to another parameter
    void reset(Steinberg::Vst::ParamID id);
    int capacity() const { return static_cast<int>(m_offsets.size()); }

    Steinberg::Vst::ParamID PLUGIN_API getParameterId() override { return m_id; }
    Steinberg::int32 PLUGIN_API getPointCount() override { return m_count; }
    Steinberg::tresult PLUGIN_API getPoint(Steinberg::int32 index, Steinberg::int32& sampleOffset,
                                           Steinberg::Vst::ParamValue& value) override;
    // A point at the offset of one already queued replaces its value.
    Steinberg::tresult PLUGIN_API addPoint(Steinberg::int32 sampleOffset, Steinberg::Vst::ParamValue value,
                                           Steinberg::int32& index) override;

private:
    ~CVst3ParamValueQueue() override = default;

    Steinberg::Vst::ParamID m_id = Steinberg::Vst::kNoParamId;
    Steinberg::int32 m_count = 0;
    std::vector<Steinberg::int32> m_offsets;
    std::vector<Steinberg::Vst::ParamValue> m_values;
};

} // namespace qel
