#include "Audio/CDSPModDelay.h"

#include <algorithm>

namespace qel {
namespace {

constexpr int32_t kChunkShift = 10;
constexpr int64_t kChunkMask = CDSPModDelay::kChunkSamples - 1;
constexpr int64_t kSlotMask = CDSPModDelay::kChunkSlots - 1;
static_assert(CDSPModDelay::kChunkSamples == 1 << kChunkShift);
static_assert((CDSPModDelay::kChunkSlots & kSlotMask) == 0, "slots are picked by a mask");

void copy(const double* __restrict src, double* __restrict dst, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        dst[i] = src[i];
}

void fill(double* __restrict dst, double value, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        dst[i] = value;
}

} // namespace

void CDSPModDelay::setDelay(int32_t samples)
{
    m_target = std::clamp(samples, 0, kMaxDelay);
    if (m_time == 0) {
        // Nothing has been heard yet, so there is nothing to fade from.
        m_delay = m_fromDelay = m_target;
        m_isChanging = false;
        m_wait = 0;
        m_fade.stop();
    }
}

void CDSPModDelay::reset()
{
    releaseChunks();
    m_lowChunk = 0;
    m_highChunk = -1;
    m_time = 0;
    m_fill = 0.0;
    m_delay = m_fromDelay = m_target;
    m_isChanging = false;
    m_wait = 0;
    m_fade.stop();
}

void CDSPModDelay::run(const double* in, double* out, int32_t n) noexcept
{
    if (n <= 0)
        return;
    if (m_time == 0 && m_isCompInput)
        m_fill = in[0];
    while (n > 0) {
        if (!m_isChanging && m_target != m_delay)
            beginChange();
        int32_t count = std::min(n, kRunSamples);
        if (m_isChanging)
            count = std::min(count, m_wait > 0 ? m_wait : m_fade.remaining());

        // The input goes in before anything is read: `out` may be `in`, and a delay of 0
        // reads what was just written.
        prepareChunks(count);
        write(in, count);
        if (!m_isChanging) {
            read(m_delay, out, count);
        } else if (m_wait > 0) {
            read(m_fromDelay, out, count);
            m_wait -= count;
            if (m_wait == 0)
                startFade();
        } else {
            double from[kRunSamples];
            double to[kRunSamples];
            read(m_fromDelay, from, count);
            read(m_delay, to, count);
            m_fade.run(from, to, out, count);
            if (!m_fade.isRunning())
                m_isChanging = false;
        }
        m_time += count;
        in += count;
        out += count;
        n -= count;
    }
}

bool CDSPModDelay::process(double*& buffer, int32_t n) noexcept
{
    if (!buffer || n <= 0)
        return true;
    if (CSampleBufferPool::refCount(buffer) == 1) {
        run(buffer, buffer, n);
        return true;
    }
    double* out = m_pool->take(n);
    if (!out)
        return false;
    run(buffer, out, n);
    CSampleBufferPool::release(buffer);
    buffer = out;
    return true;
}

int32_t CDSPModDelay::chunkCount() const
{
    int32_t count = 0;
    for (int64_t c = m_lowChunk; c <= m_highChunk; ++c)
        count += m_chunks[c & kSlotMask] ? 1 : 0;
    return count;
}

void CDSPModDelay::beginChange()
{
    m_fromDelay = m_delay;
    m_delay = m_target;
    m_isChanging = true;
    // A longer delay must not read behind the oldest sample the old position kept.
    m_wait = std::max(0, m_delay - m_fromDelay);
    if (m_wait == 0)
        startFade();
}

void CDSPModDelay::startFade()
{
    m_fade.start(m_xfadeLength);
    if (!m_fade.isRunning())
        m_isChanging = false;
}

void CDSPModDelay::prepareChunks(int32_t count)
{
    // Keep what either position may still read from this run on; the right shift of a
    // negative time floors, as a chunk index must.
    const int32_t reach = m_isChanging ? std::max(m_delay, m_fromDelay) : m_delay;
    const int64_t keepFrom = std::max<int64_t>(0, (m_time - reach) >> kChunkShift);
    for (; m_lowChunk < keepFrom && m_lowChunk <= m_highChunk; ++m_lowChunk) {
        double*& slot = m_chunks[m_lowChunk & kSlotMask];
        CSampleBufferPool::release(slot);
        slot = nullptr;
    }
    if (m_lowChunk < keepFrom) {
        m_lowChunk = keepFrom;
        m_highChunk = std::max(m_highChunk, keepFrom - 1);
    }
    const int64_t last = (m_time + count - 1) >> kChunkShift;
    while (m_highChunk < last) {
        ++m_highChunk;
        // A chunk the pool can't give reads as the fill value, like one never written.
        m_chunks[m_highChunk & kSlotMask] = m_pool->take(kChunkSamples);
    }
}

void CDSPModDelay::write(const double* in, int32_t count)
{
    int64_t t = m_time;
    for (int32_t i = 0; i < count;) {
        const int32_t offset = int32_t(t & kChunkMask);
        const int32_t piece = std::min(count - i, kChunkSamples - offset);
        if (double* chunk = m_chunks[(t >> kChunkShift) & kSlotMask])
            copy(in + i, chunk + offset, piece);
        i += piece;
        t += piece;
    }
}

void CDSPModDelay::read(int32_t delay, double* out, int32_t count) const
{
    int64_t t = m_time - delay;
    int32_t i = 0;
    if (t < 0) {
        const int32_t before = int32_t(std::min<int64_t>(count, -t));
        fill(out, m_fill, before);
        i = before;
        t += before;
    }
    while (i < count) {
        const int32_t offset = int32_t(t & kChunkMask);
        const int32_t piece = std::min(count - i, kChunkSamples - offset);
        if (const double* chunk = m_chunks[(t >> kChunkShift) & kSlotMask])
            copy(chunk + offset, out + i, piece);
        else
            fill(out + i, m_fill, piece);
        i += piece;
        t += piece;
    }
}

void CDSPModDelay::releaseChunks()
{
    for (double*& slot : m_chunks) {
        CSampleBufferPool::release(slot);
        slot = nullptr;
    }
}

} // namespace qel
