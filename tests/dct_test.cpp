#include <korla/dsp/dct.h>

#include "guarded_buffer.h"
#include "reference/cosine_transforms.h"
#include "signals.h"

#include <algorithm>
#include <complex>
#include <functional>
#include <string>

using namespace korla_test;

namespace {

constexpr double pi = std::numbers::pi;

// ---- tables
// -----------------------------------------------------------------------------------------------------------

struct TwiddleTable {
    std::string name;
    const float* values;
    uint32_t length;
    std::function<double(double m, double L)> formula;
};

double plain(double m, double L) { return std::sin(pi * m / (2 * L)); }
double plain_from_1(double m, double L) { return std::sin(pi * (m + 1) / (2 * L)); }
double cosine(double m, double L) { return std::cos(pi * m / (2 * L)); }
double cosine_from_1(double m, double L) { return m + 1 == L ? 0.0 : std::cos(pi * (m + 1) / (2 * L)); }
double half_sine(double m, double L) { return 0.5 * std::sin(pi * (4 * m + 1) / (8 * L)); }
double half_cosine(double m, double L) { return 0.5 * std::cos(pi * (4 * m + 1) / (8 * L)); }

std::vector<TwiddleTable> twiddle_tables() {
    return {
#define TABLE(name, L, formula) {#name, name, L, formula},
#define ALL(L)                                                                                                         \
    TABLE(krl_dct_twiddle_table16_1_L##L, L, plain_from_1)                                                             \
    TABLE(krl_dct_twiddle_table16_rev_L##L, L, cosine)                                                                 \
    TABLE(krl_dct_twiddle_table16_rev_1_L##L, L, cosine_from_1)
#define SINE(L)                                                                                                        \
    TABLE(krl_dct_twiddle_table16_L##L, L, plain)                                                                      \
    TABLE(krl_dct_twiddle_table16_L##L##_1, L, half_sine)                                                              \
    TABLE(krl_dct_twiddle_table16_L##L##_2, L, half_cosine)
#define COSINE(L) TABLE(krl_dct_twiddle_table16_L##L##_cos, L, cosine)
        KRL_DCT_TWIDDLE_LENGTHS_ALL(ALL) KRL_DCT_TWIDDLE_LENGTHS_SINE(SINE) KRL_DCT_TWIDDLE_LENGTHS_COSINE(COSINE)};
}

TEST(DctTwiddles, All248TablesHoldTheirFormulaToTheBitOn16Bytes) {
    const auto tables = twiddle_tables();
    EXPECT_EQ(tables.size(), 248u);
    for (const auto& table : tables) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table.values) % 16, 0u) << table.name;
        for (uint32_t m = 0; m < table.length; m++) {
            const auto expected = static_cast<float>(table.formula(m, table.length));
            ASSERT_TRUE(same_bits(table.values[m], expected)) << table.name << "[" << m << "] is " << table.values[m];
        }
    }
}

// ---- DCT-II and DCT-III
// -----------------------------------------------------------------------------------------------

struct Transform {
    const char* name;
    void (*run)(const krl_fft_pair*, const float*, float*, float*, uint32_t);
    void (*in_place)(const krl_fft_pair*, const float*, float*, uint32_t);
    double (*sum)(const CosineOfLength&, const std::vector<float>&, size_t);
    bool scaled;

    double expected(const CosineOfLength& cosine, const std::vector<float>& x, size_t i) const {
        return sum(cosine, x, i) / (scaled ? static_cast<double>(x.size()) : 1.0);
    }
};
const Transform transforms[] = {
    {"krl_dctII_scaled", krl_dctII_scaled, _krl_ldct2_scaled_iplu, dct2_at, true},
    {"krl_dctII_unscaled", krl_dctII_unscaled, _krl_ldct2_unscaled_iplu, dct2_at, false},
    {"krl_dctIII_scaled", krl_dctIII_scaled, _krl_ldct3_scaled_iplu, dct3_at, true},
};

std::vector<float> sine_table(uint32_t N) {
    std::vector<float> t(N);
    for (uint32_t m = 0; m < N; m++)
        t[m] = static_cast<float>(plain(m, N));
    return t;
}

const krl_fft_pair* fastest_pair(uint32_t H) {
    const krl_fft_pair* pair = KRL_r8_cplx_fwd_pair(H);
    return pair ? pair : KRL_r4_cplx_fwd_pair(H);
}

std::vector<uint32_t> supported_lengths() {
    std::vector<uint32_t> lengths;
    for (uint32_t N = 4; N <= 8192; N += 4)
        if (KRL_r4_cplx_fwd_pair(N / 2))
            lengths.push_back(N);
    return lengths;
}

class Dct : public testing::TestWithParam<Transform> {};
INSTANTIATE_TEST_SUITE_P(Forms, Dct, testing::ValuesIn(transforms),
                         [](const auto& info) { return std::string(info.param.name); });

// The error is judged relative to the length of the input vector, which is what an orthogonal transform keeps. Long
// transforms are compared at every 13th output.
TEST_P(Dct, EverySupportedLengthEqualsTheDefiningSum) {
    const Transform& transform = GetParam();
    ASSERT_EQ(supported_lengths().size(), 41u);
    for (uint32_t N : supported_lengths()) {
        const CosineOfLength cosine(N);
        const auto table = sine_table(N);
        const auto x = Random(N).vector(N);
        double norm = 0.0;
        for (float v : x)
            norm += static_cast<double>(v) * v;
        norm = std::sqrt(norm) / (transform.scaled ? N : 1);
        for (const krl_fft_pair* pair : {fastest_pair(N / 2), static_cast<const krl_fft_pair*>(nullptr)}) {
            // Six-decimal twiddles of the mixed radix-4 kernels put an error of 1e-6 on each component.
            const bool full_precision = KRL_r8_cplx_fwd_pair(N / 2) == pair && pair;
            const double tolerance = norm * (full_precision || (N & (N - 1)) == 0 ? 6e-7 : 3e-6);
            GuardedBuffer<float> in(x, 1), out(N, 3), both(x, 2);
            transform.run(pair, table.data(), out.data(), in.data(), N);
            for (size_t i = 0; i<N; i += N> 1000 ? 13 : 1)
                ASSERT_NEAR(out[i], transform.expected(cosine, x, i), tolerance) << "N = " << N << ", output " << i;
            transform.in_place(pair, table.data(), both.data(), N);
            EXPECT_BITS_EQ(both.data(), N <= 2048 ? out.values() : x, N) << "in place, N = " << N;
        }
    }
}

TEST_P(Dct, UnsupportedLengthsWriteNothing) {
    const Transform& transform = GetParam();
    const auto table = sine_table(4096);
    const auto x = Random(5).vector(4096);
    for (uint32_t N : {0u, 1u, 2u, 6u, 63u, 130u}) { // with a pair that would fit the next multiple of 4
        GuardedBuffer<float> in(x), out(4096);
        transform.run(KRL_r4_cplx_fwd_pair(64), table.data(), out.data(), in.data(), N);
        transform.in_place(KRL_r4_cplx_fwd_pair(64), table.data(), in.data(), N);
        EXPECT_BITS_EQ(in.data(), x, x.size()) << N;
        EXPECT_BITS_EQ(out.data(), std::vector<float>(4096), 4096) << N;
    }
    for (uint32_t N : {20u, 28u, 100u, 4092u}) { // no kernel of half the length
        GuardedBuffer<float> in(x), out(4096);
        transform.run(nullptr, table.data(), out.data(), in.data(), N);
        transform.in_place(nullptr, table.data(), in.data(), N);
        EXPECT_BITS_EQ(in.data(), x, x.size()) << N;
        EXPECT_BITS_EQ(out.data(), std::vector<float>(4096), 4096) << N;
    }
}

TEST(DctPair, ScaledThirdOfUnscaledSecondGivesHalfTheInput) {
    const auto x = Random(9).vector(64);
    GuardedBuffer<float> in(x), spectrum(64), out(64);
    krl_dctII_unscaled(KRL_r8_cplx_fwd_pair(32), krl_dct_twiddle_table16_L64, spectrum.data(), in.data(), 64);
    spectrum[0] *= 0.5f;
    krl_dctIII_scaled(nullptr, krl_dct_twiddle_table16_L64, out.data(), spectrum.data(), 64);
    for (size_t i = 0; i < 64; i++)
        EXPECT_NEAR(out[i], x[i] / 2, 3e-7);
}

// ---- DCT-IV steps
// -----------------------------------------------------------------------------------------------------

// Pre-twiddle, FFT and post-twiddle with one table of eighth-turn offsets make the DCT-IV of 2N samples.
TEST(Dct4, StepsAroundAnFftMakeTheDctIv) {
    for (uint32_t N : {2u, 4u, 6u, 8u, 15u, 16u, 24u, 30u, 45u, 64u, 480u}) {
        const auto x = Random(N).vector(2 * N);
        std::vector<float> w(2 * N), a(N), b(N), s(N), c(N);
        for (uint32_t m = 0; m < 2 * N; m++)
            w[m] = static_cast<float>(std::sin(pi * (2 * m + 1) / (8.0 * N)));
        for (uint32_t k = 0; k < N; k++) {
            a[k] = x[2 * k], b[k] = x[2 * N - 1 - 2 * k];
            s[k] = static_cast<float>(std::sin(pi * k / (2.0 * N)));
            c[k] = static_cast<float>(std::cos(pi * k / (2.0 * N)));
        }
        GuardedBuffer<float> z(2 * N, 1), Z(2 * N, 2), out(2 * N, 3);
        krl_dct4_premodulation(z.data(), w.data(), a.data(), b.data(), N);
        KRL_r4_cplx_fwd_unscaled(N)(Z.data(), z.data(), N);
        krl_dct4_postmodulation_shl0(out.data(), Z.data(), s.data(), c.data(), N);
        for (uint32_t k = 0; k < 2 * N; k++) {
            double expected = 0.0;
            for (uint32_t n = 0; n < 2 * N; n++)
                expected += x[n] * std::cos(pi * (2.0 * n + 1) * (2.0 * k + 1) / (8.0 * N));
            ASSERT_NEAR(out[k], expected, 4e-6 * std::sqrt(N)) << "N = " << N << ", output " << k;
        }
    }
}

TEST(Dct4, EveryLengthFollowsItsFormulasForAnyTable) {
    for (uint32_t N = 0; N <= 70; N++) {
        Random random(N + 1);
        const auto w = random.vector(2 * N), a = random.vector(N), b = random.vector(N), z = random.vector(2 * N);
        auto s = random.vector(N), c = random.vector(N);
        if (N > 0 && N % 4 == 0)
            s[0] = 0.0f, c[0] = 1.0f;
        GuardedBuffer<float> pre(2 * N, 1), post(2 * N, 3);
        krl_dct4_premodulation(pre.data(), w.data(), a.data(), b.data(), N);
        krl_dct4_postmodulation_shl0(post.data(), z.data(), s.data(), c.data(), N);
        if (N > 0) // lengths that are no multiple of 4 take these for granted
            s[0] = 0.0f, c[0] = 1.0f;
        for (uint32_t k = 0; k < N; k++) {
            using complex = std::complex<double>;
            const complex v = complex(a[k], b[k]) * complex(w[2 * N - 1 - 2 * k], -w[2 * k]);
            ASSERT_NEAR(pre[2 * k], v.real(), 3e-7) << N;
            ASSERT_NEAR(pre[2 * k + 1], v.imag(), 3e-7) << N;
            const complex y = complex(z[2 * k], z[2 * k + 1]) * complex(c[k], -s[k]);
            ASSERT_NEAR(post[2 * k], y.real(), 3e-7) << N;
            ASSERT_NEAR(post[2 * N - 1 - 2 * k], -y.imag(), 3e-7) << N;
        }
    }
}

TEST(Dct4, ShiftsAreExactPowersOfTwo) {
    for (uint32_t N : {5u, 16u, 33u}) {
        const auto z = Random(N).vector(2 * N), c = Random(N + 1).vector(N), s = Random(N + 2).vector(N);
        const auto run = [&](auto step, auto... shift) {
            GuardedBuffer<float> out(2 * N);
            step(out.data(), z.data(), s.data(), c.data(), shift..., N);
            return out.values();
        };
        const auto plain = run(krl_dct4_postmodulation_shl0);
        const auto times = [&](float gain) {
            auto v = plain;
            std::transform(v.begin(), v.end(), v.begin(), [=](float x) { return x * gain; });
            return v;
        };
        EXPECT_BITS_EQ(run(krl_dct4_postmodulation_shl1), times(2), 2 * N);
        EXPECT_BITS_EQ(run(krl_dct4_postmodulation_shl2), times(4), 2 * N);
        for (int32_t shift : {0, 1, 2, 127, -1, -126})
            EXPECT_BITS_EQ(run(krl_dct4_postmodulation_shl, shift), times(std::ldexp(1.0f, shift)), 2 * N) << shift;
    }
}

} // namespace
