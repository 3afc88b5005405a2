// Lanes in another order: within a vector, between two, in tiles of four, and vectors from strewn memory.
#pragma once

#include "dsp/core/lanes/types.h"

namespace krl {

template <class V> struct lane_pair { V a, b; };
template <class V> lane_pair(V, V) -> lane_pair<V>; // clang 14 does not deduce aggregates by itself

// ---- within a vector and between two -------------------------------------------------------------------------------

KRL_INLINE float reverse(float v) { return v; }
KRL_INLINE f32x4 reverse(f32x4 v) { return __builtin_shufflevector(v, v, 3, 2, 1, 0); }
// a0 b0 a1 b1 .. as two vectors, and back.
KRL_INLINE lane_pair<f32x4> interleave(f32x4 a, f32x4 b) {
    return {__builtin_shufflevector(a, b, 0, 4, 1, 5), __builtin_shufflevector(a, b, 2, 6, 3, 7)};
}
KRL_INLINE lane_pair<f32x4> deinterleave(f32x4 lo, f32x4 hi) {
    return {__builtin_shufflevector(lo, hi, 0, 2, 4, 6), __builtin_shufflevector(lo, hi, 1, 3, 5, 7)};
}
// Pairs of lanes: the two exchanged; the even lanes of a beside the odd lanes of b.
KRL_INLINE f32x4 swap_pairs(f32x4 v) { return __builtin_shufflevector(v, v, 1, 0, 3, 2); }
// Transposes 2x2 tiles: the even lanes of a and b in turns, and the odd ones.
KRL_INLINE lane_pair<f32x4> transpose_pairs(f32x4 a, f32x4 b) {
    return {__builtin_shufflevector(a, b, 0, 4, 2, 6), __builtin_shufflevector(a, b, 1, 5, 3, 7)};
}
KRL_INLINE f32x4 even_odd(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 5, 2, 7); }
// Every lane one place up, `first` in the lowest.
KRL_INLINE f32x4 shift_in(f32x4 v, float first) {
    v = __builtin_shufflevector(v, v, 0, 0, 1, 2);
    return __builtin_shufflevector(v, splat<f32x4>(first), 4, 1, 2, 3);
}
#if KRL_LANES == 8
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
KRL_INLINE f32x8 swap_pairs(f32x8 v) { return __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6); }
KRL_INLINE lane_pair<f32x8> transpose_pairs(f32x8 a, f32x8 b) {
    return {__builtin_shufflevector(a, b, 0, 8, 2, 10, 4, 12, 6, 14),
            __builtin_shufflevector(a, b, 1, 9, 3, 11, 5, 13, 7, 15)};
}
KRL_INLINE f32x8 even_odd(f32x8 a, f32x8 b) { return __builtin_shufflevector(a, b, 0, 9, 2, 11, 4, 13, 6, 15); }
KRL_INLINE f32x8 shift_in(f32x8 v, float first) {
    v = __builtin_shufflevector(v, v, 0, 0, 1, 2, 3, 4, 5, 6);
    return _mm256_blend_ps(v, splat<f32x8>(first), 1);
}
#endif

// ---- tiles of four -------------------------------------------------------------------------------------------------

// Transposes 4x4 tiles: lane i of row j becomes lane j of row i. Wider vectors hold two tiles side by side.
#if defined(KRL_NEON)
// By trn throughout, which compilers do not choose for halves: some CPUs take three times as long for zip.
KRL_INLINE f32x4 lower_halves(f32x4 a, f32x4 b) {
    f32x4 r;
    asm("trn1 %0.2d, %1.2d, %2.2d" : "=w"(r) : "w"(a), "w"(b));
    return r;
}
KRL_INLINE f32x4 upper_halves(f32x4 a, f32x4 b) {
    f32x4 r;
    asm("trn2 %0.2d, %1.2d, %2.2d" : "=w"(r) : "w"(a), "w"(b));
    return r;
}
KRL_INLINE void transpose_2x2(f32x4& a, f32x4& b, f32x4& c, f32x4& d) { // in tiles of 2x2
    const auto [ab_even, ab_odd] = transpose_pairs(a, b);
    const auto [cd_even, cd_odd] = transpose_pairs(c, d);
    a = ab_even, b = ab_odd, c = cd_even, d = cd_odd;
}
KRL_INLINE void exchange_halves(f32x4& a, f32x4& b, f32x4& c, f32x4& d) {
    const f32x4 a_low = lower_halves(a, c), a_high = upper_halves(a, c);
    const f32x4 b_low = lower_halves(b, d), b_high = upper_halves(b, d);
    a = a_low, b = b_low, c = a_high, d = b_high;
}
KRL_INLINE void transpose(f32x4& a, f32x4& b, f32x4& c, f32x4& d) {
    transpose_2x2(a, b, c, d);
    exchange_halves(a, b, c, d);
}
#else
KRL_INLINE f32x4 lower_halves(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 1, 4, 5); }
KRL_INLINE f32x4 upper_halves(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 2, 3, 6, 7); }
KRL_INLINE void transpose(f32x4& a, f32x4& b, f32x4& c, f32x4& d) {
    auto [ac_lo, ac_hi] = interleave(a, c);
    auto [bd_lo, bd_hi] = interleave(b, d);
    auto [r0, r1] = interleave(ac_lo, bd_lo);
    auto [r2, r3] = interleave(ac_hi, bd_hi);
    a = r0, b = r1, c = r2, d = r3;
}
#endif
#if KRL_LANES == 8
KRL_INLINE void transpose(f32x8& a, f32x8& b, f32x8& c, f32x8& d) {
    const f32x8 ab_lo = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 ab_hi = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
    const f32x8 cd_lo = __builtin_shufflevector(c, d, 0, 8, 1, 9, 4, 12, 5, 13);
    const f32x8 cd_hi = __builtin_shufflevector(c, d, 2, 10, 3, 11, 6, 14, 7, 15);
    a = __builtin_shufflevector(ab_lo, cd_lo, 0, 1, 8, 9, 4, 5, 12, 13);
    b = __builtin_shufflevector(ab_lo, cd_lo, 2, 3, 10, 11, 6, 7, 14, 15);
    c = __builtin_shufflevector(ab_hi, cd_hi, 0, 1, 8, 9, 4, 5, 12, 13);
    d = __builtin_shufflevector(ab_hi, cd_hi, 2, 3, 10, 11, 6, 7, 14, 15);
}
#endif
// Several tiles. In steps, where a CPU that executes in order would wait for each.
template <class V, int n> KRL_INLINE void transpose(V (&a)[n], V (&b)[n], V (&c)[n], V (&d)[n]) {
#if defined(KRL_NEON)
    for (int i = 0; i < n; i++)
        transpose_2x2(a[i], b[i], c[i], d[i]);
    scheduling_barrier();
    for (int i = 0; i < n; i++)
        exchange_halves(a[i], b[i], c[i], d[i]);
#else
    for (int i = 0; i < n; i++)
        transpose(a[i], b[i], c[i], d[i]);
#endif
}
template <class V> KRL_INLINE void transpose_quads(V* r) { transpose(r[0], r[1], r[2], r[3]); }

// ---- four-lane halves ----------------------------------------------------------------------------------------------

// f32v as its four-lane halves (one or two of them): half h, and f32v from f(h) for each half.
inline constexpr int halves = lanes<f32v> / 4;
#if KRL_LANES == 8
KRL_INLINE f32x8 beside(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 1, 2, 3, 4, 5, 6, 7); }
KRL_INLINE f32x4 first_half(f32x8 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3); }
KRL_INLINE f32x4 second_half(f32x8 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7); }
KRL_INLINE f32x8 swap_halves(f32x8 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3); }
KRL_INLINE f32x4 half(f32v v, int h) { return h == 0 ? first_half(v) : second_half(v); }
template <class F> KRL_INLINE f32v from_halves(F f) { return beside(f(0), f(1)); }
#else
KRL_INLINE f32x4 half(f32v v, int) { return v; }
template <class F> KRL_INLINE f32v from_halves(F f) { return f(0); }
#endif

// ---- structures in memory ------------------------------------------------------------------------------------------

// Reads v[0][0] v[1][0] .. v[n-1][0] v[0][1] .., in memory of any alignment, as n vectors, and writes them so: n is 2,
// 3 or 6. What is written does not stay in v.
template <int n> void load_structures(f32v (&v)[n], const void* memory);
template <int n> void store_structures(void* memory, f32v (&v)[n]);

#if defined(KRL_NEON)
template <> KRL_INLINE void load_structures<2>(f32v (&v)[2], const void* memory) {
    const float32x4x2_t x = vld2q_f32(static_cast<const float*>(memory));
    v[0] = (f32x4)x.val[0], v[1] = (f32x4)x.val[1];
}
template <> KRL_INLINE void store_structures<2>(void* memory, f32v (&v)[2]) {
    vst2q_f32(static_cast<float*>(memory), float32x4x2_t{{(float32x4_t)v[0], (float32x4_t)v[1]}});
}
template <> KRL_INLINE void load_structures<3>(f32v (&v)[3], const void* memory) {
    const float32x4x3_t x = vld3q_f32(static_cast<const float*>(memory));
    v[0] = (f32x4)x.val[0], v[1] = (f32x4)x.val[1], v[2] = (f32x4)x.val[2];
}
template <> KRL_INLINE void store_structures<3>(void* memory, f32v (&v)[3]) {
    vst3q_f32(static_cast<float*>(memory), float32x4x3_t{{(float32x4_t)v[0], (float32x4_t)v[1], (float32x4_t)v[2]}});
}
// Two structures are three vectors. Pairs of structures 0 and 2, and 1 and 3, are transposed.
template <> KRL_INLINE void load_structures<6>(f32v (&v)[6], const void* memory) {
    const auto* p = static_cast<const char*>(memory);
    f32v x[6];
    for (int i = 0; i < 6; i++)
        __builtin_memcpy(&x[i], p + i * sizeof x[i], sizeof x[i]);
    const f32v even[3] = {lower_halves(x[0], x[3]), upper_halves(x[0], x[3]), lower_halves(x[1], x[4])};
    const f32v odd[3] = {upper_halves(x[1], x[4]), lower_halves(x[2], x[5]), upper_halves(x[2], x[5])};
    scheduling_barrier();
    for (int i = 0; i < 3; i++) {
        const auto [a, b] = transpose_pairs(even[i], odd[i]);
        v[2 * i] = a, v[2 * i + 1] = b;
    }
}
template <> KRL_INLINE void store_structures<6>(void* memory, f32v (&v)[6]) {
    auto* p = static_cast<char*>(memory);
    const auto [even0, odd0] = transpose_pairs(v[0], v[1]);
    const auto [even2, odd2] = transpose_pairs(v[2], v[3]);
    const auto [even4, odd4] = transpose_pairs(v[4], v[5]);
    const f32v x[6] = {lower_halves(even0, even2), lower_halves(even4, odd0), lower_halves(odd2, odd4),
                       upper_halves(even0, even2), upper_halves(even4, odd0), upper_halves(odd2, odd4)};
    for (int i = 0; i < 6; i++)
        __builtin_memcpy(p + i * sizeof x[i], &x[i], sizeof x[i]);
}
#else
namespace detail {

// Lanes of groups of four: two of a, then two of b; and lane i from the vector of the number that is given for it.
template <int i0, int i1, int i2, int i3> KRL_INLINE f32x4 two_of_each(f32x4 a, f32x4 b) {
    return __builtin_shufflevector(a, b, i0, i1, i2 + 4, i3 + 4);
}
template <int n0, int n1, int n2, int n3> KRL_INLINE f32x4 pick_lanes(f32x4 a, f32x4 b) {
    return __builtin_shufflevector(a, b, 4 * n0, 4 * n1 + 1, 4 * n2 + 2, 4 * n3 + 3);
}
// In groups of four: a0 b0 a1 b1, and a2 b2 a3 b3.
KRL_INLINE lane_pair<f32x4> interleave_groups(f32x4 a, f32x4 b) { return interleave(a, b); }
#    if KRL_LANES == 8
KRL_INLINE lane_pair<f32x8> interleave_groups(f32x8 a, f32x8 b) {
    return {_mm256_unpacklo_ps(a, b), _mm256_unpackhi_ps(a, b)};
}
template <int i0, int i1, int i2, int i3> KRL_INLINE f32x8 two_of_each(f32x8 a, f32x8 b) {
    return _mm256_shuffle_ps(a, b, i0 | i1 << 2 | i2 << 4 | i3 << 6);
}
template <int n0, int n1, int n2, int n3> KRL_INLINE f32x8 pick_lanes(f32x8 a, f32x8 b) {
    return _mm256_blend_ps(a, b, (n0 | n1 << 1 | n2 << 2 | n3 << 3) * 0x11);
}
#    endif
template <int n0, int n1, int n2, int n3> KRL_INLINE f32v pick_of_three(const f32v (&v)[3]) {
    return pick_lanes<n0 == 2, n1 == 2, n2 == 2, n3 == 2>(pick_lanes<n0 == 1, n1 == 1, n2 == 1, n3 == 1>(v[0], v[1]),
                                                          v[2]);
}

// The vectors of groups of four structures: n * 4 floats.
template <int n> KRL_INLINE void load_groups_of(f32v (&v)[n], const void* memory) {
    for (int i = 0; i < n; i++)
        v[i] = from_halves([=](int h) {
            f32x4 group;
            __builtin_memcpy(&group, static_cast<const char*>(memory) + (n * h + i) * sizeof group, sizeof group);
            return group;
        });
}
template <int n> KRL_INLINE void store_groups_of(void* memory, const f32v (&v)[n]) {
    for (int h = 0; h < halves; h++)
        for (int i = 0; i < n; i++) {
            const f32x4 group = half(v[i], h);
            __builtin_memcpy(static_cast<char*>(memory) + (n * h + i) * sizeof group, &group, sizeof group);
        }
}

} // namespace detail

template <> KRL_INLINE void load_structures<2>(f32v (&v)[2], const void* memory) {
    const auto* p = static_cast<const char*>(memory);
    f32v lo, hi;
    __builtin_memcpy(&lo, p, sizeof lo);
    __builtin_memcpy(&hi, p + sizeof lo, sizeof hi);
    const auto [a, b] = deinterleave(lo, hi);
    v[0] = a, v[1] = b;
}
template <> KRL_INLINE void store_structures<2>(void* memory, f32v (&v)[2]) {
    auto* p = static_cast<char*>(memory);
    const auto [lo, hi] = interleave(v[0], v[1]);
    __builtin_memcpy(p, &lo, sizeof lo);
    __builtin_memcpy(p + sizeof lo, &hi, sizeof hi);
}
// In a group of twelve values, a vector's lane of one member stands where those of the others do not: what each has is
// picked, and one permutation sorts it.
template <> KRL_INLINE void load_structures<3>(f32v (&v)[3], const void* memory) {
    f32v x[3];
    detail::load_groups_of(x, memory);
    const f32v a = detail::pick_of_three<0, 2, 1, 0>(x), b = detail::pick_of_three<1, 0, 2, 1>(x);
    const f32v c = detail::pick_of_three<2, 1, 0, 2>(x);
    v[0] = detail::two_of_each<0, 3, 2, 1>(a, a);
    v[1] = detail::two_of_each<1, 0, 3, 2>(b, b);
    v[2] = detail::two_of_each<2, 1, 0, 3>(c, c);
}
template <> KRL_INLINE void store_structures<3>(void* memory, f32v (&v)[3]) {
    v[0] = detail::two_of_each<0, 3, 2, 1>(v[0], v[0]);
    v[1] = detail::two_of_each<1, 0, 3, 2>(v[1], v[1]);
    v[2] = detail::two_of_each<2, 1, 0, 3>(v[2], v[2]);
    detail::store_groups_of<3>(memory, {detail::pick_of_three<0, 1, 2, 0>(v), detail::pick_of_three<1, 2, 0, 1>(v),
                                        detail::pick_of_three<2, 0, 1, 2>(v)});
}
// Two structures are three vectors. Pairs of structures 0 and 1, and 2 and 3, are put into one vector each.
template <> KRL_INLINE void load_structures<6>(f32v (&v)[6], const void* memory) {
    f32v x[6];
    detail::load_groups_of(x, memory);
    const auto put = [&](int i, f32v first, f32v second) {
        v[i] = detail::two_of_each<0, 2, 0, 2>(first, second);
        v[i + 1] = detail::two_of_each<1, 3, 1, 3>(first, second);
    };
    put(0, detail::pick_lanes<0, 0, 1, 1>(x[0], x[1]), detail::pick_lanes<0, 0, 1, 1>(x[3], x[4]));
    put(2, detail::two_of_each<2, 3, 0, 1>(x[0], x[2]), detail::two_of_each<2, 3, 0, 1>(x[3], x[5]));
    put(4, detail::pick_lanes<0, 0, 1, 1>(x[1], x[2]), detail::pick_lanes<0, 0, 1, 1>(x[4], x[5]));
}
template <> KRL_INLINE void store_structures<6>(void* memory, f32v (&v)[6]) {
    // Members 2i and 2i + 1 of structures 0 and 1, and of 2 and 3.
    const auto [first0, second0] = detail::interleave_groups(v[0], v[1]);
    const auto [first2, second2] = detail::interleave_groups(v[2], v[3]);
    const auto [first4, second4] = detail::interleave_groups(v[4], v[5]);
    detail::store_groups_of<6>(
        memory, {detail::two_of_each<0, 1, 0, 1>(first0, first2), detail::pick_lanes<0, 0, 1, 1>(first4, first0),
                 detail::two_of_each<2, 3, 2, 3>(first2, first4), detail::two_of_each<0, 1, 0, 1>(second0, second2),
                 detail::pick_lanes<0, 0, 1, 1>(second4, second0), detail::two_of_each<2, 3, 2, 3>(second2, second4)});
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

// ---- memory --------------------------------------------------------------------------------------------------------

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
#endif

// Lanes from a table in groups of four: four values of a, four of b, and so on; groups start `stride` floats apart.
template <class V, size_t stride = 8> KRL_INLINE lane_pair<V> load_groups(const float* p) {
    if constexpr (lanes<V> == 4)
        return {load<V>(p), load<V>(p + 4)};
    else
        return {__builtin_shufflevector(load<V>(p), load<V>(p + stride), 0, 1, 2, 3, 8, 9, 10, 11),
                __builtin_shufflevector(load<V>(p), load<V>(p + stride), 4, 5, 6, 7, 12, 13, 14, 15)};
}

} // namespace krl
