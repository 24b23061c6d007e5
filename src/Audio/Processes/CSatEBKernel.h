#pragma once

#include "Audio/Processes/CSatEBCoeffs.h"

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
// Where the time goes: every sample of the input stage waits for the last one, through
// the window's sum, its square root, the curve's division and the square that goes back
// into the sum (see the loop). The output stage has no memory; its samples go through the
// curve side by side, four at a time where the processor has AVX2.
//
// Audio thread. State is copied into locals for the loop and written back after it.
class CSatEBKernel
{
public:
    CSatEBKernel();

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
    void runInput(const CSatEBCoeffs& coeffs, const double* in, double* out, double* level, int32_t n) noexcept;

    // The input stage's output z back through the curve at the input stage's level e: no
    // level of its own, no square term, and no drive, which invOutGain has already undone.
    void runOutput(const CSatEBCoeffs& coeffs, const double* in, const double* level, double* out, int32_t n) const noexcept;

    // The window's state as the sample loop takes it and hands it back.
    struct CWindow
    {
        double* ring;
        int32_t length;
        double invLength;
        double sum;
        int32_t pos;
        bool isFull;
    };

private:
    double* m_ring = nullptr;
    int32_t m_length = 1;
    double m_invLength = 1.0;
    double m_sum = 0.0;
    int32_t m_pos = 0;
    bool m_isFull = false;
    bool m_isWide = false;
};

} // namespace qel
