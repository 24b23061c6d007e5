#pragma once

#include <cstddef>
#include <cstdint>

struct fftw_plan_s;

namespace qel {

// A real FFT of 2^order points, order 5 to 15, forward and inverse, without scaling on
// either side: a forward and an inverse transform in a row multiply by size().
//
// Samples are size() doubles, bins binCount() complex values (binLength() doubles), from
// the DC bin (element 0, imaginary part 0) to the bin at half the rate, real and imaginary
// part side by side. Both transforms go from one array to another, and may leave their
// input changed: the library's in-place inverse takes a scratch buffer from the heap on
// every call, its out-of-place one works in the arrays it is given (the real-time tests
// hold every order to that). Every array lies on a
// CAlignedDoubles boundary, as the plans were made for. One record serves any number of
// such arrays, one call at a time or from several threads at once.
//
// Records take long to make, so they are not made twice: a record given back waits in a
// process-wide free list of its order for the next filter that needs one.
class CRealFFT
{
public:
    static constexpr int32_t kMinOrder = 5;
    static constexpr int32_t kMaxOrder = 15;

    // Any thread, also the audio thread while a filter is configured (never per sample):
    // one from the free list, or a new one. Null for an order out of range or without
    // memory.
    static CRealFFT* take(int32_t order);
    // Any thread: back to the free list. Null is ignored.
    static void give(CRealFFT* record);
    // Records of that order waiting in the free list.
    static int32_t freeCount(int32_t order);

    int32_t order() const { return m_order; }
    int32_t size() const { return m_size; }
    double scale() const { return m_scale; }
    int32_t binCount() const { return m_size / 2 + 1; }
    size_t binLength() const { return size_t(m_size) + 2; }

    // Audio thread; the arrays must not overlap, and the input is left changed.
    void forward(double* samples, double* bins) const;
    void inverse(double* bins, double* samples) const;

    // Bin by bin over the bins of this size: out = a * b, and acc += a * b. Two bins at a
    // time where the processor has AVX2 (told once, when the record is made), rounding as
    // the plain loops below do.
    void multiply(const double* a, const double* b, double* out) const;
    void multiplyAdd(const double* a, const double* b, double* acc) const;
    // The plain loops, on `bins` complex bins.
    static void multiplyPlain(const double* a, const double* b, double* out, int32_t bins);
    static void multiplyAddPlain(const double* a, const double* b, double* acc, int32_t bins);
    bool isWide() const { return m_isWide; }

private:
    CRealFFT(int32_t order, fftw_plan_s* forwardPlan, fftw_plan_s* inversePlan);
    ~CRealFFT();
    CRealFFT(const CRealFFT&) = delete;
    CRealFFT& operator=(const CRealFFT&) = delete;

    static CRealFFT* make(int32_t order);

    friend class CRealFFTFreeList;

    int32_t m_order;
    int32_t m_size;
    double m_scale;
    fftw_plan_s* m_forward;
    fftw_plan_s* m_inverse;
    bool m_isWide = false;
    CRealFFT* m_next = nullptr; // in the free list
};

} // namespace qel
