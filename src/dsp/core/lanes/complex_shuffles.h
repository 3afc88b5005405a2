// Complex samples in another order: split into real and imaginary parts, or interleaved as they stand in memory.
#pragma once

#include "dsp/core/lanes/shuffles.h"

namespace krl {

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

} // namespace krl
