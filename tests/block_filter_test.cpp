#include <korla/dsp/block_filter.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "export_list.h"
#include "guarded_buffer.h"
#include "reference/block_filter_models.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr size_t block = KRL_BLK_LEN;
constexpr uint32_t shift = 3;
using Coefficients = std::vector<float>;

// A record of any kind, opaque to the generic tests.
struct alignas(8) State {
    unsigned char bytes[24];
};
template <class S> S& as(State& s) { return *reinterpret_cast<S*>(s.bytes); }

using Call = std::function<void(float* dst, const float* x, const float* other, const float* coef, State&)>;

// One row per pair and coefficient set: both entries, the model of a block, what _setup has to leave behind.
// in, out: samples a call consumes and produces. Members that work in place get x in dst.
struct Filter {
    const char *flex_name, *strict_name, *setup_name;
    size_t in, out;
    bool in_place;
    Coefficients coef;
    Call flex, strict, model;
    std::function<void(State&)> setup;
    std::function<std::vector<double>(State&)> fields;
    std::vector<double> initial;
    bool decays = true; // to silence, after its input
};

struct Shape {
    size_t in = block, out = block;
    bool in_place = false;
};

// call(f, dst, x, other, coef, state); model(state, coef, x, other) gives the outputs of as many inputs as one step
// takes.
template <class F, class S, class Make, class Model>
Filter row(const char* flex_name, const char* strict_name, F* flex, F* strict, const char* setup_name,
           void (*setup)(S*), Coefficients coef, Make call, Model model, Shape shape = {}) {
    auto bind = [call](F* f) {
        return [=](float* dst, const float* x, const float* other, const float* c, State& s) {
            call(f, dst, x, other, c, &as<S>(s));
        };
    };
    auto whole_block = [=](float* dst, const float* x, const float* other, const float* c, State& s) {
        const size_t inputs = shape.in / block, outputs = shape.out / block;
        for (size_t i = 0; i < block; i++)
            model(as<S>(s), c, x + inputs * i, other + i, dst + outputs * i);
    };
    return {flex_name, strict_name, setup_name, shape.in, shape.out, shape.in_place, coef, bind(flex), bind(strict),
            whole_block, [setup](State& s) { setup(&as<S>(s)); }, [](State& s) { return model::fields(as<S>(s)); },
            model::fields(S{}), true};
}
#define ENTRIES(flex, strict, setup) #flex, #strict, flex, strict, #setup, setup

// Models of one sample, as the table wants them.
template <class S> auto sample(float (*f)(S&, const float*, float)) {
    return [f](S& s, const float* c, const float* x, const float*, float* y) { *y = f(s, c, *x); };
}
template <bool with_floor>
void envelope(krl_envelope_state& s, const float* c, const float* x, const float*, float* y) {
    *y = model::attack_decay(s, c, *x, with_floor);
}
void ssv2(krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
    *y = model::iir2ssv23(s, c, *x, 2.0f, 1.0f);
}
void ssv3(krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
    *y = model::iir2ssv23(s, c, *x, 2.0f, 0.0625f);
}

auto plain = [](auto f, float* dst, const float* x, const float*, const float* c, auto* s) { f(dst, x, c, s); };
auto shifted = [](auto f, float* dst, const float* x, const float*, const float* c, auto* s) {
    f(dst, x, c, s, shift);
};
auto two_sources = [](auto f, float* dst, const float* x, const float* o, const float* c, auto* s) {
    f(dst, x, o, c, s);
};
auto inplace = [](auto f, float* dst, const float*, const float*, const float* c, auto* s) { f(dst, c, s); };
auto array_of_one = [](auto f, float* dst, const float*, const float*, const float* c, auto* s) { f(&dst, c, &s, 1u); };
template <uint32_t u>
auto reciprocal = [](auto f, float* dst, const float* x, const float*, const float*, auto* s) { f(dst, x, u, s); };
template <uint32_t u> void reciprocal_setup(krl_reciprocal_state* s) { KRL_blk_LnrrecipLU_setup(s, u); }
template <uint32_t u>
auto reciprocal_model = [](krl_reciprocal_state& s, const float*, const float* x, const float*, float* y) {
    *y = model::reciprocal(s, *x, u);
};

std::vector<Filter> make_filters() {
    const Coefficients one_pole = {0.1f, 0.15f, 0.75f}, slow_pole = {0.01f, 0.02f, 0.9997f};
    const Coefficients resonance = {0.2f, 0.3f, -0.1f, 0.79f, -0.81f}; // poles of radius 0.9
    const Coefficients rotation = {0.25f, 0.3f, -0.2f, 0.6f, 0.7f};     // ssv1 poles of radius 0.92
    const Coefficients spiral = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f};     // ssv2 and ssv3 poles inside 0.9
    const Shape in_place = {block, block, true};
    std::vector<Filter> all = {
        row(ENTRIES(krl_blk_Liir1L_flex, KRL_blk_Liir1L_strict, KRL_blk_Liir1L_setup), one_pole, plain,
            sample(model::iir1)),
        row(ENTRIES(krl_blk_Liir1L_flex, KRL_blk_Liir1L_strict, KRL_blk_Liir1L_setup), {0.0f, 1.0f, 0.0f}, plain,
            sample(model::iir1)),
        row(ENTRIES(krl_blk_Liir1_shlLU_flex, KRL_blk_Liir1_shlLU_strict, KRL_blk_Liir1_shlLU_setup), one_pole, shifted,
            [](krl_iir1_state& s, const float* c, const float* x, const float*, float* y) {
                *y = power_of_two(shift) * model::iir1(s, c, *x);
            }),
        row(ENTRIES(krl_blk_Liir1_shl_addLL_flex, KRL_blk_Liir1_shl_addLL_strict, KRL_blk_Liir1_shl_addLL_setup),
            one_pole, two_sources,
            [](krl_iir1_state& s, const float* c, const float* x, const float* other, float* y) {
                *y = std::fma(model::iir1(s, c, *x), 2.0f, *other);
            }),
        row(ENTRIES(krl_blk_Liir1xL_flex, KRL_blk_Liir1xL_strict, KRL_blk_Liir1xL_setup), slow_pole, plain,
            sample(model::iir1x)),
        row(ENTRIES(krl_blk_Liir2df1L_flex, KRL_blk_Liir2df1L_strict, KRL_blk_Liir2df1L_setup), resonance, plain,
            sample(model::iir2df1)),
        row(ENTRIES(krl_blk_Liir2ssv1L_flex, KRL_blk_Liir2ssv1L_strict, KRL_blk_Liir2ssv1L_setup), rotation, plain,
            sample(model::iir2ssv1)),
        row(ENTRIES(krl_blk_Liir2ssv1efL_flex, KRL_blk_Liir2ssv1efL_strict, KRL_blk_Liir2ssv1efL_setup), rotation,
            plain, sample(model::iir2ssv1)),
        row(
            ENTRIES(krl_blk_Liir2ssv1_dsmpL_flex, KRL_blk_Liir2ssv1_dsmpL_strict, KRL_blk_Liir2ssv1_dsmpL_setup),
            rotation, plain,
            [](krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
                *y = model::iir2ssv1(s, c, x[0]);
                model::advance_ssv1(s, c, x[1]);
            },
            Shape{2 * block, block}),
        row(
            ENTRIES(krl_blk_Liir2ssv1_usmpL_flex, KRL_blk_Liir2ssv1_usmpL_strict, KRL_blk_Liir2ssv1_usmpL_setup),
            rotation, plain,
            [](krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
                y[0] = model::iir2ssv1(s, c, *x);
                y[1] = 2.0f * (s.s0 + s.s1);
                model::advance_ssv1(s, c, 0.0f);
            },
            Shape{block, 2 * block}),
        row(ENTRIES(krl_blk_Liir2ssv2L_flex, KRL_blk_Liir2ssv2L_strict, KRL_blk_Liir2ssv2L_setup), spiral, plain, ssv2),
        row(ENTRIES(krl_blk_Liir2ssv2L_inplace_flex, KRL_blk_Liir2ssv2L_inplace_strict,
                    KRL_blk_Liir2ssv2L_inplace_setup),
            spiral, inplace, ssv2, in_place),
        row(ENTRIES(krl_blk_Liir2ssv2_shlLU_flex, KRL_blk_Liir2ssv2_shlLU_strict, KRL_blk_Liir2ssv2_shlLU_setup),
            spiral, shifted,
            [](krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
                *y = model::iir2ssv23(s, c, *x, power_of_two(shift + 1), 1.0f);
            }),
        row(ENTRIES(krl_blk_Liir2ssv3L_inplace_flex, KRL_blk_Liir2ssv3L_inplace_strict,
                    KRL_blk_Liir2ssv3L_inplace_setup),
            spiral, inplace, ssv3, in_place),
        row(ENTRIES(KRL_blk_Liir2ssv3aLU_inplace, KRL_blk_Liir2ssv3aLU_inplace_strict,
                    KRL_blk_Liir2ssv3aLU_inplace_setup),
            spiral, array_of_one, ssv3, in_place),
        row(ENTRIES(krl_blk_Lfir2L_flex, KRL_blk_Lfir2L_strict, KRL_blk_Lfir2L_setup), {0.7f, -0.4f}, plain,
            sample(model::fir2)),
        row(ENTRIES(krl_blk_Lfir3L_flex, KRL_blk_Lfir3L_strict, KRL_blk_Lfir3L_setup), {0.7f, -0.4f, 0.9f}, plain,
            sample(model::fir3)),
    };
    // Attack and decay, hold, and coefficients of both signs, which bring zeros of different signs together.
    for (const Coefficients& c : {Coefficients{0.3f, 0.01f, 0.9f}, {1.0f, 0.0f, 0.0f}, {-1.0f, 1.0f, -0.5f}}) {
        all.push_back(row(ENTRIES(krl_blk_Lattack_decay_iir1L_flex, KRL_blk_Lattack_decay_iir1L_strict,
                                  KRL_blk_Lattack_decay_iir1L_setup), c, plain, envelope<false>));
        all.push_back(row(ENTRIES(krl_blk_Lattack_decay_peak_iir1L_flex, KRL_blk_Lattack_decay_peak_iir1L_strict,
                                  KRL_blk_Lattack_decay_peak_iir1L_setup), c, plain, envelope<true>));
        all[all.size() - 1].decays = all[all.size() - 2].decays = c[1] == 0.01f;
    }
    // Limits {high, low}: plain ones, and every kind that sets maxNum apart from a comparison.
    for (const Coefficients& c : {Coefficients{1.0f, -1.0f}, {0.0f, -1.0f}, {1.0f, -0.0f}, {-0.0f, -1.0f}, {1.0f, 0.0f},
                                  {nan_value, -1.0f}, {1.0f, nan_value}, {nan_value, nan_value}}) {
        all.push_back(row(ENTRIES(krl_blk_LintegrateL_flex, KRL_blk_LintegrateL_strict, KRL_blk_LintegrateL_setup), c,
                          plain, sample(model::integrate)));
        all.back().decays = false;
    }
    auto reciprocals = [&]<uint32_t u>(std::integral_constant<uint32_t, u>) {
        all.push_back(row(ENTRIES(krl_blk_LnrrecipLU_flex, KRL_blk_LnrrecipLU_strict, reciprocal_setup<u>), {},
                          reciprocal<u>, reciprocal_model<u>));
        all.back().setup_name = "KRL_blk_LnrrecipLU_setup";
        all.back().decays = false;
        all.back().initial = {std::ldexp(1.0, -static_cast<int>(u))};
    };
    reciprocals(std::integral_constant<uint32_t, 0>{});
    reciprocals(std::integral_constant<uint32_t, 4>{});
    reciprocals(std::integral_constant<uint32_t, 127>{});
    return all;
}
const std::vector<Filter>& filters() {
    static const std::vector<Filter> all = make_filters();
    return all;
}

// Two blocks at most of input; with specials, a few of them are not ordinary numbers.
std::vector<float> signal(uint64_t seed, bool with_specials) {
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

    // One call of an entry in buffers of its own, against the model; both states move on.
    void check_block(const Call& entry, size_t misalignment, State& state, State& expected_state, uint64_t seed,
                     bool with_specials) {
        const auto data = signal(2 * seed, with_specials), other = signal(2 * seed + 1, with_specials);
        std::vector<float> expected(f.out);
        f.model(expected.data(), data.data(), other.data(), f.coef.data(), expected_state);

        const size_t shifted = misalignment ? (misalignment + 3) % 8 : 0;
        GuardedBuffer<float> x(std::vector<float>(data.begin(), data.begin() + f.in), misalignment), o(other, shifted);
        GuardedBuffer<float> dst(f.in_place ? x.values() : std::vector<float>(f.out), shifted);
        GuardedBuffer<float> coef(f.coef, misalignment);
        entry(dst.data(), x.data(), o.data(), coef.data(), state);
        EXPECT_BITS_EQ(dst.data(), expected, f.out) << "block " << seed;
        EXPECT_BITS_EQ(f.fields(state), f.fields(expected_state), f.initial.size()) << "state after block " << seed;
        EXPECT_BITS_EQ(x.data(), data, f.in) << "the source changed";
        EXPECT_BITS_EQ(coef.data(), f.coef, f.coef.size()) << "the coefficients changed";
    }
};

TEST_P(BlockFilter, BothEntriesFollowTheModelFromBlockToBlock) {
    State flex, strict, flex_model, strict_model;
    for (State* s : {&flex, &strict, &flex_model, &strict_model}) {
        std::memset(s, 0x5a, sizeof(State));
        f.setup(*s);
        EXPECT_BITS_EQ(f.fields(*s), f.initial, f.initial.size()) << "after setup";
    }
    for (uint64_t b = 0; b < 24; b++) {
        check_block(f.flex, b % 8, flex, flex_model, b, false);
        check_block(f.strict, 0, strict, strict_model, 50 + b, false);
    }
}

TEST_P(BlockFilter, SpecialValuesPassAsTheModelSays) {
    for (uint64_t b = 0; b < 32; b++) {
        State state, expected;
        f.setup(state);
        f.setup(expected);
        check_block(b % 2 ? f.flex : f.strict, 0, state, expected, 100 + b, true);
        check_block(b % 2 ? f.flex : f.strict, 0, state, expected, 150 + b, false); // with what stayed in the state
    }
}

TEST_P(BlockFilter, FlexDestinationMayOverlapItsSourcesAtAnyOffset) {
    if (f.in_place)
        return;
    for (int offset : {-31, -8, -5, -1, 0, 1, 3, 8, 31}) {
        const auto x = signal(7, false), other = signal(8, false);
        State expected_state, state;
        f.setup(expected_state);
        std::vector<float> expected(f.out);
        f.model(expected.data(), x.data(), other.data(), f.coef.data(), expected_state);
        for (bool over_other : {false, true}) {
            f.setup(state);
            GuardedBuffer<float> both(5 * block);
            const auto& overlapped = over_other ? other : x;
            std::copy(overlapped.begin(), overlapped.end(), both.data() + block);
            const float* const in_both = both.data() + block;
            float* const dst = both.data() + block + offset;
            f.flex(dst, over_other ? x.data() : in_both, over_other ? in_both : other.data(), f.coef.data(), state);
            EXPECT_BITS_EQ(dst, expected, f.out) << "offset " << offset;
        }
    }
}

TEST_P(BlockFilter, StaysBoundedOverAMillionSamplesAndFallsSilent) {
    if (!f.decays)
        return;
    Random random(3);
    State state;
    f.setup(state);
    GuardedBuffer<float> x(2 * block), silence(2 * block), dst(2 * block);
    float peak = 0.0f;
    auto run = [&](size_t inputs, bool loud) {
        peak = 0.0f;
        for (size_t done = 0; done < inputs; done += f.in) {
            for (size_t i = 0; loud && i < f.in; i++)
                x[i] = random.uniform();
            const float* in = loud ? x.data() : silence.data();
            if (f.in_place)
                std::copy(in, in + block, dst.data());
            f.flex(dst.data(), in, silence.data(), f.coef.data(), state);
            for (size_t i = 0; i < f.out; i++)
                peak = std::fmax(peak, std::fabs(dst[i]));
        }
    };
    run(1000000, true);
    EXPECT_GT(peak, 0.1f);
    EXPECT_LT(peak, 200.0f);
    for (double v : f.fields(state))
        EXPECT_LT(std::fabs(v), 200.0);
    run(64000, false);
    run(f.in, false);
    EXPECT_LT(peak, 1e-6f);
}

INSTANTIATE_TEST_SUITE_P(Family, BlockFilter, ::testing::ValuesIn(filters()), [](const auto& info) {
    return std::string(info.param.strict_name) + "_" + std::to_string(info.index);
});

// ---- what a reader of the header expects of single members ----------------------------------------------------------

TEST(BlockFilterCases, FirstOrderFilterPassesOrDelays) {
    const auto x = Random(1).vector(2 * block);
    std::vector<float> y(2 * block);
    krl_iir1_state s;
    const float pass[] = {1.0f, 0.0f, 0.0f}, delay[] = {0.0f, 1.0f, 0.0f};
    KRL_blk_Liir1L_setup(&s);
    krl_blk_Liir1L_flex(y.data(), x.data(), pass, &s);
    EXPECT_BITS_EQ(y, x, block);
    KRL_blk_Liir1L_setup(&s);
    for (size_t b = 0; b < 2; b++)
        krl_blk_Liir1L_flex(y.data() + b * block, x.data() + b * block, delay, &s);
    EXPECT_EQ(y[0], 0.0f);
    EXPECT_BITS_EQ(y.data() + 1, x, 2 * block - 1);
}

TEST(BlockFilterCases, StatesWithoutCoefficientsLeaveOnce) {
    const float none[5] = {};
    std::vector<float> x(block, 1.0f), y(block);
    krl_iir2ss_state s = {0.25f, 0.5f};
    krl_blk_Liir2ssv1L_flex(y.data(), x.data(), none, &s);
    EXPECT_EQ(y[0], 1.5f);
    EXPECT_TRUE(std::all_of(y.begin() + 1, y.end(), [](float v) { return v == 0.0f; }));
}

TEST(BlockFilterCases, EnvelopeHoldsIntegratorSaturatesReciprocalConverges) {
    std::vector<float> x(block, 0.25f), y(block);
    krl_envelope_state e;
    KRL_blk_Lattack_decay_iir1L_setup(&e);
    const float hold[] = {1.0f, 0.0f};
    x[3] = 0.75f, x[9] = 0.875f;
    krl_blk_Lattack_decay_iir1L_flex(y.data(), x.data(), hold, &e);
    for (size_t i = 0; i < block; i++)
        EXPECT_EQ(y[i], i < 3 ? 0.25f : i < 9 ? 0.75f : 0.875f);

    std::fill(x.begin(), x.end(), 0.25f);
    krl_integrator_state acc;
    KRL_blk_LintegrateL_setup(&acc);
    const float limits[] = {1.0f, -1.0f};
    krl_blk_LintegrateL_flex(y.data(), x.data(), limits, &acc);
    for (size_t i = 0; i < block; i++)
        EXPECT_EQ(y[i], i < 3 ? 0.25f * static_cast<float>(i + 1) : 1.0f);

    for (uint32_t u : {0u, 3u, 20u})
        for (float value : {2.0f, 0.7f, 1.9f}) {
            std::fill(x.begin(), x.end(), value);
            krl_reciprocal_state r;
            KRL_blk_LnrrecipLU_setup(&r, u);
            krl_blk_LnrrecipLU_flex(y.data(), x.data(), u, &r);
            EXPECT_NEAR(y[31] * value * power_of_two(static_cast<int>(u)), 1.0f, 3e-7f) << u << " " << value;
        }
}

TEST(BlockFilterCases, WildShiftsStayInsideTheBuffers) {
    GuardedBuffer<float> x(Random(2).vector(block)), dst(block), coef(std::vector<float>(5, 0.25f));
    krl_iir1_state one = {};
    krl_iir2ss_state two = {};
    krl_reciprocal_state r = {1.0f};
    for (uint32_t u : {126u, 127u, 128u, 255u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        krl_blk_Liir1_shlLU_flex(dst.data(), x.data(), coef.data(), &one, u);
        krl_blk_Liir2ssv2_shlLU_flex(dst.data(), x.data(), coef.data(), &two, u);
        krl_blk_LnrrecipLU_flex(dst.data(), x.data(), u, &r);
        KRL_blk_LnrrecipLU_setup(&r, u);
    }
}

TEST(BlockFilterArray, EverySignalIsFilteredAsOnItsOwn) {
    const float coef[] = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f};
    for (uint32_t count = 0; count <= 11; count++)
        for (bool strict : {false, true}) {
            std::vector<std::unique_ptr<GuardedBuffer<float>>> buffers;
            std::vector<std::vector<float>> expected;
            std::vector<krl_iir2ss_state> states(count), expected_states(count);
            std::vector<float*> blocks;
            std::vector<krl_iir2ss_state*> records;
            for (uint32_t k = 0; k < count; k++) {
                states[k] = expected_states[k] = {0.1f * static_cast<float>(k), -0.2f};
                expected.push_back(Random(k).vector(block));
                buffers.push_back(std::make_unique<GuardedBuffer<float>>(expected[k], strict ? 0 : k % 8));
                krl_blk_Liir2ssv3L_inplace_flex(expected[k].data(), coef, &expected_states[k]);
                blocks.push_back(buffers[k]->data());
                records.push_back(&states[k]);
            }
            (strict ? KRL_blk_Liir2ssv3aLU_inplace_strict : KRL_blk_Liir2ssv3aLU_inplace)(blocks.data(), coef,
                                                                                          records.data(), count);
            for (uint32_t k = 0; k < count; k++) {
                EXPECT_BITS_EQ(blocks[k], expected[k], block) << k << " of " << count;
                EXPECT_BITS_EQ(model::fields(states[k]), model::fields(expected_states[k]), 2);
            }
        }
}

// ---- transversal filter of any length -------------------------------------------------------------------------------

TEST(BlockFir, EveryLengthIsExactOnIntegersAndKeepsItsHistory) {
    std::vector<uint32_t> lengths = {127, 128, 129, 500, 1024};
    for (uint32_t u = 0; u <= 80; u++)
        lengths.push_back(u);
    for (uint32_t u : lengths) {
        const size_t blocks = 4 + 2 * u / block;
        Random random(u);
        auto integers = [&](size_t n) {
            auto v = random.vector(n, -100.0f, 100.0f);
            for (float& x : v)
                x = std::round(x);
            return v;
        };
        // Sums of integers below 2^24 are exact in any order.
        const auto h = integers(u), x = integers(blocks * block);
        const size_t old = u > 0 ? u - 1 : 0;
        GuardedBuffer<float> state(std::vector<float>(old, 5.0f), u % 8), taps(h, u % 5);
        KRL_blk_LfirUL_setup(state.data(), u);
        for (size_t b = 0; b < blocks; b++) {
            const bool strict = b % 3 == 0;
            const std::vector<float> in(x.begin() + b * block, x.begin() + (b + 1) * block);
            GuardedBuffer<float> src(in, strict ? 0 : b % 8), dst(block, strict ? 0 : 7 - b % 8);
            (strict ? KRL_blk_LfirUL_strict : krl_blk_LfirUL_flex)(dst.data(), src.data(), u, taps.data(),
                                                                   state.data());
            for (size_t i = 0; i < block; i++) {
                double sum = 0.0;
                for (size_t k = 0; k < u && k <= b * block + i; k++)
                    sum += double(h[k]) * double(x[b * block + i - k]);
                ASSERT_EQ(dst[i], sum) << u << " taps, block " << b << ", sample " << i;
            }
        }
        for (size_t k = 0; k < old; k++)
            ASSERT_EQ(state[k], x[x.size() - old + k]) << u << " taps";
    }
}

TEST(BlockFir, ErrorStaysWithinItsBoundAndOverlapChangesNothing) {
    for (uint32_t u : {1u, 3u, 8u, 33u, 200u}) {
        const auto h = Random(u).vector(u), x = Random(u + 1).vector(block), before = Random(u + 2).vector(u);
        std::vector<float> y(block);
        auto state = before;
        krl_blk_LfirUL_flex(y.data(), x.data(), u, h.data(), state.data());
        for (int i = 0; i < static_cast<int>(block); i++) {
            double sum = 0.0, magnitude = 0.0;
            for (int k = 0; k < static_cast<int>(u); k++) {
                const double product = double(h[k]) * double(i >= k ? x[i - k] : before[u - 1 + i - k]);
                sum += product, magnitude += std::fabs(product);
            }
            EXPECT_NEAR(y[i], sum, (u / 2 + 2) * 0x1p-24 * magnitude) << u << " taps, sample " << i;
        }
        for (int offset : {-31, -8, -1, 0, 3, 31}) {
            GuardedBuffer<float> both(3 * block);
            std::copy(x.begin(), x.end(), both.data() + block);
            state = before;
            krl_blk_LfirUL_flex(both.data() + block + offset, both.data() + block, u, h.data(), state.data());
            EXPECT_BITS_EQ(both.data() + block + offset, y, block) << u << " taps, offset " << offset;
        }
    }
}

// ---- crossfade gain -------------------------------------------------------------------------------------------------

TEST(BlockCrossfade, GainMovesThroughTheWindowAndStartsAgain) {
    for (uint32_t len : {32u, 64u, 160u})
        for (size_t misalignment = 0; misalignment < 8; misalignment++) {
            GuardedBuffer<float> window(Random(len).vector(len, 0.0f, 1.0f), misalignment);
            krl_crossfade_state s = {77, 77};
            KRL_blk_Lcrossfade_gainLS_setup(&s, window.data(), len);
            EXPECT_EQ(s.pos, 0u);
            EXPECT_EQ(s.len, len);
            const float a = 0.3f, b = -1.7f;
            for (uint32_t call = 0; call < 2 * len / block + 1; call++) {
                const uint32_t pos = call * block % len;
                GuardedBuffer<float> x(Random(call).vector(block), misalignment ? 7 - misalignment : 0);
                const auto before = x.values();
                const bool strict = misalignment == 0;
                GuardedBuffer<float> apart(block, misalignment);
                float* const dst = call % 2 ? x.data() : apart.data();
                (strict ? KRL_blk_Lcrossfade_gainLS_strict
                        : krl_blk_Lcrossfade_gainLS_flex)(dst, &s, x.data(), window.data(), a, b);
                for (uint32_t i = 0; i < block; i++) {
                    const float gain = std::fma(window[len - 1 - (pos + i)], a, b * window[pos + i]);
                    ASSERT_TRUE(same_bits(dst[i], gain * before[i])) << "window " << len << ", at " << pos + i;
                }
                ASSERT_EQ(s.pos, (call + 1) * block % len);
            }
        }
}

TEST(BlockCrossfade, WindowOfAnotherLengthIsNotLeft) {
    std::vector<float> x(block, 1.0f), dst(block);
    for (uint32_t len : {0u, 1u, 20u, 33u, 40u, 95u}) {
        std::vector<float> around(len + 2 * block, nan_value); // a read outside the window shows up as NaN
        float* const window = around.data() + block;
        std::fill(window, window + len, 0.5f);
        krl_crossfade_state s;
        KRL_blk_Lcrossfade_gainLS_setup(&s, window, len);
        for (int call = 0; call < 50; call++) {
            krl_blk_Lcrossfade_gainLS_flex(dst.data(), &s, x.data(), window, 1.0f, 3.0f);
            for (float v : dst)
                ASSERT_EQ(v, len ? 2.0f : 0.0f) << len;
        }
        s.pos = 0xfffffff8u;
        krl_blk_Lcrossfade_gainLS_flex(dst.data(), &s, x.data(), window, 1.0f, 3.0f);
        EXPECT_EQ(dst[31], len ? 2.0f : 0.0f);
    }
}

// ---- delay line -----------------------------------------------------------------------------------------------------

class DelayLine : public ::testing::TestWithParam<uint32_t> {};

TEST_P(DelayLine, ReadsEveryDelayOverEveryWrap) {
    const uint32_t max_delay = GetParam(), len = (max_delay + 31) / 32 * 32 + 32;
    for (size_t misalignment : {0, 1, 5}) {
        const bool strict = misalignment == 0;
        GuardedBuffer<float> buf(std::vector<float>(len + block, nan_value), misalignment);
        krl_delay_state s = {99, 99, nullptr};
        (strict ? KRL_blk_delay_setup_strict : krl_blk_delay_setup_flex)(&s, buf.data(), max_delay);
        ASSERT_EQ(s.len, len);
        ASSERT_EQ(s.pos, 0u);
        ASSERT_EQ(s.buf, buf.data());
        ASSERT_TRUE(std::isnan(buf[0])) << "setup leaves the buffer alone";
        (strict ? KRL_blk_delay_clear_strict : krl_blk_delay_clear_flex)(&s, nullptr, len + block);

        std::vector<float> history(len); // silence before the first block
        for (uint32_t b = 0; b < 3 * len / block + 2; b++) {
            GuardedBuffer<float> x(Random(b).vector(block), misalignment);
            const auto fresh = x.values();
            history.insert(history.end(), fresh.begin(), fresh.end());
            (strict ? KRL_blk_delayL_strict : krl_blk_delayL_flex)(&s, x.data());
            for (uint32_t d = 0; d <= len - block; d++) {
                const float* expected = history.data() + history.size() - block - d;
                GuardedBuffer<float> dst(block, misalignment);
                (strict ? KRL_blk_LdelayU_strict : krl_blk_LdelayU_flex)(&s, dst.data(), d);
                ASSERT_TRUE(bit_equal(dst.data(), expected, block)) << "block " << b << ", delay " << d;
                ASSERT_TRUE(bit_equal(KRL_blk_refLdelayU(&s, d), expected, block)) << "block " << b << ", delay " << d;
            }
        }
        // Delays that reach beyond the line stay inside its buffer.
        for (uint32_t d : {len - 31, len, len + 1, 0xffffffffu}) {
            const float* at = KRL_blk_refLdelayU(&s, d);
            EXPECT_GE(at, buf.data());
            EXPECT_LE(at, buf.data() + len);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(MaximumDelay, DelayLine, ::testing::Values(0, 1, 31, 32, 33, 100, 256, 777));

TEST(DelayLineCases, SourceMayLieInTheLineAndDestinationToo) {
    GuardedBuffer<float> buf(Random(4).vector(128));
    krl_delay_state s = {64, 96, buf.data()};
    const auto before = buf.values();
    krl_blk_delayL_flex(&s, buf.data() + 5); // wraps: goes to the front and to the guard
    EXPECT_BITS_EQ(buf.data(), before.data() + 5, block);
    EXPECT_BITS_EQ(buf.data() + 96, before.data() + 5, block);
    krl_blk_LdelayU_flex(&s, buf.data() + 33, 50);
    EXPECT_BITS_EQ(buf.data() + 33, before.data() + 46, 18);
}

TEST(DelayLineCases, ClearsBackwardsInPieces) {
    for (auto clear : {krl_blk_delay_clear_flex, KRL_blk_delay_clear_strict}) {
        GuardedBuffer<float> buf(std::vector<float>(160, 1.0f));
        krl_delay_state s = {0, 128, buf.data()};
        auto zeros_from = [&](size_t first, size_t last) {
            for (size_t i = 0; i < 160; i++)
                if ((buf[i] == 0.0f) != (i >= first && i < last))
                    return false;
            return true;
        };
        EXPECT_EQ(clear(&s, nullptr, 0), buf.data() + 160);
        EXPECT_TRUE(zeros_from(160, 160));
        float* end = clear(&s, nullptr, 50);
        EXPECT_EQ(end, buf.data() + 110);
        EXPECT_TRUE(zeros_from(110, 160));
        end = clear(&s, end, 100);
        EXPECT_EQ(end, buf.data() + 10);
        EXPECT_TRUE(zeros_from(10, 160));
        EXPECT_EQ(clear(&s, end, 10), buf.data()) << "reached exactly";
        EXPECT_EQ(clear(&s, end, 11), nullptr);
        EXPECT_EQ(clear(&s, nullptr, 0xffffffffu), nullptr);
        EXPECT_EQ(clear(&s, buf.data() + 1000, 1), buf.data() + 159) << "an end behind the guard is the guard's end";
        EXPECT_EQ(clear(&s, buf.data() - 10, 1), nullptr) << "nothing in front of the buffer";
    }
}

TEST(DelayLineCases, TheLongestLineKeepsItsLengthInRange) {
    for (uint32_t max_delay : {0xffffffc0u, 0xffffffc1u, 0xffffffffu}) {
        krl_delay_state s;
        krl_blk_delay_setup_flex(&s, nullptr, max_delay);
        EXPECT_EQ(s.len, 0xffffffe0u);
    }
}

// ---- the whole family -----------------------------------------------------------------------------------------------

#define NAMED(function) {#function, function}
const std::vector<std::pair<const char*, void (*)(const float*)>> coefficient_hooks = {
    NAMED(KRL_blk_Liir1L_set_coef),
    NAMED(KRL_blk_Liir1_shlLU_set_coef),
    NAMED(KRL_blk_Liir1_shl_addLL_set_coef),
    NAMED(KRL_blk_Liir1xL_set_coef),
    NAMED(KRL_blk_Liir2df1L_set_coef),
    NAMED(KRL_blk_Liir2ssv1L_set_coef),
    NAMED(KRL_blk_Liir2ssv1efL_set_coef),
    NAMED(KRL_blk_Liir2ssv1_dsmpL_set_coef),
    NAMED(KRL_blk_Liir2ssv1_usmpL_set_coef),
    NAMED(KRL_blk_Liir2ssv2L_set_coef),
    NAMED(KRL_blk_Liir2ssv2L_inplace_set_coef),
    NAMED(KRL_blk_Liir2ssv2_shlLU_set_coef),
    NAMED(KRL_blk_Liir2ssv3L_inplace_set_coef),
    NAMED(KRL_blk_Liir2ssv3aLU_inplace_set_coef),
    NAMED(KRL_blk_Lfir2L_set_coef),
    NAMED(KRL_blk_Lfir3L_set_coef),
    NAMED(KRL_blk_LfirUL_set_coef),
    NAMED(KRL_blk_Lattack_decay_iir1L_set_coef),
    NAMED(KRL_blk_Lattack_decay_peak_iir1L_set_coef),
    NAMED(KRL_blk_LintegrateL_set_coef),
};

TEST(BlockFilterFamily, CoefficientHooksReadNothing) {
    for (const auto& [name, hook] : coefficient_hooks)
        hook(nullptr);
}

TEST(BlockFilterFamily, TheTablesNameEveryExportedSymbol) {
    std::set<std::string> named = {
        // members with tests of their own above
        "krl_blk_LfirUL_flex", "KRL_blk_LfirUL_strict", "KRL_blk_LfirUL_setup",
        "krl_blk_Lcrossfade_gainLS_flex", "KRL_blk_Lcrossfade_gainLS_strict", "KRL_blk_Lcrossfade_gainLS_setup",
        "krl_blk_delay_setup_flex", "KRL_blk_delay_setup_strict", "krl_blk_delayL_flex", "KRL_blk_delayL_strict",
        "krl_blk_LdelayU_flex", "KRL_blk_LdelayU_strict", "krl_blk_delay_clear_flex", "KRL_blk_delay_clear_strict",
        "KRL_blk_refLdelayU"};
    for (const auto& f : filters())
        named.insert({f.flex_name, f.strict_name, f.setup_name});
    for (const auto& [name, hook] : coefficient_hooks)
        named.insert(name);
    EXPECT_EQ(named, exported_symbols("block_filter"));
}

} // namespace
