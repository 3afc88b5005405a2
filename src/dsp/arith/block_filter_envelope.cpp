// Recursions with a maximum, a minimum or a clamp in them: envelope followers, integrator, running reciprocal.
#include "korla/dsp/block_filter.h"

#include "dsp/arith/block_recursion.h"
#include "dsp/core/exp2.h"
#include "dsp/core/order.h"

using namespace krl;

namespace {

// A recursion whose step takes its maxima and minima of T from an order: step(state, x, order).
template <class access, class T, class State, class Step>
KRL_INLINE void run_block_in_order(float* dst, State* state, Step step, const float* src) {
    check_destination<access>(dst);
    const samples<access> x(src);
    const State before = *state;
    in_order<T>([&](auto& order) {
        *state = before;
        recur(state, [&](State& s, int i) { dst[i] = step(s, x.at[i], order); });
    });
}

template <bool with_floor>
auto follow = [](const float* c) {
    return [k0 = double{c[0]}, k1 = double{c[1]}, keep0 = double{1.0f - c[0]}, keep1 = double{1.0f - c[1]},
            floor = with_floor ? double{c[2]} : 0.0](krl_envelope_state& s, double x, auto& order) {
        const double follows = order.max(fma(x, k1, s.e * keep1), fma(x, k0, s.e * keep0));
        s.e = with_floor ? order.max(follows, x * floor) : follows;
        return static_cast<float>(s.e);
    };
};

auto integrate = [](const float* c) {
    return [high = c[0], low = c[1]](krl_integrator_state& s, float x, auto& order) {
        return s.acc = order.min(order.max(s.acc + x, low), high);
    };
};

// 2 * fma(-2^(u-1), t, 1) is fma(-2^u, t, 2): doubling is exact, as the fma is never subnormal. The minimum with a
// positive limit as its second operand is minNum.
auto reciprocal_step = [](uint32_t u) {
    const float limit = 0.75f * exp2_int(static_cast<int32_t>(1 - u)), slope = -exp2_int(static_cast<int32_t>(u));
    return [limit, slope](krl_reciprocal_state& s, float x) {
        const float t = min_quick(s.r * x, limit);
        return s.r = s.r * fma(slope, t, 2.0f);
    };
};

} // namespace

KRL_PAIR(void, krl_blk_Lattack_decay_iir1L_flex, KRL_blk_Lattack_decay_iir1L_strict,
         (float* dst, const float* x, const float* coef, krl_envelope_state* state),
         run_block_in_order<access, double>(dst, state, follow<false>(coef), x);)

KRL_PAIR(void, krl_blk_Lattack_decay_peak_iir1L_flex, KRL_blk_Lattack_decay_peak_iir1L_strict,
         (float* dst, const float* x, const float* coef, krl_envelope_state* state),
         run_block_in_order<access, double>(dst, state, follow<true>(coef), x);)

KRL_PAIR(void, krl_blk_LintegrateL_flex, KRL_blk_LintegrateL_strict,
         (float* dst, const float* x, const float* coef, krl_integrator_state* state),
         run_block_in_order<access, float>(dst, state, integrate(coef), x);)

KRL_PAIR(void, krl_blk_LnrrecipLU_flex, KRL_blk_LnrrecipLU_strict,
         (float* dst, const float* x, uint32_t u, krl_reciprocal_state* state),
         run_block<access>(dst, state, reciprocal_step(u), x);)

void KRL_blk_LnrrecipLU_setup(krl_reciprocal_state* state, uint32_t u) {
    state->r = 1.0f / exp2_int(static_cast<int32_t>(u));
}
