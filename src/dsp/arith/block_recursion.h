// Recursions over a block: the one loop over samples that depend on each other.
//
// A recursion is a step, called as step(state, x...) for one sample of each source; it moves the state on and returns
// the output. The driver works on a copy of the state, so that it lives in registers, and on copies of the sources, so
// that a destination may overlap them. What a step computes without the state stays off the critical path by itself:
// the processor runs ahead to it while the recursion waits for its own last result.
#pragma once

#include "dsp/core/block_map.h"

namespace krl {

// A copy of n samples on the stack.
template <class access, int n = block_length> struct samples {
    alignas(32) float at[n];
    explicit KRL_INLINE samples(const float* src) {
#pragma GCC unroll 8
        for (int i = 0; i < n; i += lanes<f32v>)
            store_aligned(at + i, access::template load<f32v>(src + i));
    }
};

template <class access> KRL_INLINE void check_destination([[maybe_unused]] const float* dst) {
    if constexpr (access::is_strict)
        assert(is_aligned(dst, strict_alignment));
}

// body(s, i) for i = 0..31 on a copy s of the state.
template <class State, class F> KRL_INLINE void recur(State* state, F body) {
    State s = *state;
#pragma GCC unroll 8
    for (int i = 0; i < block_length; i++)
        body(s, i);
    *state = s;
}

// dst[i] = step(state, src[i]...)
template <class access, class State, class Step, class... P>
KRL_INLINE void run_block(float* dst, State* state, Step step, const P*... src) {
    check_destination<access>(dst);
    [=](const auto&... x) {
        recur(state, [&](State& s, int i) { dst[i] = step(s, x.at[i]...); });
    }(samples<access>(src)...);
}

// Two samples in, one out: dst[i] = step(state, src[2i], src[2i+1])
template <class access, class State, class Step>
KRL_INLINE void run_block_halving(float* dst, State* state, Step step, const float* src) {
    check_destination<access>(dst);
    const samples<access, 2 * block_length> x(src);
    recur(state, [&](State& s, int i) { dst[i] = step(s, x.at[2 * i], x.at[2 * i + 1]); });
}

// One sample in, two out: dst[2i], dst[2i+1] = step(state, src[i])
template <class access, class State, class Step>
KRL_INLINE void run_block_doubling(float* dst, State* state, Step step, const float* src) {
    check_destination<access>(dst);
    const samples<access> x(src);
    recur(state, [&](State& s, int i) {
        const lane_pair<float> y = step(s, x.at[i]);
        dst[2 * i] = y.a, dst[2 * i + 1] = y.b;
    });
}

} // namespace krl
