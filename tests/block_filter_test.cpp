// Block filters, envelope followers and the delay line: bits, design, histories and limits.
#include <korla/dsp/block_filter.h>

#include <numbers>

#include "element_wise.h"
#include "reference/block_filter_models.h"

namespace korla_test {

namespace {

constexpr size_t block = KRL_BLK_LEN;
using Signal = std::vector<float>;

// A filter as an operation on vectors of blocks: set-up, then a call for each block. A step takes and gives `in` and
// `out` samples; members that work in place have no sources, so that a is their destination.
template <class F, class S, class Call, class Step>
Operation filter(std::vector<std::string> names, F* flex, F* strict, void (*setup)(S*), Call call, Signal c, Step step,
                 size_t in = 1, size_t out = 1, S initial = {}) {
    auto run_with = [=](F* f) {
        return [=](float* d, const float* const* s, uint32_t n) {
            S state;
            std::memset(&state, 0x5a, sizeof state); // setup has to set all that it relies on
            setup(&state);
            for (size_t i = 0; i < n; i += block)
                call(f, d + out * i, s[0] + in * i, s[1] + i, c.data(), &state);
        };
    };
    auto run_model = [=](float* y, const float*, const float* const* s, size_t n, bool) {
        S state = initial;
        for (size_t i = 0; i < n; i++)
            if constexpr (std::is_invocable_v<Step, S&, const float*, float>)
                y[i] = step(state, c.data(), s[0][i]);
            else
                step(state, c.data(), s[0] + in * i, s[1] + i, y + out * i);
    };
    const Operands sources = {{in}, {1}};
    const bool in_place = names[0].find("inplace") != std::string::npos;
    return {names, run_with(flex), run_with(strict), out, in_place ? Operands{} : sources, run_model, {32, 64, 768}};
}
#define CALL(arguments)                                                                                                \
    [](auto f, float* d, [[maybe_unused]] const float* a, [[maybe_unused]] const float* b,                             \
       [[maybe_unused]] const float* c, auto* s) { f arguments; }
// The stem begins the names of set-up and coefficient hook. The hook reads nothing.
#define FILTER(flex, strict, stem, arguments, ...)                                                                     \
    (stem##_set_coef(nullptr), filter({#flex, #strict, #stem "_setup", #stem "_set_coef"}, flex, strict, stem##_setup, \
                                      CALL(arguments), __VA_ARGS__))
#define RECIPROCAL(u)                                                                                                  \
    filter(                                                                                                            \
        {"krl_blk_LnrrecipLU_flex", "KRL_blk_LnrrecipLU_strict", "KRL_blk_LnrrecipLU_setup"}, krl_blk_LnrrecipLU_flex, \
        KRL_blk_LnrrecipLU_strict, +[](krl_reciprocal_state* s) { KRL_blk_LnrrecipLU_setup(s, u); },                   \
        CALL((d, a, u, s)), {}, model::reciprocal<u>, 1, 1, krl_reciprocal_state{power_of_two(-u)})

std::vector<Operation> filters() {
    using namespace model;
    const Signal pole = {0.1f, 0.15f, 0.75f}, slow = {0.01f, 0.02f, 0.9997f}, taps = {0.7f, -0.4f, 0.9f};
    const Signal resonance = {0.2f, 0.3f, -0.1f, 0.79f, -0.81f}; // poles of radius 0.9
    const Signal rotation = {0.25f, 0.3f, -0.2f, 0.6f, 0.7f};    // of radius 0.92 in version 1
    const Signal spiral = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f};    // inside 0.9 in versions 2 and 3
    std::vector<Operation> all = {
        FILTER(krl_blk_Liir1L_flex, KRL_blk_Liir1L_strict, KRL_blk_Liir1L, (d, a, c, s), pole, iir1),
        FILTER(krl_blk_Liir1_shlLU_flex, KRL_blk_Liir1_shlLU_strict, KRL_blk_Liir1_shlLU, (d, a, c, s, 3), pole,
               iir1_by_8),
        FILTER(krl_blk_Liir1_shl_addLL_flex, KRL_blk_Liir1_shl_addLL_strict, KRL_blk_Liir1_shl_addLL, (d, a, b, c, s),
               pole, iir1_doubled_plus),
        FILTER(krl_blk_Liir1xL_flex, KRL_blk_Liir1xL_strict, KRL_blk_Liir1xL, (d, a, c, s), slow, iir1x),
        FILTER(krl_blk_Liir2df1L_flex, KRL_blk_Liir2df1L_strict, KRL_blk_Liir2df1L, (d, a, c, s), resonance, iir2df1),
        FILTER(krl_blk_Liir2ssv1L_flex, KRL_blk_Liir2ssv1L_strict, KRL_blk_Liir2ssv1L, (d, a, c, s), rotation,
               section<1>),
        FILTER(krl_blk_Liir2ssv1efL_flex, KRL_blk_Liir2ssv1efL_strict, KRL_blk_Liir2ssv1efL, (d, a, c, s), rotation,
               section<1>),
        FILTER(krl_blk_Liir2ssv1_dsmpL_flex, KRL_blk_Liir2ssv1_dsmpL_strict, KRL_blk_Liir2ssv1_dsmpL, (d, a, c, s),
               rotation, section_halving, 2, 1),
        FILTER(krl_blk_Liir2ssv1_usmpL_flex, KRL_blk_Liir2ssv1_usmpL_strict, KRL_blk_Liir2ssv1_usmpL, (d, a, c, s),
               rotation, section_doubling, 1, 2),
        FILTER(krl_blk_Liir2ssv2L_flex, KRL_blk_Liir2ssv2L_strict, KRL_blk_Liir2ssv2L, (d, a, c, s), spiral,
               section<2>),
        FILTER(krl_blk_Liir2ssv2L_inplace_flex, KRL_blk_Liir2ssv2L_inplace_strict, KRL_blk_Liir2ssv2L_inplace,
               (d, c, s), spiral, section<2>),
        FILTER(krl_blk_Liir2ssv2_shlLU_flex, KRL_blk_Liir2ssv2_shlLU_strict, KRL_blk_Liir2ssv2_shlLU, (d, a, c, s, 3),
               spiral, (section<2, 16>)),
        FILTER(krl_blk_Liir2ssv3L_inplace_flex, KRL_blk_Liir2ssv3L_inplace_strict, KRL_blk_Liir2ssv3L_inplace,
               (d, c, s), spiral, section<3>),
        FILTER(KRL_blk_Liir2ssv3aLU_inplace, KRL_blk_Liir2ssv3aLU_inplace_strict, KRL_blk_Liir2ssv3aLU_inplace,
               (&d, c, &s, 1), spiral, section<3>),
        FILTER(krl_blk_Lfir2L_flex, KRL_blk_Lfir2L_strict, KRL_blk_Lfir2L, (d, a, c, s), taps, fir2),
        FILTER(krl_blk_Lfir3L_flex, KRL_blk_Lfir3L_strict, KRL_blk_Lfir3L, (d, a, c, s), taps, fir3),
        RECIPROCAL(0),
        RECIPROCAL(127),
    };
    auto crossfade = [&]<uint32_t len>(std::integral_constant<uint32_t, len>) {
        all.push_back(filter(
            {"krl_blk_Lcrossfade_gainLS_flex", "KRL_blk_Lcrossfade_gainLS_strict", "KRL_blk_Lcrossfade_gainLS_setup"},
            krl_blk_Lcrossfade_gainLS_flex, KRL_blk_Lcrossfade_gainLS_strict,
            +[](krl_crossfade_state* s) { KRL_blk_Lcrossfade_gainLS_setup(s, nullptr, len); },
            CALL((d, s, a, c, 0.3f, -1.7f)), Random(len).vector(len, 0.0f, 1.0f), crossfade_gain<len>));
    };
    crossfade(std::integral_constant<uint32_t, 20>{});
    crossfade(std::integral_constant<uint32_t, 95>{});
    crossfade(std::integral_constant<uint32_t, 160>{});
    // Attack and decay, hold, and coefficients of both signs, which bring zeros of different signs together.
    for (const Signal& k : {Signal{0.3f, 0.01f, 0.9f}, {1.0f, 0.0f, 0.0f}, {-1.0f, 1.0f, -0.5f}}) {
        all.push_back(FILTER(krl_blk_Lattack_decay_iir1L_flex, KRL_blk_Lattack_decay_iir1L_strict,
                             KRL_blk_Lattack_decay_iir1L, (d, a, c, s), k, envelope<false>));
        all.push_back(FILTER(krl_blk_Lattack_decay_peak_iir1L_flex, KRL_blk_Lattack_decay_peak_iir1L_strict,
                             KRL_blk_Lattack_decay_peak_iir1L, (d, a, c, s), k, envelope<true>));
    }
    // Limits, plain ones and every kind that sets maxNum apart from a comparison.
    for (float high : {1.0f, 0.0f, -0.0f, nan_value})
        for (float low : {-1.0f, 0.0f, -0.0f, nan_value})
            all.push_back(FILTER(krl_blk_LintegrateL_flex, KRL_blk_LintegrateL_strict, KRL_blk_LintegrateL,
                                 (d, a, c, s), Signal({high, low}), integrate));
    return all;
}

} // namespace

const std::vector<Operation> operations = filters();

namespace {

TEST(BlockReciprocal, Converges) {
    for (float value : {2.0f, 0.7f, 1.9f}) {
        Signal y(block);
        krl_reciprocal_state r = {0.125f};
        krl_blk_LnrrecipLU_flex(y.data(), Signal(block, value).data(), 3, &r);
        EXPECT_NEAR(y[31] * value * 8.0f, 1.0f, 3e-7f);
    }
}

using Coefficients = std::array<double, 5>;

// The mapping of the header, from b0, b1, b2, a1, a2 of a textbook biquad.
Coefficients section_of(int version, const Coefficients& biquad) {
    const auto& [b0, b1, b2, a1, a2] = biquad;
    const double r1 = b1 - b0 * a1, r2 = b2 - b0 * a2, p = r2 - a1 * r1 / 2, q = a1 * a1 / 4 - a2, c4 = std::sqrt(-q);
    if (version == 1)
        return {-b0 / 2, (r1 + p / c4) / 4, (r1 - p / c4) / 4, -a1 / 2, c4};
    return {-b0 / 2, r1 / 2, version == 2 ? p / 2 : 8 * p, -a1 / 2, version == 2 ? q : 16 * q};
}

TEST(BlockFilterDesign, SectionsHaveTheImpulseResponseOfTheBiquadTheyAreMadeFrom) {
    const auto sections = {krl_blk_Liir2ssv1L_flex, krl_blk_Liir2ssv2L_flex,
                           +[](float* dst, const float* x, const float* c, krl_iir2ss_state* s) {
                               std::copy_n(x, block, dst);
                               krl_blk_Liir2ssv3L_inplace_flex(dst, c, s);
                           }};
    Random random(3);
    for (int trial = 0; trial < 300; trial++) {
        // Zeros anywhere; a pair of complex poles, or of real ones, which ssv1 has not.
        const bool real = trial % 3 == 0;
        const double r = random.uniform(0.1f, 0.97f), s = real ? random.uniform(-0.97f, 0.97f) : r;
        const double cosine = real ? (r + s) / 2 : r * std::cos(random.uniform(0.05f, 3.1f));
        const Coefficients biquad = {random.uniform(), random.uniform(), random.uniform(), -2 * cosine, r * s};
        for (int version = real ? 2 : 1; version <= 3; version++) {
            float c[5];
            std::ranges::copy(section_of(version, biquad), c);
            krl_iir2ss_state state = {};
            double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
            for (size_t i = 0; i < 4 * block; i += block) {
                Signal x(block), y(block);
                x[0] = i == 0;
                sections.begin()[version - 1](y.data(), x.data(), c, &state);
                for (size_t n = 0; n < block; n++) {
                    const auto& [b0, b1, b2, a1, a2] = biquad;
                    const double expected = b0 * x[n] + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
                    x2 = x1, x1 = x[n], y2 = y1, y1 = expected;
                    ASSERT_NEAR(y[n], expected, 1e-5) << "ssv" << version << ", trial " << trial << ", " << i + n;
                }
            }
        }
    }
    // The example.
    const double w = 2 * std::numbers::pi * 1000 / 48000, alpha = std::sin(w) * std::sqrt(0.5), a0 = 1 + alpha;
    const double b1 = (1 - std::cos(w)) / a0;
    const Coefficients low_pass = {b1 / 2, b1, b1 / 2, -2 * std::cos(w) / a0, (1 - alpha) / a0};
    const double printed[3][5] = {{-0.001958063, 0.04581849, -0.03834781, 0.9076705, 0.08449721},
                                  {-0.001958063, 0.007470680, 0.007111817, 0.9076705, -0.007139778},
                                  {-0.001958063, 0.007470680, 0.1137891, 0.9076705, -0.1142364}};
    for (int version = 1; version <= 3; version++)
        for (size_t j = 0; j < 5; j++)
            EXPECT_NEAR(section_of(version, low_pass)[j] / printed[version - 1][j], 1.0, 1e-6) << version << ", " << j;
}

TEST(BlockFilterArray, EverySignalIsFilteredAsOnItsOwn) {
    const float c[] = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f};
    for (uint32_t count = 0; count <= 11; count++)
        for (bool strict : {false, true}) {
            const auto x = Random(count).vector(count * block);
            GuardedBuffer<float> y(x, strict ? 0 : count % 8);
            krl_iir2ss_state states[11], alone[11], *records[11];
            float* blocks[11];
            for (uint32_t k = 0; k < count; k++) {
                states[k] = alone[k] = {0.1f * static_cast<float>(k), -0.2f};
                records[k] = &states[k], blocks[k] = y.data() + k * block;
            }
            (strict ? KRL_blk_Liir2ssv3aLU_inplace_strict : KRL_blk_Liir2ssv3aLU_inplace)(blocks, c, records, count);
            for (uint32_t i = 0; i < count * block; i++)
                ASSERT_TRUE(same_bits(y[i], model::section<3>(alone[i / block], c, x[i]))) << i << " of " << count;
            for (uint32_t k = 0; k < count; k++)
                EXPECT_TRUE(same_bits(states[k].s0, alone[k].s0) && same_bits(states[k].s1, alone[k].s1));
        }
}

TEST(BlockFir, EveryLengthSumsInTheStatedOrderAndKeepsItsHistory) {
    for (uint32_t u = 0; u <= 1024; u += u < 80 ? 1 : 59) {
        const size_t blocks = 4 + 2 * u / block, old = u > 0 ? u - 1 : 0;
        const auto h = Random(u).vector(u), x = Random(u + 1).vector(blocks * block);
        GuardedBuffer<float> state(Signal(old, 5.0f), u % 8), taps(h, u % 5);
        KRL_blk_LfirUL_setup(state.data(), u);
        for (size_t b = 0; b < blocks; b++) {
            // Strict; flex; flex with the destination over the source.
            const size_t kind = b % 3, offset = kind == 2 ? b % 32 : 2 * block;
            GuardedBuffer<float> both(4 * block, kind == 0 ? 0 : b % 8);
            std::copy_n(x.begin() + b * block, block, both.data());
            (kind == 0 ? KRL_blk_LfirUL_strict : krl_blk_LfirUL_flex)(both.data() + offset, both.data(), u, taps.data(),
                                                                      state.data());
            for (size_t i = 0; i < block; i++) {
                const size_t now = b * block + i;
                float sums[2] = {};
                for (size_t residue = 0; residue < 8; residue++)
                    for (size_t k = residue; k < u && k <= now; k += 8) {
                        float& sum = sums[(residue + k / 8) % 2];
                        sum = std::fma(h[k], x[now - k], sum);
                    }
                ASSERT_EQ(both[offset + i], sums[0] + sums[1]) << u << " taps, block " << b << ", sample " << i;
            }
        }
        EXPECT_BITS_EQ(state.data(), x.data() + x.size() - old, old) << u << " taps";
    }
}

TEST(BlockCrossfade, StaysInsideTheWindowFromAnyPosition) {
    for (uint32_t len : {0u, 1u, 20u, 33u, 64u}) {
        GuardedBuffer<float> x(Signal(block, 1.0f));
        Signal around(len + 2 * block, nan_value); // a read outside the window shows up as NaN
        std::fill_n(around.begin() + block, len, 0.5f);
        for (uint32_t pos : {0u, 1u, 31u, 63u, 64u, 0xfffffff8u}) {
            krl_crossfade_state s = {pos, len};
            krl_blk_Lcrossfade_gainLS_flex(x.data(), &s, Signal(block, 1.0f).data(), around.data() + block, 1.0f, 3.0f);
            EXPECT_EQ(x.values(), Signal(block, len ? 2.0f : 0.0f)) << len << ", " << pos;
        }
    }
}

class DelayLine : public ::testing::TestWithParam<uint32_t> {};

TEST_P(DelayLine, ReadsEveryDelayOverEveryWrap) {
    const uint32_t max_delay = GetParam(), len = (max_delay + 31) / 32 * 32 + 32;
    for (size_t at : {0, 1, 5}) {
        const bool strict = at == 0;
        GuardedBuffer<float> buf(Signal(len + block, nan_value), at);
        krl_delay_state s = {99, 99, nullptr};
        (strict ? KRL_blk_delay_setup_strict : krl_blk_delay_setup_flex)(&s, buf.data(), max_delay);
        ASSERT_EQ(s.len, len);
        ASSERT_TRUE(std::isnan(buf[0])) << "setup leaves the buffer alone";
        (strict ? KRL_blk_delay_clear_strict : krl_blk_delay_clear_flex)(&s, nullptr, len + block);

        Signal history(len); // silence before the first block
        for (uint32_t b = 0; b < 3 * len / block + 2; b++) {
            GuardedBuffer<float> x(Random(b).vector(block), at), dst(block, at);
            history.insert(history.end(), x.data(), x.data() + block);
            (strict ? KRL_blk_delayL_strict : krl_blk_delayL_flex)(&s, x.data());
            for (uint32_t d = 0; d <= len - block; d++) {
                const float* expected = history.data() + history.size() - block - d;
                (strict ? KRL_blk_LdelayU_strict : krl_blk_LdelayU_flex)(&s, dst.data(), d);
                ASSERT_TRUE(bit_equal(dst.data(), expected, block)) << "block " << b << ", delay " << d;
                ASSERT_TRUE(bit_equal(KRL_blk_refLdelayU(&s, d), expected, block)) << "block " << b << ", delay " << d;
            }
        }
        for (uint32_t d : {len - 31, len, len + 1, 0xffffffffu}) // beyond the line, yet inside its buffer
            EXPECT_LE(static_cast<size_t>(KRL_blk_refLdelayU(&s, d) - buf.data()), len);
    }
}

INSTANTIATE_TEST_SUITE_P(MaximumDelay, DelayLine, ::testing::Values(0, 1, 31, 32, 33, 100, 256, 777));

TEST(DelayLineCases, ClearsBackwardsInPiecesAndKeepsItsLengthInRange) {
    for (auto clear : {krl_blk_delay_clear_flex, KRL_blk_delay_clear_strict}) {
        GuardedBuffer<float> buf(Signal(160, 1.0f));
        float* const start = buf.data();
        krl_delay_state s = {0, 128, start};
        // A call, what it returns, where the cleared floats begin afterwards.
        const std::tuple<float*, uint32_t, float*, long> calls[] = {
            {nullptr, 0, start + 160, 160},     {start + 1000, 1, start + 159, 159}, {nullptr, 50, start + 110, 110},
            {start + 110, 100, start + 10, 10}, {start + 10, 10, start, 0},          {start + 10, 11, nullptr, 0},
            {nullptr, UINT32_MAX, nullptr, 0},  {start - 10, 1, nullptr, 0}};
        for (const auto& [end, n, result, first] : calls) {
            EXPECT_EQ(clear(&s, end, n), result) << n;
            EXPECT_EQ(std::count(start, start + first, 1.0f) + std::count(start + first, start + 160, 0.0f), 160) << n;
        }
    }
    krl_delay_state longest;
    krl_blk_delay_setup_flex(&longest, nullptr, UINT32_MAX);
    EXPECT_EQ(longest.len, 0xffffffe0u);
}

TEST(BlockFilterFamily, TheTableNamesEveryExportedSymbol) {
    KRL_blk_LfirUL_set_coef(nullptr); // reads nothing
    EXPECT_EQ(names_of(operations, "krl_blk_LfirUL_flex", "KRL_blk_LfirUL_strict", "KRL_blk_LfirUL_setup",
                       "KRL_blk_LfirUL_set_coef", "krl_blk_delay_setup_flex", "KRL_blk_delay_setup_strict",
                       "krl_blk_delayL_flex", "KRL_blk_delayL_strict", "krl_blk_LdelayU_flex", "KRL_blk_LdelayU_strict",
                       "KRL_blk_refLdelayU", "krl_blk_delay_clear_flex", "KRL_blk_delay_clear_strict"),
              exported_symbols("block_filter"));
}

} // namespace
} // namespace korla_test
