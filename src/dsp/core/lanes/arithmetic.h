// Signs, fused multiply-add and sums of lanes.
#pragma once

#include "dsp/core/lanes/types.h"

namespace krl {

// ---- signs ----------------------------------------------------------------------------------------------------------

#if defined(KRL_NEON)
KRL_INLINE f32x4 abs(f32x4 v) { return (f32x4)vabsq_f32((float32x4_t)v); }
#endif
template <class V> KRL_INLINE V abs(V v) {
    using M = typename lane_traits<V>::mask;
    using E = element_of<V>;
    if constexpr (sizeof(E) == 4)
        return bit_cast<V>(bit_cast<M>(v) & 0x7fffffff);
    else
        return bit_cast<V>(bit_cast<M>(v) & 0x7fffffffffffffff);
}

// ---- fused multiply-add: a * b + c with one rounding ---------------------------------------------------------------

KRL_INLINE float fma(float a, float b, float c) { return __builtin_fmaf(a, b, c); }
KRL_INLINE double fma(double a, double b, double c) { return __builtin_fma(a, b, c); }

#if defined(KRL_NEON)
KRL_INLINE f32x4 fma(f32x4 a, f32x4 b, f32x4 c) {
    return (f32x4)vfmaq_f32((float32x4_t)c, (float32x4_t)a, (float32x4_t)b);
}
KRL_INLINE f64x2 fma(f64x2 a, f64x2 b, f64x2 c) {
    return (f64x2)vfmaq_f64((float64x2_t)c, (float64x2_t)a, (float64x2_t)b);
}
#elif defined(KRL_X86_FMA)
KRL_INLINE f32x4 fma(f32x4 a, f32x4 b, f32x4 c) { return _mm_fmadd_ps(a, b, c); }
KRL_INLINE f64x2 fma(f64x2 a, f64x2 b, f64x2 c) { return _mm_fmadd_pd(a, b, c); }
KRL_INLINE f32x8 fma(f32x8 a, f32x8 b, f32x8 c) { return _mm256_fmadd_ps(a, b, c); }
KRL_INLINE f64x4 fma(f64x4 a, f64x4 b, f64x4 c) { return _mm256_fmadd_pd(a, b, c); }
#else
template <class V> KRL_INLINE V fma(V a, V b, V c) {
    V r;
    for (int i = 0; i < lanes<V>; i++)
        r[i] = fma(a[i], b[i], c[i]);
    return r;
}
#endif

// a * b + c and c - a * b, fused where the target does it in one instruction and rounded twice elsewhere: for
// algorithms that leave the rounding open.
#if defined(KRL_NEON)
KRL_INLINE float mul_add(float a, float b, float c) { return fma(a, b, c); }
KRL_INLINE float mul_sub_from(float a, float b, float c) { return fma(-a, b, c); }
KRL_INLINE f32x4 mul_add(f32x4 a, f32x4 b, f32x4 c) { return fma(a, b, c); }
KRL_INLINE f32x4 mul_sub_from(f32x4 a, f32x4 b, f32x4 c) {
    return (f32x4)vfmsq_f32((float32x4_t)c, (float32x4_t)a, (float32x4_t)b);
}
#elif defined(KRL_X86_FMA)
KRL_INLINE float mul_add(float a, float b, float c) { return fma(a, b, c); }
KRL_INLINE float mul_sub_from(float a, float b, float c) { return fma(-a, b, c); }
KRL_INLINE f32x4 mul_add(f32x4 a, f32x4 b, f32x4 c) { return fma(a, b, c); }
KRL_INLINE f32x4 mul_sub_from(f32x4 a, f32x4 b, f32x4 c) { return _mm_fnmadd_ps(a, b, c); }
KRL_INLINE f32x8 mul_add(f32x8 a, f32x8 b, f32x8 c) { return fma(a, b, c); }
KRL_INLINE f32x8 mul_sub_from(f32x8 a, f32x8 b, f32x8 c) { return _mm256_fnmadd_ps(a, b, c); }
#else
template <class V> KRL_INLINE V mul_add(V a, V b, V c) { return a * b + c; }
template <class V> KRL_INLINE V mul_sub_from(V a, V b, V c) { return c - a * b; }
#endif

// ---- sums ----------------------------------------------------------------------------------------------------------

// Of all lanes, joined in halves: lane j with lane j + width / 2, and so on.
KRL_INLINE double sum_of_lanes(f64x2 v) { return v[0] + v[1]; }
KRL_INLINE float sum_of_lanes(f32x4 v) {
    v += __builtin_shufflevector(v, v, 2, 3, 0, 1);
    return v[0] + v[1];
}
#if KRL_LANES == 8
KRL_INLINE double sum_of_lanes(f64x4 v) {
    return sum_of_lanes(__builtin_shufflevector(v, v, 0, 1) + __builtin_shufflevector(v, v, 2, 3));
}
KRL_INLINE float sum_of_lanes(f32x8 v) {
    return sum_of_lanes(__builtin_shufflevector(v, v, 0, 1, 2, 3) + __builtin_shufflevector(v, v, 4, 5, 6, 7));
}
#endif

} // namespace krl
