// Element-wise operations on blocks, blocks with a scalar, and weighted sums of blocks.
#include <korla/dsp/block.h>
#include <korla/dsp/block_scalar.h>

#include "element_wise.h"

namespace korla_test {

constexpr size_t block = KRL_BLK_LEN;
constexpr float g[9] = {0.7f, -1.3f, 0.11f, 2.9f, -0.4f, 0.6f, 1.0f, -0.05f, 0.33f};
constexpr float limits[2] = {-0.5f, 0.25f}, zero_limits[2] = {-0.0f, 0.0f}, no_limits[2] = {nan_value, nan_value};

namespace {

float last_to_first(const float* const* s, size_t i, int n) {
    float sum = g[n - 1] * s[n - 1][i];
    for (int j = n - 2; j >= 0; j--)
        sum = std::fma(s[j][i], g[j], sum);
    return sum;
}
// Sources `first` to n - 1 on top of a sum.
float first_to_last(float sum, int first, int n, float scale, const float* const* s, size_t i) {
    for (int j = first; j < n; j++)
        sum = std::fma(s[j][i], g[j] * scale, sum);
    return sum;
}
float listed(const float* const* s, size_t i, int n) {
    const int first = (n - 1) % 4 + 1;
    return first_to_last(last_to_first(s, i, first), first, n, 1.0f, s, i);
}
float listed_scaled(const float* const* s, size_t i, int n) {
    return first_to_last(s[0][i] * (g[0] * 32.0f), 1, n, 32.0f, s, i);
}
float array_scaled(const float* array, size_t i, int n) {
    const float* s[9];
    for (int j = 0; j < n; j++)
        s[j] = array + j * block;
    return first_to_last(s[0][i] * g[0], 1, n, 1.0f, s, i) * 32.0f;
}
float maximum(float a, float b, bool strict) { return strict && std::isnan(a) ? a : max_num(a, b); }

Operation on_block(Operation op) {
    op.block_lengths = {block};
    return op;
}
#define BLOCK(flex, strict, arguments, sources, ...)                                                                   \
    on_block(PAIR(flex, strict, arguments, 1, Operands(sources, Operand{1}), __VA_ARGS__))
// An array of blocks, one behind the other.
#define ARRAY(flex, strict, blocks)                                                                                    \
    on_block(PAIR(flex, strict, (d, g, blocks, a, 5), 1, Operands{{blocks}}, array_scaled(a, i, blocks)))

} // namespace

// Shifts are by 5 bits.
const std::vector<Operation> operations = {
    BLOCK(krl_blk_LabsL_flex, KRL_blk_LabsL_strict, (d, a), 1, std::fabs(a[i])),
    BLOCK(krl_blk_LclipL_flex, KRL_blk_LclipL_strict, (d, limits, a), 1, min_num(max_num(a[i], limits[0]), limits[1])),
    BLOCK(krl_blk_LclipL_flex, KRL_blk_LclipL_strict, (d, zero_limits, a), 1, min_num(max_num(a[i], -0.0f), 0.0f)),
    BLOCK(krl_blk_LclipL_flex, KRL_blk_LclipL_strict, (d, no_limits, a), 1, a[i]),
    BLOCK(krl_blk_LcmpLL_flex, KRL_blk_LcmpLL_strict, (d, g, a, b), 2, a[i] > b[i] ? g[0] : g[1]),
    BLOCK(krl_blk_Lconst_flex, KRL_blk_Lconst_strict, (d, -0.0f), 0, -0.0f),
    BLOCK(krl_blk_LmaxLL_flex, KRL_blk_LmaxLL_strict, (d, a, b), 2, max_num(a[i], b[i])),
    BLOCK(krl_blk_LminLL_flex, KRL_blk_LminLL_strict, (d, a, b), 2, min_num(a[i], b[i])),
    BLOCK(krl_blk_LmaxLLL_flex, KRL_blk_LmaxLLL_strict, (d, a, b, c), 3, max_num(max_num(a[i], b[i]), c[i])),
    BLOCK(krl_blk_LminLLL_flex, KRL_blk_LminLLL_strict, (d, a, b, c), 3, min_num(min_num(a[i], b[i]), c[i])),
    BLOCK(krl_blk_LsaddLL_flex, KRL_blk_LsaddLL_strict, (d, a, b), 2, a[i] + b[i]),
    BLOCK(krl_blk_LsubLL_flex, KRL_blk_LsubLL_strict, (d, a, b), 2, a[i] - b[i]),
    // In place on d and the block behind it.
    on_block(PAIR(krl_blk_LLdeshuffleLL_inplace_flex, KRL_blk_LLdeshuffleLL_inplace_strict, (d, d + block), 2, {},
                  i < block ? d[i] + d[i + block] : d[i - block] - d[i])),
    on_block(PAIR(krl_blk_LLshuffleLL_inplace_flex, KRL_blk_LLshuffleLL_inplace_strict, (d, d + block), 2, {},
                  i < block ? std::fma(d[i], 0.5f, 0.5f * d[i + block]) : std::fma(d[i - block], 0.5f, -0.5f * d[i]))),
    BLOCK(krl_blk_Lmpy_shlLSU_flex, KRL_blk_Lmpy_shlLSU_strict, (d, a, b, 5), 2, (a[i] * b[i]) * 32.0f),
    BLOCK(krl_blk_Lmpy_shlLLU_flex, KRL_blk_Lmpy_shlLLU_strict, (d, a, b, 5), 2,
          static_cast<float>(double(a[i]) * double(b[i]) * 32.0)),
    BLOCK(krl_blk_LmixL_flex, KRL_blk_LmixL_strict, (d, g, a), 1, last_to_first(s, i, 1)),
    BLOCK(krl_blk_LmixLL_flex, KRL_blk_LmixLL_strict, (d, g, a, b), 2, last_to_first(s, i, 2)),
    BLOCK(krl_blk_LmixLLL_flex, KRL_blk_LmixLLL_strict, (d, g, a, b, c), 3, last_to_first(s, i, 3)),
    BLOCK(krl_blk_LmixLLLL_flex, KRL_blk_LmixLLLL_strict, (d, g, a, b, c, s[3]), 4, last_to_first(s, i, 4)),
    BLOCK(krl_blk_Lmix_shlUL_flex, KRL_blk_Lmix_shlUL_strict, (d, g, 5, a), 1, a[i] * (g[0] * 32.0f)),
    BLOCK(krl_blk_Lmix_shlULL_flex, KRL_blk_Lmix_shlULL_strict, (d, g, 5, a, b), 2, last_to_first(s, i, 2) * 32.0f),
    BLOCK(krl_blk_Lmix_shlULLL_flex, KRL_blk_Lmix_shlULLL_strict, (d, g, 5, a, b, c), 3,
          last_to_first(s, i, 3) * 32.0f),
    BLOCK(krl_blk_Lmix_shlULLLL_flex, KRL_blk_Lmix_shlULLLL_strict, (d, g, 5, a, b, c, s[3]), 4,
          last_to_first(s, i, 4) * 32.0f),
    BLOCK(KRL_blk_LmixnL, KRL_blk_LmixnL_strict, (d, nullptr, 0), 0, 0.0f),
    BLOCK(KRL_blk_LmixnL, KRL_blk_LmixnL_strict, (d, g, 1, a), 1, listed(s, i, 1)),
    BLOCK(KRL_blk_LmixnL, KRL_blk_LmixnL_strict, (d, g, 4, a, b, c, s[3]), 4, listed(s, i, 4)),
    BLOCK(KRL_blk_LmixnL, KRL_blk_LmixnL_strict, (d, g, 7, a, b, c, s[3], s[4], s[5], s[6]), 7, listed(s, i, 7)),
    BLOCK(KRL_blk_LmixnL, KRL_blk_LmixnL_strict, (d, g, 9, a, b, c, s[3], s[4], s[5], s[6], s[7], s[8]), 9,
          listed(s, i, 9)),
    BLOCK(KRL_blk_Lmix_shlUnL, KRL_blk_Lmix_shlUnL_strict, (d, nullptr, 3, 0, nullptr), 0, 0.0f),
    BLOCK(KRL_blk_Lmix_shlUnL, KRL_blk_Lmix_shlUnL_strict, (d, g, 5, 1, a), 1, listed_scaled(s, i, 1)),
    BLOCK(KRL_blk_Lmix_shlUnL, KRL_blk_Lmix_shlUnL_strict, (d, g, 5, 6, a, b, c, s[3], s[4], s[5]), 6,
          listed_scaled(s, i, 6)),
    BLOCK(KRL_blk_Lmix_shlaL, KRL_blk_Lmix_shlaL_strict, (d, nullptr, 0, nullptr, 3), 0, 0.0f),
    ARRAY(KRL_blk_Lmix_shlaL, KRL_blk_Lmix_shlaL_strict, 1),
    ARRAY(KRL_blk_Lmix_shlaL, KRL_blk_Lmix_shlaL_strict, 7),
    BLOCK(krl_BLmaxBLL_flex, KRL_BLmaxBLL_strict, (d, a, g[2]), 1, maximum(a[i], g[2], strict)),
    BLOCK(krl_BLmaxBLL_inplace_flex, KRL_BLmaxBLL_inplace_strict, (d, g[2]), 0, maximum(d[i], g[2], strict)),
    BLOCK(krl_BLmpyBLS_inplace_flex, KRL_BLmpyBLS_inplace_strict, (d, g[0]), 0, d[i] * g[0]),
    BLOCK(krl_BLmpy_scaleBLSU_flex, KRL_BLmpy_scaleBLSU_strict, (d, a, g[0], 5), 1, a[i] * (g[0] * 32.0f)),
    BLOCK(krl_BLmpy_scaleBLSU_inplace_flex, KRL_BLmpy_scaleBLSU_inplace_strict, (d, g[0], 5), 0, d[i] * (g[0] * 32.0f)),
    BLOCK(krl_BLmpy_scale_xBLSU_flex, KRL_BLmpy_scale_xBLSU_strict, (d, a, g[0], 5), 1,
          static_cast<float>(double(a[i]) * double(g[0] * 32.0f))),
    BLOCK(krl_BLsaddBLL_flex, KRL_BLsaddBLL_strict, (d, a, g[2]), 1, a[i] + g[2]),
};

namespace {

TEST(BlockFamily, TheTableNamesEveryExportedSymbol) {
    auto exported = exported_symbols("block");
    exported.merge(exported_symbols("block_scalar"));
    EXPECT_EQ(names_of(operations, "krl_vec_Labs_maxLU_flex", "KRL_vec_Labs_maxLU_strict", "KRL_dsplib_init",
                       "KRL_Lpow05I16"),
              exported);
}

TEST(BlockFamily, GainsAndLimitsMayLieUnderTheDestination) {
    const auto x = Random(5).vector(2 * block);
    for (size_t at : {0, 1, 30}) {
        GuardedBuffer<float> mixed(block), clipped(block);
        mixed[at] = clipped[at] = -0.5f, mixed[at + 1] = clipped[at + 1] = 0.25f;
        KRL_blk_LmixnL(mixed.data(), mixed.data() + at, 2, x.data(), x.data() + block);
        krl_blk_LclipL_flex(clipped.data(), clipped.data() + at, x.data());
        for (size_t i = 0; i < block; i++) {
            ASSERT_EQ(mixed[i], std::fma(x[i], -0.5f, 0.25f * x[block + i]));
            ASSERT_EQ(clipped[i], std::clamp(x[i], -0.5f, 0.25f));
        }
    }
}

TEST(BlockFamily, EveryShiftIsExactAndWildShiftsStayInsideTheBlock) {
    GuardedBuffer<float> tiny(std::vector<float>(block, 0x1p-100f)), one(std::vector<float>(block, 1.0f)), dst(block);
    for (uint32_t u = 0; u <= 127; u++) {
        krl_blk_Lmpy_shlLLU_flex(dst.data(), tiny.data(), tiny.data(), u); // the double product does not underflow
        EXPECT_EQ(dst[16], std::ldexp(1.0f, static_cast<int>(u) - 200));
        krl_BLmpy_scaleBLSU_flex(dst.data(), tiny.data(), 1.0f, u);
        EXPECT_EQ(dst[0], std::ldexp(1.0f, static_cast<int>(u) - 100));
    }
    for (uint32_t u : {128u, 255u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        krl_blk_Lmpy_shlLLU_flex(dst.data(), tiny.data(), one.data(), u);
        KRL_blk_Lmix_shlaL(dst.data(), one.data(), 1, tiny.data(), u);
    }
}

} // namespace
} // namespace korla_test
