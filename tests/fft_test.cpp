#include <korla/dsp/fft.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "dsp/fft/lengths.h"
#include "guarded_buffer.h"
#include "reference/dft.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr double unit_roundoff = 0x1p-24;

// Everything exported for one length, one row per family. Families without entries have null ones.
struct Family {
    int n;
    const char* name;
    krl_fft_kernel *fwd, *fwd_scaled, *inv, *inv_scaled;
    krl_fft_entry *entry_fwd, *entry_fwd_scaled, *entry_inv, *entry_inv_scaled;
    bool six_decimals; // rounded twiddle factors

    // Rounding errors of a stage add up at random: about half a unit per stage and real operation, with a factor of 2
    // in hand. Six decimals turn every factor by up to 0.7e-6, as often as there are passes with factors, four at most.
    double rms_bound() const { return unit_roundoff * (1.0 + 0.6 * std::log2(n)) + (six_decimals ? 1e-6 : 0.0); }
    double worst_bound() const { return 5.0 * rms_bound(); }
};

const std::vector<Family>& families() {
    static const std::vector<Family> all = {
#define KERNELS(radix, N)                                                                                              \
    KRL_##radix##_fft_##N, KRL_##radix##_fft_##N##_s, KRL_##radix##_inv_fft_##N, KRL_##radix##_inv_fft_##N##_s
#define ENTRIES(N) krl_fft_fwd_usc_##N, krl_fft_fwd_scl_##N, krl_fft_inv_usc_##N, krl_fft_inv_scl_##N
#define POWER_OF_TWO(N) {N, "r4", KERNELS(r4, N), ENTRIES(N), false},
#define MIXED(N) {N, "r4", KERNELS(r4, N), ENTRIES(N), N != 6},
#define RADIX8(N) {N, "r8", KERNELS(r8, N), nullptr, nullptr, nullptr, nullptr, false},
        KRL_FFT_ENTRY_POWERS_OF_TWO(POWER_OF_TWO){4096, "r4", KERNELS(r4, 4096), nullptr, nullptr, nullptr, nullptr,
                                                  false},
        KRL_FFT_MIXED_LENGTHS(MIXED) KRL_FFT_RADIX8_POWERS_OF_TWO(RADIX8) KRL_FFT_RADIX8_MIXED_LENGTHS(RADIX8)};
    return all;
}

// One of the four transforms of a length.
struct Variant {
    int sign;
    bool scaled;
    krl_fft_kernel* kernel;
    krl_fft_entry* entry;
};
std::vector<Variant> variants(const Family& f) {
    return {{-1, false, f.fwd, f.entry_fwd},
            {-1, true, f.fwd_scaled, f.entry_fwd_scaled},
            {+1, false, f.inv, f.entry_inv},
            {+1, true, f.inv_scaled, f.entry_inv_scaled}};
}

std::vector<float> random_signal(int n) { return Random(static_cast<uint64_t>(n)).vector(2 * static_cast<size_t>(n)); }

// The exact transform of random_signal(n); computed once per length and direction.
const Spectrum& exact_spectrum(int n, int sign) {
    static std::map<std::pair<int, int>, Spectrum> known;
    auto& s = known[{n, sign}];
    if (s.empty())
        s = direct_dft(complex_of(random_signal(n).data(), static_cast<size_t>(n)), sign);
    return s;
}

class Fft : public ::testing::TestWithParam<Family> {
protected:
    const Family& f = GetParam();
    const int n = f.n;
    size_t floats() const { return 2 * static_cast<size_t>(n); }

    void expect_close(const float* actual, int sign, bool scaled, const char* what) const {
        const Error e = error_of(actual, exact_spectrum(n, sign), scaled ? 1.0 / n : 1.0);
        EXPECT_LT(e.rms, f.rms_bound()) << what << " sign " << sign << " scaled " << scaled;
        EXPECT_LT(e.worst, f.worst_bound()) << what << " sign " << sign << " scaled " << scaled;
    }
};

TEST_P(Fft, KernelsMatchTheDefiningSumAtEveryAlignment) {
    const auto signal = random_signal(n);
    for (const Variant& v : variants(f)) {
        std::vector<float> first;
        for (size_t misalignment : {0, 1, 3, 6}) {
            GuardedBuffer<float> in(signal, misalignment), out(floats(), 7 - misalignment);
            v.kernel(out.data(), in.data(), 12345);
            if (first.empty())
                expect_close(out.data(), v.sign, v.scaled, "kernel");
            else
                EXPECT_BITS_EQ(out.data(), first, floats()) << "alignment changed the result";
            first = out.values();
        }
        if (krl::fft::runs_in_place(n)) {
            GuardedBuffer<float> both(signal, 1);
            v.kernel(both.data(), both.data(), 0);
            EXPECT_BITS_EQ(both.data(), first, floats()) << "in place";
        }
    }
}

// Wherever an impulse stands, every bin is one twiddle factor: this tells a wrong factor or position from rounding
// noise.
TEST_P(Fft, ImpulsesGiveTurningPhasors) {
    for (const Variant& v : variants(f))
        for (int at : {0, 1, n / 2, n - 1}) {
            GuardedBuffer<float> in(floats()), out(floats());
            in[2 * static_cast<size_t>(at)] = 1.0f;
            v.kernel(out.data(), in.data(), 0);
            const double gain = v.scaled ? 1.0 / n : 1.0, tolerance = gain * (f.six_decimals ? 4e-6 : 4e-7);
            for (int k = 0; k < n; k++) {
                const auto expected = std::polar(gain, v.sign * 2.0 * M_PI * (static_cast<int64_t>(at) * k % n) / n);
                ASSERT_NEAR(out[2 * static_cast<size_t>(k)], expected.real(), tolerance) << at << ' ' << k;
                ASSERT_NEAR(out[2 * static_cast<size_t>(k) + 1], expected.imag(), tolerance) << at << ' ' << k;
            }
            if (at == 0 && !v.scaled) {
                EXPECT_EQ(out[2], 1.0f);
            }
        }
}

TEST_P(Fft, EntriesKeepTheThreeBufferContract) {
    if (f.entry_fwd == nullptr)
        return;
    const auto signal = random_signal(n);
    const bool power_of_two = std::has_single_bit(static_cast<uint32_t>(n));
    for (const Variant& v : variants(f)) {
        GuardedBuffer<float> in(signal, 1), out(floats(), 2), expected(floats());
        v.entry(out.data(), in.data(), in.data());
        GuardedBuffer<float> kernel_in(signal);
        v.kernel(expected.data(), kernel_in.data(), 0);
        EXPECT_BITS_EQ(out.data(), expected.data(), floats()) << "work = in";
        if (power_of_two) {
            GuardedBuffer<float> source(signal, 3), work(floats(), 1), separate(floats(), 2);
            v.entry(separate.data(), source.data(), work.data());
            EXPECT_BITS_EQ(separate.data(), expected.data(), floats()) << "work area of its own";
            EXPECT_BITS_EQ(source.data(), signal, floats()) << "the input changed";
            for (bool null : {true, false}) {
                GuardedBuffer<float> both(signal, 1);
                v.entry(both.data(), null ? nullptr : both.data(), work.data());
                EXPECT_BITS_EQ(both.data(), expected.data(), floats()) << "input taken from the output";
            }
            if (krl::fft::runs_in_place(n)) {
                GuardedBuffer<float> both(signal, 1);
                v.entry(both.data(), nullptr, nullptr);
                EXPECT_BITS_EQ(both.data(), expected.data(), floats()) << "no work area";
            }
        } else {
            GuardedBuffer<float> again(signal);
            v.entry(out.data(), again.data(), nullptr);
            EXPECT_BITS_EQ(out.data(), expected.data(), floats()) << "mixed lengths ignore the work area";
        }
    }
}

TEST_P(Fft, RoundTripsReturnTheInput) {
    const auto signal = random_signal(n);
    const Spectrum exact = complex_of(signal.data(), static_cast<size_t>(n));
    for (auto [there, back] : {std::pair{f.fwd, f.inv_scaled}, std::pair{f.fwd_scaled, f.inv}}) {
        GuardedBuffer<float> in(signal), out(floats());
        there(out.data(), in.data(), 0);
        back(in.data(), out.data(), 0);
        EXPECT_LT(error_of(in.data(), exact).rms, 2.0 * f.rms_bound());
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, Fft, ::testing::ValuesIn(families()), [](const auto& info) {
    return std::string(info.param.name) + "_" + std::to_string(info.param.n);
});

TEST(FftErrors, Table) {
    std::printf(
        "  length      radix 4: rms     worst    radix 8: rms     worst   (relative to the rms of the result)\n");
    std::map<int, std::map<std::string, Error>> table;
    for (const Family& f : families()) {
        GuardedBuffer<float> in(random_signal(f.n)), out(2 * static_cast<size_t>(f.n));
        f.fwd(out.data(), in.data(), 0);
        table[f.n][f.name] = error_of(out.data(), exact_spectrum(f.n, -1));
    }
    for (auto& [n, row] : table) {
        std::printf("  %6d          %.2e  %.2e", n, row["r4"].rms, row["r4"].worst);
        if (row.contains("r8"))
            std::printf("        %.2e  %.2e", row["r8"].rms, row["r8"].worst);
        std::printf("\n");
        for (auto& [name, e] : row)
            EXPECT_LT(e.rms, name == "r8" || std::has_single_bit(static_cast<uint32_t>(n)) ? 4e-7 : 2e-6);
    }
}

TEST(FftFamilies, Radix4AndRadix8Agree) {
    for (const Family& f : families()) {
        if (std::string(f.name) != "r8")
            continue;
        const auto size = 2 * static_cast<size_t>(f.n);
        const krl_fft_pair* other[] = {KRL_r4_cplx_fwd_pair(static_cast<uint32_t>(f.n)),
                                       KRL_r4_cplx_inv_pair(static_cast<uint32_t>(f.n))};
        for (const Variant& v : variants(f)) {
            GuardedBuffer<float> in8(random_signal(f.n)), in4(random_signal(f.n)), out8(size), out4(size);
            v.kernel(out8.data(), in8.data(), 0);
            const krl_fft_pair* pair = other[v.sign > 0];
            (v.scaled ? pair->scaled : pair->unscaled)(out4.data(), in4.data(), 0);
            EXPECT_LT(error_of(out8.data(), complex_of(out4.data(), static_cast<size_t>(f.n))).rms, 2e-6) << f.n;
        }
    }
}

TEST(FftKernel, FourPointsByHand) {
    GuardedBuffer<float> in({1, 10, 2, 20, 3, 30, 4, 50}), out(8);
    KRL_r4_fft_4(out.data(), in.data(), 4);
    EXPECT_EQ(out.values(), (std::vector<float>{10, 110, -2 - 30, -20 + 2, -2, -30, -2 + 30, -20 - 2}));
}

TEST(FftSelectors, EveryLength) {
    std::map<uint32_t, const Family*> r4, r8;
    for (const Family& f : families())
        (std::string(f.name) == "r4" ? r4 : r8)[static_cast<uint32_t>(f.n)] = &f;
    EXPECT_EQ(r4.size(), 43u);
    EXPECT_EQ(r8.size(), 16u);
    for (uint32_t n = 0; n <= 5000 || n == 8192; n = n == 5000 ? 8192 : n + 1) {
        const Family* f = r4.contains(n) ? r4[n] : nullptr;
        EXPECT_EQ(KRL_r4_cplx_fwd_unscaled(n), f ? f->fwd : nullptr) << n;
        EXPECT_EQ(KRL_r4_cplx_fwd_scaled(n), f ? f->fwd_scaled : nullptr) << n;
        EXPECT_EQ(KRL_r4_cplx_inv_unscaled(n), f ? f->inv : nullptr) << n;
        EXPECT_EQ(KRL_r4_cplx_inv_scaled(n), f ? f->inv_scaled : nullptr) << n;
        const auto expect_pair = [n](const krl_fft_pair* pair, krl_fft_kernel* unscaled, krl_fft_kernel* scaled) {
            ASSERT_EQ(krl_valid_pair_ptr(pair), unscaled != nullptr) << n;
            if (pair != nullptr) {
                EXPECT_EQ(pair->unscaled, unscaled) << n;
                EXPECT_EQ(pair->scaled, scaled) << n;
            }
        };
        expect_pair(KRL_r4_cplx_fwd_pair(n), f ? f->fwd : nullptr, f ? f->fwd_scaled : nullptr);
        expect_pair(KRL_r4_cplx_inv_pair(n), f ? f->inv : nullptr, f ? f->inv_scaled : nullptr);
        const Family* g = r8.contains(n) ? r8[n] : nullptr;
        expect_pair(KRL_r8_cplx_fwd_pair(n), g ? g->fwd : nullptr, g ? g->fwd_scaled : nullptr);
        expect_pair(KRL_r8_cplx_inv_pair(n), g ? g->inv : nullptr, g ? g->inv_scaled : nullptr);
    }
}

TEST(FftEntryTables, AreInTheOrderOfTheirLengths) {
    ASSERT_EQ(krl_num_of_non_power_two_lengths, 31u);
    EXPECT_TRUE(std::is_sorted(krl_non_power_two_lengths, krl_non_power_two_lengths + 31));
    EXPECT_EQ(krl_fft_cplx_fwd_scl[0], nullptr);
    EXPECT_EQ(krl_fft_cplx_fwd_usc[0], nullptr);
    EXPECT_EQ(krl_fft_cplx_inv_scl[0], nullptr);
    EXPECT_EQ(krl_fft_cplx_inv_usc[0], nullptr);
    size_t seen = 0;
    for (const Family& f : families()) {
        if (f.entry_fwd == nullptr)
            continue;
        const auto n = static_cast<uint32_t>(f.n);
        const bool power = std::has_single_bit(n);
        const auto* found = std::find(krl_non_power_two_lengths, krl_non_power_two_lengths + 31, n);
        const auto i =
            power ? static_cast<size_t>(std::countr_zero(n)) : static_cast<size_t>(found - krl_non_power_two_lengths);
        ASSERT_LT(i, power ? 12u : 31u);
        EXPECT_EQ((power ? krl_fft_cplx_fwd_scl : krl_odd_fft_cplx_fwd_scl)[i], f.entry_fwd_scaled);
        EXPECT_EQ((power ? krl_fft_cplx_fwd_usc : krl_odd_fft_cplx_fwd_usc)[i], f.entry_fwd);
        EXPECT_EQ((power ? krl_fft_cplx_inv_scl : krl_odd_fft_cplx_inv_scl)[i], f.entry_inv_scaled);
        EXPECT_EQ((power ? krl_fft_cplx_inv_usc : krl_odd_fft_cplx_inv_usc)[i], f.entry_inv);
        seen++;
    }
    EXPECT_EQ(seen, 42u);
}

TEST(FftState, SupportsTheStatedLengthsAndMasks) {
    const auto is_mixed = [](uint32_t n) {
        return std::binary_search(krl_non_power_two_lengths, krl_non_power_two_lengths + 31, n);
    };
    GuardedBuffer<uint8_t> memory(47);
    for (uint32_t n = 0; n <= 5000; n++)
        for (uint32_t mask : {0x00u, 0x01u, 0x0fu, 0x10u, 0x81u, 0xffu, 0x100u, 0x101u, 0x80000000u}) {
            const bool power = n >= 2 && n <= 2048 && std::has_single_bit(n);
            const bool expected = mask <= 0xff && (power || (mask <= 0x0f && is_mixed(n)));
            ASSERT_EQ(KRL_fft_is_supported(n, mask), expected) << n << ' ' << mask;
            ASSERT_EQ(KRL_fft_state_query_mem(n, mask), expected ? 47u : 0u) << n << ' ' << mask;
            ASSERT_EQ(KRL_fft_init(memory.data(), n, mask) != nullptr, expected) << n << ' ' << mask;
        }
    EXPECT_EQ(KRL_fft_init(nullptr, 64, 0x01), nullptr);
    EXPECT_EQ(KRL_fft_scratch_query_mem(), 0u);
}

// The record as other components may see it: four kernel references, the length, the mask.
struct StateFields {
    krl_fft_entry *forward_scaled, *inverse_scaled, *forward_unscaled, *inverse_unscaled;
    uint32_t n, transforms;
};

TEST(FftState, InitAlignsAndFillsOnlyTheSlotsAskedFor) {
    for (size_t offset = 0; offset < 8; offset++) {
        std::vector<uint8_t> memory(64, 0xa5);
        auto* base = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(memory.data()) + 7) / 8 * 8) + offset;
        auto* state = KRL_fft_init(base, 512, 0x01);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(state), (reinterpret_cast<uintptr_t>(base) + 7) / 8 * 8);
        for (uint8_t* p = memory.data(); p < reinterpret_cast<uint8_t*>(state); p++)
            EXPECT_EQ(*p, 0xa5);
    }
    alignas(8) uint8_t memory[47];
    for (auto [n, slot] : {std::pair{64u, 0u}, std::pair{480u, 0u}})
        for (uint32_t bit = 1; bit <= (n == 64 ? 0x80u : 0x08u); bit *= 2) {
            const auto* fields = reinterpret_cast<const StateFields*>(KRL_fft_init(memory, n, bit));
            ASSERT_NE(fields, nullptr);
            const bool power = n == 64;
            const uint32_t low = bit | bit >> 4;
            EXPECT_EQ(fields->forward_scaled, low & 1 ? (power ? krl_fft_fwd_scl_64 : krl_fft_fwd_scl_480) : nullptr);
            EXPECT_EQ(fields->forward_unscaled, low & 2 ? (power ? krl_fft_fwd_usc_64 : krl_fft_fwd_usc_480) : nullptr);
            EXPECT_EQ(fields->inverse_scaled, low & 4 ? (power ? krl_fft_inv_scl_64 : krl_fft_inv_scl_480) : nullptr);
            EXPECT_EQ(fields->inverse_unscaled, low & 8 ? (power ? krl_fft_inv_usc_64 : krl_fft_inv_usc_480) : nullptr);
            EXPECT_EQ(fields->n, n);
            EXPECT_EQ(fields->transforms, bit);
            KRL_fft_shutdown(reinterpret_cast<krl_fft_state*>(memory));
            EXPECT_TRUE(std::all_of(memory, memory + sizeof(StateFields), [](uint8_t b) { return b == 0; }));
        }
    KRL_fft_shutdown(nullptr);
}

TEST(FftState, ComplexTransformsRunTheKernelOfTheirSlot) {
    for (int n : {2, 6, 8, 15, 64, 180, 480, 2048}) {
        alignas(8) uint8_t memory[47];
        const auto* state = KRL_fft_init(memory, static_cast<uint32_t>(n), 0x0f);
        ASSERT_NE(state, nullptr);
        using Transform = void(const krl_fft_state*, float*, float*);
        const std::tuple<Transform*, int, bool> transforms[] = {{KRL_fft_CLfwd_scaledCL, -1, true},
                                                                {KRL_fft_CLfwd_unscaledCL, -1, false},
                                                                {KRL_fft_CLinv_scaledCL, +1, true},
                                                                {KRL_fft_CLinv_unscaledCL, +1, false}};
        for (auto [transform, sign, scaled] : transforms) {
            GuardedBuffer<float> in(random_signal(n), 1), out(2 * static_cast<size_t>(n), 3);
            transform(state, out.data(), in.data());
            EXPECT_LT(error_of(out.data(), exact_spectrum(n, sign), scaled ? 1.0 / n : 1.0).rms, 2e-6) << n;
        }
    }
}

} // namespace
