// The cosine transforms against their definition.
#include <korla/dsp/dct.h>

#include "guarded_buffer.h"
#include "reference/cosine_transforms.h"
#include "signals.h"

#include <tuple>

using namespace korla_test;

namespace {

constexpr double pi = std::numbers::pi;
using complex = std::complex<double>;

double sine(double m, double L) { return std::sin(pi * m / (2 * L)); }
double cosine(double m, double L) { return m == L ? 0.0 : std::cos(pi * m / (2 * L)); }

TEST(DctTwiddles, All248TablesHoldTheirFormulaToTheBitOn16Bytes) {
    int tables = 0;
    const auto check = [&](const char* name, const float* table, uint32_t L, auto formula, double gain, double offset) {
        tables++;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % 16, 0u) << name;
        for (uint32_t m = 0; m < L; m++)
            ASSERT_TRUE(same_bits(table[m], static_cast<float>(gain * formula(m + offset, L)))) << name << ", " << m;
    };
#define CHECK(table, ...) check(#table, table, __VA_ARGS__);
#define ALL(L)                                                                                                         \
    CHECK(krl_dct_twiddle_table16_1_L##L, L, sine, 1, 1)                                                               \
    CHECK(krl_dct_twiddle_table16_rev_L##L, L, cosine, 1, 0)                                                           \
    CHECK(krl_dct_twiddle_table16_rev_1_L##L, L, cosine, 1, 1)
#define SINE(L)                                                                                                        \
    CHECK(krl_dct_twiddle_table16_L##L, L, sine, 1, 0)                                                                 \
    CHECK(krl_dct_twiddle_table16_L##L##_1, L, sine, 0.5, 0.25)                                                        \
    CHECK(krl_dct_twiddle_table16_L##L##_2, L, cosine, 0.5, 0.25)
#define COSINE(L) CHECK(krl_dct_twiddle_table16_L##L##_cos, L, cosine, 1, 0)
    KRL_DCT_TWIDDLE_LENGTHS_ALL(ALL)
    KRL_DCT_TWIDDLE_LENGTHS_SINE(SINE) KRL_DCT_TWIDDLE_LENGTHS_COSINE(COSINE) EXPECT_EQ(tables, 248);
}

// The error is judged relative to the length of the input vector, which is what an orthogonal transform keeps. Long
// transforms are compared at every 61st output. Lengths without a transform, with the FFT of the next one, write
// nothing.
TEST(Dct, EverySupportedLengthEqualsTheDefiningSumAndOthersWriteNothing) {
    const auto transforms = {std::tuple{"II scaled", &krl_dctII_scaled, &_krl_ldct2_scaled_iplu, false, true},
                             {"II unscaled", &krl_dctII_unscaled, &_krl_ldct2_unscaled_iplu, false, false},
                             {"III scaled", &krl_dctIII_scaled, &_krl_ldct3_scaled_iplu, true, true}};
    int lengths = 0;
    for (uint32_t N = 0; N <= 8200; N++) {
        const uint32_t fft_length = N == 0 ? 64 : (N + 3) / 4 * 2;
        const krl_fft_pair *radix4 = KRL_r4_cplx_fwd_pair(fft_length), *radix8 = KRL_r8_cplx_fwd_pair(fft_length);
        const bool supported = N > 0 && N % 4 == 0 && radix4;
        lengths += supported;
        if (!supported && N > 150)
            continue;
        const auto x = Random(N).vector(N);
        std::vector<float> table(N);
        double energy = 0.0;
        for (uint32_t m = 0; m < N; m++)
            table[m] = static_cast<float>(sine(m, N)), energy += x[m] * x[m];
        for (const auto& [name, run, in_place, third, scaled] : transforms)
            for (const krl_fft_pair* pair : {radix8 ? radix8 : radix4, static_cast<const krl_fft_pair*>(nullptr)}) {
                GuardedBuffer<float> in(x, 1), out(N, 3), both(x, 2);
                run(pair, table.data(), out.data(), in.data(), N);
                in_place(pair, table.data(), both.data(), N);
                EXPECT_BITS_EQ(both.data(), supported && N <= 2048 ? out.values() : x, N) << name << " of " << N;
                EXPECT_TRUE(supported || (in.values() == x && out.values() == std::vector<float>(N))) << N;
                // Six-decimal twiddles of the mixed radix-4 kernels put an error of 1e-6 on each component.
                const bool full_precision = (pair && pair == radix8) || (N & (N - 1)) == 0;
                const double gain = scaled ? 1.0 / N : 1.0, tolerance = full_precision ? 6e-7 : 3e-6;
                for (size_t i = 0; supported && i < N; i += (N > 500 ? 61 : 1))
                    ASSERT_NEAR(out[i], gain * cosine_sum(x, i, third), gain * tolerance * std::sqrt(energy))
                        << name << " of " << N << ", output " << i;
            }
    }
    EXPECT_EQ(lengths, 41);
}

TEST(Dct4, StepsFollowTheirFormulasAtEveryLengthForAnyTable) {
    for (uint32_t N = 0; N <= 70; N++) {
        Random random(N + 1);
        const auto w = random.vector(2 * N), a = random.vector(N), b = random.vector(N), z = random.vector(2 * N);
        auto s = random.vector(N + 1), c = random.vector(N + 1);
        if (N % 4 == 0) // other lengths take these for granted
            s[0] = 0.0f, c[0] = 1.0f;
        GuardedBuffer<float> pre(2 * N, 1), post(2 * N, 3);
        krl_dct4_premodulation(pre.data(), w.data(), a.data(), b.data(), N);
        krl_dct4_postmodulation_shl0(post.data(), z.data(), s.data(), c.data(), N);
        const auto expect_shifted = [&](int exponent, auto step, auto... shift) {
            GuardedBuffer<float> out(2 * N, 2);
            step(out.data(), z.data(), s.data(), c.data(), shift..., N);
            for (uint32_t i = 0; i < 2 * N; i++)
                EXPECT_EQ(out[i], std::ldexp(post[i], exponent)) << "N = " << N << ", shift " << exponent;
        };
        expect_shifted(1, krl_dct4_postmodulation_shl1);
        expect_shifted(2, krl_dct4_postmodulation_shl2);
        for (int32_t shift : {0, 1, 2, 127, -1, -126})
            expect_shifted(shift, krl_dct4_postmodulation_shl, shift);
        s[0] = 0.0f, c[0] = 1.0f;
        for (uint32_t k = 0; k < N; k++) {
            const complex v = complex(a[k], b[k]) * complex(w[2 * N - 1 - 2 * k], -w[2 * k]);
            const complex y = complex(z[2 * k], z[2 * k + 1]) * complex(c[k], -s[k]);
            ASSERT_NEAR(std::abs(complex(pre[2 * k], pre[2 * k + 1]) - v), 0, 4e-7) << N;
            ASSERT_NEAR(std::abs(complex(post[2 * k], -post[2 * N - 1 - 2 * k]) - y), 0, 4e-7) << N;
        }
    }
}

} // namespace
