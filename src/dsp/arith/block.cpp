// Element-wise operations on blocks.
#include "korla/dsp/block.h"

#include "dsp/core/block_map.h"
#include "dsp/core/exp2.h"
#include "dsp/core/order.h"

using namespace krl;

namespace {

auto maximum = [](auto a, auto b) { return max_num(a, b); };
auto minimum = [](auto a, auto b) { return min_num(a, b); };
auto maximum_of_three = [](auto a, auto b, auto c) { return max_num(max_num(a, b), c); };
auto minimum_of_three = [](auto a, auto b, auto c) { return min_num(min_num(a, b), c); };

template <class access> KRL_INLINE void clip(float* dst, float low, float high, const float* x) {
    if (quick_is_exact_within(low, high))
        map_block<access>(
            dst, [=]<class V>(V v) { return min_quick(max_quick(v, splat<V>(low)), splat<V>(high)); }, x);
    else
        map_block<access>(
            dst, [=]<class V>(V v) { return min_num(max_num(v, splat<V>(low)), splat<V>(high)); }, x);
}
auto pick_greater = [](const float* values) {
    return [yes = values[0], no = values[1]]<class V>(V a, V b) { return select(a > b, splat<V>(yes), splat<V>(no)); };
};

auto sum_and_difference = []<class V>(V a, V b) { return lane_pair<V>{a + b, a - b}; };
auto half_sum_and_difference = []<class V>(V a, V b) {
    const V half = splat<V>(0.5f), half_b = half * b;
    return lane_pair<V>{fma(a, half, half_b), fma(a, half, -half_b)};
};

auto scaled_product = [](uint32_t u) {
    return [scale = exp2_int(static_cast<int32_t>(u))](auto a, auto b) { return (a * b) * scale; };
};
auto scaled_double_product = [](uint32_t u) {
    return [scale = static_cast<double>(exp2_int(static_cast<int32_t>(u)))]<class V>(V a, V b) -> V {
        const auto x = to_double(a), y = to_double(b);
        return to_single({(x.a * y.a) * scale, (x.b * y.b) * scale});
    };
};

} // namespace

KRL_PAIR(void, krl_blk_LabsL_flex, KRL_blk_LabsL_strict, (float* dst, const float* x),
         map_block<access>(
             dst, [](auto v) { return abs(v); }, x);)

KRL_PAIR(void, krl_blk_LclipL_flex, KRL_blk_LclipL_strict, (float* dst, const float* lim, const float* x),
         clip<access>(dst, lim[0], lim[1], x);)

KRL_PAIR(void, krl_blk_LcmpLL_flex, KRL_blk_LcmpLL_strict,
         (float* dst, const float* val, const float* a, const float* b),
         map_block<access>(dst, pick_greater(val), a, b);)

KRL_PAIR(void, krl_blk_Lconst_flex, KRL_blk_Lconst_strict, (float* dst, float c),
         map_block<access>(dst, [c] { return splat<f32v>(c); });)

KRL_PAIR(void, krl_blk_LmaxLL_flex, KRL_blk_LmaxLL_strict, (float* dst, const float* a, const float* b),
         map_block<access>(dst, maximum, a, b);)

KRL_PAIR(void, krl_blk_LminLL_flex, KRL_blk_LminLL_strict, (float* dst, const float* a, const float* b),
         map_block<access>(dst, minimum, a, b);)

KRL_PAIR(void, krl_blk_LmaxLLL_flex, KRL_blk_LmaxLLL_strict,
         (float* dst, const float* a, const float* b, const float* c),
         map_block<access>(dst, maximum_of_three, a, b, c);)

KRL_PAIR(void, krl_blk_LminLLL_flex, KRL_blk_LminLLL_strict,
         (float* dst, const float* a, const float* b, const float* c),
         map_block<access>(dst, minimum_of_three, a, b, c);)

KRL_PAIR(void, krl_blk_LsaddLL_flex, KRL_blk_LsaddLL_strict, (float* dst, const float* a, const float* b),
         map_block<access>(
             dst, [](auto x, auto y) { return x + y; }, a, b);)

KRL_PAIR(void, krl_blk_LsubLL_flex, KRL_blk_LsubLL_strict, (float* dst, const float* a, const float* b),
         map_block<access>(
             dst, [](auto x, auto y) { return x - y; }, a, b);)

KRL_PAIR(void, krl_blk_LLdeshuffleLL_inplace_flex, KRL_blk_LLdeshuffleLL_inplace_strict, (float* a, float* b),
         map_block_pair<access>(a, b, sum_and_difference);)

KRL_PAIR(void, krl_blk_LLshuffleLL_inplace_flex, KRL_blk_LLshuffleLL_inplace_strict, (float* a, float* b),
         map_block_pair<access>(a, b, half_sum_and_difference);)

KRL_PAIR(void, krl_blk_Lmpy_shlLSU_flex, KRL_blk_Lmpy_shlLSU_strict,
         (float* dst, const float* a, const float* s, uint32_t u), map_block<access>(dst, scaled_product(u), a, s);)

KRL_PAIR(void, krl_blk_Lmpy_shlLLU_flex, KRL_blk_Lmpy_shlLLU_strict,
         (float* dst, const float* a, const float* b, uint32_t u),
         map_block<access>(dst, scaled_double_product(u), a, b);)
