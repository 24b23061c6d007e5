#include "Audio/Filters/CFIRDirectHead.h"

#include <algorithm>

namespace qel {

void CFIRDirectHead::configure(const double* taps, int32_t count)
{
    m_length = taps ? std::clamp(count, 0, kMaxTaps) : 0;
    for (int32_t k = 0; k < m_length; ++k)
        m_reversed[k] = taps[m_length - 1 - k];
    m_pos = 0;
    m_isSeedPending = true;
}

// Sample t goes to ring[p] and ring[p + L]; then ring[p + 1 .. p + L] holds the last L
// samples, oldest first.
void CFIRDirectHead::run(const double* __restrict in, double* __restrict out, int32_t n, bool isAdding)
{
    const int32_t L = m_length;
    if (L == 0 || n <= 0)
        return;
    if (m_isSeedPending) {
        std::fill(m_ring, m_ring + 2 * L, in[0]);
        m_isSeedPending = false;
    }
    int32_t p = m_pos;
    for (int32_t i = 0; i < n; ++i) {
        m_ring[p] = in[i];
        m_ring[p + L] = in[i];
        const double* x = m_ring + p + 1;
        double sum = 0.0;
        for (int32_t k = 0; k < L; ++k)
            sum += m_reversed[k] * x[k];
        out[i] = isAdding ? out[i] + sum : sum;
        p = p + 1 == L ? 0 : p + 1;
    }
    m_pos = p;
}

} // namespace qel
