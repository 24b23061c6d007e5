#include "CVst3ProcessBuffers.h"

#include <algorithm>

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

void CVst3ProcessBuffers::shapeBus(CBus& bus, const CBusShape& shape, int32 maxSamples, bool isDouble)
{
    bus.shape = shape;
    const size_t channels = static_cast<size_t>(shape.channelCount > 0 ? shape.channelCount : 0);
    const size_t samples = static_cast<size_t>(maxSamples > 0 ? maxSamples : 0);
    bus.samples32.clear();
    bus.samples64.clear();
    bus.pointers32.assign(channels, nullptr);
    bus.pointers64.assign(channels, nullptr);
    if (!shape.isActive)
        return;
    for (size_t c = 0; c < channels; ++c) {
        if (isDouble)
            bus.samples64.emplace_back(samples, 0.0);
        else
            bus.samples32.emplace_back(samples, 0.0f);
    }
}

void CVst3ProcessBuffers::configure(const std::vector<CBusShape>& inputs, const std::vector<CBusShape>& outputs,
                                    int32 maxSamples, bool isDouble)
{
    m_maxSamples = maxSamples;
    m_isDouble = isDouble;
    m_inputs.assign(inputs.size(), CBus());
    m_outputs.assign(outputs.size(), CBus());
    for (size_t b = 0; b < inputs.size(); ++b)
        shapeBus(m_inputs[b], inputs[b], maxSamples, isDouble);
    for (size_t b = 0; b < outputs.size(); ++b)
        shapeBus(m_outputs[b], outputs[b], maxSamples, isDouble);
    m_inputBuffers.assign(inputs.size(), AudioBusBuffers());
    m_outputBuffers.assign(outputs.size(), AudioBusBuffers());
    restore();
}

void CVst3ProcessBuffers::restoreSide(std::vector<CBus>& buses, std::vector<AudioBusBuffers>& buffers)
{
    for (size_t b = 0; b < buses.size(); ++b) {
        CBus& bus = buses[b];
        for (size_t c = 0; c < bus.samples32.size(); ++c)
            bus.pointers32[c] = bus.samples32[c].data();
        for (size_t c = 0; c < bus.samples64.size(); ++c)
            bus.pointers64[c] = bus.samples64[c].data();
        AudioBusBuffers& out = buffers[b];
        out.numChannels = bus.shape.channelCount;
        out.silenceFlags = 0;
        if (m_isDouble)
            out.channelBuffers64 = bus.pointers64.data();
        else
            out.channelBuffers32 = bus.pointers32.data();
    }
}

void CVst3ProcessBuffers::restore()
{
    restoreSide(m_inputs, m_inputBuffers);
    restoreSide(m_outputs, m_outputBuffers);
}

void CVst3ProcessBuffers::clear()
{
    for (std::vector<CBus>* buses : {&m_inputs, &m_outputs}) {
        for (CBus& bus : *buses) {
            for (std::vector<float>& channel : bus.samples32)
                std::fill(channel.begin(), channel.end(), 0.0f);
            for (std::vector<double>& channel : bus.samples64)
                std::fill(channel.begin(), channel.end(), 0.0);
        }
    }
}

int32 CVst3ProcessBuffers::busCount(BusDirection direction) const
{
    return static_cast<int32>(side(direction).size());
}

int32 CVst3ProcessBuffers::channelCount(BusDirection direction, int32 bus) const
{
    const std::vector<CBus>& buses = side(direction);
    if (bus < 0 || bus >= static_cast<int32>(buses.size()))
        return 0;
    return buses[static_cast<size_t>(bus)].shape.channelCount;
}

float* CVst3ProcessBuffers::channel32(BusDirection direction, int32 bus, int32 channel)
{
    std::vector<CBus>& buses = side(direction);
    if (bus < 0 || bus >= static_cast<int32>(buses.size()))
        return nullptr;
    std::vector<std::vector<float>>& samples = buses[static_cast<size_t>(bus)].samples32;
    if (channel < 0 || channel >= static_cast<int32>(samples.size()))
        return nullptr;
    return samples[static_cast<size_t>(channel)].data();
}

double* CVst3ProcessBuffers::channel64(BusDirection direction, int32 bus, int32 channel)
{
    std::vector<CBus>& buses = side(direction);
    if (bus < 0 || bus >= static_cast<int32>(buses.size()))
        return nullptr;
    std::vector<std::vector<double>>& samples = buses[static_cast<size_t>(bus)].samples64;
    if (channel < 0 || channel >= static_cast<int32>(samples.size()))
        return nullptr;
    return samples[static_cast<size_t>(channel)].data();
}

AudioBusBuffers* CVst3ProcessBuffers::busBuffers(BusDirection direction)
{
    std::vector<AudioBusBuffers>& buffers = direction == kInput ? m_inputBuffers : m_outputBuffers;
    return buffers.empty() ? nullptr : buffers.data();
}

} // namespace qel
