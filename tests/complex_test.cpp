#include <korla/dsp/complex.h>

#include "element_wise.h"

namespace korla_test {

constexpr float gain = -0.7f, other_gain = 1.3f;
constexpr float coefficients[14] = {0.3f,  -0.7f, 1.1f,  0.9f,   -0.2f, 0.6f,  0.05f,
                                    -1.4f, 0.8f,  0.33f, -0.61f, 0.12f, 0.77f, 2.1f};

namespace {

// One complex sample as (real, imaginary); a product outside fma is rounded.
struct Sample {
    float re, im;
};
Sample at(const float* p, size_t k) { return {p[2 * k], p[2 * k + 1]}; }

Sample product(Sample a, Sample b) { return {std::fma(a.re, b.re, -(a.im * b.im)), std::fma(a.re, b.im, a.im * b.re)}; }
Sample product_of_strict_entry(Sample a, Sample b) {
    return {std::fma(-a.im, b.im, a.re * b.re), std::fma(a.re, b.im, a.im * b.re)};
}
Sample conjugate_product(Sample a, Sample b) {
    return {std::fma(a.re, b.re, a.im * b.im), std::fma(a.im, b.re, -(a.re * b.im))};
}
Sample over_squared_magnitude(Sample numerator, Sample x) {
    const double reciprocal = 1.0 / double(std::fma(x.re, x.re, x.im * x.im));
    return {static_cast<float>(numerator.re * reciprocal), static_cast<float>(numerator.im * reciprocal)};
}
Sample scaled(float f, Sample a) { return {f * a.re, f * a.im}; }

// A model over whole samples: f(former destination, first source, second source).
template <class F>
ElementWise::Model sample_model(F f) {
    return [f](float* d, const float* const* s, size_t k, size_t) {
        const Sample r = f(at(d, k), at(s[0], k), [&] { return at(s[1], k); });
        d[2 * k] = r.re, d[2 * k + 1] = r.im;
    };
}
ElementWise::Model scaling(float f) {
    return [f](float* d, const float* const* s, size_t k, size_t) {
        const Sample r = scaled(f, at(s[0], k));
        d[2 * k] = r.re, d[2 * k + 1] = r.im;
    };
}
ElementWise::Model reciprocal_times(float f) {
    return [f](float* d, const float* const* s, size_t k, size_t) {
        const Sample a = at(s[0], k), r = over_squared_magnitude({f * a.re, -f * a.im}, a);
        d[2 * k] = r.re, d[2 * k + 1] = r.im;
    };
}
// `outputs` destinations, each a chain of fused steps over the stacked inputs.
ElementWise::Model mix(size_t inputs, size_t outputs) {
    return [=](float* d, const float* const* s, size_t k, size_t n) {
        const size_t distance = 2 * ((n + 3) / 4 * 4);
        for (size_t o = 0; o < outputs; o++)
            for (size_t part = 0; part < 2; part++) {
                const float *in = s[0] + 2 * k + part, *c = coefficients + o * inputs;
                float sum = in[0] * c[0];
                for (size_t j = 1; j < inputs; j++)
                    sum = std::fma(in[j * distance], c[j], sum);
                d[2 * n * o + 2 * k + part] = sum;
            }
    };
}

} // namespace

const std::vector<ElementWise>& element_wise_operations() {
    const std::vector<Operand> one = {complex_operand}, two = {complex_operand, complex_operand};
    static const std::vector<ElementWise> all = {
        {KORLA_ENTRIES(krl_CLaddCLCLU_flex, KRL_CLaddCLCLU_strict, (d, s[0], s[1], n)), 2, two,
         sample_model([](Sample, Sample a, auto b) {
             return Sample{a.re + b().re, a.im + b().im};
         })},
        {KORLA_ENTRIES(krl_CLsubCLCLU_flex, KRL_CLsubCLCLU_strict, (d, s[0], s[1], n)), 2, two,
         sample_model([](Sample, Sample a, auto b) {
             return Sample{a.re - b().re, a.im - b().im};
         })},
        {KORLA_ENTRIES(krl_CLcopyCLU_flex, KRL_CLcopyCLU_strict, (d, s[0], n)), 2, one, scaling(1.0f)},
        {KORLA_ENTRIES(krl_CLzeroCLU_flex, KRL_CLzeroCLU_strict, (d, n)),
         2,
         {},
         [](float* d, const float* const*, size_t k, size_t) { d[2 * k] = d[2 * k + 1] = 0.0f; }},
        {KORLA_ENTRIES(krl_CLmpyCLSU_flex, KRL_CLmpyCLSU_strict, (d, s[0], gain, n)), 2, one, scaling(gain)},
        {KORLA_ENTRIES(krl_CLmpyCLVSU_flex, KRL_CLmpyCLVSU_strict, (d, s[0], s[1], n)),
         2,
         {complex_operand, real_operand},
         [](float* d, const float* const* s, size_t k, size_t) {
             const Sample r = scaled(s[1][k], at(s[0], k));
             d[2 * k] = r.re, d[2 * k + 1] = r.im;
         }},
        {KORLA_ENTRIES(krl_CLmpyCLCSU_flex, KRL_CLmpyCLCSU_strict, (d, s[0], s[1], n)), 2, two,
         sample_model([](Sample, Sample a, auto b) { return product(a, b()); }),
         sample_model([](Sample, Sample a, auto b) { return product_of_strict_entry(a, b()); })},
        {KORLA_ENTRIES(krl_CLmacCLCLU_flex, KRL_CLmacCLCLU_strict, (d, s[0], s[1], n)),
         2,
         two,
         sample_model([](Sample acc, Sample a, auto other) {
             const Sample b = other();
             return Sample{std::fma(-a.im, b.im, std::fma(a.re, b.re, acc.re)),
                           std::fma(a.re, b.im, a.im * b.re) + acc.im};
         }),
         {},
         true},
        {KORLA_ENTRIES(krl_CLmacCLLU_flex, KRL_CLmacCLLU_strict, (d, s[0], gain, n)),
         2,
         one,
         sample_model([](Sample acc, Sample a, auto) {
             return Sample{std::fma(a.re, gain, acc.re), std::fma(a.im, gain, acc.im)};
         }),
         {},
         true},
        {KORLA_ENTRIES(krl_CLmixCLCLSSU_flex, KRL_CLmixCLCLSSU_strict, (d, s[0], s[1], gain, other_gain, n)), 2, two,
         sample_model([](Sample, Sample a, auto b) {
             return Sample{std::fma(b().re, other_gain, a.re * gain), std::fma(b().im, other_gain, a.im * gain)};
         })},
        {KORLA_ENTRIES(krl_CLmix4CL4SU_flex, KRL_CLmix4CL4SU_strict, (d, s[0], coefficients, n)),
         2,
         {stack_of(4)},
         mix(4, 1)},
        {KORLA_ENTRIES(krl_CLCLmix4CL8SU_flex, KRL_CLCLmix4CL8SU_strict, (d, d + 2 * n, s[0], coefficients, n)),
         4,
         {stack_of(4)},
         mix(4, 2)},
        {KORLA_ENTRIES(krl_CLCLmix6CL12SU_flex, KRL_CLCLmix6CL12SU_strict, (d, d + 2 * n, s[0], coefficients, n)),
         4,
         {stack_of(6)},
         mix(6, 2)},
        {KORLA_ENTRIES(krl_CLCLmix7CL14SU_flex, KRL_CLCLmix7CL14SU_strict, (d, d + 2 * n, s[0], coefficients, n)),
         4,
         {stack_of(7)},
         mix(7, 2)},
        {KORLA_ENTRIES(krl_CLshlCLUU_flex, KRL_CLshlCLUU_strict, (d, s[0], 5, n)), 2, one, scaling(32.0f)},
        {KORLA_ENTRIES(krl_CLshrCLUU_flex, KRL_CLshrCLUU_strict, (d, s[0], 4, n)), 2, one, scaling(0.0625f)},
        {KORLA_ENTRIES(krl_CLmpy_shlCLSIU_flex, KRL_CLmpy_shlCLSIU_strict, (d, s[0], gain, -2, n)), 2, one,
         scaling(gain * 0.25f)},
        {KORLA_ENTRIES(krl_CLmpy_shlCLSIU_inplace_flex, KRL_CLmpy_shlCLSIU_inplace_strict, (d, gain, 3, n)),
         2,
         {},
         [](float* d, const float* const*, size_t k, size_t) { d[2 * k] *= gain * 8.0f, d[2 * k + 1] *= gain * 8.0f; },
         {},
         true},
        {KORLA_ENTRIES(krl_CLrecipCLUU_flex, KRL_CLrecipCLUU_strict, (d, s[0], 2, n)), 2, one, reciprocal_times(0.25f)},
        {KORLA_ENTRIES(krl_CLmpy_recipCLLIU_flex, KRL_CLmpy_recipCLLIU_strict, (d, s[0], gain, 1, n)), 2, one,
         reciprocal_times(gain * 2.0f)},
        {KORLA_ENTRIES(krl_CLdivCLCLU_flex, KRL_CLdivCLCLU_strict, (d, s[0], s[1], n)), 2, two,
         sample_model([](Sample, Sample a, auto b) { return over_squared_magnitude(conjugate_product(a, b()), b()); })},
        {KORLA_ENTRIES(krl_VLsquaredmagCLIU_flex, KRL_VLsquaredmagCLIU_strict, (d, s[0], -1, n)), 1, one,
         [](float* d, const float* const* s, size_t k, size_t) {
             const Sample a = scaled(0.5f, at(s[0], k));
             d[k] = std::fma(a.re, a.re, a.im * a.im);
         }},
        {KORLA_ENTRIES(krl_cvec_Lmpy_conjLLIU_flex, KRL_cvec_Lmpy_conjLLIU_strict, (d, s[0], s[1], 1, n)), 2, two,
         sample_model([](Sample, Sample a, auto b) { return conjugate_product(scaled(2.0f, a), scaled(2.0f, b())); })},
    };
    return all;
}

namespace {

TEST(ComplexShift, ByNothingCopiesTheBitsAndLeavesTheSameBufferAlone) {
    const auto x = awkward_values(34, 3);
    for (auto* shift : {krl_CLshlCLUU_flex, KRL_CLshlCLUU_strict, krl_CLshrCLUU_flex, KRL_CLshrCLUU_strict}) {
        GuardedBuffer<float> a(x), d(34);
        shift(d.data(), a.data(), 0, 17);
        shift(a.data(), a.data(), 0, 17);
        EXPECT_EQ(std::memcmp(d.data(), x.data(), 34 * sizeof(float)), 0);
        EXPECT_EQ(std::memcmp(a.data(), x.data(), 34 * sizeof(float)), 0);
        shift(a.data() + 2, a.data(), 0, 16);
        EXPECT_EQ(std::memcmp(a.data() + 2, x.data(), 32 * sizeof(float)), 0);
    }
}

TEST(ComplexPowersOfTwo, AreExactInRangeAndHarmlessOutside) {
    GuardedBuffer<float> one(std::vector<float>{1.0f, -1.0f, 1.0f, -1.0f, 1.0f, -1.0f}), d(6);
    for (uint32_t s : {1u, 60u, 126u}) {
        krl_CLshlCLUU_flex(d.data(), one.data(), s, 3);
        EXPECT_EQ(d[5], -std::ldexp(1.0f, static_cast<int>(s)));
        krl_CLshrCLUU_flex(d.data(), one.data(), s, 3);
        EXPECT_EQ(d[0], std::ldexp(1.0f, -static_cast<int>(s)));
        krl_CLmpy_shlCLSIU_flex(d.data(), one.data(), 2.0f, -static_cast<int32_t>(s), 3);
        EXPECT_EQ(d[4], std::ldexp(2.0f, -static_cast<int>(s)));
        krl_CLrecipCLUU_flex(d.data(), one.data(), s, 3);
        EXPECT_EQ(d[3], std::ldexp(0.5f, -static_cast<int>(s)));
    }
    for (uint32_t s : {127u, 128u, 300u, 0x7fffffffu, 0x80000000u, UINT32_MAX}) {
        const auto e = static_cast<int32_t>(s);
        krl_CLshlCLUU_flex(d.data(), one.data(), s, 3);
        krl_CLshrCLUU_flex(d.data(), one.data(), s, 3);
        krl_CLrecipCLUU_flex(d.data(), one.data(), s, 3);
        krl_CLmpy_shlCLSIU_flex(d.data(), one.data(), 1.0f, e, 3);
        krl_CLmpy_recipCLLIU_flex(d.data(), one.data(), 1.0f, e, 3);
        krl_VLsquaredmagCLIU_flex(d.data(), one.data(), e, 3);
        krl_cvec_Lmpy_conjLLIU_flex(d.data(), one.data(), one.data(), e, 3);
    }
}

TEST(ComplexDivision, IsAccurateAndGivesOneForAVectorByItself) {
    constexpr uint32_t n = 1001;
    const auto a = Random(1).vector(2 * n), b = Random(2).vector(2 * n);
    std::vector<float> d(2 * n);
    krl_CLdivCLCLU_flex(d.data(), a.data(), b.data(), n);
    for (uint32_t k = 0; k < n; k++) {
        const double re = b[2 * k], im = b[2 * k + 1], m = re * re + im * im;
        const double magnitude = std::hypot(a[2 * k], a[2 * k + 1]) / std::sqrt(m);
        EXPECT_NEAR(d[2 * k], (a[2 * k] * re + a[2 * k + 1] * im) / m, 3 * 0x1p-24 * magnitude);
        EXPECT_NEAR(d[2 * k + 1], (a[2 * k + 1] * re - a[2 * k] * im) / m, 3 * 0x1p-24 * magnitude);
    }
    krl_CLdivCLCLU_flex(d.data(), a.data(), a.data(), n);
    for (uint32_t k = 0; k < n; k++) {
        EXPECT_EQ(d[2 * k], 1.0f);
        EXPECT_LE(std::fabs(d[2 * k + 1]), 0x1p-24f);
    }
    const float zero[2] = {0.0f, 0.0f};
    krl_CLrecipCLUU_flex(d.data(), zero, 0, 1);
    EXPECT_TRUE(std::isnan(d[0])); // 0 * (1 / 0)
}

TEST(ComplexConstants, AreZero) {
    EXPECT_EQ(krl_clclmix5cl10csu_c, 0u);
    EXPECT_EQ(krl_clclmix5cl10csu_order_coef_c, 0u);
}

TEST(ComplexTables, NameEveryExportedPair) {
    EXPECT_EQ(names_of(element_wise_operations()), exported_functions("complex.txt"));
}

} // namespace
} // namespace korla_test
