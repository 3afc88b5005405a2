// Recursive block filters of first and second order, and the set-up of all block filters.
#include "korla/dsp/block_filter.h"

#include "dsp/arith/block_recursion.h"
#include "dsp/core/exp2.h"

using namespace krl;

namespace {

auto iir1 = [](const float* c) {
    return [b0 = c[0], b1 = c[1], a1 = c[2]](krl_iir1_state& s, float x) {
        const float y = fma(b0, x, fma(b1, s.x1, a1 * s.y1));
        s = {x, y};
        return y;
    };
};
auto iir1_scaled = [](const float* c, uint32_t u) {
    return [filter = iir1(c), scale = exp2_int(static_cast<int32_t>(u))](krl_iir1_state& s, float x) {
        return scale * filter(s, x);
    };
};
auto iir1_doubled_plus = [](const float* c) {
    return [filter = iir1(c)](krl_iir1_state& s, float x, float other) { return fma(filter(s, x), 2.0f, other); };
};
auto iir1_double = [](const float* c) {
    return [b0 = double{c[0]}, b1 = double{c[1]}, a1 = double{c[2]}](krl_iir1x_state& s, float x) {
        s.y1 = fma(double{x}, b0, fma(s.y1, a1, double{s.x1} * b1));
        s.x1 = x;
        return static_cast<float>(s.y1);
    };
};
auto iir2_direct = [](const float* c) {
    return [b0 = c[0], b1 = c[1], b2 = c[2], a1 = c[3] + c[3], a2 = c[4]](krl_iir2df1_state& s, float x) {
        const float y = fma(b0, x, fma(a1, s.y1, fma(b1, s.x1, fma(b2, s.x2, a2 * s.y2))));
        s = {x, s.x1, y, s.y1};
        return y;
    };
};

// The second-order sections in state-space form, on a sample or on lanes of independent signals.
enum class form { v1, v2, v3 };
template <form f, class V> struct section {
    V c0, c1, c2, c3, c4, output_scale;
    explicit section(const float* c, float scale = 2.0f)
        : c0(splat<V>(c[0])), c1(splat<V>(c[1])), c2(splat<V>(c[2])), c3(splat<V>(c[3])), c4(splat<V>(c[4])),
          output_scale(splat<V>(scale)) {}

    V output(const auto& s, V x) const { return output_scale * fma(-c0, x, f == form::v1 ? s.s0 + s.s1 : s.s0); }
    void advance(auto& s, V x) const {
        V s0;
        if constexpr (f == form::v1)
            s0 = fma(c3, s.s0, fma(c1, x, -(c4 * s.s1)));
        else if constexpr (f == form::v2)
            s0 = fma(c1, x, fma(c3, s.s0, s.s1));
        else
            s0 = fma(c1, x, fma(c3, s.s0, s.s1 * 0.0625f));
        s = {s0, fma(c2, x, fma(c3, s.s1, c4 * s.s0))};
    }
    V operator()(auto& s, V x) const {
        const V y = output(s, x);
        advance(s, x);
        return y;
    }
};

using section_v1 = section<form::v1, float>;
using section_v2 = section<form::v2, float>;
using section_v3 = section<form::v3, float>;

auto keep_even_outputs = [](auto filter) {
    return [filter](auto& s, float x_even, float x_odd) {
        const float y = filter(s, x_even);
        filter.advance(s, x_odd);
        return y;
    };
};
auto insert_zeros = [](auto filter) {
    return [filter](auto& s, float x) {
        const float y = filter(s, x), between = filter.output_scale * (s.s0 + s.s1);
        filter.advance(s, 0.0f);
        return lane_pair<float>{y, between};
    };
};

// Four signals at a time in four lanes: the same steps for each, at four times the speed of the latency-bound single
// one.
void run_section_v3_on_four(float* const* blocks, const float* coef, krl_iir2ss_state* const* states) {
    struct {
        f32x4 s0, s1;
    } s = {{states[0]->s0, states[1]->s0, states[2]->s0, states[3]->s0},
           {states[0]->s1, states[1]->s1, states[2]->s1, states[3]->s1}};
    const section<form::v3, f32x4> filter(coef);
    for (int i = 0; i < block_length; i += 4) {
        f32x4 x[4];
        for (int k = 0; k < 4; k++)
            x[k] = load<f32x4>(blocks[k] + i);
        transpose(x[0], x[1], x[2], x[3]);
        for (f32x4& v : x)
            v = filter(s, v);
        transpose(x[0], x[1], x[2], x[3]);
        for (int k = 0; k < 4; k++)
            store(blocks[k] + i, x[k]);
    }
    for (int k = 0; k < 4; k++)
        *states[k] = {s.s0[k], s.s1[k]};
}

template <class access>
void run_section_v3_on_all(float* const* blocks, const float* coef, krl_iir2ss_state* const* states, uint32_t count) {
    uint32_t k = 0;
    for (; k + 4 <= count; k += 4) {
        for (uint32_t j = k; j < k + 4; j++)
            check_destination<access>(blocks[j]);
        run_section_v3_on_four(blocks + k, coef, states + k);
    }
    for (; k < count; k++)
        run_block<access>(blocks[k], states[k], section_v3(coef), blocks[k]);
}

} // namespace

KRL_PAIR(void, krl_blk_Liir1L_flex, KRL_blk_Liir1L_strict,
         (float* dst, const float* x, const float* coef, krl_iir1_state* state),
         run_block<access>(dst, state, iir1(coef), x);)

KRL_PAIR(void, krl_blk_Liir1_shlLU_flex, KRL_blk_Liir1_shlLU_strict,
         (float* dst, const float* x, const float* coef, krl_iir1_state* state, uint32_t u),
         run_block<access>(dst, state, iir1_scaled(coef, u), x);)

KRL_PAIR(void, krl_blk_Liir1_shl_addLL_flex, KRL_blk_Liir1_shl_addLL_strict,
         (float* dst, const float* x, const float* other, const float* coef, krl_iir1_state* state),
         run_block<access>(dst, state, iir1_doubled_plus(coef), x, other);)

KRL_PAIR(void, krl_blk_Liir1xL_flex, KRL_blk_Liir1xL_strict,
         (float* dst, const float* x, const float* coef, krl_iir1x_state* state),
         run_block<access>(dst, state, iir1_double(coef), x);)

KRL_PAIR(void, krl_blk_Liir2df1L_flex, KRL_blk_Liir2df1L_strict,
         (float* dst, const float* x, const float* coef, krl_iir2df1_state* state),
         run_block<access>(dst, state, iir2_direct(coef), x);)

KRL_PAIR(void, krl_blk_Liir2ssv1L_flex, KRL_blk_Liir2ssv1L_strict,
         (float* dst, const float* x, const float* coef, krl_iir2ss_state* state),
         run_block<access>(dst, state, section_v1(coef), x);)

KRL_PAIR(void, krl_blk_Liir2ssv1efL_flex, KRL_blk_Liir2ssv1efL_strict,
         (float* dst, const float* x, const float* coef, krl_iir2ss_state* state),
         run_block<access>(dst, state, section_v1(coef), x);)

KRL_PAIR(void, krl_blk_Liir2ssv1_dsmpL_flex, KRL_blk_Liir2ssv1_dsmpL_strict,
         (float* dst, const float* x, const float* coef, krl_iir2ss_state* state),
         run_block_halving<access>(dst, state, keep_even_outputs(section_v1(coef)), x);)

KRL_PAIR(void, krl_blk_Liir2ssv1_usmpL_flex, KRL_blk_Liir2ssv1_usmpL_strict,
         (float* dst, const float* x, const float* coef, krl_iir2ss_state* state),
         run_block_doubling<access>(dst, state, insert_zeros(section_v1(coef)), x);)

KRL_PAIR(void, krl_blk_Liir2ssv2L_flex, KRL_blk_Liir2ssv2L_strict,
         (float* dst, const float* x, const float* coef, krl_iir2ss_state* state),
         run_block<access>(dst, state, section_v2(coef), x);)

KRL_PAIR(void, krl_blk_Liir2ssv2L_inplace_flex, KRL_blk_Liir2ssv2L_inplace_strict,
         (float* x, const float* coef, krl_iir2ss_state* state), run_block<access>(x, state, section_v2(coef), x);)

KRL_PAIR(void, krl_blk_Liir2ssv2_shlLU_flex, KRL_blk_Liir2ssv2_shlLU_strict,
         (float* dst, const float* x, const float* coef, krl_iir2ss_state* state, uint32_t u),
         run_block<access>(dst, state, section_v2(coef, exp2_int(static_cast<int32_t>(u + 1))), x);)

KRL_PAIR(void, krl_blk_Liir2ssv3L_inplace_flex, KRL_blk_Liir2ssv3L_inplace_strict,
         (float* x, const float* coef, krl_iir2ss_state* state), run_block<access>(x, state, section_v3(coef), x);)

KRL_PAIR(void, KRL_blk_Liir2ssv3aLU_inplace, KRL_blk_Liir2ssv3aLU_inplace_strict,
         (float* const* blocks, const float* coef, krl_iir2ss_state* const* states, uint32_t u),
         run_section_v3_on_all<access>(blocks, coef, states, u);)

// ---- set-up and coefficient hooks of the whole family --------------------------------------------------------------

#define ZERO_STATE(name, state_type)                                                                                   \
    void name(state_type* state) { *state = {}; }
ZERO_STATE(KRL_blk_Liir1L_setup, krl_iir1_state)
ZERO_STATE(KRL_blk_Liir1_shlLU_setup, krl_iir1_state)
ZERO_STATE(KRL_blk_Liir1_shl_addLL_setup, krl_iir1_state)
ZERO_STATE(KRL_blk_Liir1xL_setup, krl_iir1x_state)
ZERO_STATE(KRL_blk_Liir2df1L_setup, krl_iir2df1_state)
ZERO_STATE(KRL_blk_Liir2ssv1L_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv1efL_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv1_dsmpL_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv1_usmpL_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv2L_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv2L_inplace_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv2_shlLU_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv3L_inplace_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Liir2ssv3aLU_inplace_setup, krl_iir2ss_state)
ZERO_STATE(KRL_blk_Lfir2L_setup, krl_fir2_state)
ZERO_STATE(KRL_blk_Lfir3L_setup, krl_fir3_state)
ZERO_STATE(KRL_blk_Lattack_decay_iir1L_setup, krl_envelope_state)
ZERO_STATE(KRL_blk_Lattack_decay_peak_iir1L_setup, krl_envelope_state)
ZERO_STATE(KRL_blk_LintegrateL_setup, krl_integrator_state)

#define NO_PREPARATION(name)                                                                                           \
    void name(const float*) {}
NO_PREPARATION(KRL_blk_Liir1L_set_coef)
NO_PREPARATION(KRL_blk_Liir1_shlLU_set_coef)
NO_PREPARATION(KRL_blk_Liir1_shl_addLL_set_coef)
NO_PREPARATION(KRL_blk_Liir1xL_set_coef)
NO_PREPARATION(KRL_blk_Liir2df1L_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv1L_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv1efL_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv1_dsmpL_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv1_usmpL_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv2L_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv2L_inplace_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv2_shlLU_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv3L_inplace_set_coef)
NO_PREPARATION(KRL_blk_Liir2ssv3aLU_inplace_set_coef)
NO_PREPARATION(KRL_blk_Lfir2L_set_coef)
NO_PREPARATION(KRL_blk_Lfir3L_set_coef)
NO_PREPARATION(KRL_blk_LfirUL_set_coef)
NO_PREPARATION(KRL_blk_Lattack_decay_iir1L_set_coef)
NO_PREPARATION(KRL_blk_Lattack_decay_peak_iir1L_set_coef)
NO_PREPARATION(KRL_blk_LintegrateL_set_coef)
