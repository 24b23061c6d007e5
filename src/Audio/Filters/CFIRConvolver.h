#pragma once

#include "Audio/Filters/CAlignedDoubles.h"
#include "Audio/Filters/CFIRPartitionedFilter.h"

#include <cstdint>
#include <vector>

namespace qel {

// One channel of a partitioned convolution: y[t] = sum over k of h[k] x[t - B0 - k], where
// B0 is the block of the filter's first stage. Each stage gathers a block of B samples,
// transforms it with the block before it (2B points), multiplies it by each of its
// partitions into a list of accumulators, and at each block's end the first accumulator,
// transformed back, is the stage's output for the next B samples; its spectrum then joins
// the end of the list, empty. A block thus reaches the output of partition k k blocks
// after it arrived, one stage's latency being its B; the planner places each stage where
// that latency is due.
//
//   work block at a block's end:  [ block j | block j-1 ]  (2B samples)
//   accumulator k:  the sum of W(j - i) H(k + i) over i >= 0, W(j) the work block's spectrum
//   output block:  first half of the inverse of accumulator 0, valid by the rotation above
//
// After reset, the first sample x0 seeds every stage as if x0 had always been the input:
// a signal with an offset starts without a ring, and a constant gives the sum of the taps
// from its first sample.
//
// Audio thread: run allocates nothing, tests no parameter per sample, and input and
// output must not overlap. configure sizes the memory (allocating only to grow).
class CFIRConvolver
{
public:
    // Takes the filter's stages, every one armed to seed. The filter must stay as it is
    // until the next configure or clear. False without memory, which leaves no stage.
    bool configure(const CFIRPartitionedFilter& filter);
    void clear();
    // The next sample seeds the stages again.
    void reset();
    // n samples: the first stage writes `out`, the later ones add to it. With no stage
    // nothing is written.
    void run(const double* in, double* out, int32_t n);

    int32_t stageCount() const { return m_stageCount; }

private:
    struct CState
    {
        bool isSeedPending = true;   // reset: the next sample seeds
        bool isSeedHalfDue = false;  // the first block since the seed is not complete yet
        int32_t countdown = 0;       // samples until the block is complete
        int32_t head = 0;            // slot of the first accumulator
        double seed = 0.0;           // x0 * 2B
        double* last = nullptr;      // B samples of the block before
        double* work = nullptr;      // 2B samples
        double* out = nullptr;       // 2B samples, the first B of them the output block
        double* slots = nullptr;     // a spectrum per partition: the accumulators
        uint8_t* holds = nullptr;    // per slot: the accumulator holds data
    };

    void seed(CState& st, const CFIRPartitionedFilter::CStage& stage, double x0);
    void endBlock(CState& st, const CFIRPartitionedFilter::CStage& stage);
    double* slot(const CState& st, const CFIRPartitionedFilter::CStage& stage, int32_t i) const
    {
        return st.slots + size_t(i) * stage.stride;
    }

    const CFIRPartitionedFilter* m_filter = nullptr;
    CState m_states[CFIRPartitionPlan::kLevels];
    int32_t m_stageCount = 0;
    CAlignedDoubles m_memory;
    double* m_spectrum = nullptr; // the work block's, stage after stage
    std::vector<uint8_t> m_holds;
};

} // namespace qel
