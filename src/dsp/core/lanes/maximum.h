// Maximum and minimum of lanes, for each rule about NaN and zeros of either sign; comparisons.
#pragma once

#include "dsp/core/lanes/types.h"

namespace krl {

// max_num, min_num: IEEE 754-2008 maxNum/minNum, a quiet NaN operand is ignored.
// max_nan: a NaN operand gives NaN.
// All three order -0 below +0.

#if defined(KRL_NEON)
KRL_INLINE f32x4 max_num(f32x4 a, f32x4 b) { return (f32x4)vmaxnmq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE f32x4 min_num(f32x4 a, f32x4 b) { return (f32x4)vminnmq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE f32x4 max_nan(f32x4 a, f32x4 b) { return (f32x4)vmaxq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE float max_num(float a, float b) { return __builtin_fmaxf(a, b); } // one fmaxnm
KRL_INLINE float min_num(float a, float b) { return __builtin_fminf(a, b); }
KRL_INLINE double max_num(double a, double b) { return __builtin_fmax(a, b); }
#else
namespace detail {

// The compare-and-pick maximum and minimum of x86: the second operand when the operands are equal or one is NaN.
#    if defined(KRL_X86_FMA)
KRL_INLINE f32x4 pick_max(f32x4 a, f32x4 b) { return _mm_max_ps(a, b); }
KRL_INLINE f32x4 pick_min(f32x4 a, f32x4 b) { return _mm_min_ps(a, b); }
KRL_INLINE f32x8 pick_max(f32x8 a, f32x8 b) { return _mm256_max_ps(a, b); }
KRL_INLINE f32x8 pick_min(f32x8 a, f32x8 b) { return _mm256_min_ps(a, b); }
KRL_INLINE f64x2 pick_max(f64x2 a, f64x2 b) { return _mm_max_pd(a, b); }
KRL_INLINE f32x4 pick(f32x4 mask, f32x4 a, f32x4 b) { return _mm_blendv_ps(b, a, mask); }
KRL_INLINE f32x8 pick(f32x8 mask, f32x8 a, f32x8 b) { return _mm256_blendv_ps(b, a, mask); }
KRL_INLINE f64x2 pick(f64x2 mask, f64x2 a, f64x2 b) { return _mm_blendv_pd(b, a, mask); }
#    else
template <class V> KRL_INLINE V pick_max(V a, V b) { return select(a > b, a, b); }
template <class V> KRL_INLINE V pick_min(V a, V b) { return select(a < b, a, b); }
template <class V> KRL_INLINE V pick(V mask, V a, V b) {
    return select(bit_cast<typename lane_traits<V>::mask>(mask), a, b);
}
#    endif

template <class V> KRL_INLINE V bit_and(V a, V b) {
    using M = typename lane_traits<V>::mask;
    return bit_cast<V>(bit_cast<M>(a) & bit_cast<M>(b));
}
template <class V> KRL_INLINE V bit_or(V a, V b) {
    using M = typename lane_traits<V>::mask;
    return bit_cast<V>(bit_cast<M>(a) | bit_cast<M>(b));
}

} // namespace detail

// Picking in both orders and joining the bits settles the zeros: "and" of +0 and -0 is +0, "or" is -0. A NaN survives
// "or" whatever the other operand is.
template <class V> KRL_INLINE V max_nan(V a, V b) {
    V p = detail::pick_max(a, b), q = detail::pick_max(b, a);
    return detail::pick(bit_cast<V>((a != a) | (b != b)), detail::bit_or(p, q), detail::bit_and(p, q));
}
template <class V> KRL_INLINE V max_num(V a, V b) {
    if constexpr (lanes<V> == 1 && sizeof(V) == 4)
        return max_num(f32x4{a}, f32x4{b})[0];
    else if constexpr (lanes<V> == 1)
        return max_num(f64x2{a}, f64x2{b})[0];
    else {
        using M = typename lane_traits<V>::mask;
        V r = detail::pick(bit_cast<V>(b != b), a, detail::pick_max(a, b));
        return bit_cast<V>(bit_cast<M>(r) & ~((a == b) & ~bit_cast<M>(a))); // equal: a and b
    }
}
template <class V> KRL_INLINE V min_num(V a, V b) {
    if constexpr (lanes<V> == 1) {
        return min_num(f32x4{a}, f32x4{b})[0];
    } else {
        using M = typename lane_traits<V>::mask;
        V r = detail::pick(bit_cast<V>(b != b), a, detail::pick_min(a, b));
        return bit_cast<V>(bit_cast<M>(r) | ((a == b) & bit_cast<M>(a))); // equal: a or b
    }
}
#endif

// max_quick, min_quick: one instruction on every target, the same as max_num and min_num, except that x86 gives b when
// b is NaN and when both are zeros (-0 and +0 in either order).
#if defined(KRL_NEON)
inline constexpr bool quick_is_exact = true;
template <class V> KRL_INLINE V max_quick(V a, V b) { return max_num(a, b); }
template <class V> KRL_INLINE V min_quick(V a, V b) { return min_num(a, b); }
#else
inline constexpr bool quick_is_exact = false;
template <class V> KRL_INLINE V max_quick(V a, V b) {
    if constexpr (lanes<V> == 1)
        return a > b ? a : b;
    else
        return detail::pick_max(a, b);
}
template <class V> KRL_INLINE V min_quick(V a, V b) {
    if constexpr (lanes<V> == 1)
        return a < b ? a : b;
    else
        return detail::pick_min(a, b);
}
#endif

// Integer maximum, and the greatest lane of a vector.
#if defined(KRL_NEON)
KRL_INLINE i32x4 max_int(i32x4 a, i32x4 b) { return (i32x4)vmaxq_s32((int32x4_t)a, (int32x4_t)b); }
#elif defined(KRL_X86_FMA)
KRL_INLINE i32x4 max_int(i32x4 a, i32x4 b) { return (i32x4)_mm_max_epi32((__m128i)a, (__m128i)b); }
KRL_INLINE i32x8 max_int(i32x8 a, i32x8 b) { return (i32x8)_mm256_max_epi32((__m256i)a, (__m256i)b); }
#else
KRL_INLINE i32x4 max_int(i32x4 a, i32x4 b) {
    i32x4 greater = a > b;
    return (greater & a) | (~greater & b);
}
#endif
KRL_INLINE int32_t max_of_lanes(i32x4 v) {
    v = max_int(v, __builtin_shufflevector(v, v, 2, 3, 0, 1));
    return max_int(v, __builtin_shufflevector(v, v, 1, 0, 3, 2))[0];
}
#if KRL_LANES == 8
KRL_INLINE int32_t max_of_lanes(i32x8 v) {
    return max_of_lanes(max_int(__builtin_shufflevector(v, v, 0, 1, 2, 3), __builtin_shufflevector(v, v, 4, 5, 6, 7)));
}
#endif

// The greater of v and m, where m is a number: a NaN in v is ignored. Zeros of either sign count as equal.
KRL_INLINE float max_of_number(float v, float m) { return v > m ? v : m; }
#if defined(KRL_NEON)
KRL_INLINE f32x4 max_of_number(f32x4 v, f32x4 m) { return max_num(v, m); }
#else
template <class V> KRL_INLINE V max_of_number(V v, V m) { return detail::pick_max(v, m); }
#endif

// The greatest lane, for lanes that are not negative and not NaN.
template <class V> KRL_INLINE float max_of_magnitudes(V v) {
    return bit_cast<float>(max_of_lanes(bit_cast<typename lane_traits<V>::mask>(v)));
}

// v held between lo and hi; NaN stays NaN. The sign of a zero is kept when lo < 0 < hi.
#if defined(KRL_NEON)
KRL_INLINE f32x4 clamp(f32x4 v, f32x4 lo, f32x4 hi) {
    return (f32x4)vminq_f32((float32x4_t)max_nan(v, lo), (float32x4_t)hi);
}
#else
template <class V> KRL_INLINE V clamp(V v, V lo, V hi) { return detail::pick_min(hi, detail::pick_max(lo, v)); }
#endif

// True when a lane of a comparison is.
#if defined(KRL_NEON)
KRL_INLINE bool any(i32x4 mask) { return vmaxvq_u32((uint32x4_t)mask) != 0; }
#elif defined(KRL_X86_FMA)
KRL_INLINE bool any(i32x4 mask) { return !_mm_testz_si128((__m128i)mask, (__m128i)mask); }
KRL_INLINE bool any(i32x8 mask) { return !_mm256_testz_si256((__m256i)mask, (__m256i)mask); }
#else
KRL_INLINE bool any(i32x4 mask) {
    const i64x2 both = (i64x2)mask;
    return (both[0] | both[1]) != 0;
}
#endif

} // namespace krl
