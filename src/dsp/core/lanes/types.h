// Lane types: the vectors of the target, their traits, and the ways of values, bits and memory into lanes and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// KRL_PORTABLE_LANES asks for the branches that the x86-64 baseline takes, without intrinsics, on any target.
#if defined(KRL_PORTABLE_LANES)
#elif defined(__aarch64__)
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

// ---- memory ---------------------------------------------------------------------------------------------------------

// Any float alignment.
template <class V> KRL_INLINE V load(const element_of<V>* p) {
    V v;
    __builtin_memcpy(&v, p, sizeof(V));
    return v;
}
template <class V> KRL_INLINE void store(element_of<V>* p, V v) {
    if constexpr (__is_class(V)) {
        __builtin_memcpy(p, &v, sizeof(V));
    } else { // said as a store of V, because a copy of bytes may go by way of integer registers
        typedef V unaligned __attribute__((aligned(alignof(element_of<V>)), may_alias));
        *reinterpret_cast<unaligned*>(p) = v;
    }
}

// p is a multiple of sizeof(V).
template <class V> KRL_INLINE V load_aligned(const element_of<V>* p) {
    return load<V>(static_cast<const element_of<V>*>(__builtin_assume_aligned(p, sizeof(V))));
}
template <class V> KRL_INLINE void store_aligned(element_of<V>* p, V v) {
    store(static_cast<element_of<V>*>(__builtin_assume_aligned(p, sizeof(V))), v);
}

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

// ---- what the compiler is told --------------------------------------------------------------------------------------

// v, in a register. On x86-64 compilers fold a load into each instruction that uses it; where a value is used twice and loads
// are the bottleneck, this keeps it to one load.
template <class V> KRL_INLINE V in_register(V v) {
#if defined(KRL_X86_FMA)
    asm("" : "+x"(v));
#endif
    return v;
}

// A table whose numbers the compiler shall load from it, pairs at a time. On aarch64 a constant that it knows costs a load of its
// own and the making of an address.
KRL_INLINE const float* as_table(const float* p) {
#if defined(KRL_NEON)
    asm("" : "+r"(p));
#endif
    return p;
}

// A line that instructions are not scheduled across, for long straight-line code on targets where the compiler
// schedules before it allocates registers: it would draw all loads to the front and spill them.
KRL_INLINE void scheduling_barrier() {
#if defined(KRL_NEON)
    asm volatile("");
#endif
}

} // namespace krl
