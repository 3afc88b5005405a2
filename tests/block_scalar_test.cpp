#include <korla/dsp/block_scalar.h>
#include <korla/dsp/support.h>
#include <korla/dsp/vector.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "guarded_buffer.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

// One row per pair: the entries as (dst, src) with fixed scalars, and the value of one sample. In-place members are
// called on a copy of src.
struct Operation {
    const char* name;
    std::function<void(float*, const float*)> flex, strict;
    std::function<float(float)> flex_model, strict_model;
    bool inplace = false;
};

constexpr float x = 0.25f, g = -0.7f;
float maximum_ignoring_nan(float v) { return std::isnan(v) ? x : std::max(v, x); }
float maximum_propagating_nan(float v) { return std::isnan(v) ? v : std::max(v, x); }
float scaled(float v) { return v * (g * 8.0f); }

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = {
        {"BLmaxBLL", [](float* d, const float* s) { krl_BLmaxBLL_flex(d, s, x); },
         [](float* d, const float* s) { KRL_BLmaxBLL_strict(d, s, x); }, maximum_ignoring_nan, maximum_propagating_nan},
        {"BLmaxBLL_inplace", [](float* d, const float*) { krl_BLmaxBLL_inplace_flex(d, x); },
         [](float* d, const float*) { KRL_BLmaxBLL_inplace_strict(d, x); }, maximum_ignoring_nan,
         maximum_propagating_nan, true},
        {"BLmpyBLS_inplace", [](float* d, const float*) { krl_BLmpyBLS_inplace_flex(d, g); },
         [](float* d, const float*) { KRL_BLmpyBLS_inplace_strict(d, g); }, [](float v) { return v * g; },
         [](float v) { return v * g; }, true},
        {"BLmpy_scaleBLSU", [](float* d, const float* s) { krl_BLmpy_scaleBLSU_flex(d, s, g, 3); },
         [](float* d, const float* s) { KRL_BLmpy_scaleBLSU_strict(d, s, g, 3); }, scaled, scaled},
        {"BLmpy_scaleBLSU_inplace", [](float* d, const float*) { krl_BLmpy_scaleBLSU_inplace_flex(d, g, 3); },
         [](float* d, const float*) { KRL_BLmpy_scaleBLSU_inplace_strict(d, g, 3); }, scaled, scaled, true},
        {"BLmpy_scale_xBLSU", [](float* d, const float* s) { krl_BLmpy_scale_xBLSU_flex(d, s, g, 3); },
         [](float* d, const float* s) { KRL_BLmpy_scale_xBLSU_strict(d, s, g, 3); },
         [](float v) { return static_cast<float>(double(v) * double(g * 8.0f)); },
         [](float v) { return static_cast<float>(double(v) * double(g * 8.0f)); }},
        {"BLsaddBLL", [](float* d, const float* s) { krl_BLsaddBLL_flex(d, s, x); },
         [](float* d, const float* s) { KRL_BLsaddBLL_strict(d, s, x); }, [](float v) { return v + x; },
         [](float v) { return v + x; }},
    };
    return all;
}

std::vector<float> special_block() {
    std::vector<float> v = Random(1).vector(KRL_BLK_LEN);
    v[1] = nan, v[7] = inf, v[8] = -inf, v[15] = 0.0f, v[16] = -0.0f, v[30] = 1e-41f, v[31] = nan;
    return v;
}

std::vector<float> model_of(const std::vector<float>& v, const std::function<float(float)>& model) {
    std::vector<float> r(v.size());
    std::transform(v.begin(), v.end(), r.begin(), model);
    return r;
}

class BlockScalar : public ::testing::TestWithParam<Operation> {};

TEST_P(BlockScalar, FlexAtEveryAlignmentAndStrictGiveTheStatedBits) {
    const auto& op = GetParam();
    const auto src = special_block();
    for (size_t misalignment = 0; misalignment < 8; misalignment++) {
        GuardedBuffer<float> in(src, misalignment);
        GuardedBuffer<float> out(op.inplace ? src : std::vector<float>(KRL_BLK_LEN), 7 - misalignment);
        op.flex(out.data(), in.data());
        EXPECT_BITS_EQ(out.data(), model_of(src, op.flex_model), KRL_BLK_LEN) << op.name << " at " << misalignment;
        EXPECT_BITS_EQ(in.data(), src, KRL_BLK_LEN) << "the source of " << op.name << " changed";
    }
    GuardedBuffer<float> in(src), out(op.inplace ? src : std::vector<float>(KRL_BLK_LEN));
    op.strict(out.data(), in.data());
    EXPECT_BITS_EQ(out.data(), model_of(src, op.strict_model), KRL_BLK_LEN) << op.name;
}

TEST_P(BlockScalar, FlexDestinationMayOverlapItsSourceAtAnyOffset) {
    const auto& op = GetParam();
    if (op.inplace)
        return;
    const auto src = special_block();
    for (int offset : {-31, -8, -5, -1, 0, 1, 3, 8, 31}) {
        GuardedBuffer<float> both(std::vector<float>(3 * KRL_BLK_LEN));
        std::copy(src.begin(), src.end(), both.data() + KRL_BLK_LEN);
        op.flex(both.data() + KRL_BLK_LEN + offset, both.data() + KRL_BLK_LEN);
        EXPECT_BITS_EQ(both.data() + KRL_BLK_LEN + offset, model_of(src, op.flex_model), KRL_BLK_LEN) << offset;
    }
}

INSTANTIATE_TEST_SUITE_P(Family, BlockScalar, ::testing::ValuesIn(operations()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(BlockScalarScale, EveryShiftIsExact) {
    GuardedBuffer<float> block(std::vector<float>(KRL_BLK_LEN, 0x1p-100f)), out(KRL_BLK_LEN);
    for (uint32_t u = 0; u <= 127; u++) {
        krl_BLmpy_scaleBLSU_flex(out.data(), block.data(), 1.0f, u);
        EXPECT_EQ(out[17], std::ldexp(0x1p-100f, static_cast<int>(u)));
    }
}

TEST(VectorAbsoluteMaximum, EveryLengthAndAlignment) {
    for (uint32_t n = 0; n <= 100; n++)
        for (size_t misalignment : {0, 1, 3, 5}) {
            GuardedBuffer<float> v(Random(n).vector(n), misalignment);
            // The greatest magnitude stands once at the front, once at the end, and is negative half of the time.
            float expected = 0.0f;
            for (size_t peak : {size_t{0}, size_t{n} / 2, size_t{n} - 1}) {
                if (n == 0)
                    break;
                v[peak] = n % 2 ? -(2.0f + expected) : 2.0f + expected;
                expected = std::fabs(v[peak]);
                ASSERT_EQ(krl_vec_Labs_maxLU_flex(v.data(), n), expected) << n;
                if (misalignment == 0 && n % 4 == 0) {
                    ASSERT_EQ(KRL_vec_Labs_maxLU_strict(v.data(), n), expected) << n;
                }
            }
        }
    EXPECT_EQ(krl_vec_Labs_maxLU_flex(nullptr, 0), 0.0f);
    EXPECT_EQ(KRL_vec_Labs_maxLU_strict(nullptr, 0), 0.0f);
}

TEST(VectorAbsoluteMaximum, FlexIgnoresNanAndStrictPropagatesIt) {
    for (uint32_t n : {4u, 8u, 12u, 64u})
        for (uint32_t at = 0; at < n; at++) {
            GuardedBuffer<float> v(std::vector<float>(n, -0.5f));
            v[at] = nan;
            EXPECT_EQ(krl_vec_Labs_maxLU_flex(v.data(), n), 0.5f);
            EXPECT_TRUE(std::isnan(KRL_vec_Labs_maxLU_strict(v.data(), n)));
            v[at] = -inf;
            EXPECT_EQ(KRL_vec_Labs_maxLU_strict(v.data(), n), inf);
        }
    GuardedBuffer<float> all(std::vector<float>(11, nan));
    for (uint32_t n : {1u, 3u, 11u})
        EXPECT_TRUE(std::isnan(krl_vec_Labs_maxLU_flex(all.data(), n)));
}

TEST(Support, HalfPowerIsWithinItsSevenRoundingsForAllArguments) {
    for (uint32_t i = 0; i < 65536; i++) {
        const double exact = std::exp2(-static_cast<double>(i & 0x7fff) / 32768.0);
        ASSERT_NEAR(KRL_Lpow05I16(static_cast<uint16_t>(i)) / exact, 1.0, 4.2e-7) << i;
    }
    EXPECT_EQ(KRL_Lpow05I16(0), 1.0f);
    EXPECT_EQ(KRL_Lpow05I16(32768), 1.0f);
    EXPECT_EQ(KRL_dsplib_init(), 0);
}

} // namespace
