// Two four-lane vectors side by side, for data that comes in groups of four lanes: two of them in one step, in one
// register where the target has eight lanes.
#pragma once

#include "dsp/core/lanes/arithmetic.h"
#include "dsp/core/lanes/shuffles.h"

namespace krl {

#if KRL_LANES == 8
using f32x4x2 = f32x8;
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
KRL_INLINE f32x4x2 mul_add(f32x4x2 x, f32x4x2 y, f32x4x2 z) { return {mul_add(x.a, y.a, z.a), mul_add(x.b, y.b, z.b)}; }
KRL_INLINE f32x4x2 mul_sub_from(f32x4x2 x, f32x4x2 y, f32x4x2 z) {
    return {mul_sub_from(x.a, y.a, z.a), mul_sub_from(x.b, y.b, z.b)};
}
KRL_INLINE f32x4x2 reverse(f32x4x2 v) { return {reverse(v.b), reverse(v.a)}; }
#endif

} // namespace krl
