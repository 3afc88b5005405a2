// Lanes of another type: single and double precision, 32-bit integers, 16-bit integers in memory.
#pragma once

#include "dsp/core/lanes/shuffles.h"

namespace krl {

// Single to double (exact), and back with one rounding.
KRL_INLINE lane_pair<f64x2> to_double(f32x4 v) {
    return {__builtin_convertvector(__builtin_shufflevector(v, v, 0, 1), f64x2),
            __builtin_convertvector(__builtin_shufflevector(v, v, 2, 3), f64x2)};
}
KRL_INLINE f32x4 to_single(lane_pair<f64x2> v) {
    using f32x2 = float __attribute__((vector_size(8)));
    const f32x2 a = __builtin_convertvector(v.a, f32x2), b = __builtin_convertvector(v.b, f32x2);
    return __builtin_shufflevector(a, b, 0, 1, 2, 3);
}
#if KRL_LANES == 8
KRL_INLINE lane_pair<f64x4> to_double(f32x8 v) {
    return {(f64x4)_mm256_cvtps_pd(_mm256_castps256_ps128(v)), (f64x4)_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1))};
}
KRL_INLINE f32x8 to_single(lane_pair<f64x4> v) { return _mm256_set_m128(_mm256_cvtpd_ps(v.b), _mm256_cvtpd_ps(v.a)); }
#endif

// The even lanes of v in double, in such an order that twice_even gives those of to_double(v).a twice each, and
// twice_odd those of to_double(v).b.
KRL_INLINE f64x2 even_to_double(f32x4 v) { return to_double(__builtin_shufflevector(v, v, 0, 2, 0, 2)).a; }
#if KRL_LANES == 8
KRL_INLINE f64x4 even_to_double(f32x8 v) {
    return (f64x4)_mm256_cvtps_pd(even_odd(first_half(v), twice_even(second_half(v))));
}
#endif

// As many floats as V has lanes, widened where V holds doubles: all of them, or the first few and zeros.
template <class V> KRL_INLINE V load_as(const float* p) { return load<V>(p); }
template <class V> KRL_INLINE V load_first_as(const float* p, size_t count) { return load_first<V>(p, count); }
template <> KRL_INLINE f64x2 load_as(const float* p) { return f64x2{p[0], p[1]}; }
template <> KRL_INLINE f64x2 load_first_as(const float* p, size_t) { return f64x2{p[0], 0.0}; }
#if KRL_LANES == 8
template <> KRL_INLINE f64x4 load_as(const float* p) { return (f64x4)_mm256_cvtps_pd(load<f32x4>(p)); }
template <> KRL_INLINE f64x4 load_first_as(const float* p, size_t count) {
    return (f64x4)_mm256_cvtps_pd(load_first<f32x4>(p, count));
}
#endif

// f applied in double precision to every lane of v, rounded once to single.
template <class V, class F> KRL_INLINE V map_double(V v, F f) {
    auto [a, b] = to_double(v);
    return to_single({f(a), f(b)});
}

// Exact for |v| < 2^24, otherwise rounded to nearest even.
KRL_INLINE f32x4 to_float(i32x4 v) { return __builtin_convertvector(v, f32x4); }

// Rounds in the current rounding mode, as lrintf does. v is inside the range of int32_t; NaN gives 0 on every target.
#if defined(KRL_NEON)
KRL_INLINE i32x4 round_to_int(f32x4 v) { return (i32x4)vcvtq_s32_f32(vrndiq_f32((float32x4_t)v)); }
#elif defined(__SSE2__) && !defined(KRL_PORTABLE_LANES)
KRL_INLINE i32x4 round_to_int(f32x4 v) { return (i32x4)__builtin_ia32_cvtps2dq(v) & (v == v); }
#else
KRL_INLINE i32x4 round_to_int(f32x4 v) {
    i32x4 r;
    for (int i = 0; i < 4; i++)
        r[i] = v[i] == v[i] ? static_cast<int32_t>(__builtin_lrintf(v[i])) : 0;
    return r;
}
#endif

// 16-bit integers at any alignment, two or four at a time. What is stored is inside their range.
using i16x2 = int16_t __attribute__((vector_size(4)));
using i16x4 = int16_t __attribute__((vector_size(8)));
using i32x2 = int32_t __attribute__((vector_size(8)));
#if defined(KRL_X86_FMA)
KRL_INLINE i32x4 load_int16(const int16_t* p) {
    return (i32x4)_mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}
KRL_INLINE void store_int16(int16_t* p, i32x4 v) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packs_epi32((__m128i)v, (__m128i)v));
}
#else
KRL_INLINE i32x4 load_int16(const int16_t* p) {
    i16x4 v;
    __builtin_memcpy(&v, p, sizeof(v));
    return __builtin_convertvector(v, i32x4);
}
KRL_INLINE void store_int16(int16_t* p, i32x4 v) {
    i16x4 r = __builtin_convertvector(v, i16x4);
    __builtin_memcpy(p, &r, sizeof(r));
}
#endif
KRL_INLINE i32x2 load_int16_pair(const int16_t* p) {
#if defined(KRL_X86_FMA)
    int32_t both;
    __builtin_memcpy(&both, p, sizeof(both));
    const i32x4 v = (i32x4)_mm_cvtepi16_epi32(_mm_cvtsi32_si128(both));
    return __builtin_shufflevector(v, v, 0, 1);
#else
    i16x2 v;
    __builtin_memcpy(&v, p, sizeof(v));
    return i32x2{v[0], v[1]};
#endif
}
KRL_INLINE void store_int16_pair(int16_t* p, i32x2 v) {
#if defined(KRL_X86_FMA)
    const __m128i wide = (__m128i)__builtin_shufflevector(v, v, 0, 1, 0, 1);
    const int32_t both = _mm_cvtsi128_si32(_mm_packs_epi32(wide, wide));
    __builtin_memcpy(p, &both, sizeof(both));
#else
    p[0] = static_cast<int16_t>(v[0]);
    p[1] = static_cast<int16_t>(v[1]);
#endif
}
#if KRL_LANES == 8
KRL_INLINE f32x8 to_float(i32x8 v) { return __builtin_convertvector(v, f32x8); }
KRL_INLINE i32x8 round_to_int(f32x8 v) { return (i32x8)_mm256_cvtps_epi32(v) & (v == v); }
#endif

} // namespace krl
