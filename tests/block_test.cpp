#include <korla/dsp/block.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <type_traits>

#include "export_list.h"
#include "guarded_buffer.h"
#include "reference/ieee.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr size_t block = KRL_BLK_LEN;
constexpr uint32_t shift = 5;
constexpr float gains[9] = {0.7f, -1.3f, 0.11f, 2.9f, -0.4f, 0.6f, 1.0f, -0.05f, 0.33f};
constexpr float limits[2] = {-0.5f, 0.25f};
constexpr float zero_limits[2] = {-0.0f, 0.0f};

// One row per pair and argument set: both entries as f(destinations, sources), and the model of one sample. Members
// that work in place find their sources in the destinations.
struct Operation {
    const char *flex_name, *strict_name;
    int sources;
    bool in_place;
    std::function<void(float* const* dst, const float* const* x)> flex, strict;
    std::function<void(float* dst, const float* x)> model;
};

template <class F, class Call, class Model>
Operation row(const char* flex_name, const char* strict_name, F* flex, F* strict, int sources, Call call, Model model) {
    constexpr bool in_place = !std::is_invocable_r_v<float, Model, const float*>;
    return {flex_name, strict_name, sources, in_place,
            [=](float* const* dst, const float* const* x) { call(flex, dst, x); },
            [=](float* const* dst, const float* const* x) { call(strict, dst, x); },
            [=](float* dst, const float* x) {
                if constexpr (in_place)
                    model(dst, x);
                else
                    *dst = model(x);
            }};
}
#define PAIR(flex, strict) #flex, #strict, flex, strict

float last_to_first(const float* x, int n) {
    float sum = gains[n - 1] * x[n - 1];
    for (int j = n - 2; j >= 0; j--)
        sum = std::fma(x[j], gains[j], sum);
    return sum;
}
float first_to_last(const float* x, int n, float scale, float sum, int j) {
    for (; j < n; j++)
        sum = std::fma(x[j], gains[j] * scale, sum);
    return sum;
}
template <int n> float listed(const float* x) {
    constexpr int first = (n - 1) % 4 + 1;
    return first_to_last(x, n, 1.0f, last_to_first(x, first), first);
}
template <int n> float listed_scaled(const float* x) {
    return first_to_last(x, n, power_of_two(shift), x[0] * (gains[0] * power_of_two(shift)), 1);
}
template <int n> float array_scaled(const float* x) {
    return first_to_last(x, n, 1.0f, x[0] * gains[0], 1) * power_of_two(shift);
}
// The blocks of an array stand one after the other.
template <int n> auto call_array = [](auto f, auto dst, auto x) {
    GuardedBuffer<float> array(n * block);
    for (int j = 0; j < n; j++)
        std::copy(x[j], x[j] + block, array.data() + j * block);
    f(dst[0], gains, n, array.data(), shift);
};

auto call_1 = [](auto f, auto dst, auto x) { f(dst[0], x[0]); };
auto call_2 = [](auto f, auto dst, auto x) { f(dst[0], x[0], x[1]); };
auto call_3 = [](auto f, auto dst, auto x) { f(dst[0], x[0], x[1], x[2]); };
auto call_in_place = [](auto f, auto dst, auto) { f(dst[0], dst[1]); };

const std::vector<Operation>& operations() {
    using X = const float*;
    static const std::vector<Operation> all = {
        row(PAIR(krl_blk_LabsL_flex, KRL_blk_LabsL_strict), 1, call_1, [](X x) { return std::fabs(x[0]); }),
        row(PAIR(krl_blk_LclipL_flex, KRL_blk_LclipL_strict), 1,
            [](auto f, auto dst, auto x) { f(dst[0], limits, x[0]); },
            [](X x) { return min_num(max_num(x[0], limits[0]), limits[1]); }),
        row(PAIR(krl_blk_LclipL_flex, KRL_blk_LclipL_strict), 1,
            [](auto f, auto dst, auto x) { f(dst[0], zero_limits, x[0]); },
            [](X x) { return min_num(max_num(x[0], -0.0f), 0.0f); }),
        row(PAIR(krl_blk_LcmpLL_flex, KRL_blk_LcmpLL_strict), 2,
            [](auto f, auto dst, auto x) { f(dst[0], gains, x[0], x[1]); },
            [](X x) { return x[0] > x[1] ? gains[0] : gains[1]; }),
        row(PAIR(krl_blk_Lconst_flex, KRL_blk_Lconst_strict), 0, [](auto f, auto dst, auto) { f(dst[0], -0.0f); },
            [](X) { return -0.0f; }),
        row(PAIR(krl_blk_LmaxLL_flex, KRL_blk_LmaxLL_strict), 2, call_2, [](X x) { return max_num(x[0], x[1]); }),
        row(PAIR(krl_blk_LminLL_flex, KRL_blk_LminLL_strict), 2, call_2, [](X x) { return min_num(x[0], x[1]); }),
        row(PAIR(krl_blk_LmaxLLL_flex, KRL_blk_LmaxLLL_strict), 3, call_3,
            [](X x) { return max_num(max_num(x[0], x[1]), x[2]); }),
        row(PAIR(krl_blk_LminLLL_flex, KRL_blk_LminLLL_strict), 3, call_3,
            [](X x) { return min_num(min_num(x[0], x[1]), x[2]); }),
        row(PAIR(krl_blk_LsaddLL_flex, KRL_blk_LsaddLL_strict), 2, call_2, [](X x) { return x[0] + x[1]; }),
        row(PAIR(krl_blk_LsubLL_flex, KRL_blk_LsubLL_strict), 2, call_2, [](X x) { return x[0] - x[1]; }),
        row(PAIR(krl_blk_LLdeshuffleLL_inplace_flex, KRL_blk_LLdeshuffleLL_inplace_strict), 2, call_in_place,
            [](float* y, X x) { y[0] = x[0] + x[1], y[1] = x[0] - x[1]; }),
        row(PAIR(krl_blk_LLshuffleLL_inplace_flex, KRL_blk_LLshuffleLL_inplace_strict), 2, call_in_place,
            [](float* y, X x) {
                y[0] = std::fma(x[0], 0.5f, 0.5f * x[1]), y[1] = std::fma(x[0], 0.5f, -(0.5f * x[1]));
            }),
        row(PAIR(krl_blk_Lmpy_shlLSU_flex, KRL_blk_Lmpy_shlLSU_strict), 2,
            [](auto f, auto dst, auto x) { f(dst[0], x[0], x[1], shift); },
            [](X x) { return (x[0] * x[1]) * power_of_two(shift); }),
        row(PAIR(krl_blk_Lmpy_shlLLU_flex, KRL_blk_Lmpy_shlLLU_strict), 2,
            [](auto f, auto dst, auto x) { f(dst[0], x[0], x[1], shift); },
            [](X x) { return static_cast<float>(double(x[0]) * double(x[1]) * power_of_two(shift)); }),
        row(PAIR(krl_blk_LmixL_flex, KRL_blk_LmixL_strict), 1,
            [](auto f, auto dst, auto x) { f(dst[0], gains, x[0]); }, [](X x) { return last_to_first(x, 1); }),
        row(PAIR(krl_blk_LmixLL_flex, KRL_blk_LmixLL_strict), 2,
            [](auto f, auto dst, auto x) { f(dst[0], gains, x[0], x[1]); }, [](X x) { return last_to_first(x, 2); }),
        row(PAIR(krl_blk_LmixLLL_flex, KRL_blk_LmixLLL_strict), 3,
            [](auto f, auto dst, auto x) { f(dst[0], gains, x[0], x[1], x[2]); },
            [](X x) { return last_to_first(x, 3); }),
        row(PAIR(krl_blk_LmixLLLL_flex, KRL_blk_LmixLLLL_strict), 4,
            [](auto f, auto dst, auto x) { f(dst[0], gains, x[0], x[1], x[2], x[3]); },
            [](X x) { return last_to_first(x, 4); }),
        row(PAIR(krl_blk_Lmix_shlUL_flex, KRL_blk_Lmix_shlUL_strict), 1,
            [](auto f, auto dst, auto x) { f(dst[0], gains, shift, x[0]); },
            [](X x) { return x[0] * (gains[0] * power_of_two(shift)); }),
        row(PAIR(krl_blk_Lmix_shlULL_flex, KRL_blk_Lmix_shlULL_strict), 2,
            [](auto f, auto dst, auto x) { f(dst[0], gains, shift, x[0], x[1]); },
            [](X x) { return last_to_first(x, 2) * power_of_two(shift); }),
        row(PAIR(krl_blk_Lmix_shlULLL_flex, KRL_blk_Lmix_shlULLL_strict), 3,
            [](auto f, auto dst, auto x) { f(dst[0], gains, shift, x[0], x[1], x[2]); },
            [](X x) { return last_to_first(x, 3) * power_of_two(shift); }),
        row(PAIR(krl_blk_Lmix_shlULLLL_flex, KRL_blk_Lmix_shlULLLL_strict), 4,
            [](auto f, auto dst, auto x) { f(dst[0], gains, shift, x[0], x[1], x[2], x[3]); },
            [](X x) { return last_to_first(x, 4) * power_of_two(shift); }),
        row(PAIR(KRL_blk_LmixnL, KRL_blk_LmixnL_strict), 1,
            [](auto f, auto dst, auto x) { f(dst[0], gains, 1u, x[0]); }, listed<1>),
        row(PAIR(KRL_blk_LmixnL, KRL_blk_LmixnL_strict), 4,
            [](auto f, auto dst, auto x) { f(dst[0], gains, 4u, x[0], x[1], x[2], x[3]); }, listed<4>),
        row(PAIR(KRL_blk_LmixnL, KRL_blk_LmixnL_strict), 9,
            [](auto f, auto d, auto x) { f(d[0], gains, 9u, x[0], x[1], x[2], x[3], x[4], x[5], x[6], x[7], x[8]); },
            listed<9>),
        row(PAIR(KRL_blk_LmixnL, KRL_blk_LmixnL_strict), 7,
            [](auto f, auto d, auto x) { f(d[0], gains, 7u, x[0], x[1], x[2], x[3], x[4], x[5], x[6]); }, listed<7>),
        row(PAIR(KRL_blk_Lmix_shlUnL, KRL_blk_Lmix_shlUnL_strict), 1,
            [](auto f, auto dst, auto x) { f(dst[0], gains, shift, 1u, x[0]); }, listed_scaled<1>),
        row(PAIR(KRL_blk_Lmix_shlUnL, KRL_blk_Lmix_shlUnL_strict), 6,
            [](auto f, auto d, auto x) { f(d[0], gains, shift, 6u, x[0], x[1], x[2], x[3], x[4], x[5]); },
            listed_scaled<6>),
        row(PAIR(KRL_blk_Lmix_shlaL, KRL_blk_Lmix_shlaL_strict), 1, call_array<1>, array_scaled<1>),
        row(PAIR(KRL_blk_Lmix_shlaL, KRL_blk_Lmix_shlaL_strict), 7, call_array<7>, array_scaled<7>),
    };
    return all;
}

// Ordinary numbers mixed with every kind of special one, so that over a few seeds all kinds meet in one operation.
std::vector<float> special_block(uint64_t seed) {
    static const float specials[] = {nan_value, infinity, -infinity, 0.0f, -0.0f, 1e-41f, -1e-41f, 3e38f};
    Random random(seed);
    std::vector<float> v = random.vector(block);
    for (float& x : v)
        if (random.bits() >> 31)
            x = specials[random.bits() >> 29];
    return v;
}

struct Data {
    std::vector<std::vector<float>> x, y; // sources, expected results
    Data(const Operation& op, uint64_t seed) : y(op.in_place ? 2 : 1, std::vector<float>(block)) {
        for (int j = 0; j < op.sources; j++)
            x.push_back(special_block(10 * seed + j));
        for (size_t i = 0; i < block; i++) {
            float sample[9], result[2];
            for (int j = 0; j < op.sources; j++)
                sample[j] = x[j][i];
            op.model(result, sample);
            for (size_t j = 0; j < y.size(); j++)
                y[j][i] = result[j];
        }
    }
};

class Block : public ::testing::TestWithParam<Operation> {};

TEST_P(Block, FlexAtEveryAlignmentAndStrictGiveTheStatedBits) {
    const auto& op = GetParam();
    for (uint64_t seed = 0; seed < 16; seed++) {
        const Data data(op, seed);
        const bool strict = seed >= 8;
        const auto distance = [&](size_t k) { return strict ? 0 : (seed + k) % 8; };
        std::vector<std::unique_ptr<GuardedBuffer<float>>> in, out;
        std::vector<const float*> x(9);
        std::vector<float*> dst;
        for (size_t j = 0; j < data.x.size(); j++) {
            in.push_back(std::make_unique<GuardedBuffer<float>>(data.x[j], distance(j)));
            x[j] = in[j]->data();
        }
        for (size_t j = 0; j < data.y.size(); j++) {
            const auto before = op.in_place ? data.x[j] : std::vector<float>(block);
            out.push_back(std::make_unique<GuardedBuffer<float>>(before, distance(3 + 2 * j)));
            dst.push_back(out[j]->data());
        }
        (strict ? op.strict : op.flex)(dst.data(), x.data());
        for (size_t j = 0; j < data.y.size(); j++)
            EXPECT_BITS_EQ(dst[j], data.y[j], block) << "seed " << seed << ", result " << j;
        for (size_t j = 0; j < data.x.size(); j++)
            EXPECT_BITS_EQ(x[j], data.x[j], block) << "source " << j << " changed";
    }
}

TEST_P(Block, FlexDestinationMayOverlapEachSourceAtAnyOffset) {
    const auto& op = GetParam();
    for (int overlapped = 0; overlapped < op.sources && !op.in_place; overlapped++)
        for (int offset : {-31, -8, -5, -1, 0, 1, 3, 8, 31}) {
            const Data data(op, 100 + overlapped);
            GuardedBuffer<float> both(3 * block);
            std::copy(data.x[overlapped].begin(), data.x[overlapped].end(), both.data() + block);
            std::vector<const float*> x(9);
            for (size_t j = 0; j < data.x.size(); j++)
                x[j] = data.x[j].data();
            x[overlapped] = both.data() + block;
            float* const dst = both.data() + block + offset;
            op.flex(&dst, x.data());
            EXPECT_BITS_EQ(dst, data.y[0], block) << "source " << overlapped << ", offset " << offset;
        }
}

INSTANTIATE_TEST_SUITE_P(Family, Block, ::testing::ValuesIn(operations()), [](const auto& info) {
    return std::string(info.param.strict_name) + "_" + std::to_string(info.index);
});

TEST(BlockFamily, TheTableNamesEveryExportedSymbol) {
    std::set<std::string> named;
    for (const auto& op : operations())
        named.insert({op.flex_name, op.strict_name});
    EXPECT_EQ(named, exported_symbols("block"));
}

TEST(BlockFamily, GainsAndLimitsMayLieUnderTheDestination) {
    const auto x = Random(5).vector(2 * block);
    for (size_t at : {0, 1, 30}) {
        GuardedBuffer<float> dst(block);
        auto place = [&](float first, float second) { dst[at] = first, dst[at + 1] = second; };
        place(0.5f, -2.0f);
        krl_blk_LmixLL_flex(dst.data(), dst.data() + at, x.data(), x.data() + block);
        for (size_t i = 0; i < block; i++)
            ASSERT_EQ(dst[i], std::fma(x[i], 0.5f, -2.0f * x[block + i]));
        place(0.5f, -2.0f);
        KRL_blk_LmixnL(dst.data(), dst.data() + at, 2, x.data(), x.data() + block);
        for (size_t i = 0; i < block; i++)
            ASSERT_EQ(dst[i], std::fma(x[i], 0.5f, -2.0f * x[block + i]));
        place(-0.5f, 0.25f);
        krl_blk_LclipL_flex(dst.data(), dst.data() + at, x.data());
        for (size_t i = 0; i < block; i++)
            ASSERT_EQ(dst[i], std::clamp(x[i], -0.5f, 0.25f));
    }
}

TEST(BlockFamily, ArrayMixMayOverwriteAnyPartOfItsArray) {
    const auto x = Random(6).vector(5 * block);
    GuardedBuffer<float> expected(block);
    KRL_blk_Lmix_shlaL(expected.data(), gains, 5, x.data(), 1);
    for (size_t at : {size_t{0}, size_t{7}, 2 * block, 4 * block}) {
        GuardedBuffer<float> array(x);
        KRL_blk_Lmix_shlaL(array.data() + at, gains, 5, array.data(), 1);
        EXPECT_BITS_EQ(array.data() + at, expected.data(), block) << at;
    }
}

TEST(BlockFamily, EveryShiftIsExactAndWildShiftsStayInsideTheBlock) {
    GuardedBuffer<float> tiny(std::vector<float>(block, 0x1p-100f)), one(std::vector<float>(block, 1.0f)), dst(block);
    for (uint32_t u = 0; u <= 127; u++) {
        krl_blk_Lmpy_shlLLU_flex(dst.data(), tiny.data(), tiny.data(), u); // the double product does not underflow
        EXPECT_EQ(dst[16], std::ldexp(1.0f, static_cast<int>(u) - 200));
        krl_blk_Lmpy_shlLSU_flex(dst.data(), tiny.data(), one.data(), u);
        EXPECT_EQ(dst[31], std::ldexp(0x1p-100f, static_cast<int>(u)));
        krl_blk_Lmix_shlUL_flex(dst.data(), tiny.data(), u, one.data());
        EXPECT_EQ(dst[0], std::ldexp(0x1p-100f, static_cast<int>(u)));
    }
    for (uint32_t u : {128u, 255u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        krl_blk_Lmpy_shlLLU_flex(dst.data(), tiny.data(), one.data(), u);
        KRL_blk_Lmix_shlaL(dst.data(), one.data(), 1, tiny.data(), u);
    }
}

TEST(BlockFamily, ShuffleUndoesDeshuffle) {
    const auto a = Random(7).vector(block), b = Random(8).vector(block);
    GuardedBuffer<float> sum(a), difference(b);
    krl_blk_LLdeshuffleLL_inplace_flex(sum.data(), difference.data());
    krl_blk_LLshuffleLL_inplace_flex(sum.data(), difference.data());
    for (size_t i = 0; i < block; i++) {
        EXPECT_NEAR(sum[i], a[i], 1.2e-7);
        EXPECT_NEAR(difference[i], b[i], 1.2e-7);
    }
}

TEST(BlockFamily, AMixOfNoBlocksIsSilence) {
    GuardedBuffer<float> dst(std::vector<float>(block, 1.0f));
    auto silent = [&] {
        const bool all_zero = std::all_of(dst.data(), dst.data() + block, [](float v) { return v == 0.0f; });
        std::fill(dst.data(), dst.data() + block, 1.0f);
        return all_zero;
    };
    KRL_blk_LmixnL(dst.data(), nullptr, 0);
    EXPECT_TRUE(silent());
    KRL_blk_Lmix_shlUnL(dst.data(), nullptr, 3, 0, nullptr);
    EXPECT_TRUE(silent());
    KRL_blk_Lmix_shlaL(dst.data(), nullptr, 0, nullptr, 3);
    EXPECT_TRUE(silent());
}

} // namespace
