#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/Filters/CAudioFilterParams.h"
#include "Audio/Filters/CAudioFilterStageList.h"
#include "Audio/Filters/CDCDAWFilterWorkspace.h"
#include "Audio/Filters/CFIRConvolver.h"
#include "Audio/Filters/CFIRDirectHead.h"
#include "Audio/Filters/CFIRPartitionedFilter.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioFilterGenArray;

// The long FIR filter of its channels (all of them, as a whole module, in the product).
// update asks the generators for the taps and cuts them into a partitioned convolution
// that every channel runs with its own signal state; process runs it. A module that has
// no filter hands its inputs on by reference.
//
// The latency it adds is the design's (for a linear-phase low-pass its taps on one side)
// plus the convolution's first block B0 = 2^round(`latency`); in the zero-latency form
// the first 64 taps run directly and only the design's latency is added.
//
// update runs on the audio thread when the graph (re)configures or a new module takes a
// change: designing the same filter again, or a smaller one, allocates nothing, and the
// FFT records it once took stay with it.
class CModFilterFIRModule : public CAudioModule
{
public:
    // What the process works out once from its definition and all its modules share.
    struct CLayout
    {
        static constexpr int32_t kPointLists = 3;

        const CAudioFilterGenArray* genArray = nullptr;
        // The generator's names and the slots their values come from; then, when point
        // lists are bound, "element-size", "element-count", "element-count2",
        // "element-count3" (valueCount counts only the first kind).
        CAudioFilterParamNames names;
        int32_t valueSlots[CAudioFilterParamNames::kMaxNames] = {};
        int32_t valueCount = 0;
        int32_t countSlot = -1;
        int32_t indexSlot = -1;
        int32_t latencySlot = -1;
        int32_t fixsrSlot = -1;
        int32_t pointSlots[kPointLists] = {-1, -1, -1};
        int32_t slotCount = 0;
        bool isWhole = false;
        bool isZeroLatency = false;
    };

    // The rate of every design while `fixsr` holds.
    static constexpr double kFixedRate = 44100.0;
    static constexpr int32_t kDefaultLatencyOrder = 7;
    // The block lengths the planner has: 16 to 16384.
    static constexpr int32_t kMinLatencyOrder = 4;
    static constexpr int32_t kMaxLatencyOrder = 14;

    explicit CModFilterFIRModule(const CLayout& layout);

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void regParams(CAudioProcessTerminalBase& owner) override;
    void process(int32_t n);

    // ---- for tests and diagnostics
    const CFIRPartitionedFilter& filter() const { return m_filter; }
    // Only in the zero-latency form.
    const CFIRDirectHead& head(int32_t channel) const { return m_heads[size_t(channel)]; }
    // The taps being convolved; none when there is no filter.
    int32_t tapCount() const { return m_tapCount; }
    const double* taps() const { return m_tapCount > 0 ? m_design.taps(m_design[m_tapStage]) : nullptr; }
    // B0; 0 when no filter was asked for.
    int32_t blockLength() const { return m_blockLength; }

private:
    // Element `element` of the slot's parameter for the group of the first channel.
    double elementValue(int32_t slot, int32_t element, double fallback) const;
    int32_t servedChannels() const;

    const CLayout& m_layout;
    const CAudioProcessBase::CParamBinding* m_bindings[kMaxSlots] = {};
    CDCDAWFilterWorkspace m_workspace;
    CAudioFilterStageList m_design;
    double m_values[CAudioFilterParamNames::kMaxNames] = {};
    int32_t m_tapStage = 0;
    int32_t m_tapCount = 0;
    int32_t m_blockLength = 0;
    CFIRPartitionedFilter m_filter;
    std::vector<CFIRConvolver> m_convolvers;
    std::vector<CFIRDirectHead> m_heads;
};

} // namespace qel
