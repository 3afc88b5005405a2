// The transposed delay line of a synthesis bank, several slots at a time. Where a bank has memory for the input of one
// slot only, dsp/filterbank/paired_delay_line.h does the same in memory.
#pragma once

#include "dsp/core/lanes.h"

namespace krl {

// A polyphase FIR filter with `taps` taps per band, for lanes<f32v> bands. Even taps filter one input, odd taps the
// other:
//
//     result = S_0 + c_0 even,   S_j = S_(j+1) + c_(j+1) (odd, even, odd ..),   S_(taps-2) = c_(taps-1) odd
//
// as fused steps. The sums S are read from memory once, then any number of slots run in registers, then they go back.
// Bit j of `negated` lets tap j enter with the opposite sign.
//
// Memory holds the sums group by group: for each group of four bands S_0 .. S_(taps-2), four bands each.
template <int taps, uint32_t negated> class DelayLine {
public:
    static constexpr int sums = taps - 1;

    KRL_INLINE explicit DelayLine(const float* state) {
#pragma GCC unroll 16
        for (int j = 0; j < sums; j++)
            sum_[j] = from_halves([=](int h) { return load_aligned<f32x4>(state + 4 * (h * sums + j)); });
    }
    KRL_INLINE void store_to(float* state) const {
#pragma GCC unroll 16
        for (int j = 0; j < sums; j++)
            for (int h = 0; h < halves; h++)
                store_aligned(state + 4 * (h * sums + j), half(sum_[j], h));
    }

    // One slot; tap(j) gives c_j of the bands.
    template <class Tap> KRL_INLINE f32v step(f32v even, f32v odd, Tap tap) {
        const auto input = [&](int j) {
            const f32v x = j % 2 == 0 ? even : odd;
            return (negated >> j & 1) != 0 ? -x : x;
        };
        const f32v result = fma(tap(0), input(0), sum_[0]);
#pragma GCC unroll 16
        for (int j = 1; j < sums; j++)
            sum_[j - 1] = fma(tap(j), input(j), sum_[j]);
        sum_[sums - 1] = tap(sums) * input(sums);
        return result;
    }

private:
    static_assert(taps % 2 == 0);
    f32v sum_[sums];
};

} // namespace krl
