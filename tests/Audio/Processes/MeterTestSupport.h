#pragma once

// What the meter tests share: a viz receiver that keeps every record it is handed (in room
// reserved beforehand, so that it allocates nothing on the audio thread), a fixture on the
// graphs of MeterGraphs.xml with that receiver in its environment, and the test signals.

#include "../GraphTestSupport.h"

#include "Audio/CAudioVizDataMeter.h"
#include "Audio/CAudioVizReceiver.h"
#include "Audio/CVizSource.h"
#include "Audio/Processes/CModMeter.h"

#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

namespace qel::test {

constexpr double kPi = std::numbers::pi;
inline const std::vector<double> kMeterRates = {44100.0, 48000.0, 96000.0, 192000.0};

class RecordingReceiver : public CAudioVizReceiver
{
public:
    struct Item
    {
        const CVizSource* source = nullptr;
        CAudioVizDataMeter record;
    };

    explicit RecordingReceiver(size_t room = size_t(1) << 18) { items.reserve(room); }

    CVizSource* getSource(const CString& name) override
    {
        for (const auto& s : sources)
            if (s->name == name)
                return s.get();
        sources.push_back(std::make_unique<CVizSource>());
        sources.back()->collector = this;
        sources.back()->name = name;
        return sources.back().get();
    }

    void submit(CVizSource* source, const CAudioVizData& data) override
    {
        ++submitted;
        if (data.type() != CAudioVizData::TypeMeter) {
            ++foreign;
            return;
        }
        if (items.size() < items.capacity())
            items.push_back({source, static_cast<const CAudioVizDataMeter&>(data)});
    }

    std::vector<const CAudioVizDataMeter*> of(const char* sourceName, int32_t channel = -1) const
    {
        std::vector<const CAudioVizDataMeter*> out;
        for (const Item& item : items)
            if (item.source->name == CString(sourceName) && (channel < 0 || int32_t(item.record.channel) == channel))
                out.push_back(&item.record);
        return out;
    }

    std::vector<std::unique_ptr<CVizSource>> sources;
    std::vector<Item> items;
    size_t submitted = 0;
    size_t foreign = 0;
};

class MeterFixture : public GraphFixture
{
protected:
    explicit MeterFixture(const CResourceRow* definitions) : GraphFixture(definitions) {}

    void SetUp() override
    {
        GraphFixture::SetUp();
        m_env->setVizReceiver(&m_receiver);
    }

    CModMeter& meter(const char* name = "m") { return m_graph->child<CModMeter>(name); }
    CModMeterModule& module(int32_t slot = 0, const char* name = "m")
    {
        return *static_cast<CModMeterModule*>(meter(name).currentModule(slot));
    }

    RecordingReceiver m_receiver;
};

// Signals of one channel.
inline Signal sine(double amplitude, double freq, double rate, size_t length)
{
    Signal s(1, std::vector<double>(length));
    for (size_t i = 0; i < length; ++i)
        s[0][i] = amplitude * std::sin(2.0 * kPi * freq * double(i) / rate);
    return s;
}

inline Signal square(double amplitude, size_t halfPeriod, size_t length)
{
    Signal s(1, std::vector<double>(length));
    for (size_t i = 0; i < length; ++i)
        s[0][i] = (i / halfPeriod) % 2 == 0 ? amplitude : -amplitude;
    return s;
}

inline Signal impulse(double amplitude, size_t at, size_t length)
{
    Signal s(1, std::vector<double>(length, 0.0));
    s[0][at] = amplitude;
    return s;
}

// A uniform noise in [-amplitude, amplitude] from a fixed seed.
inline Signal noise(double amplitude, size_t length, uint32_t seed = 1)
{
    Signal s(1, std::vector<double>(length));
    for (double& x : s[0]) {
        seed = seed * 1664525u + 1013904223u;
        x = amplitude * double(int32_t(seed)) / 2147483648.0;
    }
    return s;
}

} // namespace qel::test
