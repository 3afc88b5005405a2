// Complex transforms: every kernel and entry against the defining sum, the selectors and tables, and the state.
#include <korla/dsp/fft.h>
#include <korla/dsp/mfb.h>

#include <algorithm>
#include <map>
#include <string>

#include "dsp/fft/kernels.h"
#include "export_list.h"
#include "guarded_buffer.h"
#include "reference/dft.h"
#include "signals.h"

using namespace korla_test;

namespace {

// One kernel and the entry that runs the same transform, if there is one.
struct Transform {
    std::string name;
    int n;
    bool inverse, scaled, six_decimals; // six: twiddle factors are rounded to as many
    krl_fft_kernel* kernel;
    std::string entry_name;
    krl_fft_entry* entry;

    int sign() const { return inverse ? +1 : -1; }
    double gain() const { return scaled ? 1.0 / n : 1.0; }
    size_t floats() const { return 2 * static_cast<size_t>(n); }
    std::vector<float> signal() const { return Random(static_cast<uint64_t>(n)).vector(floats()); }
};
void PrintTo(const Transform& t, std::ostream* out) { *out << t.name; }

// Lengths that the library does not export are compiled here from their plans.
template <int N, krl::fft::direction dir, bool scaled> void on_trial(float* out, float* in, uint32_t) {
    krl::fft::kernel<N, dir, scaled, krl::fft::rounding::full>(out, in);
}

const std::vector<Transform>& transforms() {
    static const std::vector<Transform> all = [] {
#define ENTRY(which, N) "krl_fft_" #which "_" #N, krl_fft_##which##_##N
#define NO_ENTRY(which, N) "", nullptr
#define KERNEL(name, N, inverse, scaled, six_decimals, entry) {#name, N, inverse, scaled, six_decimals, name, entry},
#define TRANSFORMS(radix, N, six_decimals, ENTRY)                                                                      \
    KERNEL(KRL_##radix##_fft_##N, N, false, false, six_decimals, ENTRY(fwd_usc, N))                                    \
    KERNEL(KRL_##radix##_fft_##N##_s, N, false, true, six_decimals, ENTRY(fwd_scl, N))                                 \
    KERNEL(KRL_##radix##_inv_fft_##N, N, true, false, six_decimals, ENTRY(inv_usc, N))                                 \
    KERNEL(KRL_##radix##_inv_fft_##N##_s, N, true, true, six_decimals, ENTRY(inv_scl, N))
#define POWER_OF_TWO(N) TRANSFORMS(r4, N, false, ENTRY)
#define MIXED(N) TRANSFORMS(r4, N, N != 6, ENTRY)
#define RADIX8(N) TRANSFORMS(r8, N, false, NO_ENTRY)
        std::vector<Transform> list = {KRL_FFT_ENTRY_POWERS_OF_TWO(POWER_OF_TWO) TRANSFORMS(r4, 4096, false, NO_ENTRY)
                                           KRL_FFT_MIXED_LENGTHS(MIXED) KRL_FFT_RADIX8_POWERS_OF_TWO(RADIX8)
                                               KRL_FFT_RADIX8_MIXED_LENGTHS(RADIX8)};
        krl::fft::for_each_trial_length([&](auto n) {
            using enum krl::fft::direction;
            const std::string name = "trial_" + std::to_string(n);
            list.push_back({name, n, false, false, false, on_trial<n, forward, false>, "", nullptr});
            list.push_back({name + "_s", n, false, true, false, on_trial<n, forward, true>, "", nullptr});
            list.push_back({name + "_inv", n, true, false, false, on_trial<n, inverse, false>, "", nullptr});
            list.push_back({name + "_inv_s", n, true, true, false, on_trial<n, inverse, true>, "", nullptr});
        });
        return list;
    }();
    return all;
}
// The radices of the passes; short transforms are one butterfly.
std::vector<int> plan_of(int n) {
#define PLAN(N, ...) {N, {__VA_ARGS__}},
    static const std::map<int, std::vector<int>> plans = {KRL_FFT_PLANS(PLAN)};
    return plans.contains(n) ? plans.at(n) : std::vector{n};
}
std::vector<Transform> with_entries() {
    std::vector<Transform> some;
    std::ranges::copy_if(transforms(), std::back_inserter(some), [](const Transform& t) { return t.entry != nullptr; });
    return some;
}

class FftKernel : public ::testing::TestWithParam<Transform> {
protected:
    const Transform& t = GetParam();
};

TEST_P(FftKernel, MatchesTheDefiningSumAtEveryAlignment) {
    const auto signal = t.signal();
    std::vector<float> first;
    for (size_t misalignment : {0, 1, 3, 6}) {
        GuardedBuffer<float> in(signal, misalignment), out(t.floats(), 7 - misalignment);
        t.kernel(out.data(), in.data(), 12345);
        if (first.empty()) {
            static std::map<std::pair<int, int>, Spectrum> known;
            Spectrum& exact = known[{t.n, t.sign()}];
            if (exact.empty())
                exact = direct_dft(complex_of(signal.data(), signal.size() / 2), t.sign());
            const Error e = error_of(out.data(), exact, t.gain());
            EXPECT_LT(e.rms, rms_bound(t.n, t.six_decimals));
            EXPECT_LT(e.worst, 5.0 * rms_bound(t.n, t.six_decimals));
            first = out.values();
        }
        EXPECT_BITS_EQ(out.data(), first, t.floats()) << "misaligned by " << misalignment;
    }
    if (krl::fft::runs_in_place(t.n)) {
        GuardedBuffer<float> both(signal, 1);
        t.kernel(both.data(), both.data(), 0);
        EXPECT_BITS_EQ(both.data(), first, t.floats()) << "in place";
    }
}

// An impulse that only one pass turns: every bin is one twiddle factor of that pass, times factors of butterflies. This
// tells a wrong factor from rounding noise.
TEST_P(FftKernel, TurnsAnImpulseByEveryFactorOfEveryPass) {
    const Spectrum turn = full_turn(t.floats() / 2, t.sign());
    int stride = t.n;
    for (int radix : plan_of(t.n)) {
        stride /= radix;
        for (int q = 0; q < radix; q++) {
            const auto at = static_cast<size_t>(q * stride);
            GuardedBuffer<float> in(t.floats()), out(t.floats());
            in[2 * at] = 1.0f;
            Spectrum exact(t.floats() / 2);
            for (size_t k = 0; k < exact.size(); k++)
                exact[k] = turn[at * k % exact.size()];
            if (t.six_decimals)
                exact = six_decimal_dft(complex_of(in.data(), exact.size()), plan_of(t.n), t.sign());
            t.kernel(out.data(), in.data(), 0);
            ASSERT_LT(error_of(out.data(), exact, t.gain()).worst, 3e-7) << "impulse at " << at;
            if (at == 0 && !t.scaled) {
                EXPECT_EQ(out[2], 1.0f);
            }
        }
    }
}

const auto name_of_kernel = [](const auto& info) { return info.param.name; };
INSTANTIATE_TEST_SUITE_P(All, FftKernel, ::testing::ValuesIn(transforms()), name_of_kernel);

class FftEntry : public FftKernel {
protected:
    const bool power_of_two = std::has_single_bit(static_cast<unsigned>(t.n));
    const std::vector<float> signal = t.signal(), expected = [this] {
        GuardedBuffer<float> in(signal), out(t.floats());
        t.kernel(out.data(), in.data(), 0);
        return out.values();
    }();
};

TEST_P(FftEntry, KeepsTheThreeBufferContract) {
    GuardedBuffer<float> in(signal, 1), out(t.floats(), 2);
    t.entry(out.data(), in.data(), in.data());
    EXPECT_BITS_EQ(out.data(), expected, t.floats()) << "work = in";
    if (!power_of_two) {
        GuardedBuffer<float> again(signal);
        t.entry(out.data(), again.data(), nullptr);
        EXPECT_BITS_EQ(out.data(), expected, t.floats()) << "mixed lengths ignore the work area";
        return;
    }
    GuardedBuffer<float> source(signal, 3), work(t.floats(), 1), separate(t.floats(), 2);
    t.entry(separate.data(), source.data(), work.data());
    EXPECT_BITS_EQ(separate.data(), expected, t.floats()) << "work area of its own";
    EXPECT_BITS_EQ(source.data(), signal, t.floats()) << "the input changed";
    for (bool null : {true, false}) {
        GuardedBuffer<float> both(signal, 1);
        t.entry(both.data(), null ? nullptr : both.data(), krl::fft::runs_in_place(t.n) ? nullptr : work.data());
        EXPECT_BITS_EQ(both.data(), expected, t.floats()) << "input taken from the output";
    }
}

TEST_P(FftEntry, StandsInItsTable) {
    krl_fft_entry* const* const powers[2][2] = {{krl_fft_cplx_fwd_usc, krl_fft_cplx_fwd_scl},
                                                {krl_fft_cplx_inv_usc, krl_fft_cplx_inv_scl}};
    krl_fft_entry* const* const mixed[2][2] = {{krl_odd_fft_cplx_fwd_usc, krl_odd_fft_cplx_fwd_scl},
                                               {krl_odd_fft_cplx_inv_usc, krl_odd_fft_cplx_inv_scl}};
    const uint32_t* lengths = krl_non_power_two_lengths;
    const auto n = static_cast<uint32_t>(t.n);
    const auto i = power_of_two ? std::countr_zero(n)
                                : std::find(lengths, lengths + krl_num_of_non_power_two_lengths, n) - lengths;
    ASSERT_TRUE(power_of_two || i < krl_num_of_non_power_two_lengths);
    EXPECT_EQ((power_of_two ? powers : mixed)[t.inverse][t.scaled][i], t.entry);
    EXPECT_EQ(powers[t.inverse][t.scaled][0], nullptr);
}

// A state that was asked for one transform runs its entry.
TEST_P(FftEntry, RunsThroughAState) {
    const struct {
        uint32_t bit;
        void (*run)(const krl_fft_state*, float*, float*);
    } members[2][2] = {
        {{KRL_FFT_CPLX_FWD_UNSCALED, KRL_fft_CLfwd_unscaledCL}, {KRL_FFT_CPLX_FWD_SCALED, KRL_fft_CLfwd_scaledCL}},
        {{KRL_FFT_CPLX_INV_UNSCALED, KRL_fft_CLinv_unscaledCL}, {KRL_FFT_CPLX_INV_SCALED, KRL_fft_CLinv_scaledCL}}};
    const auto& member = members[t.inverse][t.scaled];
    GuardedBuffer<uint8_t> memory(47, 5);
    const krl_fft_state* state = KRL_fft_init(memory.data(), static_cast<uint32_t>(t.n), member.bit);
    ASSERT_NE(state, nullptr);
    GuardedBuffer<float> in(signal, 1), out(t.floats(), 3);
    member.run(state, out.data(), in.data());
    EXPECT_BITS_EQ(out.data(), expected, t.floats());
}

INSTANTIATE_TEST_SUITE_P(All, FftEntry, ::testing::ValuesIn(with_entries()), name_of_kernel);

TEST(FftNames, NoneIsLeftOut) {
    std::set<std::string> tested;
    for (const Transform& t : transforms())
        if (t.name[0] == 'K')
            tested.insert({t.name, t.entry ? t.entry_name : t.name});
    EXPECT_EQ(tested, exported_symbols("fft_kernels"));
}

TEST(FftKernel, FourPointsByHand) {
    GuardedBuffer<float> in({1, 10, 2, 20, 3, 30, 4, 50}), out(8);
    KRL_r4_fft_4(out.data(), in.data(), 4);
    EXPECT_EQ(out.values(), (std::vector<float>{10, 110, -2 - 30, -20 + 2, -2, -30, -2 + 30, -20 - 2}));
}

TEST(FftSelectors, EveryLength) {
    std::map<std::pair<std::string, uint32_t>, std::vector<krl_fft_kernel*>> known; // forward, scaled; inverse, scaled
    for (const Transform& t : transforms())
        known[{t.name.substr(0, 6), static_cast<uint32_t>(t.n)}].push_back(t.kernel);
    for (uint32_t n = 0; n <= 9000; n = n == 5000 ? 8192 : n + 1) {
        const auto expect_pair = [n](const krl_fft_pair* pair, krl_fft_kernel* unscaled, krl_fft_kernel* scaled) {
            ASSERT_EQ(krl_valid_pair_ptr(pair), unscaled != nullptr) << n;
            EXPECT_TRUE(!pair || (pair->unscaled == unscaled && pair->scaled == scaled)) << n;
        };
        const std::vector<krl_fft_kernel*> none(4);
        const auto& r4 = known.contains({"KRL_r4", n}) ? known[{"KRL_r4", n}] : none;
        EXPECT_EQ(KRL_r4_cplx_fwd_unscaled(n), r4[0]) << n;
        EXPECT_EQ(KRL_r4_cplx_fwd_scaled(n), r4[1]) << n;
        EXPECT_EQ(KRL_r4_cplx_inv_unscaled(n), r4[2]) << n;
        EXPECT_EQ(KRL_r4_cplx_inv_scaled(n), r4[3]) << n;
        expect_pair(KRL_r4_cplx_fwd_pair(n), r4[0], r4[1]);
        expect_pair(KRL_r4_cplx_inv_pair(n), r4[2], r4[3]);
        const auto& r8 = known.contains({"KRL_r8", n}) ? known[{"KRL_r8", n}] : none;
        expect_pair(KRL_r8_cplx_fwd_pair(n), r8[0], r8[1]);
        expect_pair(KRL_r8_cplx_inv_pair(n), r8[2], r8[3]);
    }
}

// The banks take the radix-8 kernel where a length has one. The newest block alone, unrotated, is what this one
// transforms.
TEST(FftSelectors, BanksTakeTheFastestKernel) {
    constexpr uint32_t M = 192;
    std::vector<uint8_t> memory(KRL_mfb_p10km_analysisL_query_mem(1, 1, M));
    std::vector<uint8_t> scratch(KRL_mfb_p10km_analysisL_query_scratch(1, 1, M));
    auto* bank = KRL_CLmfb_p10km_analysisL_init(1, 1, M, memory.data());
    ASSERT_NE(bank, nullptr);
    const auto signal = Random(M).vector(M);
    std::vector<float> prototype(10 * M), twiddle(2 * M), bands(2 * M), halves(2 * M), bins(2 * M);
    for (uint32_t k = 0; k < M; k++) {
        prototype[k / 4 * 40 + 36 + k % 4] = 1.0f;
        twiddle[k / 4 * 8 + k % 4] = 1.0f;
        halves[2 * k] = 0.5f * signal[k];
    }
    const float* in[] = {signal.data()};
    float* out[] = {bands.data()};
    const float* const* slots_in[] = {in};
    float* const* slots_out[] = {out};
    KRL_CLmfb_p10km_analysisL(bank, prototype.data(), twiddle.data(), scratch.data(), 1, 1, M, slots_out, slots_in);
    KRL_r8_fft_192_s(bins.data(), halves.data(), M);
    for (uint32_t k = 0; k < M / 2; k++) // band 2k is bin k
        EXPECT_BITS_EQ(bands.data() + 4 * k, bins.data() + 2 * k, 2) << k;
}

TEST(FftState, SupportsTheStatedLengthsAndMasks) {
    std::set<uint32_t> powers, mixed;
    for (const Transform& t : with_entries())
        (std::has_single_bit(static_cast<unsigned>(t.n)) ? powers : mixed).insert(static_cast<uint32_t>(t.n));
    GuardedBuffer<uint8_t> memory(47);
    for (uint32_t n = 0; n <= 5000; n++)
        for (uint32_t mask : {0x00u, 0x01u, 0x0fu, 0x10u, 0x81u, 0xffu, 0x100u, 0x101u, 0x80000000u}) {
            const bool expected = mask <= 0xff && (powers.contains(n) || (mask <= 0x0f && mixed.contains(n)));
            ASSERT_EQ(KRL_fft_is_supported(n, mask), expected) << n << ' ' << mask;
            ASSERT_EQ(KRL_fft_state_query_mem(n, mask), expected ? 47u : 0u) << n << ' ' << mask;
            ASSERT_EQ(KRL_fft_init(memory.data(), n, mask) != nullptr, expected) << n << ' ' << mask;
        }
    EXPECT_EQ(KRL_fft_init(nullptr, 64, 0x01), nullptr);
    EXPECT_EQ(KRL_fft_scratch_query_mem(), 0u);
}

TEST(FftState, InitAlignsAndShutdownClears) {
    for (size_t offset = 0; offset < 8; offset++) {
        GuardedBuffer<uint8_t> memory(std::vector<uint8_t>(47, 0xa5), offset);
        auto* state = KRL_fft_init(memory.data(), 512, 0xff);
        auto* bytes = reinterpret_cast<uint8_t*>(state);
        EXPECT_EQ(bytes, memory.data() + (8 - offset) % 8);
        EXPECT_TRUE(std::all_of(memory.data(), bytes, [](uint8_t b) { return b == 0xa5; }));
        KRL_fft_shutdown(state);
        EXPECT_TRUE(std::all_of(bytes, bytes + 40, [](uint8_t b) { return b == 0; }));
    }
    KRL_fft_shutdown(nullptr);
}

} // namespace
