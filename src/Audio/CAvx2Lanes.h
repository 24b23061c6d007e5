#pragma once

// Four 64-bit samples side by side in AVX2, for the sample loops whose samples do not wait
// for each other. Each operation rounds exactly as the scalar one does and there is no
// fused multiply-add here, so a loop written with these gives the scalar loop's samples
// bit for bit, four at a time.
//
// Only functions marked QEL_AVX2 may use them, and only where the processor has AVX2
// (dcdaw::hasAvx2); elsewhere the scalar loop runs.

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define QEL_HAS_AVX2_LANES 1
#include <immintrin.h>

#define QEL_AVX2 __attribute__((target("avx2")))

namespace qel {

struct CAvx2Lanes
{
    using V = __m256d;
    static constexpr int kWidth = 4;

    [[gnu::always_inline]] QEL_AVX2 static V load(const double* p) { return _mm256_loadu_pd(p); }
    [[gnu::always_inline]] QEL_AVX2 static void store(double* p, V a) { _mm256_storeu_pd(p, a); }
    [[gnu::always_inline]] QEL_AVX2 static V set1(double x) { return _mm256_set1_pd(x); }
    // Lane j holds x[j].
    [[gnu::always_inline]] QEL_AVX2 static V set(const double* x) { return _mm256_set_pd(x[3], x[2], x[1], x[0]); }
    [[gnu::always_inline]] QEL_AVX2 static V add(V a, V b) { return _mm256_add_pd(a, b); }
    [[gnu::always_inline]] QEL_AVX2 static V sub(V a, V b) { return _mm256_sub_pd(a, b); }
    [[gnu::always_inline]] QEL_AVX2 static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
    [[gnu::always_inline]] QEL_AVX2 static V div(V a, V b) { return _mm256_div_pd(a, b); }
    [[gnu::always_inline]] QEL_AVX2 static V sqrt(V a) { return _mm256_sqrt_pd(a); }
    // Masks, all ones in a lane where the comparison holds; false for NaN, as in scalar code.
    [[gnu::always_inline]] QEL_AVX2 static V le(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_LE_OQ); }
    [[gnu::always_inline]] QEL_AVX2 static V ge(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_GE_OQ); }
    [[gnu::always_inline]] QEL_AVX2 static V gt(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
    // `a` where the mask is set, `b` elsewhere.
    [[gnu::always_inline]] QEL_AVX2 static V select(V mask, V a, V b) { return _mm256_blendv_pd(b, a, mask); }
};

} // namespace qel

#endif
