// Element-wise operations on real vectors, and their reductions.
#include <korla/dsp/block_scalar.h>
#include <korla/dsp/vector.h>

#include <array>

#include "element_wise.h"

namespace korla_test {

constexpr float gain = -0.7f;

const Operands none, one = {{1}}, two = {{1}, {1}}, second_apart = {{1}, {1, false}};
const std::vector<Operation> operations = {
    PAIR(krl_vec_LmaskLSU_flex, KRL_vec_LmaskLSU_strict, (d, a, b, n), 1, two, a[i] * b[i]),
    PAIR(krl_vec_Lmask_rev_coefLSU_flex, KRL_vec_Lmask_rev_coefLSU_strict, (d, a, b, static_cast<int32_t>(n)), 1,
         second_apart, a[i] * b[n - 1 - i]),
    PAIR(krl_vec_LmpyLSU_flex, KRL_vec_LmpyLSU_strict, (d, a, gain, n), 1, one, a[i] * gain),
    PAIR(krl_vec_LmpyLSU_inplace_flex, KRL_vec_LmpyLSU_inplace_strict, (d, gain, n), 1, none, d[i] * gain),
    PAIR(krl_vec_LsetLU_flex, KRL_vec_LsetLU_strict, (d, gain, n), 1, none, gain),
    PAIR(krl_vec_LshlLIU_flex, KRL_vec_LshlLIU_strict, (d, a, -3, n), 1, one, a[i] * 0.125f),
    PAIR(krl_vec_LshlLIU_inplace_flex, KRL_vec_LshlLIU_inplace_strict, (d, 5, n), 1, none, d[i] * 32.0f),
    PAIR(krl_vec_SshlSIU_inplace_flex, KRL_vec_SshlSIU_inplace_strict, (d, -1, n), 1, none, d[i] * 0.5f),
};

namespace {

// A function that makes one number of vectors a and b; the model gives it to the bit.
struct Reduction {
    std::vector<std::string> names;
    std::function<double(const float*a, const float*b, uint32_t n)> flex, strict;
    std::function<double(const float* a, const float* b, size_t n, bool strict)> model;
};
std::ostream& operator<<(std::ostream& out, const Reduction& op) { return out << op.names[0]; }
#define REDUCING(f, arguments)                                                                                         \
    [](const float* a, [[maybe_unused]] const float* b, uint32_t n) -> double { return f arguments; }
#define REDUCTION(flex, strict, arguments, model)                                                                      \
    Reduction { {#flex, #strict}, REDUCING(flex, arguments), REDUCING(strict, arguments), model }

constexpr float tolerance = 0.75f;

double equal_within(const float* a, const float* b, size_t n, bool) {
    for (size_t i = 0; i < n; i++)
        if (tolerance < std::fabs(a[i] - b[i]))
            return 0;
    return 1;
}
// The strict entry propagates NaN, the flex entry ignores it.
double largest(const float* a, const float*, size_t n, bool strict) {
    float m = n ? std::fabs(a[0]) : 0.0f;
    for (size_t i = 1; i < n; i++)
        m = strict && (std::isnan(m) || std::isnan(a[i])) ? nan_value : std::fmax(m, std::fabs(a[i]));
    return m;
}
double headroom(const float* a, const float* b, size_t n, bool) { // dispatches by alignment and length
    const double m = largest(a, b, n, reinterpret_cast<uintptr_t>(a) % 32 == 0 && n % 4 == 0);
    if (m == 0.0)
        return 60.0;
    return std::isfinite(m) ? std::clamp(-static_cast<double>(std::ilogb(m)) - 1.0, 0.0, 60.0) : 0.0;
}
// Element i goes to sum i mod m by s = step(i, s); then sum j takes in sum j + m/2, then j + m/4, and so on.
template <class T> T partial_sums(size_t m, size_t n, auto step) {
    std::vector<T> s(m, T{0});
    for (size_t i = 0; i < n; i++)
        s[i % m] = step(i, s[i % m]);
    for (size_t half = m / 2; half > 0; half /= 2)
        for (size_t j = 0; j < half; j++)
            s[j] += s[j + half];
    return s[0];
}
template <class T> double sum_of_products(const float* a, const float* b, size_t n, bool) {
    return partial_sums<T>(32, n, [=](size_t i, T s) { return std::fma(T{a[i]}, T{b[i]}, s); });
}
float sum_of_squares(const float* a, size_t n) {
    return partial_sums<float>(64, n, [=](size_t i, float s) { return std::fma(a[i], a[i], s); });
}
double eighth_of_squares(const float* a, const float*, size_t n, bool) { return sum_of_squares(a, n) * 0.125f; }
double mean_square(const float* a, const float*, size_t n, bool) {
    return n ? sum_of_squares(a, n) * static_cast<float>(1.0 / static_cast<double>(n)) : 0.0f;
}

const Reduction reductions[] = {
    REDUCTION(krl_vec_IeqLLU_flex, KRL_vec_IeqLLU_strict, (a, b, n, tolerance), equal_within),
    REDUCTION(krl_vec_Labs_maxLU_flex, KRL_vec_Labs_maxLU_strict, (a, n), largest),
    REDUCTION(krl_vec_Sabs_maxSU_flex, KRL_vec_Sabs_maxSU_strict, (a, n), largest),
    REDUCTION(krl_vec_LdotLLU_flex, KRL_vec_LdotLLU_strict, (a, b, n), sum_of_products<float>),
    REDUCTION(krl_vec_NdotLLU_flex, KRL_vec_NdotLLU_strict, (a, b, n), sum_of_products<double>),
    REDUCTION(krl_vec_Lsum_sqrLUU_flex, KRL_vec_Lsum_sqrLUU_strict, (a, 3, n), eighth_of_squares),
    REDUCTION(krl_vec_Lmean_sqrLU_flex, KRL_vec_Lmean_sqrLU_strict, (a, n), mean_square),
    REDUCTION(krl_vec_UnormLU_flex, KRL_vec_UnormLU_strict, (a, n), headroom),
    REDUCTION(krl_vec_UnormSU_flex, KRL_vec_UnormSU_strict, (a, n), headroom),
};

// One element decides: an outlier, or something special, which moves through all places.
class VectorReduction : public ::testing::TestWithParam<Reduction> {};
TEST_P(VectorReduction, GivesTheStatedBitsAtEveryLengthAndAlignmentAndSeesEveryElement) {
    for (uint32_t n = 0; n <= 140; n++)
        for (uint32_t variant = 0; variant < 8 * 16; variant++) {
            const uint32_t misalignment = variant % 8, size = variant < 8 ? 35 * n : n;
            GuardedBuffer<float> a(Random(n).vector(size, -0.3f, 0.3f), misalignment);
            GuardedBuffer<float> b(Random(n + 7).vector(size, -0.3f, 0.3f), (8 - misalignment) % 8);
            if (n > 0 && variant >= 16)
                a[(variant / 8 * 11 + n) % n] =
                    std::array{1.5f, -4.0f, infinity, -infinity, nan_value, 1e-40f}[variant / 8 % 6];
            for (bool strict : {false, true})
                if (!strict || (misalignment == 0 && n % 4 == 0)) {
                    ASSERT_TRUE(same_bits((strict ? GetParam().strict : GetParam().flex)(a.data(), b.data(), size),
                                          GetParam().model(a.data(), b.data(), size, strict)))
                        << "strict " << strict << ", n = " << size << ", variant " << variant;
                }
        }
}
INSTANTIATE_TEST_SUITE_P(Family, VectorReduction, ::testing::ValuesIn(reductions));

TEST(VectorShift, IsLimitedToSixtyBitsAndHarmlessBeyond) {
    for (int32_t shift : {INT32_MIN, -100, -61, -60, -59, 59, 60, 61, 100, INT32_MAX}) {
        const float factor = std::ldexp(1.0f, std::clamp(shift, -60, 60));
        GuardedBuffer<float> x(std::vector<float>{1.0f, -3.0f, 0.5f}), y(3);
        krl_vec_LshlLIU_flex(y.data(), x.data(), shift, 3);
        krl_vec_LshlLIU_inplace_flex(x.data(), shift, 3);
        EXPECT_EQ(x.values(), (std::vector<float>{factor, -3.0f * factor, 0.5f * factor}));
        EXPECT_EQ(y.values(), x.values());
    }
    const std::vector<float> x(9, 1.0f);
    for (uint32_t shift : {127u, 128u, 255u, 0x80000000u, UINT32_MAX})
        krl_vec_Lsum_sqrLUU_flex(x.data(), shift, 9);
    EXPECT_EQ(krl_vec_Lsum_sqrLUU_flex(x.data(), 126, 9), 9 * 0x1p-126f);
}

TEST(VectorLiterals, MaskIsTurnedAroundEqualityHasATolerance) {
    const float x[] = {1.0f, 1.0f, -1.0f}, mask[] = {1.0f, 2.0f, 3.0f};
    GuardedBuffer<float> y(3);
    krl_vec_Lmask_rev_coefLSU_flex(y.data(), x, mask, 3);
    for (int32_t n : {0, -1, -8, INT32_MIN}) {
        krl_vec_Lmask_rev_coefLSU_flex(y.data(), x, mask, n);
        KRL_vec_Lmask_rev_coefLSU_strict(y.data(), y.data(), y.data(), n);
    }
    EXPECT_EQ(y.values(), (std::vector<float>{3.0f, 2.0f, -1.0f}));

    std::vector<float> a(48, 0.5f), b(48, 1.0f);
    a[1] = nan_value, a[2] = b[2] = infinity;
    for (uint32_t n : {3, 8, 48})
        for (auto [difference, equal] : {std::pair{0.5f, 1}, {std::nextafter(0.5f, 0.0f), 0}, {nan_value, 1}})
            EXPECT_EQ(krl_vec_IeqLLU_flex(a.data(), b.data(), n, difference), equal);
    EXPECT_EQ(krl_vec_IeqLLU_flex(&a[1], &b[1], 2, -1.0f), 1);

    for (auto [value, bits] : {std::pair{0.3f, 1u}, {0.5f, 0u}, {-4.0f, 0u}, {0x1p-60f, 59u}, {1e-45f, 60u}})
        EXPECT_EQ(krl_vec_UnormLU_flex(&value, 1), bits) << value;
}

TEST(VectorFamily, TheTablesNameEveryExportedSymbol) {
    auto named = names_of(operations);
    named.merge(names_of(reductions));
    auto exported = exported_symbols("vector");
    exported.insert({"krl_vec_Labs_maxLU_flex", "KRL_vec_Labs_maxLU_strict"}); // listed with the block operations
    EXPECT_EQ(named, exported);
}

} // namespace
} // namespace korla_test
