#pragma once

#include "CVst3Object.h"

#include "pluginterfaces/vst/ivstevents.h"

#include <vector>

namespace qel {

// The events of one block, in storage sized once; a full list refuses more.
class CVst3EventList : public CVst3Object<Steinberg::Vst::IEventList>
{
public:
    // main thread
    explicit CVst3EventList(int capacity) : m_events(static_cast<size_t>(capacity > 0 ? capacity : 1)) {}

    // audio thread
    void clear() { m_count = 0; }

    Steinberg::int32 PLUGIN_API getEventCount() override { return m_count; }
    Steinberg::tresult PLUGIN_API getEvent(Steinberg::int32 index, Steinberg::Vst::Event& e) override
    {
        if (index < 0 || index >= m_count)
            return Steinberg::kInvalidArgument;
        e = m_events[static_cast<size_t>(index)];
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API addEvent(Steinberg::Vst::Event& e) override
    {
        if (m_count == static_cast<Steinberg::int32>(m_events.size()))
            return Steinberg::kResultFalse;
        m_events[static_cast<size_t>(m_count++)] = e;
        return Steinberg::kResultOk;
    }

private:
    ~CVst3EventList() override = default;

    std::vector<Steinberg::Vst::Event> m_events;
    Steinberg::int32 m_count = 0;
};

} // namespace qel
