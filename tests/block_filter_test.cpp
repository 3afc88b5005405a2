#include <korla/dsp/block_filter.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "export_list.h"
#include "guarded_buffer.h"
#include "reference/block_filter_models.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr size_t block = KRL_BLK_LEN;
using Signal = std::vector<float>;

// A record of any kind, as it was before its set-up.
struct alignas(8) State {
    unsigned char bytes[24];
};
using Call = std::function<void(float* y, const float* x, const float* other, const float* c, State&)>;

// One row per pair and coefficient set. Members that work in place get x in y.
struct Filter {
    std::set<std::string> names;
    Signal coef;
    Call flex, strict, model; // of a block
    std::function<void(State&)> setup, model_setup;
    bool in_place = false;
    size_t in = block, out = block; // samples of a call
};

// call(f, y, x, other, c, state). The model makes a sample of a sample, or is called as model(state, c, x, other, y).
template <class F, class S, class Model>
Filter row(std::set<std::string> names, F flex, F strict, void (*setup)(S*), auto call, Signal coef, Model model,
           S initial = {}, size_t in = 1, size_t out = 1) {
    auto bind = [call](F f) {
        return [=](float* y, const float* x, const float* other, const float* c, State& s) {
            call(f, y, x, other, c, reinterpret_cast<S*>(s.bytes));
        };
    };
    auto model_of_block = [=](float* y, const float* x, const float* other, const float* c, State& state) {
        S& s = *reinterpret_cast<S*>(state.bytes);
        for (size_t i = 0; i < block; i++)
            if constexpr (std::is_invocable_v<Model, S&, const float*, float>)
                y[i] = model(s, c, x[i]);
            else
                model(s, c, x + in * i, other + i, y + out * i);
    };
    return {names,
            coef,
            bind(flex),
            bind(strict),
            model_of_block,
            [=](State& s) { setup(reinterpret_cast<S*>(s.bytes)); },
            [=](State& s) { *reinterpret_cast<S*>(s.bytes) = initial; },
            false,
            in * block,
            out * block};
}
Filter in_place(Filter f) {
    f.in_place = true;
    return f;
}
#define CALL(arguments)                                                                                                \
    [](auto f, float* y, [[maybe_unused]] const float* x, [[maybe_unused]] const float* other,                         \
       [[maybe_unused]] const float* c, auto* s) { f arguments; }
#define FILTER(flex, strict, setup, set_coef, arguments, ...)                                                          \
    (set_coef(nullptr), /* reads nothing */                                                                            \
     row({#flex, #strict, #setup, #set_coef}, flex, strict, setup, CALL(arguments), __VA_ARGS__))
#define RECIPROCAL(u)                                                                                                  \
    row(                                                                                                               \
        {"krl_blk_LnrrecipLU_flex", "KRL_blk_LnrrecipLU_strict", "KRL_blk_LnrrecipLU_setup"}, krl_blk_LnrrecipLU_flex, \
        KRL_blk_LnrrecipLU_strict, +[](krl_reciprocal_state* s) { KRL_blk_LnrrecipLU_setup(s, u); },                   \
        CALL((y, x, u, s)), {}, model::reciprocal<u>, krl_reciprocal_state{power_of_two(-u)})

std::vector<Filter> make_filters() {
    const Signal pole = {0.1f, 0.15f, 0.75f}, slow = {0.01f, 0.02f, 0.9997f}, taps = {0.7f, -0.4f, 0.9f};
    const Signal resonance = {0.2f, 0.3f, -0.1f, 0.79f, -0.81f}; // poles of radius 0.9
    const Signal rotation = {0.25f, 0.3f, -0.2f, 0.6f, 0.7f};    // of radius 0.92 in version 1
    const Signal spiral = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f};    // inside 0.9 in versions 2 and 3
    auto iir1_by_8 = [](krl_iir1_state& s, const float* c, float x) { return 8.0f * model::iir1(s, c, x); };
    auto iir1_plus = [](krl_iir1_state& s, const float* c, const float* x, const float* other, float* y) {
        *y = std::fma(model::iir1(s, c, *x), 2.0f, *other);
    };
    auto halving = [](krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
        *y = model::section<1>(s, c, x[0]);
        model::section<1>(s, c, x[1]);
    };
    auto doubling = [](krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
        y[0] = model::section<1>(s, c, *x);
        y[1] = 2.0f * (s.s0 + s.s1);
        model::section<1>(s, c, 0.0f);
    };
    auto section2_by_8 = [](krl_iir2ss_state& s, const float* c, float x) { return 8.0f * model::section<2>(s, c, x); };
    std::vector<Filter> all = {
        FILTER(krl_blk_Liir1L_flex, KRL_blk_Liir1L_strict, KRL_blk_Liir1L_setup, KRL_blk_Liir1L_set_coef, (y, x, c, s),
               pole, model::iir1),
        FILTER(krl_blk_Liir1_shlLU_flex, KRL_blk_Liir1_shlLU_strict, KRL_blk_Liir1_shlLU_setup,
               KRL_blk_Liir1_shlLU_set_coef, (y, x, c, s, 3), pole, iir1_by_8),
        FILTER(krl_blk_Liir1_shl_addLL_flex, KRL_blk_Liir1_shl_addLL_strict, KRL_blk_Liir1_shl_addLL_setup,
               KRL_blk_Liir1_shl_addLL_set_coef, (y, x, other, c, s), pole, iir1_plus),
        FILTER(krl_blk_Liir1xL_flex, KRL_blk_Liir1xL_strict, KRL_blk_Liir1xL_setup, KRL_blk_Liir1xL_set_coef,
               (y, x, c, s), slow, model::iir1x),
        FILTER(krl_blk_Liir2df1L_flex, KRL_blk_Liir2df1L_strict, KRL_blk_Liir2df1L_setup, KRL_blk_Liir2df1L_set_coef,
               (y, x, c, s), resonance, model::iir2df1),
        FILTER(krl_blk_Liir2ssv1L_flex, KRL_blk_Liir2ssv1L_strict, KRL_blk_Liir2ssv1L_setup,
               KRL_blk_Liir2ssv1L_set_coef, (y, x, c, s), rotation, model::section<1>),
        FILTER(krl_blk_Liir2ssv1efL_flex, KRL_blk_Liir2ssv1efL_strict, KRL_blk_Liir2ssv1efL_setup,
               KRL_blk_Liir2ssv1efL_set_coef, (y, x, c, s), rotation, model::section<1>),
        FILTER(krl_blk_Liir2ssv1_dsmpL_flex, KRL_blk_Liir2ssv1_dsmpL_strict, KRL_blk_Liir2ssv1_dsmpL_setup,
               KRL_blk_Liir2ssv1_dsmpL_set_coef, (y, x, c, s), rotation, halving, {}, 2, 1),
        FILTER(krl_blk_Liir2ssv1_usmpL_flex, KRL_blk_Liir2ssv1_usmpL_strict, KRL_blk_Liir2ssv1_usmpL_setup,
               KRL_blk_Liir2ssv1_usmpL_set_coef, (y, x, c, s), rotation, doubling, {}, 1, 2),
        FILTER(krl_blk_Liir2ssv2L_flex, KRL_blk_Liir2ssv2L_strict, KRL_blk_Liir2ssv2L_setup,
               KRL_blk_Liir2ssv2L_set_coef, (y, x, c, s), spiral, model::section<2>),
        in_place(FILTER(krl_blk_Liir2ssv2L_inplace_flex, KRL_blk_Liir2ssv2L_inplace_strict,
                        KRL_blk_Liir2ssv2L_inplace_setup, KRL_blk_Liir2ssv2L_inplace_set_coef, (y, c, s), spiral,
                        model::section<2>)),
        FILTER(krl_blk_Liir2ssv2_shlLU_flex, KRL_blk_Liir2ssv2_shlLU_strict, KRL_blk_Liir2ssv2_shlLU_setup,
               KRL_blk_Liir2ssv2_shlLU_set_coef, (y, x, c, s, 3), spiral, section2_by_8),
        in_place(FILTER(krl_blk_Liir2ssv3L_inplace_flex, KRL_blk_Liir2ssv3L_inplace_strict,
                        KRL_blk_Liir2ssv3L_inplace_setup, KRL_blk_Liir2ssv3L_inplace_set_coef, (y, c, s), spiral,
                        model::section<3>)),
        in_place(FILTER(KRL_blk_Liir2ssv3aLU_inplace, KRL_blk_Liir2ssv3aLU_inplace_strict,
                        KRL_blk_Liir2ssv3aLU_inplace_setup, KRL_blk_Liir2ssv3aLU_inplace_set_coef, (&y, c, &s, 1),
                        spiral, model::section<3>)),
        FILTER(krl_blk_Lfir2L_flex, KRL_blk_Lfir2L_strict, KRL_blk_Lfir2L_setup, KRL_blk_Lfir2L_set_coef, (y, x, c, s),
               taps, model::fir2),
        FILTER(krl_blk_Lfir3L_flex, KRL_blk_Lfir3L_strict, KRL_blk_Lfir3L_setup, KRL_blk_Lfir3L_set_coef, (y, x, c, s),
               taps, model::fir3),
        RECIPROCAL(0),
        RECIPROCAL(4),
        RECIPROCAL(127),
    };
    // Attack and decay, hold, and coefficients of both signs, which bring zeros of different signs together.
    for (const Signal& c : {Signal{0.3f, 0.01f, 0.9f}, {1.0f, 0.0f, 0.0f}, {-1.0f, 1.0f, -0.5f}}) {
        all.push_back(FILTER(krl_blk_Lattack_decay_iir1L_flex, KRL_blk_Lattack_decay_iir1L_strict,
                             KRL_blk_Lattack_decay_iir1L_setup, KRL_blk_Lattack_decay_iir1L_set_coef, (y, x, c, s), c,
                             model::envelope<false>));
        all.push_back(FILTER(krl_blk_Lattack_decay_peak_iir1L_flex, KRL_blk_Lattack_decay_peak_iir1L_strict,
                             KRL_blk_Lattack_decay_peak_iir1L_setup, KRL_blk_Lattack_decay_peak_iir1L_set_coef,
                             (y, x, c, s), c, model::envelope<true>));
    }
    // Limits {high, low}: plain ones, and every kind that sets maxNum apart from a comparison.
    for (float high : {1.0f, 0.0f, -0.0f, nan_value})
        for (float low : {-1.0f, 0.0f, -0.0f, nan_value})
            all.push_back(FILTER(krl_blk_LintegrateL_flex, KRL_blk_LintegrateL_strict, KRL_blk_LintegrateL_setup,
                                 KRL_blk_LintegrateL_set_coef, (y, x, c, s), Signal({high, low}), model::integrate));
    return all;
}
const std::vector<Filter>& filters() {
    static const std::vector<Filter> all = make_filters();
    return all;
}

// Two blocks; with specials, one sample in eight is not an ordinary number.
Signal signal(uint64_t seed, bool with_specials) {
    static const float specials[] = {nan_value, infinity, -infinity, 0.0f, -0.0f, 1e-41f, -3e38f, 3e38f};
    Random random(seed);
    auto x = random.vector(2 * block);
    for (float& v : x)
        if (with_specials && random.bits() < 0x20000000u)
            v = specials[random.bits() >> 29];
    return x;
}

class BlockFilter : public ::testing::TestWithParam<Filter> {
protected:
    const Filter& f = GetParam();
    State state, model_state;

    void set_up() {
        std::fill_n(state.bytes, sizeof state.bytes, 0x5a); // setup has to set all that it relies on
        f.setup(state);
        f.model_setup(model_state);
    }
    // One call of an entry against the model; both states move on. With an offset the destination begins so many
    // floats behind a source.
    void check_block(bool strict, uint64_t seed, bool with_specials, int overlapped = -1, int offset = 0) {
        SCOPED_TRACE(::testing::Message() << "strict " << strict << ", seed " << seed << ", offset " << offset);
        const Signal data[2] = {signal(2 * seed, with_specials), signal(2 * seed + 1, with_specials)};
        Signal expected(f.out);
        f.model(expected.data(), data[0].data(), data[1].data(), f.coef.data(), model_state);

        const size_t at = strict ? 0 : seed % 8;
        GuardedBuffer<float> x(data[0], at), other(data[1], (3 * at) % 8), coef(f.coef, (5 * at) % 8), both(5 * block);
        GuardedBuffer<float> dst(Signal(data[0].begin(), data[0].begin() + f.out), (7 * at) % 8);
        const float* sources[2] = {x.data(), other.data()};
        float* y = dst.data();
        if (overlapped >= 0) {
            float* const source = both.data() + block;
            std::copy(data[overlapped].begin(), data[overlapped].end(), source);
            sources[overlapped] = source, y = source + offset;
        }
        (strict ? f.strict : f.flex)(y, sources[0], sources[1], coef.data(), state);
        EXPECT_BITS_EQ(y, expected, f.out);
        EXPECT_BITS_EQ(x.data(), data[0], f.in) << "the source changed";
        EXPECT_BITS_EQ(coef.data(), f.coef, f.coef.size()) << "the coefficients changed";
    }
};

TEST_P(BlockFilter, FollowsTheModelFromBlockToBlockAndThroughSpecialValues) {
    for (bool strict : {false, true})
        for (uint64_t chain = 0; chain < 20; chain++) {
            set_up();
            for (uint64_t b = 0; b < (chain == 0 ? 24 : 2); b++)
                check_block(strict, 100 * chain + chain + b, chain > 0 && b == 0);
        }
}

TEST_P(BlockFilter, FlexDestinationMayOverlapItsSourcesAtAnyOffset) {
    for (int overlapped : {0, 1})
        for (int offset : {-31, -8, -5, -1, 0, 1, 3, 8, 31}) {
            set_up();
            if (!f.in_place)
                check_block(false, 7, false, overlapped, offset);
        }
}

INSTANTIATE_TEST_SUITE_P(Family, BlockFilter, ::testing::ValuesIn(filters()), [](const auto& info) {
    return info.param.names.begin()->substr(4) + "_" + std::to_string(info.index);
});

TEST(BlockFilterCases, FirstOrderFilterDelaysEnvelopeHoldsIntegratorSaturates) {
    const Signal x = {0.25f, 0.5f, 0.125f, 0.75f, 0.5f}, zeros(block);
    const Signal coef[] = {{0.0f, 1.0f, 0.0f}, {1.0f, 0.0f}, {1.0f, -1.0f}};
    GuardedBuffer<float> delayed(block), held(block), sum(block);
    krl_iir1_state one = {};
    krl_envelope_state e = {};
    krl_integrator_state acc = {};
    Signal padded = x;
    padded.resize(block);
    krl_blk_Liir1L_flex(delayed.data(), padded.data(), coef[0].data(), &one);
    krl_blk_Lattack_decay_iir1L_flex(held.data(), padded.data(), coef[1].data(), &e);
    krl_blk_LintegrateL_flex(sum.data(), padded.data(), coef[2].data(), &acc);
    EXPECT_BITS_EQ(delayed.data(), (Signal{0.0f, 0.25f, 0.5f, 0.125f, 0.75f, 0.5f, 0.0f}), 7);
    EXPECT_BITS_EQ(held.data(), (Signal{0.25f, 0.5f, 0.5f, 0.75f, 0.75f, 0.75f, 0.75f}), 7);
    EXPECT_BITS_EQ(sum.data(), (Signal{0.25f, 0.75f, 0.875f, 1.0f, 1.0f, 1.0f, 1.0f}), 7);
}

TEST(BlockFilterCases, ReciprocalConvergesAndWildShiftsStayInsideTheBuffers) {
    GuardedBuffer<float> x(block), y(block), coef(Signal(5, 0.25f));
    krl_iir1_state one = {};
    krl_iir2ss_state two = {};
    krl_reciprocal_state r;
    for (uint32_t u : {0u, 3u, 20u, 126u, 127u, 128u, 255u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
        for (float value : {2.0f, 0.7f, 1.9f}) {
            std::fill_n(x.data(), block, value);
            KRL_blk_LnrrecipLU_setup(&r, u);
            krl_blk_LnrrecipLU_flex(y.data(), x.data(), u, &r);
            if (u <= 20) {
                EXPECT_NEAR(y[31] * value * power_of_two(static_cast<int>(u)), 1.0f, 3e-7f) << u << " " << value;
            }
            krl_blk_Liir1_shlLU_flex(y.data(), x.data(), coef.data(), &one, u);
            krl_blk_Liir2ssv2_shlLU_flex(y.data(), x.data(), coef.data(), &two, u);
        }
}

TEST(BlockFilterArray, EverySignalIsFilteredAsOnItsOwn) {
    const float coef[] = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f};
    for (uint32_t count = 0; count <= 11; count++)
        for (bool strict : {false, true}) {
            std::vector<std::unique_ptr<GuardedBuffer<float>>> buffers;
            std::vector<krl_iir2ss_state> states(count);
            std::vector<float*> blocks;
            std::vector<krl_iir2ss_state*> records;
            for (uint32_t k = 0; k < count; k++) {
                buffers.push_back(std::make_unique<GuardedBuffer<float>>(Random(k).vector(block), strict ? 0 : k % 8));
                blocks.push_back(buffers[k]->data());
                states[k] = {0.1f * static_cast<float>(k), -0.2f};
                records.push_back(&states[k]);
            }
            (strict ? KRL_blk_Liir2ssv3aLU_inplace_strict : KRL_blk_Liir2ssv3aLU_inplace)(blocks.data(), coef,
                                                                                          records.data(), count);
            for (uint32_t k = 0; k < count; k++) {
                krl_iir2ss_state alone = {0.1f * static_cast<float>(k), -0.2f};
                for (size_t i = 0; const float x : Random(k).vector(block))
                    EXPECT_TRUE(same_bits(blocks[k][i++], model::section<3>(alone, coef, x))) << k << " of " << count;
                EXPECT_TRUE(same_bits(states[k].s0, alone.s0) && same_bits(states[k].s1, alone.s1));
            }
        }
}

// Sums of integers below 2^24 are exact in any order.
TEST(BlockFir, EveryLengthIsExactOnIntegersAndKeepsItsHistory) {
    auto integers = [](size_t n, uint64_t seed) {
        auto v = Random(seed).vector(n, -100.0f, 100.0f);
        for (float& x : v)
            x = std::round(x);
        return v;
    };
    for (uint32_t u = 0; u <= 1024; u += u < 80 ? 1 : 59) {
        const size_t blocks = 4 + 2 * u / block, old = u > 0 ? u - 1 : 0;
        const auto h = integers(u, u), x = integers(blocks * block, u + 1);
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
                double sum = 0.0;
                for (size_t k = 0; k < u && k <= b * block + i; k++)
                    sum += double(h[k]) * double(x[b * block + i - k]);
                ASSERT_EQ(both[offset + i], sum) << u << " taps, block " << b << ", sample " << i;
            }
        }
        EXPECT_BITS_EQ(state.data(), x.data() + x.size() - old, old) << u << " taps";
    }
}

// The window is walked block by block and then from the start; its end is held when a block reaches beyond it.
TEST(BlockCrossfade, GainMovesThroughTheWindowAndStartsAgain) {
    for (uint32_t len : {0u, 1u, 20u, 32u, 33u, 64u, 95u, 160u})
        for (size_t at = 0; at < 8; at++) {
            GuardedBuffer<float> window(Random(len).vector(len, 0.0f, 1.0f), at);
            krl_crossfade_state s = {77, 77};
            KRL_blk_Lcrossfade_gainLS_setup(&s, window.data(), len);
            uint32_t pos = 0;
            for (uint32_t call = 0; call < 2 * len / block + 3; call++) {
                const auto x = Random(call).vector(block);
                GuardedBuffer<float> dst(x, (7 * at) % 8);
                (at == 0 ? KRL_blk_Lcrossfade_gainLS_strict
                         : krl_blk_Lcrossfade_gainLS_flex)(dst.data(), &s, dst.data(), window.data(), 0.3f, -1.7f);
                for (uint32_t i = 0; i < block; i++) {
                    const uint32_t k = std::min(pos + i, len - 1);
                    const float gain = len ? std::fma(window[len - 1 - k], 0.3f, -1.7f * window[k]) : 0.0f;
                    ASSERT_EQ(dst[i], gain * x[i]) << "window " << len << ", at " << pos + i;
                }
                pos = pos + block < len ? pos + block : len % block == 0 || len == 0 ? 0 : pos + block - len;
            }
            s.pos = 0xfffffff8u; // out of the window: stays inside it
            krl_blk_Lcrossfade_gainLS_flex(std::make_unique<float[]>(block).get(), &s, window.data(), window.data(), 1,
                                           1);
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

TEST(DelayLineCases, SourceMayLieInTheLineAndTheLongestLineKeepsItsLengthInRange) {
    GuardedBuffer<float> buf(Random(4).vector(128));
    krl_delay_state s = {64, 96, buf.data()};
    const auto before = buf.values();
    krl_blk_delayL_flex(&s, buf.data() + 5); // wraps: goes to the front and to the guard
    EXPECT_BITS_EQ(buf.data(), before.data() + 5, block);
    EXPECT_BITS_EQ(buf.data() + 96, before.data() + 5, block);
    krl_blk_LdelayU_flex(&s, buf.data() + 33, 50);
    EXPECT_BITS_EQ(buf.data() + 33, before.data() + 46, 18);
    for (uint32_t max_delay : {0xffffffc0u, 0xffffffc1u, 0xffffffffu}) {
        krl_blk_delay_setup_flex(&s, nullptr, max_delay);
        EXPECT_EQ(s.len, 0xffffffe0u);
    }
}

TEST(DelayLineCases, ClearsBackwardsInPieces) {
    for (auto clear : {krl_blk_delay_clear_flex, KRL_blk_delay_clear_strict}) {
        GuardedBuffer<float> buf(Signal(160, 1.0f));
        float* const start = buf.data();
        krl_delay_state s = {0, 128, start};
        struct { // a call, what it returns, where the cleared floats begin afterwards
            float* end;
            uint32_t n;
            float* result;
            size_t first;
        } const calls[] = {{nullptr, 0, start + 160, 160},     {nullptr, 50, start + 110, 110},
                           {start + 110, 100, start + 10, 10}, {start + 1000, 1, start + 159, 10}, // clamped
                           {start + 10, 10, start, 0},         {start + 10, 11, nullptr, 0},
                           {nullptr, 0xffffffffu, nullptr, 0}, {start - 10, 1, nullptr, 0}};
        for (const auto& call : calls) {
            EXPECT_EQ(clear(&s, call.end, call.n), call.result) << call.n;
            EXPECT_EQ(std::count(start, start + call.first, 1.0f), static_cast<long>(call.first)) << call.n;
            EXPECT_EQ(std::count(start + call.first, start + 160, 0.0f), static_cast<long>(160 - call.first));
        }
    }
}

TEST(BlockFilterFamily, TheTableNamesEveryExportedSymbol) {
    KRL_blk_LfirUL_set_coef(nullptr); // reads nothing
    std::set<std::string> named = {   // members with tests of their own
                                   "krl_blk_LfirUL_flex",
                                   "KRL_blk_LfirUL_strict",
                                   "KRL_blk_LfirUL_setup",
                                   "KRL_blk_LfirUL_set_coef",
                                   "krl_blk_Lcrossfade_gainLS_flex",
                                   "KRL_blk_Lcrossfade_gainLS_strict",
                                   "KRL_blk_Lcrossfade_gainLS_setup",
                                   "krl_blk_delay_setup_flex",
                                   "KRL_blk_delay_setup_strict",
                                   "krl_blk_delayL_flex",
                                   "KRL_blk_delayL_strict",
                                   "krl_blk_LdelayU_flex",
                                   "KRL_blk_LdelayU_strict",
                                   "krl_blk_delay_clear_flex",
                                   "KRL_blk_delay_clear_strict",
                                   "KRL_blk_refLdelayU"};
    for (const auto& f : filters())
        named.insert(f.names.begin(), f.names.end());
    EXPECT_EQ(named, exported_symbols("block_filter"));
}

} // namespace
