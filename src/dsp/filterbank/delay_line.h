// The transposed delay line in which every synthesis bank ends.
#pragma once

#include "dsp/core/lanes.h"

namespace krl {

// One slot of a polyphase FIR filter with `taps` taps per band, for a group of four bands. Even taps filter one input, odd
// taps the other:
//
//     result = S_0 + c_0 even,   S_j = S_(j+1) + c_(j+1) (odd, even, odd ..),   S_(taps-2) = c_(taps-1) odd
//
// state holds S_0 .. S_(taps-2), four bands each. tap(j) gives c_j of the four bands. Bit j of `negated` lets tap j enter
// with the opposite sign.
//
// The transposed form keeps running sums rather than past inputs: each input is read once and needs no further rounding or
// shifting of blocks.
template <int taps, uint32_t negated, class Tap>
KRL_INLINE f32x4 delay_line(float* state, f32x4 even, f32x4 odd, Tap tap) {
    static_assert(taps % 2 == 0);
    const auto input = [&](int j) {
        const f32x4 x = j % 2 == 0 ? even : odd;
        return (negated >> j & 1) != 0 ? -x : x;
    };
    const f32x4 result = fma(tap(0), input(0), load_aligned<f32x4>(state));
#pragma GCC unroll 16
    for (int j = 1; j < taps - 1; j++)
        store_aligned(state + 4 * (j - 1), fma(tap(j), input(j), load_aligned<f32x4>(state + 4 * j)));
    store_aligned(state + 4 * (taps - 2), tap(taps - 1) * input(taps - 1));
    return result;
}

} // namespace krl
