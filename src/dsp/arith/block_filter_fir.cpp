// Transversal block filters: two taps, three, any number.
#include "korla/dsp/block_filter.h"

#include <cstring>

#include "dsp/core/block_map.h"

using namespace krl;

namespace {

// The block a few samples late: what is missing in front of it comes from the state.
template <class access>
KRL_INLINE void run_two_taps(float* dst, const float* x, const float* h, krl_fir2_state* state) {
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
// place on: so the taps are taken by their residue modulo 8, and within a residue each further tap loads eight inputs
// from the state and reuses the other 24 from registers. Only the first eight inputs of a residue lie partly in the
// state and partly in the block: they are those of the residue before with one more old input shifted in.
//
// Successive taps alternate between two sums, which keeps enough independent chains in flight to hide the latency of
// fma.
constexpr int stride = 8;
constexpr int step = stride / lanes<f32v>; // groups that a further tap moves on by

// to[0..n-1] = from[0..n-1]; from is apart from to or at least a lane vector ahead of it. Most filters are too short
// for a call of memmove to pay.
KRL_INLINE void copy_down(float* to, const float* from, size_t n) {
    if (n >= lanes<f32v>) {
        for (size_t i = 0; i + lanes<f32v> < n; i += lanes<f32v>)
            store(to + i, load<f32v>(from + i));
        store(to + n - lanes<f32v>, load<f32v>(from + n - lanes<f32v>));
    } else if (n >= 4) {
        const f32x4 first = load<f32x4>(from), last = load<f32x4>(from + n - 4);
        store(to, first);
        store(to + n - 4, last);
    } else if (n > 0) {
        const float first = from[0], middle = from[n / 2], last = from[n - 1];
        to[0] = first, to[n / 2] = middle, to[n - 1] = last;
    }
}

// The state keeps the last `count` of its inputs and those of the block, oldest first.
KRL_INLINE void keep_inputs(float* state, size_t count, const float* x) {
    const size_t kept = count > block_length ? count - block_length : 0;
    copy_down(state, state + block_length, kept);
    copy_down(state + kept, x + block_length - (count - kept), count - kept);
}

template <class access>
KRL_INLINE void run_taps(float* dst, const float* x, uint32_t taps, const float* h, float* state) {
    const size_t old = taps - 1; // inputs in the state
    f32v front[step];
#pragma GCC unroll 8
    for (int g = 0; g < step; g++)
        front[g] = access::template load<f32v>(x + g * lanes<f32v>);

    block even = {}, odd = {};
    auto add_residue = [&](size_t residue, block & first, block & second) __attribute__((always_inline)) {
        f32v window[block::groups];
#pragma GCC unroll 8
        for (int g = 0; g < block::groups; g++)
            window[g] = g < step ? front[g] : load<f32v>(x + g * lanes<f32v> - residue);
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
    auto shift_front = [&](size_t residue) __attribute__((always_inline)) {
#pragma GCC unroll 8
        for (int g = step - 1; g > 0; g--)
            front[g] = shift_in(front[g], front[g - 1][lanes<f32v> - 1]);
        front[0] = shift_in(front[0], state[old - residue]);
    };
    for (size_t residue = 0; residue < stride && residue < taps; residue += 2) {
        if (residue > 0)
            shift_front(residue);
        add_residue(residue, even, odd);
        if (residue + 1 < taps) {
            shift_front(residue + 1);
            add_residue(residue + 1, odd, even);
        }
    }
    keep_inputs(state, old, x);
    store_block<access>(dst, combined([](f32v a, f32v b) { return a + b; }, even, odd));
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
