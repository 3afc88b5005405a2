// Weighted sums of blocks.
#include "korla/dsp/block.h"

#include <cstdarg>

#include "dsp/core/block_map.h"
#include "dsp/core/exp2.h"

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
KRL_INLINE block accumulated(const block& acc, float gain, const float* x) {
    block r;
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++)
        r.group[g] = fma(flex::load<f32v>(x + g * lanes<f32v>), splat<f32v>(gain), acc.group[g]);
    return r;
}

// The block pointers of a variable argument list.
class listed_inputs {
public:
    explicit listed_inputs(va_list& list) : list_(list) {}
    KRL_INLINE const float* next() { return va_arg(list_, const float*); }

private:
    va_list& list_;
};

// The first one to four inputs, from the last of them to the first; `count` comes back as how many there were.
KRL_INLINE block first_group(const float* g, uint32_t n, uint32_t& count, listed_inputs& inputs) {
    count = (n - 1) % 4 + 1;
    const float* const x0 = inputs.next();
    if (count == 1)
        return mapped<flex>(mix(g), x0);
    const float* const x1 = inputs.next();
    if (count == 2)
        return mapped<flex>(mix(g), x0, x1);
    const float* const x2 = inputs.next();
    if (count == 3)
        return mapped<flex>(mix(g), x0, x1, x2);
    return mapped<flex>(mix(g), x0, x1, x2, inputs.next());
}

KRL_INLINE void mix_listed(float* dst, const float* g, uint32_t n, va_list& list) {
    if (n == 0)
        return store_block<flex>(dst, block{});
    listed_inputs inputs(list);
    uint32_t j;
    block sum = first_group(g, n, j, inputs);
    for (; j < n; j += 4) {
        sum = accumulated(sum, g[j], inputs.next());
        sum = accumulated(sum, g[j + 1], inputs.next());
        sum = accumulated(sum, g[j + 2], inputs.next());
        sum = accumulated(sum, g[j + 3], inputs.next());
    }
    store_block<flex>(dst, sum);
}

KRL_INLINE void mix_listed_scaled(float* dst, const float* g, uint32_t u, uint32_t n, const float* x0, va_list& list) {
    if (n == 0)
        return store_block<flex>(dst, block{});
    listed_inputs inputs(list);
    const float scale = exp2_int(static_cast<int32_t>(u));
    block sum = mapped<flex>(multiply_by(g[0] * scale), x0);
    for (uint32_t j = 1; j < n; j++)
        sum = accumulated(sum, g[j] * scale, inputs.next());
    store_block<flex>(dst, sum);
}

KRL_INLINE void mix_array_scaled(float* dst, const float* g, uint32_t n, const float* x, uint32_t u) {
    if (n == 0)
        return store_block<flex>(dst, block{});
    block sum = mapped<flex>(multiply_by(g[0]), x);
    for (uint32_t j = 1; j < n; j++)
        sum = accumulated(sum, g[j], x + size_t{block_length} * j);
    store_block<flex>(dst, combined(multiply_by(exp2_int(static_cast<int32_t>(u))), sum));
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
