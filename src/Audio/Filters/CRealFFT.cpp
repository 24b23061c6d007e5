#include "Audio/Filters/CRealFFT.h"

#include "Audio/CAvx2Lanes.h"
#include "Audio/Filters/CAlignedDoubles.h"
#include "Audio/Filters/CDCDAWBiquadKernel.h"
#include "Core/CCriticalSection.h"

#include <fftw3.h>

#include <new>

namespace qel {
namespace {
// Set when the free list is gone, at module unload. Plain data, so that it still reads
// true after the list's destructor has run.
bool s_isClosed = false;
} // namespace

// The free lists of all orders, and the one lock of the FFT library's planner. FFTW's
// planner keeps process-wide tables of its own and may not run on two threads at once,
// whichever instance of the plug-in plans: making and destroying plans is therefore done
// only under this lock, which every record of the process shares. Running a plan needs no
// lock. The lock is recursive, like every critical section here.
class CRealFFTFreeList
{
public:
    CRealFFTFreeList() = default;
    CRealFFTFreeList(const CRealFFTFreeList&) = delete;
    CRealFFTFreeList& operator=(const CRealFFTFreeList&) = delete;

    // Module unload: what waits in the lists goes, plans and all.
    ~CRealFFTFreeList()
    {
        CLockGuard guard(m_lock);
        for (CRealFFT*& head : m_heads) {
            while (head) {
                CRealFFT* next = head->m_next;
                delete head;
                head = next;
            }
        }
        s_isClosed = true;
    }

    CRealFFT* take(int32_t order)
    {
        CLockGuard guard(m_lock);
        CRealFFT*& head = m_heads[order];
        if (head) {
            CRealFFT* record = head;
            head = record->m_next;
            record->m_next = nullptr;
            return record;
        }
        return CRealFFT::make(order);
    }

    void give(CRealFFT* record)
    {
        CLockGuard guard(m_lock);
        CRealFFT*& head = m_heads[record->m_order];
        record->m_next = head;
        head = record;
    }

    int32_t count(int32_t order)
    {
        CLockGuard guard(m_lock);
        int32_t n = 0;
        for (const CRealFFT* r = m_heads[order]; r; r = r->m_next)
            ++n;
        return n;
    }

    CCriticalSection& lock() { return m_lock; }

private:
    CCriticalSection m_lock{4000};
    CRealFFT* m_heads[CRealFFT::kMaxOrder + 1] = {};
};

namespace {
CRealFFTFreeList s_freeList;
} // namespace

CRealFFT::CRealFFT(int32_t order, fftw_plan_s* forwardPlan, fftw_plan_s* inversePlan)
    : m_order(order), m_size(int32_t(1) << order), m_scale(1.0 / double(int32_t(1) << order)), m_forward(forwardPlan),
      m_inverse(inversePlan)
{
}

CRealFFT::~CRealFFT()
{
    // Past the list's end only the thread that unloads the module runs.
    if (s_isClosed) {
        fftw_destroy_plan(m_forward);
        fftw_destroy_plan(m_inverse);
        return;
    }
    CLockGuard guard(s_freeList.lock());
    fftw_destroy_plan(m_forward);
    fftw_destroy_plan(m_inverse);
}

// Under the list's lock. The plans are made for two arrays on the boundary every array of
// the filters keeps, which is what allows them to run later on any such pair (FFTW's
// new-array interface asks for the same alignment and the same placement, here out of
// place). FFTW_ESTIMATE plans without timing trial runs: the same plan on every machine of
// one instruction set and at every start, made in well under a millisecond. The input
// may be overwritten, which leaves the library more algorithms that need no buffer.
CRealFFT* CRealFFT::make(int32_t order)
{
    const int32_t n = int32_t(1) << order;
    CAlignedDoubles samples, bins;
    if (!samples.reserve(size_t(n)) || !bins.reserve(size_t(n) + 2))
        return nullptr;
    auto* complexBins = reinterpret_cast<fftw_complex*>(bins.data());
    const unsigned flags = FFTW_ESTIMATE | FFTW_DESTROY_INPUT;
    fftw_plan forwardPlan = fftw_plan_dft_r2c_1d(n, samples.data(), complexBins, flags);
    fftw_plan inversePlan = fftw_plan_dft_c2r_1d(n, complexBins, samples.data(), flags);
    CRealFFT* record = forwardPlan && inversePlan ? new (std::nothrow) CRealFFT(order, forwardPlan, inversePlan) : nullptr;
    if (record)
        record->m_isWide = dcdaw::hasAvx2();
    if (!record) {
        if (forwardPlan)
            fftw_destroy_plan(forwardPlan);
        if (inversePlan)
            fftw_destroy_plan(inversePlan);
    }
    return record;
}

CRealFFT* CRealFFT::take(int32_t order)
{
    if (order < kMinOrder || order > kMaxOrder)
        return nullptr;
    return s_freeList.take(order);
}

void CRealFFT::give(CRealFFT* record)
{
    // A filter that outlives the process's static data frees its record itself.
    if (record && s_isClosed)
        delete record;
    else if (record)
        s_freeList.give(record);
}

int32_t CRealFFT::freeCount(int32_t order)
{
    if (order < kMinOrder || order > kMaxOrder)
        return 0;
    return s_freeList.count(order);
}

void CRealFFT::forward(double* samples, double* bins) const
{
    fftw_execute_dft_r2c(m_forward, samples, reinterpret_cast<fftw_complex*>(bins));
}

void CRealFFT::inverse(double* bins, double* samples) const
{
    fftw_execute_dft_c2r(m_inverse, reinterpret_cast<fftw_complex*>(bins), samples);
}

void CRealFFT::multiplyPlain(const double* __restrict a, const double* __restrict b, double* __restrict out, int32_t bins)
{
    for (int32_t k = 0; k < 2 * bins; k += 2) {
        const double re = a[k] * b[k] - a[k + 1] * b[k + 1];
        const double im = a[k] * b[k + 1] + a[k + 1] * b[k];
        out[k] = re;
        out[k + 1] = im;
    }
}

void CRealFFT::multiplyAddPlain(const double* __restrict a, const double* __restrict b, double* __restrict acc, int32_t bins)
{
    for (int32_t k = 0; k < 2 * bins; k += 2) {
        const double re = a[k] * b[k] - a[k + 1] * b[k + 1];
        const double im = a[k] * b[k + 1] + a[k + 1] * b[k];
        acc[k] += re;
        acc[k + 1] += im;
    }
}

#ifdef QEL_HAS_AVX2_LANES
namespace {

// Two bins (a lane pair each: real, imaginary) at once:
//   a * b = (ar br - ai bi, ai br + ar bi) = addsub(a * (br, br), (ai, ar) * (bi, bi)),
// the same products and sums as the plain loop (an addition's operands may swap without
// changing its result), so the same bits.
[[gnu::always_inline]] QEL_AVX2 inline __m256d product(const double* a, const double* b)
{
    const __m256d va = _mm256_loadu_pd(a);
    const __m256d vb = _mm256_loadu_pd(b);
    const __m256d real = _mm256_movedup_pd(vb);
    const __m256d imaginary = _mm256_permute_pd(vb, 0xF);
    const __m256d swapped = _mm256_permute_pd(va, 0x5);
    return _mm256_addsub_pd(_mm256_mul_pd(va, real), _mm256_mul_pd(swapped, imaginary));
}

QEL_AVX2 void multiplyWide(const double* __restrict a, const double* __restrict b, double* __restrict out, int32_t bins)
{
    int32_t k = 0;
    for (; k + 2 <= bins; k += 2)
        _mm256_storeu_pd(out + 2 * k, product(a + 2 * k, b + 2 * k));
    CRealFFT::multiplyPlain(a + 2 * k, b + 2 * k, out + 2 * k, bins - k);
}

QEL_AVX2 void multiplyAddWide(const double* __restrict a, const double* __restrict b, double* __restrict acc, int32_t bins)
{
    int32_t k = 0;
    for (; k + 2 <= bins; k += 2)
        _mm256_storeu_pd(acc + 2 * k, _mm256_add_pd(_mm256_loadu_pd(acc + 2 * k), product(a + 2 * k, b + 2 * k)));
    CRealFFT::multiplyAddPlain(a + 2 * k, b + 2 * k, acc + 2 * k, bins - k);
}

} // namespace
#endif

void CRealFFT::multiply(const double* a, const double* b, double* out) const
{
#ifdef QEL_HAS_AVX2_LANES
    if (m_isWide) {
        multiplyWide(a, b, out, binCount());
        return;
    }
#endif
    multiplyPlain(a, b, out, binCount());
}

void CRealFFT::multiplyAdd(const double* a, const double* b, double* acc) const
{
#ifdef QEL_HAS_AVX2_LANES
    if (m_isWide) {
        multiplyAddWide(a, b, acc, binCount());
        return;
    }
#endif
    multiplyAddPlain(a, b, acc, binCount());
}

} // namespace qel
