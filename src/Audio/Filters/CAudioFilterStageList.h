#pragma once

#include "Audio/Filters/CAudioFilterStage.h"

#include <cstdint>
#include <vector>

namespace qel {

// What a generator appends to: a fixed number of stages held in place, so that designing
// an IIR filter on the audio thread never allocates, and one growing list of FIR taps. A
// generator that adds latency (an FIR design, by its taps on one side) adds it here.
class CAudioFilterStageList
{
public:
    static constexpr int32_t kMaxStages = 8;

    // Keeps the room of the tap list.
    void clear()
    {
        m_count = 0;
        m_latency = 0;
        m_taps.clear();
    }
    // The next stage, cleared, or null when the list is full.
    CAudioFilterStage* append(const CDCDAWKernelSet* kernels)
    {
        if (m_count >= kMaxStages)
            return nullptr;
        CAudioFilterStage& stage = m_stages[m_count++];
        stage = CAudioFilterStage();
        stage.kernels = kernels;
        return &stage;
    }
    // A stage of `count` taps, to be written through taps(); null when the list is full.
    // The tap list grows here unless reserveTaps made room for it.
    double* appendTaps(const CDCDAWKernelSet* kernels, int32_t count)
    {
        CAudioFilterStage* stage = count > 0 ? append(kernels) : nullptr;
        if (!stage)
            return nullptr;
        stage->tapOffset = int32_t(m_taps.size());
        stage->tapCount = count;
        m_taps.resize(m_taps.size() + size_t(count), 0.0);
        return m_taps.data() + stage->tapOffset;
    }
    // Set-up: room for that many taps in all.
    void reserveTaps(int32_t count) { m_taps.reserve(size_t(count > 0 ? count : 0)); }
    void addLatency(int32_t samples) { m_latency += samples; }

    int32_t count() const { return m_count; }
    const CAudioFilterStage& operator[](int32_t index) const { return m_stages[index]; }
    const double* taps(const CAudioFilterStage& stage) const { return m_taps.data() + stage.tapOffset; }
    int32_t latency() const { return m_latency; }

private:
    CAudioFilterStage m_stages[kMaxStages];
    int32_t m_count = 0;
    int32_t m_latency = 0;
    std::vector<double> m_taps;
};

} // namespace qel
