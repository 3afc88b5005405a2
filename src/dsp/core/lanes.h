// SIMD lanes: the only file of the library that knows an instruction set.
//
// A lane type is a compiler vector, so + - * and comparisons are operators. What the operators cannot say is a named
// function here: fused multiply-add, the two NaN rules of maximum and minimum, loads and stores, shuffles, conversions.
// Every operation gives the same bits on every target (NaN payloads excepted):
//
//   f32x4, f64x2   on every target
//   f32x8, f64x4   where KRL_LANES is 8 (x86-64 with AVX2 and FMA)
//   f32v, f64v     the widest vectors of the target
//
// Kernels are templates over the lane type; the same template runs with `float` itself as a one-lane type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__aarch64__)
#    include <arm_neon.h>
#    define KRL_NEON 1
#elif defined(__AVX2__) && defined(__FMA__)
#    include <immintrin.h>
#    define KRL_X86_FMA 1
#endif

#define KRL_INLINE inline __attribute__((always_inline))

namespace krl {

using f32x4 = float __attribute__((vector_size(16)));
using i32x4 = int32_t __attribute__((vector_size(16)));
using f64x2 = double __attribute__((vector_size(16)));
using i64x2 = int64_t __attribute__((vector_size(16)));

#if defined(KRL_X86_FMA)
#    define KRL_LANES 8
using f32x8 = float __attribute__((vector_size(32)));
using i32x8 = int32_t __attribute__((vector_size(32)));
using f64x4 = double __attribute__((vector_size(32)));
using i64x4 = int64_t __attribute__((vector_size(32)));
using f32v = f32x8;
using f64v = f64x4;
#else
#    define KRL_LANES 4
using f32v = f32x4;
using f64v = f64x2;
#endif

// Element type, lane count and the integer vector of the same shape (what a comparison yields).
template <class V> struct lane_traits;
// clang-format off
template <> struct lane_traits<float> { using element = float; using mask = int32_t; static constexpr int count = 1; };
template <> struct lane_traits<double> { using element = double; using mask = int64_t; static constexpr int count = 1; };
template <> struct lane_traits<f32x4> { using element = float; using mask = i32x4; static constexpr int count = 4; };
template <> struct lane_traits<i32x4> { using element = int32_t; using mask = i32x4; static constexpr int count = 4; };
template <> struct lane_traits<f64x2> { using element = double; using mask = i64x2; static constexpr int count = 2; };
#if KRL_LANES == 8
template <> struct lane_traits<i32x8> { using element = int32_t; using mask = i32x8; static constexpr int count = 8; };
template <> struct lane_traits<f32x8> { using element = float; using mask = i32x8; static constexpr int count = 8; };
template <> struct lane_traits<f64x4> { using element = double; using mask = i64x4; static constexpr int count = 4; };
#endif
// clang-format on
template <class V> using element_of = typename lane_traits<V>::element;
template <class V> inline constexpr int lanes = lane_traits<V>::count;

// ---- loads, stores, broadcast --------------------------------------------------------------------------------------

// Any float alignment.
template <class V> KRL_INLINE V load(const element_of<V>* p) {
    V v;
    __builtin_memcpy(&v, p, sizeof(V));
    return v;
}
template <class V> KRL_INLINE void store(element_of<V>* p, V v) { __builtin_memcpy(p, &v, sizeof(V)); }

// p is a multiple of sizeof(V).
template <class V> KRL_INLINE V load_aligned(const element_of<V>* p) {
    return load<V>(static_cast<const element_of<V>*>(__builtin_assume_aligned(p, sizeof(V))));
}
template <class V> KRL_INLINE void store_aligned(element_of<V>* p, V v) {
    store(static_cast<element_of<V>*>(__builtin_assume_aligned(p, sizeof(V))), v);
}

// v, in a register. Compilers fold a load into each instruction that uses it; where a value is used twice and loads are
// the bottleneck, this keeps it to one load.
template <class V> KRL_INLINE V in_register(V v) {
#if defined(KRL_X86_FMA)
    asm("" : "+x"(v));
#elif defined(KRL_NEON)
    asm("" : "+w"(v));
#endif
    return v;
}

// A line that instructions are not scheduled across, for long straight-line code on targets where the compiler
// schedules before it allocates registers: it would draw all loads to the front and spill them.
KRL_INLINE void scheduling_barrier() {
#if defined(KRL_NEON)
    asm volatile("");
#endif
}

// Spelled out, because loops over lanes reach the vectorizer, which may build the vector through memory.
template <class V> KRL_INLINE V splat(element_of<V> x) {
    if constexpr (lanes<V> == 1)
        return x;
    else if constexpr (lanes<V> == 2)
        return V{x, x};
    else if constexpr (lanes<V> == 4)
        return V{x, x, x, x};
    else
        return V{x, x, x, x, x, x, x, x};
}

// ---- bits ----------------------------------------------------------------------------------------------------------

template <class To, class From> KRL_INLINE To bit_cast(From from) {
    static_assert(sizeof(To) == sizeof(From));
    To to;
    __builtin_memcpy(&to, &from, sizeof(To));
    return to;
}

// Lane by lane a where the mask is all ones, b where it is zero.
template <class V> KRL_INLINE V select(typename lane_traits<V>::mask mask, V a, V b) {
    using M = typename lane_traits<V>::mask;
    return bit_cast<V>((mask & bit_cast<M>(a)) | (~mask & bit_cast<M>(b)));
}

template <class V> KRL_INLINE V abs(V v) {
    using M = typename lane_traits<V>::mask;
    using E = element_of<V>;
    if constexpr (sizeof(E) == 4)
        return bit_cast<V>(bit_cast<M>(v) & 0x7fffffff);
    else
        return bit_cast<V>(bit_cast<M>(v) & 0x7fffffffffffffff);
}

template <class V> KRL_INLINE V negate_even(V v) {
    using M = typename lane_traits<V>::mask;
    M sign = {};
    for (int i = 0; i < lanes<V>; i += 2)
        sign[i] = INT32_MIN;
    return bit_cast<V>(bit_cast<M>(v) ^ sign);
}

// ---- partial loads and stores --------------------------------------------------------------------------------------

// The first `count` lanes, fewer than V has: the others are zero in what is loaded, and left alone where it is stored.
template <class V> V load_first(const float* p, size_t count);
template <> KRL_INLINE f32x4 load_first(const float* p, size_t count) {
    f32x4 v = {};
    if (count & 2) {
        double both;
        __builtin_memcpy(&both, p, sizeof(both));
        v = bit_cast<f32x4>(f64x2{both, 0.0});
        if (count & 1)
            v[2] = p[2];
    } else if (count & 1) {
        v[0] = p[0];
    }
    return v;
}
KRL_INLINE void store_first(float* p, f32x4 v, size_t count) {
    if (count & 2) {
        __builtin_memcpy(p, &v, 8);
        if (count & 1)
            p[2] = v[2];
    } else if (count & 1) {
        p[0] = v[0];
    }
}
#if KRL_LANES == 8
template <> KRL_INLINE f32x8 load_first(const float* p, size_t count) {
    const i32x8 lane = {0, 1, 2, 3, 4, 5, 6, 7};
    return _mm256_maskload_ps(p, (__m256i)(lane < static_cast<int32_t>(count)));
}
#endif

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

// a * b - c in the even lanes and a * b + c in the odd ones (fma_sub_add), and the other way round; one rounding.
#if defined(KRL_X86_FMA)
KRL_INLINE f32x4 fma_sub_add(f32x4 a, f32x4 b, f32x4 c) { return _mm_fmaddsub_ps(a, b, c); }
KRL_INLINE f32x8 fma_sub_add(f32x8 a, f32x8 b, f32x8 c) { return _mm256_fmaddsub_ps(a, b, c); }
KRL_INLINE f32x4 fma_add_sub(f32x4 a, f32x4 b, f32x4 c) { return _mm_fmsubadd_ps(a, b, c); }
KRL_INLINE f32x8 fma_add_sub(f32x8 a, f32x8 b, f32x8 c) { return _mm256_fmsubadd_ps(a, b, c); }
#else
KRL_INLINE f32x4 fma_sub_add(f32x4 a, f32x4 b, f32x4 c) { return fma(a, b, negate_even(c)); }
KRL_INLINE f32x4 fma_add_sub(f32x4 a, f32x4 b, f32x4 c) { return fma(a, b, -negate_even(c)); }
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

// ---- maximum and minimum -------------------------------------------------------------------------------------------
//
// max_num, min_num: IEEE 754-2008 maxNum/minNum, a quiet NaN operand is ignored.
// max_nan, min_nan: a NaN operand gives NaN.
// All four order -0 below +0.

#if defined(KRL_NEON)
KRL_INLINE f32x4 max_num(f32x4 a, f32x4 b) { return (f32x4)vmaxnmq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE f32x4 min_num(f32x4 a, f32x4 b) { return (f32x4)vminnmq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE f32x4 max_nan(f32x4 a, f32x4 b) { return (f32x4)vmaxq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE f32x4 min_nan(f32x4 a, f32x4 b) { return (f32x4)vminq_f32((float32x4_t)a, (float32x4_t)b); }
KRL_INLINE f64x2 max_num(f64x2 a, f64x2 b) { return (f64x2)vmaxnmq_f64((float64x2_t)a, (float64x2_t)b); }
KRL_INLINE f64x2 min_num(f64x2 a, f64x2 b) { return (f64x2)vminnmq_f64((float64x2_t)a, (float64x2_t)b); }
KRL_INLINE float max_num(float a, float b) { return __builtin_fmaxf(a, b); } // one fmaxnm
KRL_INLINE float min_num(float a, float b) { return __builtin_fminf(a, b); }
KRL_INLINE double max_num(double a, double b) { return __builtin_fmax(a, b); }
KRL_INLINE double min_num(double a, double b) { return __builtin_fmin(a, b); }
KRL_INLINE float max_nan(float a, float b) { return max_nan(f32x4{a}, f32x4{b})[0]; }
KRL_INLINE float min_nan(float a, float b) { return min_nan(f32x4{a}, f32x4{b})[0]; }
#else
namespace detail {

// The compare-and-pick maximum and minimum of x86: the second operand when the operands are equal or one is NaN.
#    if defined(KRL_X86_FMA)
KRL_INLINE f32x4 pick_max(f32x4 a, f32x4 b) { return _mm_max_ps(a, b); }
KRL_INLINE f32x4 pick_min(f32x4 a, f32x4 b) { return _mm_min_ps(a, b); }
KRL_INLINE f32x8 pick_max(f32x8 a, f32x8 b) { return _mm256_max_ps(a, b); }
KRL_INLINE f32x8 pick_min(f32x8 a, f32x8 b) { return _mm256_min_ps(a, b); }
KRL_INLINE f64x2 pick_max(f64x2 a, f64x2 b) { return _mm_max_pd(a, b); }
KRL_INLINE f64x2 pick_min(f64x2 a, f64x2 b) { return _mm_min_pd(a, b); }
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
    if constexpr (lanes<V> == 1) {
        return max_nan(f32x4{a}, f32x4{b})[0];
    } else {
        V p = detail::pick_max(a, b), q = detail::pick_max(b, a);
        return detail::pick(bit_cast<V>((a != a) | (b != b)), detail::bit_or(p, q), detail::bit_and(p, q));
    }
}
template <class V> KRL_INLINE V min_nan(V a, V b) {
    if constexpr (lanes<V> == 1)
        return min_nan(f32x4{a}, f32x4{b})[0];
    else
        return detail::bit_or(detail::pick_min(a, b), detail::pick_min(b, a));
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
    if constexpr (lanes<V> == 1 && sizeof(V) == 4)
        return min_num(f32x4{a}, f32x4{b})[0];
    else if constexpr (lanes<V> == 1)
        return min_num(f64x2{a}, f64x2{b})[0];
    else {
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
KRL_INLINE f32x4 clamp(f32x4 v, f32x4 lo, f32x4 hi) { return min_nan(max_nan(v, lo), hi); }
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

// ---- shuffles ------------------------------------------------------------------------------------------------------

template <class V> struct lane_pair { V a, b; };
template <class V> lane_pair(V, V) -> lane_pair<V>; // clang 14 does not deduce aggregates by itself

KRL_INLINE float reverse(float v) { return v; }
KRL_INLINE f32x4 reverse(f32x4 v) { return __builtin_shufflevector(v, v, 3, 2, 1, 0); }
KRL_INLINE lane_pair<f32x4> interleave(f32x4 a, f32x4 b) {
    return {__builtin_shufflevector(a, b, 0, 4, 1, 5), __builtin_shufflevector(a, b, 2, 6, 3, 7)};
}
KRL_INLINE lane_pair<f32x4> deinterleave(f32x4 lo, f32x4 hi) {
    return {__builtin_shufflevector(lo, hi, 0, 2, 4, 6), __builtin_shufflevector(lo, hi, 1, 3, 5, 7)};
}
KRL_INLINE f32x4 swap_pairs(f32x4 v) { return __builtin_shufflevector(v, v, 1, 0, 3, 2); }
// Pairs of lanes: the even or the odd lane of each twice; the even lanes of a beside the odd lanes of b.
KRL_INLINE f32x4 twice_even(f32x4 v) { return __builtin_shufflevector(v, v, 0, 0, 2, 2); }
KRL_INLINE f32x4 twice_odd(f32x4 v) { return __builtin_shufflevector(v, v, 1, 1, 3, 3); }
KRL_INLINE f64x2 twice_even(f64x2 v) { return __builtin_shufflevector(v, v, 0, 0); }
KRL_INLINE f64x2 twice_odd(f64x2 v) { return __builtin_shufflevector(v, v, 1, 1); }
KRL_INLINE f32x4 even_odd(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 5, 2, 7); }
// Every lane one place up, `first` in the lowest.
KRL_INLINE f32x4 shift_in(f32x4 v, float first) {
    v = __builtin_shufflevector(v, v, 0, 0, 1, 2);
    return __builtin_shufflevector(v, splat<f32x4>(first), 4, 1, 2, 3);
}
// Transposes 4x4 tiles: lane i of row j becomes lane j of row i. Wider vectors hold two tiles side by side.
KRL_INLINE void transpose(f32x4& a, f32x4& b, f32x4& c, f32x4& d) {
    auto [ac_lo, ac_hi] = interleave(a, c);
    auto [bd_lo, bd_hi] = interleave(b, d);
    auto [r0, r1] = interleave(ac_lo, bd_lo);
    auto [r2, r3] = interleave(ac_hi, bd_hi);
    a = r0, b = r1, c = r2, d = r3;
}
// Half as many floats as V has lanes, each in two neighbouring lanes; forwards, or the last one first.
template <class V> V load_twice(const float* p);
template <class V> V load_twice_backwards(const float* p);
template <> KRL_INLINE f32x4 load_twice(const float* p) { return f32x4{p[0], p[0], p[1], p[1]}; }
template <> KRL_INLINE f32x4 load_twice_backwards(const float* p) { return f32x4{p[1], p[1], p[0], p[0]}; }
#if KRL_LANES == 8
template <> KRL_INLINE f32x8 load_twice(const float* p) {
    const f32x4 v = load<f32x4>(p);
    return __builtin_shufflevector(v, v, 0, 0, 1, 1, 2, 2, 3, 3);
}
template <> KRL_INLINE f32x8 load_twice_backwards(const float* p) {
    const f32x4 v = load<f32x4>(p);
    return __builtin_shufflevector(v, v, 3, 3, 2, 2, 1, 1, 0, 0);
}
KRL_INLINE f32x8 reverse(f32x8 v) { return __builtin_shufflevector(v, v, 7, 6, 5, 4, 3, 2, 1, 0); }
// Wide shuffles go by way of the halves, in two steps that each are one instruction.
KRL_INLINE lane_pair<f32x8> interleave(f32x8 a, f32x8 b) {
    const f32x8 even = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 odd = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
    return {__builtin_shufflevector(even, odd, 0, 1, 2, 3, 8, 9, 10, 11),
            __builtin_shufflevector(even, odd, 4, 5, 6, 7, 12, 13, 14, 15)};
}
KRL_INLINE f32x8 swap_middle_quarters(f32x8 v) {
    const f64x4 pairs = bit_cast<f64x4>(v);
    return bit_cast<f32x8>(__builtin_shufflevector(pairs, pairs, 0, 2, 1, 3));
}
KRL_INLINE lane_pair<f32x8> deinterleave(f32x8 lo, f32x8 hi) {
    return {swap_middle_quarters(__builtin_shufflevector(lo, hi, 0, 2, 8, 10, 4, 6, 12, 14)),
            swap_middle_quarters(__builtin_shufflevector(lo, hi, 1, 3, 9, 11, 5, 7, 13, 15))};
}
KRL_INLINE f32x8 concat(f32x4 lo, f32x4 hi) { return __builtin_shufflevector(lo, hi, 0, 1, 2, 3, 4, 5, 6, 7); }
KRL_INLINE i32x8 concat(i32x4 lo, i32x4 hi) { return __builtin_shufflevector(lo, hi, 0, 1, 2, 3, 4, 5, 6, 7); }
KRL_INLINE f32x4 lower(f32x8 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3); }
KRL_INLINE f32x4 upper(f32x8 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7); }
KRL_INLINE void transpose(f32x8& a, f32x8& b, f32x8& c, f32x8& d) {
    const f32x8 ac_lo = __builtin_shufflevector(a, c, 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 ac_hi = __builtin_shufflevector(a, c, 2, 10, 3, 11, 6, 14, 7, 15);
    const f32x8 bd_lo = __builtin_shufflevector(b, d, 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 bd_hi = __builtin_shufflevector(b, d, 2, 10, 3, 11, 6, 14, 7, 15);
    a = __builtin_shufflevector(ac_lo, bd_lo, 0, 8, 1, 9, 4, 12, 5, 13);
    b = __builtin_shufflevector(ac_lo, bd_lo, 2, 10, 3, 11, 6, 14, 7, 15);
    c = __builtin_shufflevector(ac_hi, bd_hi, 0, 8, 1, 9, 4, 12, 5, 13);
    d = __builtin_shufflevector(ac_hi, bd_hi, 2, 10, 3, 11, 6, 14, 7, 15);
}
KRL_INLINE f32x8 swap_pairs(f32x8 v) { return __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6); }
KRL_INLINE f32x8 twice_even(f32x8 v) { return __builtin_shufflevector(v, v, 0, 0, 2, 2, 4, 4, 6, 6); }
KRL_INLINE f32x8 twice_odd(f32x8 v) { return __builtin_shufflevector(v, v, 1, 1, 3, 3, 5, 5, 7, 7); }
KRL_INLINE f64x4 twice_even(f64x4 v) { return __builtin_shufflevector(v, v, 0, 0, 2, 2); }
KRL_INLINE f64x4 twice_odd(f64x4 v) { return __builtin_shufflevector(v, v, 1, 1, 3, 3); }
KRL_INLINE f32x8 even_odd(f32x8 a, f32x8 b) { return __builtin_shufflevector(a, b, 0, 9, 2, 11, 4, 13, 6, 15); }
KRL_INLINE f32x8 shift_in(f32x8 v, float first) {
    v = __builtin_shufflevector(v, v, 0, 0, 1, 2, 3, 4, 5, 6);
    return _mm256_blend_ps(v, splat<f32x8>(first), 1);
}
#endif

// f32v as its four-lane halves (one or two of them): half h, and f32v from f(h) for each half.
inline constexpr int halves = lanes<f32v> / 4;
#if KRL_LANES == 8
KRL_INLINE f32x4 half(f32v v, int h) { return h == 0 ? lower(v) : upper(v); }
template <class F> KRL_INLINE f32v from_halves(F f) { return concat(f(0), f(1)); }
#else
KRL_INLINE f32x4 half(f32v v, int) { return v; }
template <class F> KRL_INLINE f32v from_halves(F f) { return f(0); }
#endif

// Consecutive complex samples, two vectors wide, to their real and imaginary parts and back. The lanes come in the
// order that costs least: lane i belongs to sample split_order<V>(i). The order is its own inverse, and it commutes
// with reverse(): lanes - 1 - split_order(i) = split_order(lanes - 1 - i).
template <class V> constexpr int split_order(int lane) {
    if (lanes<V> == 8 && lane >= 2 && lane < 6) // 0 1 4 5 2 3 6 7: the halves of 256-bit vectors stay apart
        return lane ^ 6;
    return lane;
}
KRL_INLINE lane_pair<float> split(float re, float im) { return {re, im}; }
KRL_INLINE lane_pair<float> join(float re, float im) { return {re, im}; }
KRL_INLINE float to_split_order(float v) { return v; }
KRL_INLINE lane_pair<f32x4> split(f32x4 lo, f32x4 hi) { return deinterleave(lo, hi); }
KRL_INLINE lane_pair<f32x4> join(f32x4 re, f32x4 im) { return interleave(re, im); }
KRL_INLINE f32x4 to_split_order(f32x4 v) { return v; }
#if KRL_LANES == 8
KRL_INLINE lane_pair<f32x8> split(f32x8 lo, f32x8 hi) {
    return {__builtin_shufflevector(lo, hi, 0, 2, 8, 10, 4, 6, 12, 14),
            __builtin_shufflevector(lo, hi, 1, 3, 9, 11, 5, 7, 13, 15)};
}
KRL_INLINE lane_pair<f32x8> join(f32x8 re, f32x8 im) {
    return {__builtin_shufflevector(re, im, 0, 8, 1, 9, 4, 12, 5, 13),
            __builtin_shufflevector(re, im, 2, 10, 3, 11, 6, 14, 7, 15)};
}
KRL_INLINE f32x8 to_split_order(f32x8 v) { return swap_middle_quarters(v); }
#endif

// Complex samples that stay interleaved, real part first.
KRL_INLINE f32x4 conjugate(f32x4 v) { return bit_cast<f32x4>(bit_cast<i32x4>(v) ^ i32x4{0, INT32_MIN, 0, INT32_MIN}); }
KRL_INLINE f32x4 reverse_complex(f32x4 v) { return __builtin_shufflevector(v, v, 2, 3, 0, 1); }
KRL_INLINE lane_pair<f32x4> interleave_complex(f32x4 a, f32x4 b) {
    return {__builtin_shufflevector(a, b, 0, 1, 4, 5), __builtin_shufflevector(a, b, 2, 3, 6, 7)};
}
#if KRL_LANES == 8
KRL_INLINE f32x8 conjugate(f32x8 v) {
    constexpr int32_t sign = INT32_MIN;
    return bit_cast<f32x8>(bit_cast<i32x8>(v) ^ i32x8{0, sign, 0, sign, 0, sign, 0, sign});
}
#endif

// Complex samples of a in order and of b backwards in alternation, and back: two shuffles a vector also where the
// halves of vectors lie apart.
KRL_INLINE lane_pair<f32x4> interleave_backwards(f32x4 a, f32x4 b) {
    return {__builtin_shufflevector(a, b, 0, 1, 6, 7), __builtin_shufflevector(a, b, 2, 3, 4, 5)};
}
KRL_INLINE lane_pair<f32x4> deinterleave_backwards(f32x4 lo, f32x4 hi) {
    return {__builtin_shufflevector(lo, hi, 0, 1, 4, 5), __builtin_shufflevector(lo, hi, 6, 7, 2, 3)};
}
#if KRL_LANES == 8
KRL_INLINE lane_pair<f32x8> interleave_backwards(f32x8 a, f32x8 b) {
    a = __builtin_shufflevector(a, a, 0, 1, 4, 5, 2, 3, 6, 7);
    b = __builtin_shufflevector(b, b, 6, 7, 2, 3, 4, 5, 0, 1);
    return {__builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13),
            __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15)};
}
KRL_INLINE lane_pair<f32x8> deinterleave_backwards(f32x8 lo, f32x8 hi) {
    const f32x8 a = __builtin_shufflevector(lo, hi, 0, 1, 8, 9, 4, 5, 12, 13);
    const f32x8 b = __builtin_shufflevector(lo, hi, 2, 3, 10, 11, 6, 7, 14, 15);
    return {__builtin_shufflevector(a, a, 0, 1, 4, 5, 2, 3, 6, 7),
            __builtin_shufflevector(b, b, 6, 7, 2, 3, 4, 5, 0, 1)};
}
#endif

// Lanes from a table in groups of four: four values of a, four of b, and so on; groups start `stride` floats apart.
template <class V, size_t stride = 8> KRL_INLINE lane_pair<V> load_groups(const float* p) {
    if constexpr (lanes<V> == 4)
        return {load<V>(p), load<V>(p + 4)};
    else
        return {__builtin_shufflevector(load<V>(p), load<V>(p + stride), 0, 1, 2, 3, 8, 9, 10, 11),
                __builtin_shufflevector(load<V>(p), load<V>(p + stride), 4, 5, 6, 7, 12, 13, 14, 15)};
}

// Four vectors as rows: every four columns that start at a multiple of four become rows. Of V = f32x8, the lower halves
// hold the transpose of the left 4x4 block and the upper halves that of the right one.
KRL_INLINE void transpose_quads(f32x4* r) { transpose(r[0], r[1], r[2], r[3]); }
#if KRL_LANES == 8
KRL_INLINE void transpose_quads(f32x8* r) {
    const f32x8 a = __builtin_shufflevector(r[0], r[1], 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 b = __builtin_shufflevector(r[0], r[1], 2, 10, 3, 11, 6, 14, 7, 15);
    const f32x8 c = __builtin_shufflevector(r[2], r[3], 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 d = __builtin_shufflevector(r[2], r[3], 2, 10, 3, 11, 6, 14, 7, 15);
    r[0] = __builtin_shufflevector(a, c, 0, 1, 8, 9, 4, 5, 12, 13);
    r[1] = __builtin_shufflevector(a, c, 2, 3, 10, 11, 6, 7, 14, 15);
    r[2] = __builtin_shufflevector(b, d, 0, 1, 8, 9, 4, 5, 12, 13);
    r[3] = __builtin_shufflevector(b, d, 2, 3, 10, 11, 6, 7, 14, 15);
}
#endif

// Four lanes from 4*i on: of v[0], or, for W = f32x8, of v[0] and then of v[4].
template <class W> KRL_INLINE W quads(const f32x4* v, int) {
    if constexpr (lanes<W> == 8)
        return __builtin_shufflevector(v[0], v[4], 0, 1, 2, 3, 4, 5, 6, 7);
    else
        return v[0];
}
#if KRL_LANES == 8
template <class W> KRL_INLINE W quads(const f32x8* v, int i) {
    if constexpr (lanes<W> == 8)
        return i == 0 ? _mm256_permute2f128_ps(v[0], v[4], 0x20) : _mm256_permute2f128_ps(v[0], v[4], 0x31);
    else
        return i == 0 ? _mm256_castps256_ps128(v[0]) : _mm256_extractf128_ps(v[0], 1);
}
#endif

// ---- two four-lane vectors side by side ----------------------------------------------------------------------------
//
// For data that comes in groups of four lanes: two of them in one step, in one register where the target has eight
// lanes.

#if KRL_LANES == 8
using f32x4x2 = f32x8;
KRL_INLINE f32x4x2 beside(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 1, 2, 3, 4, 5, 6, 7); }
KRL_INLINE f32x4 first_half(f32x4x2 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3); }
KRL_INLINE f32x4 second_half(f32x4x2 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7); }
KRL_INLINE f32x4x2 swap_halves(f32x4x2 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3); }
#else
struct f32x4x2 {
    f32x4 a, b;
};
template <> struct lane_traits<f32x4x2> {
    using element = float;
    static constexpr int count = 8;
};
KRL_INLINE f32x4x2 beside(f32x4 a, f32x4 b) { return {a, b}; }
KRL_INLINE f32x4 first_half(f32x4x2 v) { return v.a; }
KRL_INLINE f32x4 second_half(f32x4x2 v) { return v.b; }
KRL_INLINE f32x4x2 swap_halves(f32x4x2 v) { return {v.b, v.a}; }
KRL_INLINE f32x4x2 operator*(f32x4x2 x, f32x4x2 y) { return {x.a * y.a, x.b * y.b}; }
KRL_INLINE f32x4x2 mul_add(f32x4x2 x, f32x4x2 y, f32x4x2 z) { return {mul_add(x.a, y.a, z.a), mul_add(x.b, y.b, z.b)}; }
KRL_INLINE f32x4x2 mul_sub_from(f32x4x2 x, f32x4x2 y, f32x4x2 z) {
    return {mul_sub_from(x.a, y.a, z.a), mul_sub_from(x.b, y.b, z.b)};
}
KRL_INLINE f32x4x2 reverse(f32x4x2 v) { return {reverse(v.b), reverse(v.a)}; }
#endif

// ---- conversions ---------------------------------------------------------------------------------------------------

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
KRL_INLINE f64x4 even_to_double(f32x8 v) { return (f64x4)_mm256_cvtps_pd(even_odd(lower(v), twice_even(upper(v)))); }
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
template <class F> KRL_INLINE float map_double(float v, F f) { return static_cast<float>(f(static_cast<double>(v))); }
template <class V, class F> KRL_INLINE V map_double(V v, F f) {
    auto [a, b] = to_double(v);
    return to_single({f(a), f(b)});
}

// Exact for |v| < 2^24, otherwise rounded to nearest even.
KRL_INLINE f32x4 to_float(i32x4 v) { return __builtin_convertvector(v, f32x4); }

// Rounds in the current rounding mode, as lrintf does. v is inside the range of int32_t; NaN gives 0 on every target.
#if defined(KRL_NEON)
KRL_INLINE i32x4 round_to_int(f32x4 v) { return (i32x4)vcvtq_s32_f32(vrndiq_f32((float32x4_t)v)); }
#elif defined(__SSE2__)
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
