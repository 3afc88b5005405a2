#include <korla/dsp/vector.h>

#include "element_wise.h"
#include "reference/partial_sums.h"

namespace korla_test {

constexpr float gain = -0.7f;

const std::vector<ElementWise>& element_wise_operations() {
    auto scaled = [](float factor) {
        return [factor](float* d, const float* const* s, size_t k, size_t) { d[k] = s[0][k] * factor; };
    };
    auto scaled_in_place = [](float factor) {
        return [factor](float* d, const float* const*, size_t k, size_t) { d[k] *= factor; };
    };
    static const std::vector<ElementWise> all = {
        {KORLA_ENTRIES(krl_vec_LmaskLSU_flex, KRL_vec_LmaskLSU_strict, (d, s[0], s[1], n)),
         1,
         {real_operand, real_operand},
         [](float* d, const float* const* s, size_t k, size_t) { d[k] = s[0][k] * s[1][k]; }},
        {KORLA_ENTRIES(krl_vec_Lmask_rev_coefLSU_flex, KRL_vec_Lmask_rev_coefLSU_strict,
                       (d, s[0], s[1], static_cast<int32_t>(n))),
         1,
         {real_operand, apart(1)},
         [](float* d, const float* const* s, size_t k, size_t n) { d[k] = s[0][k] * s[1][n - 1 - k]; }},
        {KORLA_ENTRIES(krl_vec_LmpyLSU_flex, KRL_vec_LmpyLSU_strict, (d, s[0], gain, n)),
         1,
         {real_operand},
         scaled(gain)},
        {KORLA_ENTRIES(krl_vec_LmpyLSU_inplace_flex, KRL_vec_LmpyLSU_inplace_strict, (d, gain, n)),
         1,
         {},
         scaled_in_place(gain),
         {},
         true},
        {KORLA_ENTRIES(krl_vec_LsetLU_flex, KRL_vec_LsetLU_strict, (d, gain, n)),
         1,
         {},
         [](float* d, const float* const*, size_t k, size_t) { d[k] = gain; }},
        {KORLA_ENTRIES(krl_vec_LshlLIU_flex, KRL_vec_LshlLIU_strict, (d, s[0], -3, n)),
         1,
         {real_operand},
         scaled(0.125f)},
        {KORLA_ENTRIES(krl_vec_LshlLIU_inplace_flex, KRL_vec_LshlLIU_inplace_strict, (d, 5, n)),
         1,
         {},
         scaled_in_place(32.0f),
         {},
         true},
        {KORLA_ENTRIES(krl_vec_SshlSIU_inplace_flex, KRL_vec_SshlSIU_inplace_strict, (d, -1, n)),
         1,
         {},
         scaled_in_place(0.5f),
         {},
         true},
    };
    return all;
}

namespace {

// ---- reductions -----------------------------------------------------------------------------------------------------

struct Reduction {
    std::string flex_name, strict_name;
    std::function<double(const float*a, const float*b, uint32_t n)> flex, strict;
    std::function<double(const float*a, const float*b, size_t n)> model, strict_model; // to the bit
};
std::ostream& operator<<(std::ostream& out, const Reduction& op) { return out << op.flex_name; }
#define KORLA_REDUCTION(flex, strict, arguments)                                                                       \
#    flex, #    strict,                                                                                                \
        [](const float* a, [[maybe_unused]] const float* b,                                                            \
           uint32_t n) -> double { return flex arguments; }, [](const float* a, [[maybe_unused]] const float* b,       \
                                                                uint32_t n) -> double { return strict arguments; }

constexpr float tolerance = 0.75f;

double equal_within(const float* a, const float* b, size_t n) {
    for (size_t i = 0; i < n; i++)
        if (tolerance < std::fabs(a[i] - b[i]))
            return 0;
    return 1;
}
double largest_ignoring_nan(const float* a, const float*, size_t n) {
    float m = n ? std::fabs(a[0]) : 0.0f;
    for (size_t i = 1; i < n; i++)
        m = std::fmax(m, std::fabs(a[i]));
    return m;
}
double largest_propagating_nan(const float* a, const float* b, size_t n) {
    const bool any_nan = std::any_of(a, a + n, [](float x) { return std::isnan(x); });
    return any_nan ? nan : largest_ignoring_nan(a, b, n);
}
double headroom_of(double m) {
    if (m == 0.0)
        return 60.0;
    return std::isfinite(m) ? std::clamp(-static_cast<double>(std::ilogb(m)) - 1.0, 0.0, 60.0) : 0.0;
}
double headroom(const float* a, const float* b, size_t n) { // dispatches by alignment and length
    const bool strict = reinterpret_cast<uintptr_t>(a) % 32 == 0 && n % 4 == 0;
    return headroom_of(strict ? largest_propagating_nan(a, b, n) : largest_ignoring_nan(a, b, n));
}
double sum_of_products(const float* a, const float* b, size_t n) {
    return partial_sums<float>(32, n, [=](size_t i, float s) { return std::fma(a[i], b[i], s); });
}
double double_sum_of_products(const float* a, const float* b, size_t n) {
    return partial_sums<double>(32, n, [=](size_t i, double s) { return std::fma(double(a[i]), double(b[i]), s); });
}
float sum_of_squares(const float* a, size_t n) {
    return partial_sums<float>(64, n, [=](size_t i, float s) { return std::fma(a[i], a[i], s); });
}

const std::vector<Reduction>& reductions() {
    auto scaled_squares = [](const float* a, const float*, size_t n) -> double {
        return sum_of_squares(a, n) * 0.125f;
    };
    auto mean_square = [](const float* a, const float*, size_t n) -> double {
        return n ? sum_of_squares(a, n) * static_cast<float>(1.0 / static_cast<double>(n)) : 0.0f;
    };
    static const std::vector<Reduction> all = {
        {KORLA_REDUCTION(krl_vec_IeqLLU_flex, KRL_vec_IeqLLU_strict, (a, b, n, tolerance)), equal_within, equal_within},
        {KORLA_REDUCTION(krl_vec_Sabs_maxSU_flex, KRL_vec_Sabs_maxSU_strict, (a, n)), largest_ignoring_nan,
         largest_propagating_nan},
        {KORLA_REDUCTION(krl_vec_LdotLLU_flex, KRL_vec_LdotLLU_strict, (a, b, n)), sum_of_products, sum_of_products},
        {KORLA_REDUCTION(krl_vec_NdotLLU_flex, KRL_vec_NdotLLU_strict, (a, b, n)), double_sum_of_products,
         double_sum_of_products},
        {KORLA_REDUCTION(krl_vec_Lsum_sqrLUU_flex, KRL_vec_Lsum_sqrLUU_strict, (a, 3, n)), scaled_squares,
         scaled_squares},
        {KORLA_REDUCTION(krl_vec_Lmean_sqrLU_flex, KRL_vec_Lmean_sqrLU_strict, (a, n)), mean_square, mean_square},
        {KORLA_REDUCTION(krl_vec_UnormLU_flex, KRL_vec_UnormLU_strict, (a, n)), headroom, headroom},
        {KORLA_REDUCTION(krl_vec_UnormSU_flex, KRL_vec_UnormSU_strict, (a, n)), headroom, headroom},
    };
    return all;
}

class VectorReduction : public ::testing::TestWithParam<Reduction> {
protected:
    static void check(const std::vector<float>& x, const std::vector<float>& y, size_t misalignment) {
        const auto& op = GetParam();
        const size_t n = x.size();
        const GuardedBuffer<float> a(x, misalignment), b(y, misalignment ? 8 - misalignment : 0);
        ASSERT_TRUE(same_bits(op.flex(a.data(), b.data(), static_cast<uint32_t>(n)), op.model(a.data(), b.data(), n)))
            << "n = " << n << ", misalignment " << misalignment;
        if (misalignment == 0 && n % 4 == 0) {
            ASSERT_TRUE(same_bits(op.strict(a.data(), b.data(), static_cast<uint32_t>(n)),
                                  op.strict_model(a.data(), b.data(), n)))
                << "n = " << n;
        }
    }
};

TEST_P(VectorReduction, GivesTheStatedBitsAtEveryLengthAndAlignment) {
    for (size_t n = 0; n <= 140; n++)
        for (size_t misalignment = 0; misalignment < 8; misalignment++)
            ASSERT_NO_FATAL_FAILURE(
                check(Random(n).vector(n, -0.3f, 0.3f), Random(n + 7).vector(n, -0.3f, 0.3f), misalignment));
    ASSERT_NO_FATAL_FAILURE(check(Random(5).vector(5003), Random(6).vector(5003), 3));
    ASSERT_NO_FATAL_FAILURE(check(Random(5).vector(5000), Random(6).vector(5000), 0));
}

// One element decides: an outlier, or something special, at each place in turn.
TEST_P(VectorReduction, SeesEveryElement) {
    for (size_t n : {1, 3, 4, 7, 8, 9, 16, 31, 44, 64, 75})
        for (size_t at = 0; at < n; at++)
            for (float special : {1.5f, -4.0f, inf, -inf, nan, 1e-40f}) {
                std::vector<float> x(n, 0.25f), y(n, 0.25f);
                x[at] = special;
                for (size_t misalignment : {0, 3})
                    ASSERT_NO_FATAL_FAILURE(check(x, y, misalignment)) << special << " at " << at;
            }
}

INSTANTIATE_TEST_SUITE_P(Family, VectorReduction, ::testing::ValuesIn(reductions()),
                         [](const auto& info) { return info.param.flex_name; });

TEST(VectorSums, StayWithinTheErrorOfTheirFewSteps) {
    for (size_t n : {5u, 64u, 1000u, 100000u}) {
        const auto a = Random(1).vector(n), b = Random(2).vector(n);
        double dot = 0.0, magnitudes = 0.0, squares = 0.0;
        for (size_t i = 0; i < n; i++) {
            dot += double(a[i]) * b[i];
            magnitudes += std::fabs(double(a[i]) * b[i]);
            squares += double(a[i]) * a[i];
        }
        const auto length = static_cast<uint32_t>(n);
        const double dot_steps = static_cast<double>(n) / 32 + 6, square_steps = static_cast<double>(n) / 64 + 8;
        EXPECT_NEAR(krl_vec_LdotLLU_flex(a.data(), b.data(), length), dot, dot_steps * 0x1p-24 * magnitudes);
        EXPECT_NEAR(krl_vec_NdotLLU_flex(a.data(), b.data(), length), dot, 1e-12 * magnitudes);
        EXPECT_NEAR(krl_vec_Lsum_sqrLUU_flex(a.data(), 0, length), squares, square_steps * 0x1p-24 * squares);
    }
}

TEST(VectorShift, IsLimitedToSixtyBitsAndHarmlessBeyond) {
    for (auto [shift, factor] : {std::pair{100, 0x1p60f},
                                 {61, 0x1p60f},
                                 {60, 0x1p60f},
                                 {-59, 0x1p-59f},
                                 {-60, 0x1p-60f},
                                 {-61, 0x1p-60f},
                                 {-100, 0x1p-60f},
                                 {INT32_MAX, 0x1p60f},
                                 {INT32_MIN, 0x1p-60f}}) {
        GuardedBuffer<float> x(std::vector<float>{1.0f, -3.0f, 0.5f}), y(3);
        krl_vec_LshlLIU_flex(y.data(), x.data(), shift, 3);
        krl_vec_LshlLIU_inplace_flex(x.data(), shift, 3);
        for (const auto* v : {&x, &y})
            EXPECT_BITS_EQ(v->data(), (std::vector<float>{factor, -3.0f * factor, 0.5f * factor}), 3);
    }
    GuardedBuffer<float> x(std::vector<float>(9, 1.0f));
    for (uint32_t shift : {0u, 1u, 126u})
        EXPECT_EQ(krl_vec_Lsum_sqrLUU_flex(x.data(), shift, 9), std::ldexp(9.0f, -static_cast<int>(shift)));
    for (uint32_t shift : {127u, 128u, 255u, 0x80000000u, UINT32_MAX})
        krl_vec_Lsum_sqrLUU_flex(x.data(), shift, 9);
}

TEST(VectorMaskReversed, NothingBelowOneElement) {
    GuardedBuffer<float> one(1);
    for (int32_t n : {0, -1, -8, INT32_MIN}) {
        krl_vec_Lmask_rev_coefLSU_flex(one.data(), one.data(), one.data(), n);
        KRL_vec_Lmask_rev_coefLSU_strict(one.data(), one.data(), one.data(), n);
    }
    const float x[] = {1.0f, 1.0f, 1.0f}, m[] = {1.0f, 2.0f, 3.0f};
    float dst[3];
    krl_vec_Lmask_rev_coefLSU_flex(dst, x, m, 3);
    EXPECT_BITS_EQ(dst, (std::vector<float>{3.0f, 2.0f, 1.0f}), 3);
}

TEST(VectorEqual, NanDifferenceAndTolerance) {
    const float a[] = {1.0f, nan, inf}, b[] = {1.0f, 2.0f, inf};
    EXPECT_EQ(krl_vec_IeqLLU_flex(a, b, 3, 0.0f), 1);
    EXPECT_EQ(krl_vec_IeqLLU_flex(a, b, 3, -1.0f), 0);
    EXPECT_EQ(krl_vec_IeqLLU_flex(a + 1, b + 1, 2, -1.0f), 1);
    EXPECT_EQ(krl_vec_IeqLLU_flex(a, b, 0, -1.0f), 1);
    const float c[] = {0.5f}, d[] = {1.0f};
    EXPECT_EQ(krl_vec_IeqLLU_flex(c, d, 1, 0.5f), 1);
    EXPECT_EQ(krl_vec_IeqLLU_flex(c, d, 1, std::nextafter(0.5f, 0.0f)), 0);
    EXPECT_EQ(krl_vec_IeqLLU_flex(c, d, 1, nan), 1);
}

TEST(VectorHeadroom, FollowsTheExponent) {
    for (auto [x, bits] : {std::pair{0.3f, 1u},
                           {0.5f, 0u},
                           {1.0f, 0u},
                           {4.0f, 0u},
                           {0x1p-60f, 59u},
                           {0x1p-61f, 60u},
                           {0x1p-70f, 60u},
                           {1e-45f, 60u},
                           {0.0f, 60u},
                           {-0.0f, 60u}}) {
        EXPECT_EQ(krl_vec_UnormLU_flex(&x, 1), bits) << x;
        EXPECT_EQ(KRL_vec_UnormSU_strict(&x, 1), bits) << x;
    }
    EXPECT_EQ(krl_vec_UnormLU_flex(nullptr, 0), 60u);
}

TEST(VectorTables, NameEveryExportedPair) {
    EXPECT_EQ(names_of(element_wise_operations(), reductions()), exported_functions("vector.txt"));
}

} // namespace
} // namespace korla_test
