// Operations on complex vectors.
#include <korla/dsp/complex.h>

#include "element_wise.h"

namespace korla_test {

constexpr float gain = -0.7f, other_gain = 1.3f;
constexpr float gains[14] = {0.3f,  -0.7f, 1.1f,  0.9f,   -0.2f, 0.6f,  0.05f,
                             -1.4f, 0.8f,  0.33f, -0.61f, 0.12f, 0.77f, 2.1f};

namespace {

// One complex sample as (real, imaginary); a product outside fma is rounded.
struct Sample {
    float re, im;
    float part(size_t i) const { return i % 2 ? im : re; }
};
Sample at(const float* p, size_t i, float scale = 1.0f) { return {scale * p[i & ~1ul], scale * p[i | 1]}; }

Sample product(Sample a, Sample b, bool strict) {
    return {strict ? std::fma(-a.im, b.im, a.re * b.re) : std::fma(a.re, b.re, -(a.im * b.im)),
            std::fma(a.re, b.im, a.im * b.re)};
}
Sample sum_with_product(Sample sum, Sample a, Sample b) {
    return {std::fma(-a.im, b.im, std::fma(a.re, b.re, sum.re)), std::fma(a.re, b.im, a.im * b.re) + sum.im};
}
Sample conjugate_product(Sample a, Sample b) {
    return {std::fma(a.re, b.re, a.im * b.im), std::fma(a.im, b.re, -(a.re * b.im))};
}
float squared_magnitude(Sample a) { return std::fma(a.re, a.re, a.im * a.im); }
Sample over_squared_magnitude(Sample numerator, Sample x) {
    const double reciprocal = 1.0 / double(squared_magnitude(x));
    return {static_cast<float>(numerator.re * reciprocal), static_cast<float>(numerator.im * reciprocal)};
}
Sample reciprocal_times(float f, Sample a) { return over_squared_magnitude({f * a.re, -f * a.im}, a); }

// Float i of outputs of n samples, each a chain of fused steps over the stacked inputs.
float mix(const float* x, size_t inputs, size_t i, size_t n) {
    const float *in = x + i % (2 * n), *c = gains + i / (2 * n) * inputs;
    float sum = in[0] * c[0];
    for (size_t j = 1; j < inputs; j++)
        sum = std::fma(in[j * 2 * ((n + 3) / 4 * 4)], c[j], sum);
    return sum;
}

// Entries that are the same function.
Operation both_at_any_n(Operation op) {
    op.strict_multiple = 1;
    return op;
}

const Operands none, one = {{2}}, two = {{2}, {2}}, with_real = {{2}, {1}}, apart = {{2, false}};
const Operands two_apart = {{2, false}, {2, false}};
const Operands stack_of_4 = {{8, false, 4}}, stack_of_6 = {{12, false, 4}}, stack_of_7 = {{14, false, 4}};

} // namespace

const std::vector<Operation> operations = {
    PAIR(krl_CLaddCLCLU_flex, KRL_CLaddCLCLU_strict, (d, a, b, n), 2, two, a[i] + b[i]),
    PAIR(krl_CLsubCLCLU_flex, KRL_CLsubCLCLU_strict, (d, a, b, n), 2, two, a[i] - b[i]),
    both_at_any_n(PAIR(krl_CLcopyCLU_flex, KRL_CLcopyCLU_strict, (d, a, n), 2, one, a[i])),
    both_at_any_n(PAIR(krl_CLzeroCLU_flex, KRL_CLzeroCLU_strict, (d, n), 2, none, 0.0f)),
    PAIR(krl_CLmpyCLSU_flex, KRL_CLmpyCLSU_strict, (d, a, gain, n), 2, one, a[i] * gain),
    PAIR(krl_CLmpyCLVSU_flex, KRL_CLmpyCLVSU_strict, (d, a, b, n), 2, with_real, a[i] * b[i / 2]),
    PAIR(krl_CLmpyCLCSU_flex, KRL_CLmpyCLCSU_strict, (d, a, b, n), 2, two, product(at(a, i), at(b, i), strict).part(i)),
    PAIR(krl_CLmacCLCLU_flex, KRL_CLmacCLCLU_strict, (d, a, b, n), 2, two_apart,
         sum_with_product(at(d, i), at(a, i), at(b, i)).part(i)),
    PAIR(krl_CLmacCLLU_flex, KRL_CLmacCLLU_strict, (d, a, gain, n), 2, apart, std::fma(a[i], gain, d[i])),
    PAIR(krl_CLmixCLCLSSU_flex, KRL_CLmixCLCLSSU_strict, (d, a, b, gain, other_gain, n), 2, two,
         std::fma(b[i], other_gain, a[i] * gain)),
    PAIR(krl_CLmix4CL4SU_flex, KRL_CLmix4CL4SU_strict, (d, a, gains, n), 2, stack_of_4, mix(a, 4, i, n)),
    PAIR(krl_CLCLmix4CL8SU_flex, KRL_CLCLmix4CL8SU_strict, (d, d + 2 * n, a, gains, n), 4, stack_of_4, mix(a, 4, i, n)),
    both_at_any_n(PAIR(krl_CLCLmix6CL12SU_flex, KRL_CLCLmix6CL12SU_strict, (d, d + 2 * n, a, gains, n), 4, stack_of_6,
                       mix(a, 6, i, n))),
    PAIR(krl_CLCLmix7CL14SU_flex, KRL_CLCLmix7CL14SU_strict, (d, d + 2 * n, a, gains, n), 4, stack_of_7,
         mix(a, 7, i, n)),
    PAIR(krl_CLshlCLUU_flex, KRL_CLshlCLUU_strict, (d, a, 5, n), 2, one, a[i] * 32.0f),
    PAIR(krl_CLshrCLUU_flex, KRL_CLshrCLUU_strict, (d, a, 4, n), 2, one, a[i] * 0.0625f),
    PAIR(krl_CLmpy_shlCLSIU_flex, KRL_CLmpy_shlCLSIU_strict, (d, a, gain, -2, n), 2, one, a[i] * (gain * 0.25f)),
    PAIR(krl_CLmpy_shlCLSIU_inplace_flex, KRL_CLmpy_shlCLSIU_inplace_strict, (d, gain, 3, n), 2, none,
         d[i] * (gain * 8.0f)),
    PAIR(krl_CLrecipCLUU_flex, KRL_CLrecipCLUU_strict, (d, a, 2, n), 2, one, reciprocal_times(0.25f, at(a, i)).part(i)),
    PAIR(krl_CLmpy_recipCLLIU_flex, KRL_CLmpy_recipCLLIU_strict, (d, a, gain, 1, n), 2, one,
         reciprocal_times(gain * 2.0f, at(a, i)).part(i)),
    PAIR(krl_CLdivCLCLU_flex, KRL_CLdivCLCLU_strict, (d, a, b, n), 2, two,
         over_squared_magnitude(conjugate_product(at(a, i), at(b, i)), at(b, i)).part(i)),
    PAIR(krl_VLsquaredmagCLIU_flex, KRL_VLsquaredmagCLIU_strict, (d, a, -1, n), 1, one,
         squared_magnitude(at(a, 2 * i, 0.5f))),
    PAIR(krl_cvec_Lmpy_conjLLIU_flex, KRL_cvec_Lmpy_conjLLIU_strict, (d, a, b, 1, n), 2, two,
         conjugate_product(at(a, i, 2.0f), at(b, i, 2.0f)).part(i)),
};

namespace {

TEST(ComplexShift, ByNothingCopiesTheBits) {
    const auto x = awkward_values(34, 3, 8);
    for (auto* shift : {krl_CLshlCLUU_flex, KRL_CLshlCLUU_strict, krl_CLshrCLUU_flex, KRL_CLshrCLUU_strict}) {
        GuardedBuffer<float> a(x), d(34);
        shift(d.data(), a.data(), 0, 17);
        EXPECT_EQ(std::memcmp(d.data(), x.data(), 34 * sizeof(float)), 0); // those of NaN, too
        shift(a.data() + 2, a.data(), 0, 16);
        EXPECT_EQ(std::memcmp(a.data() + 2, x.data(), 32 * sizeof(float)), 0);
    }
}

TEST(ComplexPowersOfTwo, AreExact) {
    const float ones[] = {1.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f};
    float y[6], z[6];
    for (uint32_t s : {1u, 60u, 126u}) {
        const auto e = static_cast<int32_t>(s);
        krl_CLshlCLUU_flex(y, ones, s, 3);
        krl_CLrecipCLUU_flex(z, ones, s, 3);
        EXPECT_TRUE(y[4] == power_of_two(e) && z[4] == power_of_two(-e)) << s;
        krl_CLmpy_shlCLSIU_flex(y, ones, 1.0f, e, 3);
        krl_CLshrCLUU_flex(z, ones, s, 3);
        EXPECT_TRUE(y[2] == power_of_two(e) && z[2] == power_of_two(-e)) << s;
    }
}

TEST(ComplexFamily, TheTablesNameEveryExportedSymbol) {
    EXPECT_EQ(krl_clclmix5cl10csu_c | krl_clclmix5cl10csu_order_coef_c, 0u);
    EXPECT_EQ(names_of(operations, "krl_clclmix5cl10csu_c", "krl_clclmix5cl10csu_order_coef_c"),
              exported_symbols("complex"));
}

} // namespace
} // namespace korla_test
