#pragma once

#include "Audio/Processes/CSatEBCoeffs.h"

#include <cmath>
#include <cstdint>

namespace qel {

// The per-sample loops of the two saturator stages, and the level window of the input
// stage: a ring of the last N squared outputs with their running sum. The ring's memory
// belongs to the owner (a pooled buffer); the kernel only points at it.
//
// The input stage writes the level it used for each sample beside its output, so that
// the output stage, with the band filters in between, bends with the same level: the two
// stages are two halves of one non-linearity around the filters.
//
// Audio thread. State is copied into locals for the loop and written back after it.
class CSatEBKernel
{
public:
    // Points at a ring of at least `length` samples and starts the window empty.
    void start(double* ring, int32_t length) noexcept
    {
        m_ring = ring;
        m_length = length > 0 ? length : 1;
        m_invLength = 1.0 / double(m_length);
        m_sum = 0.0;
        m_pos = 0;
        m_isFull = false;
    }

    int32_t length() const { return m_length; }
    double sum() const { return m_sum; }
    bool isFull() const { return m_isFull; }

    // x in, inverted and saturated out; the level used for each sample into `level`.
    void runInput(const CSatEBCoeffs& coeffs, const double* __restrict in, double* __restrict out,
                  double* __restrict level, int32_t n) noexcept
    {
        const CSatEBCoeffs k = coeffs; // a local copy: nothing written in the loop can alias it
        double* __restrict ring = m_ring;
        const int32_t length = m_length;
        const double invLength = m_invLength;
        double sum = m_sum;
        int32_t pos = m_pos;
        bool isFull = m_isFull;
        for (int32_t i = 0; i < n; ++i) {
            const double e = std::sqrt(sum * invLength + CSatEBCoeffs::kLevelFloor);
            level[i] = e;
            const double be = k.biasGain2 * e;
            const double t = k.cb + be * be + k.drive * in[i] + k.biasGain * e;
            const double y = k.curve(t, e);
            if (isFull)
                sum -= ring[pos];
            const double yy = y * y;
            ring[pos] = yy;
            sum += yy;
            if (++pos == length) {
                pos = 0;
                isFull = true;
            }
            out[i] = (y - k.y0) * k.outGain;
        }
        m_sum = sum;
        m_pos = pos;
        m_isFull = isFull;
    }

    // The input stage's output z back through the curve at the input stage's level e: no
    // level of its own, no square term, and no drive, which invOutGain has already undone.
    static void runOutput(const CSatEBCoeffs& coeffs, const double* __restrict in, const double* __restrict level,
                          double* __restrict out, int32_t n) noexcept
    {
        const CSatEBCoeffs k = coeffs;
        for (int32_t i = 0; i < n; ++i) {
            const double e = level[i];
            const double t = k.cbOut + k.biasGain * e + in[i] * k.invOutGain;
            out[i] = (k.curve(t, e) - k.y0out) * k.outGain;
        }
    }

private:
    double* m_ring = nullptr;
    int32_t m_length = 1;
    double m_invLength = 1.0;
    double m_sum = 0.0;
    int32_t m_pos = 0;
    bool m_isFull = false;
};

} // namespace qel
