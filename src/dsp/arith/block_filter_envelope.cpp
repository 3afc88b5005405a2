#include <type_traits>

#include "dsp/arith/block_recursion.h"
#include "dsp/core/exp2.h"
#include "korla/dsp/block_filter.h"

using namespace krl;

namespace {

// The maximum stands on the critical path of an envelope. Where no single instruction is maxNum in every case, the
// block runs with the quick one, which notes beside the critical path whether the order of two operands ever mattered
// (a NaN, zeros of different sign); only then the block runs again with the exact one.
struct exact_maximum {
    static constexpr int64_t doubt = 0;
    KRL_INLINE double operator()(double a, double b) { return max_num(a, b); }
};
struct quick_maximum {
    int64_t doubt = 0;
    KRL_INLINE double operator()(double a, double b) {
        const double r = max_quick(a, b);
        doubt |= bit_cast<int64_t>(r) ^ bit_cast<int64_t>(max_quick(b, a));
        return r;
    }
};
using first_maximum = std::conditional_t<quick_is_exact, exact_maximum, quick_maximum>;

template <bool with_floor>
struct follower {
    double k0, k1, keep0, keep1, floor;
    explicit follower(const float* c)
        : k0(c[0]), k1(c[1]), keep0(1.0f - c[0]), keep1(1.0f - c[1]), floor(with_floor ? c[2] : 0.0f) {}

    KRL_INLINE float operator()(krl_envelope_state& s, double x, auto& maximum) const {
        s.e = maximum(fma(x, k1, s.e * keep1), fma(x, k0, s.e * keep0));
        if constexpr (with_floor)
            s.e = maximum(s.e, x * floor);
        return static_cast<float>(s.e);
    }
};

template <class access, bool with_floor>
KRL_INLINE void follow(float* dst, krl_envelope_state* state, follower<with_floor> step, const float* src) {
    check_destination<access>(dst);
    const samples<access> x(src);
    const krl_envelope_state before = *state;
    auto run = [&](auto& maximum) {
        recur(state, [&](krl_envelope_state& s, int i) { dst[i] = step(s, x.at[i], maximum); });
    };
    first_maximum first;
    run(first);
    if (first.doubt != 0) {
        exact_maximum exact;
        *state = before;
        run(exact);
    }
}

// With limits like these the quick maximum and minimum are exact: they give the limit, their second operand, for a NaN
// sum and for a zero beside a zero limit, which is right unless the limits are NaN or zeros of the other sign.
inline bool limits_are_plain(float high, float low) {
    return high == high && low == low && bit_cast<uint32_t>(high) != 0 && bit_cast<uint32_t>(low) != 0x80000000u;
}

template <class access>
KRL_INLINE void integrate(float* dst, const float* x, const float* coef, krl_integrator_state* state) {
    const float high = coef[0], low = coef[1];
    if (quick_is_exact || limits_are_plain(high, low))
        run_block<access>(
            dst, state,
            [=](krl_integrator_state& s, float v) { return s.acc = min_quick(max_quick(s.acc + v, low), high); }, x);
    else
        run_block<access>(
            dst, state,
            [=](krl_integrator_state& s, float v) { return s.acc = min_num(max_num(s.acc + v, low), high); }, x);
}

// 2 * fma(-2^(u-1), t, 1) is fma(-2^u, t, 2): doubling is exact, as the fma is never subnormal. The minimum with a
// positive limit as its second operand is minNum.
auto reciprocal_step = [](uint32_t u) {
    const auto shift = static_cast<int32_t>(u);
    return [limit = 0.75f * exp2_int(static_cast<int32_t>(1 - u)), slope = -exp2_int(shift)](krl_reciprocal_state& s,
                                                                                             float x) {
        const float t = min_quick(s.r * x, limit);
        return s.r = s.r * fma(slope, t, 2.0f);
    };
};

} // namespace

KRL_PAIR(void, krl_blk_Lattack_decay_iir1L_flex, KRL_blk_Lattack_decay_iir1L_strict,
         (float* dst, const float* x, const float* coef, krl_envelope_state* state),
         follow<access>(dst, state, follower<false>(coef), x);)

KRL_PAIR(void, krl_blk_Lattack_decay_peak_iir1L_flex, KRL_blk_Lattack_decay_peak_iir1L_strict,
         (float* dst, const float* x, const float* coef, krl_envelope_state* state),
         follow<access>(dst, state, follower<true>(coef), x);)

KRL_PAIR(void, krl_blk_LintegrateL_flex, KRL_blk_LintegrateL_strict,
         (float* dst, const float* x, const float* coef, krl_integrator_state* state),
         integrate<access>(dst, x, coef, state);)

KRL_PAIR(void, krl_blk_LnrrecipLU_flex, KRL_blk_LnrrecipLU_strict,
         (float* dst, const float* x, uint32_t u, krl_reciprocal_state* state),
         run_block<access>(dst, state, reciprocal_step(u), x);)

void KRL_blk_LnrrecipLU_setup(krl_reciprocal_state* state, uint32_t u) {
    state->r = 1.0f / exp2_int(static_cast<int32_t>(u));
}
