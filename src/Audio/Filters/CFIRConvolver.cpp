#include "Audio/Filters/CFIRConvolver.h"

#include <algorithm>

namespace qel {

using CStage = CFIRPartitionedFilter::CStage;

bool CFIRConvolver::configure(const CFIRPartitionedFilter& filter)
{
    clear();
    size_t total = 0;
    size_t widest = 0;
    size_t holds = 0;
    for (int32_t s = 0; s < filter.stageCount(); ++s) {
        const CStage& stage = filter.stage(s);
        const auto B = size_t(stage.blockLength);
        total += CAlignedDoubles::roundUp(B) + 2 * CAlignedDoubles::roundUp(2 * B) + size_t(stage.partitions) * stage.stride;
        widest = std::max(widest, stage.stride);
        holds += size_t(stage.partitions);
    }
    if (!m_memory.reserve(total + widest))
        return false;
    if (m_holds.size() < holds)
        m_holds.resize(holds);

    double* at = m_memory.data();
    uint8_t* flags = m_holds.data();
    for (int32_t s = 0; s < filter.stageCount(); ++s) {
        const CStage& stage = filter.stage(s);
        const auto B = size_t(stage.blockLength);
        CState& st = m_states[s];
        st = CState();
        st.last = at;
        at += CAlignedDoubles::roundUp(B);
        st.work = at;
        at += CAlignedDoubles::roundUp(2 * B);
        st.out = at;
        at += CAlignedDoubles::roundUp(2 * B);
        st.slots = at;
        at += size_t(stage.partitions) * stage.stride;
        st.holds = flags;
        flags += stage.partitions;
        st.countdown = stage.blockLength;
    }
    m_spectrum = at;
    m_filter = &filter;
    m_stageCount = filter.stageCount();
    return true;
}

void CFIRConvolver::clear()
{
    m_filter = nullptr;
    m_stageCount = 0;
}

void CFIRConvolver::reset()
{
    for (int32_t s = 0; s < m_stageCount; ++s)
        m_states[s].isSeedPending = true;
}

// As if x0 had been the input for ever: the block before holds x0, the output block the
// response to a constant (x0 times the sum of the taps), and the accumulators, at the end
// of the first block, what the earlier blocks of x0 would have left in them. A constant
// block's spectrum is its DC bin alone, 2B x0, so those are DC bins too. The seed starts
// a block, wherever the last one stood.
void CFIRConvolver::seed(CState& st, const CStage& stage, double x0)
{
    const int32_t B = stage.blockLength;
    st.seed = x0 * double(2 * B);
    std::fill(st.last, st.last + B, x0);
    std::fill(st.out, st.out + B, st.seed * stage.dcSum);
    std::fill(st.holds, st.holds + stage.partitions, uint8_t(0));
    st.head = 0;
    st.countdown = B;
    st.isSeedPending = false;
    st.isSeedHalfDue = true;
}

void CFIRConvolver::endBlock(CState& st, const CStage& stage)
{
    const int32_t slots = stage.partitions;
    stage.fft->forward(st.work, m_spectrum);
    for (int32_t k = 0; k < slots; ++k) {
        const int32_t i = (st.head + k) % slots;
        const double* partition = stage.spectra + size_t(k) * stage.stride;
        if (st.holds[i]) {
            stage.fft->multiplyAdd(m_spectrum, partition, slot(st, stage, i));
        } else {
            stage.fft->multiply(m_spectrum, partition, slot(st, stage, i));
            st.holds[i] = 1;
        }
    }
    if (st.isSeedHalfDue) {
        for (int32_t k = 0; k < slots; ++k)
            slot(st, stage, (st.head + k) % slots)[0] += st.seed * stage.dcAfter[k];
        st.isSeedHalfDue = false;
    }
    // The first accumulator is the next output block; its slot comes back at the end of
    // the list as an empty accumulator.
    stage.fft->inverse(slot(st, stage, st.head), st.out);
    st.holds[st.head] = 0;
    st.head = st.head + 1 == slots ? 0 : st.head + 1;
    st.countdown = stage.blockLength;
}

void CFIRConvolver::run(const double* __restrict in, double* __restrict out, int32_t n)
{
    for (int32_t s = 0; s < m_stageCount; ++s) {
        const CStage& stage = m_filter->stage(s);
        CState& st = m_states[s];
        const int32_t B = stage.blockLength;
        const bool isAdding = s > 0;
        for (int32_t i = 0; i < n;) {
            if (st.isSeedPending)
                seed(st, stage, in[i]);
            const int32_t run = std::min(st.countdown, n - i);
            const int32_t pos = B - st.countdown;
            // The new samples go to the first half, the ones they replace in the block
            // before to the second; at the block's end the halves are the new block and
            // the one before it.
            double* __restrict first = st.work + pos;
            double* __restrict second = st.work + B + pos;
            double* __restrict last = st.last + pos;
            const double* __restrict x = in + i;
            for (int32_t k = 0; k < run; ++k) {
                second[k] = last[k];
                first[k] = x[k];
                last[k] = x[k];
            }
            const double* __restrict block = st.out + pos;
            double* __restrict y = out + i;
            if (isAdding) {
                for (int32_t k = 0; k < run; ++k)
                    y[k] += block[k];
            } else {
                for (int32_t k = 0; k < run; ++k)
                    y[k] = block[k];
            }
            st.countdown -= run;
            i += run;
            if (st.countdown == 0)
                endBlock(st, stage);
        }
    }
}

} // namespace qel
