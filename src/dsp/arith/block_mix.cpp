#include <cstdarg>

#include "dsp/core/block_map.h"
#include "dsp/core/exp2.h"
#include "korla/dsp/block.h"

using namespace krl;

namespace {

// sum of g[j] * x_j, from the last input to the first
template <class V> KRL_INLINE V weighted_sum(const float* g, V x) { return x * g[0]; }
template <class V, class... More> KRL_INLINE V weighted_sum(const float* g, V x, More... more) {
    return fma(x, splat<V>(g[0]), weighted_sum(g + 1, more...));
}

auto mix = [](const float* g) { return [g](auto... x) { return weighted_sum(g, x...); }; };
auto mix_scaled = [](const float* g, uint32_t u) {
    return [g, scale = exp2_int(static_cast<int32_t>(u))](auto... x) { return weighted_sum(g, x...) * scale; };
};
auto multiply_by = [](float gain) { return [gain](auto x) { return x * gain; }; };

// acc + gain * x
KRL_INLINE block accumulated(block acc, float gain, const float* x) {
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++)
        acc.group[g] = fma(flex::load<f32v>(x + g * lanes<f32v>), splat<f32v>(gain), acc.group[g]);
    return acc;
}

void mix_listed(float* dst, const float* g, uint32_t n, va_list inputs) {
    block sum = {};
    if (n > 0) {
        const uint32_t first = (n - 1) % 4 + 1;
        const float* x[4];
        for (uint32_t j = 0; j < first; j++)
            x[j] = va_arg(inputs, const float*);
        sum = mapped<flex>(multiply_by(g[first - 1]), x[first - 1]);
        for (uint32_t j = first - 1; j-- > 0;)
            sum = accumulated(sum, g[j], x[j]);
        for (uint32_t j = first; j < n; j++)
            sum = accumulated(sum, g[j], va_arg(inputs, const float*));
    }
    store_block<flex>(dst, sum);
}

void mix_listed_scaled(float* dst, const float* g, uint32_t u, uint32_t n, const float* x0, va_list inputs) {
    block sum = {};
    if (n > 0) {
        const float scale = exp2_int(static_cast<int32_t>(u));
        sum = mapped<flex>(multiply_by(g[0] * scale), x0);
        for (uint32_t j = 1; j < n; j++)
            sum = accumulated(sum, g[j] * scale, va_arg(inputs, const float*));
    }
    store_block<flex>(dst, sum);
}

void mix_array_scaled(float* dst, const float* g, uint32_t n, const float* x, uint32_t u) {
    block sum = {};
    if (n > 0) {
        sum = mapped<flex>(multiply_by(g[0]), x);
        for (uint32_t j = 1; j < n; j++)
            sum = accumulated(sum, g[j], x + size_t{block_length} * j);
    }
    const float scale = exp2_int(static_cast<int32_t>(u));
    for (f32v& group : sum.group)
        group = group * scale;
    store_block<flex>(dst, sum);
}

} // namespace

KRL_PAIR(void, krl_blk_LmixL_flex, KRL_blk_LmixL_strict, (float* dst, const float* g, const float* x0),
         map_block<access>(dst, mix(g), x0);)

KRL_PAIR(void, krl_blk_LmixLL_flex, KRL_blk_LmixLL_strict,
         (float* dst, const float* g, const float* x0, const float* x1), map_block<access>(dst, mix(g), x0, x1);)

KRL_PAIR(void, krl_blk_LmixLLL_flex, KRL_blk_LmixLLL_strict,
         (float* dst, const float* g, const float* x0, const float* x1, const float* x2),
         map_block<access>(dst, mix(g), x0, x1, x2);)

KRL_PAIR(void, krl_blk_LmixLLLL_flex, KRL_blk_LmixLLLL_strict,
         (float* dst, const float* g, const float* x0, const float* x1, const float* x2, const float* x3),
         map_block<access>(dst, mix(g), x0, x1, x2, x3);)

KRL_PAIR(void, krl_blk_Lmix_shlUL_flex, KRL_blk_Lmix_shlUL_strict,
         (float* dst, const float* g, uint32_t u, const float* x0),
         map_block<access>(dst, multiply_by(g[0] * exp2_int(static_cast<int32_t>(u))), x0);)

KRL_PAIR(void, krl_blk_Lmix_shlULL_flex, KRL_blk_Lmix_shlULL_strict,
         (float* dst, const float* g, uint32_t u, const float* x0, const float* x1),
         map_block<access>(dst, mix_scaled(g, u), x0, x1);)

KRL_PAIR(void, krl_blk_Lmix_shlULLL_flex, KRL_blk_Lmix_shlULLL_strict,
         (float* dst, const float* g, uint32_t u, const float* x0, const float* x1, const float* x2),
         map_block<access>(dst, mix_scaled(g, u), x0, x1, x2);)

KRL_PAIR(void, krl_blk_Lmix_shlULLLL_flex, KRL_blk_Lmix_shlULLLL_strict,
         (float* dst, const float* g, uint32_t u, const float* x0, const float* x1, const float* x2, const float* x3),
         map_block<access>(dst, mix_scaled(g, u), x0, x1, x2, x3);)

// The sums of n inputs run the same code in both entries: the operands of one call may be aligned differently.

void KRL_blk_LmixnL(float* dst, const float* g, uint32_t n, ...) {
    va_list inputs;
    va_start(inputs, n);
    mix_listed(dst, g, n, inputs);
    va_end(inputs);
}
void KRL_blk_LmixnL_strict(float* dst, const float* g, uint32_t n, ...) {
    va_list inputs;
    va_start(inputs, n);
    mix_listed(dst, g, n, inputs);
    va_end(inputs);
}

void KRL_blk_Lmix_shlUnL(float* dst, const float* g, uint32_t u, uint32_t n, const float* x0, ...) {
    va_list inputs;
    va_start(inputs, x0);
    mix_listed_scaled(dst, g, u, n, x0, inputs);
    va_end(inputs);
}
void KRL_blk_Lmix_shlUnL_strict(float* dst, const float* g, uint32_t u, uint32_t n, const float* x0, ...) {
    va_list inputs;
    va_start(inputs, x0);
    mix_listed_scaled(dst, g, u, n, x0, inputs);
    va_end(inputs);
}

KRL_PAIR(void, KRL_blk_Lmix_shlaL, KRL_blk_Lmix_shlaL_strict,
         (float* dst, const float* g, uint32_t n, const float* x, uint32_t u), mix_array_scaled(dst, g, n, x, u);)
