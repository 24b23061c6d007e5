#include "Audio/Filters/CFIRPartitionedFilter.h"

#include <algorithm>

namespace qel {

CFIRPartitionedFilter::~CFIRPartitionedFilter()
{
    for (CRealFFT*& fft : m_ffts) {
        CRealFFT::give(fft);
        fft = nullptr;
    }
}

void CFIRPartitionedFilter::clear()
{
    m_stageCount = 0;
    m_plan = CFIRPartitionPlan();
}

CRealFFT* CFIRPartitionedFilter::fftOf(int32_t order)
{
    if (order < CRealFFT::kMinOrder || order > CRealFFT::kMaxOrder)
        return nullptr;
    if (!m_ffts[order])
        m_ffts[order] = CRealFFT::take(order);
    return m_ffts[order];
}

bool CFIRPartitionedFilter::build(const double* taps, int32_t count, int32_t blockLength)
{
    clear();
    if (!taps || count <= 0)
        return true;
    const CFIRPartitionPlan plan = CFIRPartitionPlanner::plan(count, blockLength);

    // One block of memory for every stage: its spectra, then its sums of DC bins; and at
    // the end the samples of one partition on their way into the transform.
    size_t total = 0;
    size_t longest = 0;
    for (int32_t s = 0; s < plan.count; ++s) {
        const auto B = size_t(CFIRPartitionPlan::blockLength(plan.parts[s].level));
        total += size_t(plan.parts[s].blocks) * CAlignedDoubles::roundUp(2 * B + 2);
        total += CAlignedDoubles::roundUp(size_t(plan.parts[s].blocks));
        longest = std::max(longest, 2 * B);
    }
    if (!m_memory.reserve(total + longest))
        return false;

    double* at = m_memory.data();
    double* samples = at + total;
    int32_t firstTap = 0;
    for (int32_t s = 0; s < plan.count; ++s) {
        CStage& stage = m_stages[s];
        stage.order = plan.parts[s].level + 4;
        stage.blockLength = CFIRPartitionPlan::blockLength(plan.parts[s].level);
        stage.firstTap = firstTap;
        stage.partitions = plan.parts[s].blocks;
        const int32_t B = stage.blockLength;
        stage.stride = CAlignedDoubles::roundUp(size_t(2 * B + 2));
        const CRealFFT* fft = fftOf(stage.order + 1);
        if (!fft) {
            clear();
            return false;
        }
        stage.fft = fft;
        double* spectra = at;
        double* dcAfter = at + size_t(stage.partitions) * stage.stride;
        at = dcAfter + CAlignedDoubles::roundUp(size_t(stage.partitions));

        // The inverse transform is not scaled: the taps carry its 1 / (2B).
        const double scale = 1.0 / double(2 * B);
        stage.dcSum = 0.0;
        for (int32_t p = 0; p < stage.partitions; ++p) {
            double* spectrum = spectra + size_t(p) * stage.stride;
            const int32_t from = firstTap + p * B;
            const int32_t n = std::clamp(count - from, 0, B);
            for (int32_t i = 0; i < n; ++i)
                samples[i] = taps[from + i] * scale;
            std::fill(samples + n, samples + 2 * B, 0.0);
            std::fill(spectrum, spectrum + stage.stride, 0.0);
            fft->forward(samples, spectrum);
            stage.dcSum += spectrum[0];
        }
        double after = 0.0;
        for (int32_t p = stage.partitions - 1; p >= 0; --p) {
            dcAfter[p] = after;
            after += spectra[size_t(p) * stage.stride];
        }
        stage.spectra = spectra;
        stage.dcAfter = dcAfter;
        firstTap += stage.partitions * B;
    }
    m_stageCount = plan.count;
    m_plan = plan;
    return true;
}

} // namespace qel
