#pragma once

#include "pluginterfaces/vst/ivstaudioprocessor.h"

#include <vector>

namespace qel {

// The audio buffers a host hands to process: per bus an array of channel pointers, and
// behind each pointer storage for the largest block, all made before processing starts.
// A bus that isn't active gets its array with null channels, as the interface allows.
class CVst3ProcessBuffers
{
public:
    struct CBusShape
    {
        Steinberg::int32 channelCount = 0;
        bool isActive = true;
    };

    // main thread
    void configure(const std::vector<CBusShape>& inputs, const std::vector<CBusShape>& outputs,
                   Steinberg::int32 maxSamples, bool isDouble);

    Steinberg::int32 maxSamples() const { return m_maxSamples; }
    bool isDouble() const { return m_isDouble; }
    Steinberg::int32 busCount(Steinberg::Vst::BusDirection direction) const;
    Steinberg::int32 channelCount(Steinberg::Vst::BusDirection direction, Steinberg::int32 bus) const;
    // The storage of one channel; null for an inactive bus, or for the other sample size.
    float* channel32(Steinberg::Vst::BusDirection direction, Steinberg::int32 bus, Steinberg::int32 channel);
    double* channel64(Steinberg::Vst::BusDirection direction, Steinberg::int32 bus, Steinberg::int32 channel);

    // What ProcessData points at; the pointers stay valid until the next configure.
    Steinberg::Vst::AudioBusBuffers* busBuffers(Steinberg::Vst::BusDirection direction);
    // Puts back the channel pointers and counts a plug-in is not supposed to change, but
    // may have.
    void restore();
    // Sets every sample of every active channel to zero.
    void clear();

private:
    struct CBus
    {
        CBusShape shape;
        std::vector<std::vector<float>> samples32;
        std::vector<std::vector<double>> samples64;
        std::vector<float*> pointers32;
        std::vector<double*> pointers64;
    };

    static void shapeBus(CBus& bus, const CBusShape& shape, Steinberg::int32 maxSamples, bool isDouble);
    void restoreSide(std::vector<CBus>& buses, std::vector<Steinberg::Vst::AudioBusBuffers>& buffers);
    std::vector<CBus>& side(Steinberg::Vst::BusDirection direction) { return direction == Steinberg::Vst::kInput ? m_inputs : m_outputs; }
    const std::vector<CBus>& side(Steinberg::Vst::BusDirection direction) const { return direction == Steinberg::Vst::kInput ? m_inputs : m_outputs; }

    std::vector<CBus> m_inputs;
    std::vector<CBus> m_outputs;
    std::vector<Steinberg::Vst::AudioBusBuffers> m_inputBuffers;
    std::vector<Steinberg::Vst::AudioBusBuffers> m_outputBuffers;
    Steinberg::int32 m_maxSamples = 0;
    bool m_isDouble = false;
};

} // namespace qel
