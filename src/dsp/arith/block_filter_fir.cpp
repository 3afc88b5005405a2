#include <cstring>

#include "dsp/core/block_map.h"
#include "korla/dsp/block_filter.h"

using namespace krl;

namespace {

// The block a few samples late: what is missing in front of it comes from the state.
template <class access> KRL_INLINE void run_two_taps(float* dst, const float* x, const float* h, krl_fir2_state* state) {
    const float h0 = h[0], h1 = h[1];
    const krl_fir2_state next = {x[block_length - 1]};
    block y;
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++) {
        const float* at = x + g * lanes<f32v>;
        const f32v now = access::template load<f32v>(at);
        const f32v late = g == 0 ? shift_in(now, state->x1) : load<f32v>(at - 1);
        y.group[g] = fma(splat<f32v>(h0), now, h1 * late);
    }
    store_block<access>(dst, y);
    *state = next;
}

template <class access>
KRL_INLINE void run_three_taps(float* dst, const float* x, const float* h, krl_fir3_state* state) {
    const float h0 = h[0], h1 = h[1], h2 = h[2];
    const krl_fir3_state next = {x[block_length - 1], x[block_length - 2]};
    block y;
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++) {
        const float* at = x + g * lanes<f32v>;
        const f32v now = access::template load<f32v>(at);
        const f32v late = g == 0 ? shift_in(now, state->x1) : load<f32v>(at - 1);
        const f32v later = g == 0 ? shift_in(late, state->x2) : load<f32v>(at - 2);
        y.group[g] = fma(splat<f32v>(h0), now, fma(splat<f32v>(h1), late, h2 * later));
    }
    store_block<access>(dst, y);
    *state = next;
}

// A filter of any number of taps, in lanes of consecutive outputs.
//
// Tap k needs the 32 inputs that start k samples in front of the block. Taps that are 8 apart need the same lanes, one
// place on: so the taps are taken by their residue modulo 8, and within a residue each further tap loads eight inputs and
// reuses the other 24 from registers. Lanes never mix inputs from the state and from the block except the first eight of
// each residue, which are read from a seam of the last eight old inputs and the first eight new ones.
//
// Successive taps alternate between two sums, which keeps enough independent chains in flight to hide the latency of fma.
constexpr int stride = 8;
constexpr int step = stride / lanes<f32v>; // groups that a further tap moves on by

template <class access> KRL_INLINE void run_taps(float* dst, const float* x, uint32_t taps, const float* h, float* state) {
    const size_t old = taps - 1; // inputs in the state
    alignas(32) float seam[2 * stride] = {};
    const size_t in_seam = old < stride ? old : stride;
    std::memcpy(seam + stride - in_seam, state + old - in_seam, in_seam * sizeof(float));
    std::memcpy(seam + stride, x, stride * sizeof(float));

    block even = {}, odd = {};
    auto add_residue = [&](size_t residue, block& first, block& second) {
        f32v window[block::groups];
#pragma GCC unroll 8
        for (int g = 0; g < block::groups; g++)
            window[g] = load<f32v>((g < step ? seam + stride : x) + g * lanes<f32v> - residue);
        auto add_tap = [&](size_t k, block& sum) {
            const f32v gain = splat<f32v>(h[k]);
#pragma GCC unroll 8
            for (int g = 0; g < block::groups; g++)
                sum.group[g] = fma(window[g], gain, sum.group[g]);
        };
        auto move_on = [&](size_t k) {
#pragma GCC unroll 8
            for (int g = block::groups - 1; g >= step; g--)
                window[g] = window[g - step];
#pragma GCC unroll 8
            for (int g = 0; g < step; g++)
                window[g] = load<f32v>(state + old - k + g * lanes<f32v>);
        };
        size_t k = residue;
        add_tap(k, first);
        for (k += stride; k + stride < taps; k += 2 * stride) {
            move_on(k);
            add_tap(k, second);
            move_on(k + stride);
            add_tap(k + stride, first);
        }
        if (k < taps) {
            move_on(k);
            add_tap(k, second);
        }
    };
    for (size_t residue = 0; residue < stride && residue < taps; residue += 2) {
        add_residue(residue, even, odd);
        if (residue + 1 < taps)
            add_residue(residue + 1, odd, even);
    }

    // The state keeps the last inputs, oldest first.
    const size_t kept = old > block_length ? old - block_length : 0;
    std::memmove(state, state + old - kept, kept * sizeof(float));
    std::memcpy(state + kept, x + block_length - (old - kept), (old - kept) * sizeof(float));

#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++)
        even.group[g] = even.group[g] + odd.group[g];
    store_block<access>(dst, even);
}

} // namespace

KRL_PAIR(void, krl_blk_Lfir2L_flex, KRL_blk_Lfir2L_strict,
         (float* dst, const float* x, const float* coef, krl_fir2_state* state),
         run_two_taps<access>(dst, x, coef, state);)

KRL_PAIR(void, krl_blk_Lfir3L_flex, KRL_blk_Lfir3L_strict,
         (float* dst, const float* x, const float* coef, krl_fir3_state* state),
         run_three_taps<access>(dst, x, coef, state);)

KRL_PAIR(void, krl_blk_LfirUL_flex, KRL_blk_LfirUL_strict,
         (float* dst, const float* x, uint32_t u, const float* coef, float* state),
         if (u == 0) store_block<access>(dst, block{});
         else run_taps<access>(dst, x, u, coef, state);)

void KRL_blk_LfirUL_setup(float* state, uint32_t u) {
    if (u > 1)
        std::memset(state, 0, (size_t{u} - 1) * sizeof(float));
}
