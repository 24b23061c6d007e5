#pragma once

#include "Audio/CSampleBufferPool.h"
#include "Audio/CXFadeKernel.h"

#include <cstdint>

namespace qel {

// Whole-sample delay line that aligns a channel with the latency of its neighbours, and
// changes its length without a click.
//
// The line is a ring of 1024-sample chunks drawn from the sample buffer pool. Time counts
// samples since the last reset; chunk k holds times [1024 k, 1024 k + 1024) in slot
// k mod kChunkSlots. Only the chunks that a read position can still reach are held: a short
// delay costs one or two chunks however long it runs, and chunks go back to the pool as the
// write position leaves them. Times before the first sample read as the fill value.
//
// When the wanted length changes, the old and the new read positions play side by side and
// the output crossfades between them over round(sample rate * 0.015) samples. A longer
// delay would have to read samples that the old position has already passed, which the
// line no longer holds. So when the delay grows by g samples, the old position plays on
// for g samples first; by then the new position has reached the oldest sample still held,
// and the fade starts there. A change that arrives while one is under way waits for it to
// end, so at most two positions are ever read.
//
// Work is done in runs of at most 256 samples: write the input, then read the taps, so the
// line can run in place and the two taps of a fade fit in buffers on the stack.
//
// Audio thread. Set-up calls (setSampleRate, setCompInput) come before the first block.
class CDSPModDelay
{
public:
    static constexpr int32_t kChunkSamples = 1024;
    static constexpr int32_t kRunSamples = 256;
    static constexpr int32_t kChunkSlots = 128;
    // Leaves room in the slots for the chunks of one run beyond the longest delay.
    static constexpr int32_t kMaxDelay = (kChunkSlots - 3) * kChunkSamples;
    static constexpr double kXFadeSeconds = 0.015;

    // The pool lends the chunks and the output buffers; it must outlive the line.
    explicit CDSPModDelay(CSampleBufferPool& pool) : m_pool(&pool) {}
    ~CDSPModDelay() { releaseChunks(); }
    CDSPModDelay(const CDSPModDelay&) = delete;
    CDSPModDelay& operator=(const CDSPModDelay&) = delete;

    void setSampleRate(double sampleRate) { m_xfadeLength = CXFadeKernel::lengthFor(sampleRate, kXFadeSeconds); }
    int32_t xfadeLength() const { return m_xfadeLength; }
    // is-comp-input: times before the first sample read as that first sample rather than
    // 0, so that a signal with an offset does not start with a step from zero.
    void setCompInput(bool isCompInput) { m_isCompInput = isCompInput; }

    // The wanted delay in samples, clamped to 0 .. kMaxDelay. Before the first sample after
    // a reset it takes effect at once; later it starts a crossfade at the next sample.
    void setDelay(int32_t samples);
    int32_t delay() const { return m_target; }
    // True while two read positions are in play.
    bool isChanging() const { return m_isChanging; }

    // Gives back the chunks and re-arms: empty history, new fill value, next delay at once.
    void reset();

    // Delays n samples of `in` into `out`; `out` may be `in`.
    void run(const double* in, double* out, int32_t n) noexcept;

    // Delays a pool buffer of n samples. With the only reference the work is done in
    // place; otherwise the result goes to a new buffer from the pool, `buffer` points at
    // it and the reference on the old one is dropped, leaving the other holders' samples
    // untouched. False when the pool has no memory: the block then passes undelayed and
    // the line skips it.
    bool process(double*& buffer, int32_t n) noexcept;

    // Chunks taken from the pool right now.
    int32_t chunkCount() const;

private:
    void beginChange();
    void startFade();
    void prepareChunks(int32_t count);
    void write(const double* in, int32_t count);
    void read(int32_t delay, double* out, int32_t count) const;
    void releaseChunks();

    CSampleBufferPool* m_pool;
    double* m_chunks[kChunkSlots] = {};
    int64_t m_lowChunk = 0;   // held chunks are [m_lowChunk, m_highChunk]
    int64_t m_highChunk = -1;
    int64_t m_time = 0;       // where the next input sample is written
    double m_fill = 0.0;
    bool m_isCompInput = false;
    int32_t m_xfadeLength = 0;

    int32_t m_target = 0;     // what the owner wants
    int32_t m_delay = 0;      // the position that plays, or that a change moves to
    int32_t m_fromDelay = 0;  // the position a change moves away from
    bool m_isChanging = false;
    int32_t m_wait = 0;       // samples the old position plays on before the fade
    CXFadeKernel m_fade;
};

} // namespace qel
