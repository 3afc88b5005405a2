#include <korla/dsp/dct.h>

#include "guarded_buffer.h"
#include "reference/cosine_transforms.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr double pi = std::numbers::pi;
using complex = std::complex<double>;

double sine(double m, double L) { return std::sin(pi * m / (2 * L)); }
double cosine(double m, double L) { return m == L ? 0.0 : std::cos(pi * m / (2 * L)); }

TEST(DctTwiddles, All248TablesHoldTheirFormulaToTheBitOn16Bytes) {
    struct Table {
        const char* name;
        const float* values;
        uint32_t length;
        double (*formula)(double m, double L);
        double gain, offset; // to m
    };
    const Table tables[] = {
#define ALL(L)                                                                                                         \
    {"1_L" #L, krl_dct_twiddle_table16_1_L##L, L, sine, 1, 1},                                                         \
        {"rev_L" #L, krl_dct_twiddle_table16_rev_L##L, L, cosine, 1, 0},                                               \
        {"rev_1_L" #L, krl_dct_twiddle_table16_rev_1_L##L, L, cosine, 1, 1},
#define SINE(L)                                                                                                        \
    {"L" #L, krl_dct_twiddle_table16_L##L, L, sine, 1, 0},                                                             \
        {"L" #L "_1", krl_dct_twiddle_table16_L##L##_1, L, sine, 0.5, 0.25},                                           \
        {"L" #L "_2", krl_dct_twiddle_table16_L##L##_2, L, cosine, 0.5, 0.25},
#define COSINE(L) {"L" #L "_cos", krl_dct_twiddle_table16_L##L##_cos, L, cosine, 1, 0},
        KRL_DCT_TWIDDLE_LENGTHS_ALL(ALL) KRL_DCT_TWIDDLE_LENGTHS_SINE(SINE) KRL_DCT_TWIDDLE_LENGTHS_COSINE(COSINE)};
    EXPECT_EQ(std::size(tables), 248u);
    for (const auto& [name, values, L, formula, gain, offset] : tables) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(values) % 16, 0u) << name;
        for (uint32_t m = 0; m < L; m++)
            ASSERT_TRUE(same_bits(values[m], static_cast<float>(gain * formula(m + offset, L)))) << name << ", " << m;
    }
}

// The error is judged relative to the length of the input vector, which is what an orthogonal transform keeps. Long
// transforms are compared at every 61st output. Lengths without a transform, with the FFT of the next one, write
// nothing.
TEST(Dct, EverySupportedLengthEqualsTheDefiningSumAndOthersWriteNothing) {
    const struct {
        const char* name;
        decltype(&krl_dctII_scaled) run;
        decltype(&_krl_ldct2_scaled_iplu) in_place;
        bool third, scaled;
    } transforms[] = {{"krl_dctII_scaled", krl_dctII_scaled, _krl_ldct2_scaled_iplu, false, true},
                      {"krl_dctII_unscaled", krl_dctII_unscaled, _krl_ldct2_unscaled_iplu, false, false},
                      {"krl_dctIII_scaled", krl_dctIII_scaled, _krl_ldct3_scaled_iplu, true, true}};
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
                if (!supported) {
                    EXPECT_BITS_EQ(in.data(), x, N) << name << " of " << N;
                    EXPECT_EQ(out.values(), std::vector<float>(N)) << name << " of " << N;
                    continue;
                }
                // Six-decimal twiddles of the mixed radix-4 kernels put an error of 1e-6 on each component.
                const bool full_precision = (pair && pair == radix8) || (N & (N - 1)) == 0;
                const double gain = scaled ? 1.0 / N : 1.0, tolerance = full_precision ? 6e-7 : 3e-6;
                for (size_t i = 0; i<N; i += N> 1000 ? 13 : 1)
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
        auto s = random.vector(N), c = random.vector(N);
        if (N > 0 && N % 4 == 0)
            s[0] = 0.0f, c[0] = 1.0f;
        GuardedBuffer<float> pre(2 * N, 1);
        krl_dct4_premodulation(pre.data(), w.data(), a.data(), b.data(), N);
        const auto postmodulate = [&](auto step, auto... shift) {
            GuardedBuffer<float> out(2 * N, 3);
            step(out.data(), z.data(), s.data(), c.data(), shift..., N);
            return out.values();
        };
        const auto post = postmodulate(krl_dct4_postmodulation_shl0);
        const auto expect_shifted = [&](const std::vector<float>& shifted, int shift) {
            for (uint32_t i = 0; i < 2 * N; i++)
                EXPECT_EQ(shifted[i], std::ldexp(post[i], shift)) << "N = " << N << ", shift " << shift;
        };
        expect_shifted(postmodulate(krl_dct4_postmodulation_shl1), 1);
        expect_shifted(postmodulate(krl_dct4_postmodulation_shl2), 2);
        for (int32_t shift : {0, 1, 2, 127, -1, -126})
            expect_shifted(postmodulate(krl_dct4_postmodulation_shl, shift), shift);
        if (N > 0) // lengths that are no multiple of 4 take these for granted
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
