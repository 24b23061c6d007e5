#pragma once

#include "Audio/Filters/CAlignedDoubles.h"
#include "Audio/Filters/CFIRPartitionPlanner.h"
#include "Audio/Filters/CRealFFT.h"

#include <cstdint>

namespace qel {

// The filter side of a partitioned convolution: the taps cut as the planner says, each
// piece zero-padded to twice its stage's block and transformed once, here, so that running
// the filter is only transforms of the signal, products and sums. What it holds is read,
// never written, while the filter runs, so the channels of one module share it; each
// channel's signal state is a CFIRConvolver.
//
// Stage s covers the taps from firstTap, in `partitions` blocks of its length B; its
// spectra carry the scale 1 / (2B) of the inverse transform.
//
// Set-up or update (the audio thread when the graph reconfigures): build allocates only
// when it needs more memory than any filter it made before, and takes an FFT record only
// for an order it never used; the records stay until the filter is destroyed.
class CFIRPartitionedFilter
{
public:
    struct CStage
    {
        int32_t order = 0;       // of the block: B = 2^order, the FFT has 2^(order + 1) points
        int32_t blockLength = 0; // B
        int32_t firstTap = 0;
        int32_t partitions = 0;
        size_t stride = 0;       // doubles from one spectrum to the next
        const CRealFFT* fft = nullptr;
        const double* spectra = nullptr;
        // Sum of the DC bins of all partitions, and per partition i the sum of those after
        // it: what a stage that starts from a constant needs (see CFIRConvolver).
        double dcSum = 0.0;
        const double* dcAfter = nullptr;
    };

    CFIRPartitionedFilter() = default;
    ~CFIRPartitionedFilter();
    CFIRPartitionedFilter(const CFIRPartitionedFilter&) = delete;
    CFIRPartitionedFilter& operator=(const CFIRPartitionedFilter&) = delete;

    // The filter of `count` taps, planned for blocks of `blockLength` (a power of two,
    // 16 to 16384). False without memory or an FFT, which leaves no stage.
    bool build(const double* taps, int32_t count, int32_t blockLength);
    void clear();

    int32_t stageCount() const { return m_stageCount; }
    const CStage& stage(int32_t i) const { return m_stages[i]; }
    const CFIRPartitionPlan& plan() const { return m_plan; }
    // Doubles of memory held, for tests of its reuse.
    size_t capacity() const { return m_memory.capacity(); }

private:
    CRealFFT* fftOf(int32_t order);

    CRealFFT* m_ffts[CRealFFT::kMaxOrder + 1] = {};
    CAlignedDoubles m_memory;
    CStage m_stages[CFIRPartitionPlan::kLevels];
    int32_t m_stageCount = 0;
    CFIRPartitionPlan m_plan;
};

} // namespace qel
