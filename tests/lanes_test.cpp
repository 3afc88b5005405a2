// Every operation on lanes, at every width that has it, against the same on one lane at a time.
#include "dsp/core/lanes.h"

#include <array>
#include <cfenv>
#include <numeric>

#include "guarded_buffer.h"
#include "reference/ieee.h"
#include "signals.h"

namespace korla_test {
namespace {

using namespace krl;

#if defined(KRL_NEON) || defined(KRL_X86_FMA)
constexpr bool fused = true;
#else
constexpr bool fused = false;
#endif
// The widest vectors of the target stand for those of the fixed width where that is the widest.
template <class... V> void each(auto test) { (test.template operator()<V>(), ...); }
void each_vector(auto test) { each<f32x4, f32v>(test); } // of floats
void each_width(auto test) { each<float, f32x4, f32v>(test); }
void each_double(auto test) { each<f64x2, f64v>(test); }

template <class V> using numbers_of = std::array<element_of<V>, lanes<V>>;
template <class V> V lanes_of(auto f) {
    numbers_of<V> x;
    for (int k = 0; k < lanes<V>; k++)
        x[k] = static_cast<element_of<V>>(f(k));
    return std::bit_cast<V>(x);
}

bool same(auto a, decltype(a) b) {
    if constexpr (std::is_integral_v<decltype(a)>)
        return a == b;
    else
        return same_bits(a, b);
}

// op of vectors a, b, c against model of lane k of each, over every triple of awkward values.
template <class V> void expect_lanes(const char* name, auto op, auto model) {
    using E = element_of<V>;
    using limits = std::numeric_limits<E>;
    constexpr E tiny = limits::denorm_min(), most = limits::max(), inf = limits::infinity(), nan = limits::quiet_NaN();
    const E values[] = {0,        E(-0.0), 1,    -1,  E(0.3), E(-7.7), E(2.5) + 3 * limits::epsilon(),
                        E(-1e-3), tiny,    most, inf, -inf,   nan};
    const size_t count = std::size(values);
    for (size_t triple = 0; triple < count * count * count; triple++) {
        auto a = [&](size_t k) { return values[(triple + 17 * k) % count]; };
        auto b = [&](size_t k) { return values[(triple + 17 * k) / count % count]; };
        auto c = [&](size_t k) { return values[(triple + 17 * k) / (count * count) % count]; };
        const auto result = op(lanes_of<V>(a), lanes_of<V>(b), lanes_of<V>(c));
        const auto actual = std::bit_cast<numbers_of<std::remove_const_t<decltype(result)>>>(result);
        for (int k = 0; k < lanes<V>; k++)
            ASSERT_TRUE(same(actual[k], model(a(k), b(k), c(k), k)))
                << name << ", lane " << k << " of " << lanes<V> << ": " << a(k) << ", " << b(k) << ", " << c(k);
    }
}
// An expression of vectors a, b, c beside one of numbers a, b, c.
#define EXPECT_LANES(expression, ...)                                                                                  \
    expect_lanes<V>(                                                                                                   \
        #expression, [](V a, [[maybe_unused]] V b, [[maybe_unused]] V c) { return expression; },                       \
        []<class E>(E a, [[maybe_unused]] E b, [[maybe_unused]] E c, [[maybe_unused]] int k) { return __VA_ARGS__; })

TEST(LanesArithmetic, FollowsTheNumbers) {
    each<float, double, f32x4, f64x2, f32v, f64v>([]<class V>() {
        EXPECT_LANES(krl::abs(a), std::fabs(a));
        EXPECT_LANES(krl::fma(a, b, c), std::fma(a, b, c));
    });
    each<f32x4, f64x2, f32v, f64v>([]<class V>() { EXPECT_LANES(select(a > b, a, c), a > b ? a : c); });
    each_width([]<class V>() {
        EXPECT_LANES(mul_add(a, b, c), fused ? std::fma(a, b, c) : a * b + c);
        EXPECT_LANES(mul_sub_from(a, b, c), fused ? std::fma(-a, b, c) : c - a * b);
    });
    each_vector([]<class V>() { EXPECT_LANES(conjugate(a), k % 2 ? -a : a); });
}

TEST(LanesMaximum, FollowsItsRuleForNaNAndZeros) {
    each<float, double, f32x4, f32v>([]<class V>() {
        EXPECT_LANES(krl::max_num(a, b), korla_test::max_num(a, b));
        EXPECT_LANES(max_quick(a, b), quick_is_exact ? korla_test::max_num(a, b) : a > b ? a : b);
    });
    each_width([]<class V>() {
        EXPECT_LANES(krl::min_num(a, b), korla_test::min_num(a, b));
        EXPECT_LANES(min_quick(a, b), quick_is_exact ? korla_test::min_num(a, b) : a < b ? a : b);
        EXPECT_LANES(max_of_number(a, krl::max_num(b, splat<V>(-1e30f))) + 0.0f,
                     std::fmax(a, std::fmax(b, -1e30f)) + 0.0f);
    });
    each_vector([]<class V>() {
        using M = typename lane_traits<V>::mask;
        EXPECT_LANES(max_nan(a, b), std::isnan(a) ? a : std::isnan(b) ? b : korla_test::max_num(a, b));
        EXPECT_LANES(krl::clamp(a, splat<V>(-0.5f), splat<V>(2.0f)), std::isnan(a) ? a : std::clamp(a, -0.5f, 2.0f));
        EXPECT_LANES(max_int(bit_cast<M>(a), bit_cast<M>(b)),
                     std::max(std::bit_cast<int32_t>(a), std::bit_cast<int32_t>(b)));
        for (int k = 0; k < lanes<V>; k++) {
            const V one = lanes_of<V>([k](int i) { return i == k ? 9.0f : static_cast<float>(i); });
            EXPECT_TRUE(any(one == 9.0f) && !any(one == 10.0f)) << k;
            EXPECT_EQ(max_of_lanes(bit_cast<M>(one)), std::bit_cast<int32_t>(9.0f)) << k;
            EXPECT_EQ(max_of_magnitudes(one), 9.0f) << k;
        }
        EXPECT_EQ(max_of_lanes(M{} - 3), -3);
    });
}

// Every order of addition but the stated one rounds differently.
TEST(LanesSums, JoinHalves) {
    auto joins = []<class V>() {
        using E = element_of<V>;
        const V v = lanes_of<V>([](int i) { return static_cast<E>((i % 2 ? -1.0 : 1.1) * std::pow(7.3, i)); });
        auto s = std::bit_cast<numbers_of<V>>(v);
        for (int half = lanes<V> / 2; half > 0; half /= 2)
            for (int i = 0; i < half; i++)
                s[i] += s[i + half];
        EXPECT_EQ(sum_of_lanes(v), s[0]) << lanes<V>;
    };
    each_vector(joins);
    each_double(joins);
}

// Lane i of each result, said with the operands a = 0, 1, .. and b = 100, 101, .., or both in a row: from(i).
#define EXPECT_ORDER(result, ...)                                                                                      \
    for (int i = 0; i < W; i++)                                                                                        \
    EXPECT_EQ((result)[i], (__VA_ARGS__)) << #result << ", " << W << " lanes, lane " << i

TEST(LanesShuffles, PutEveryLaneInItsPlace) {
    each_vector([]<class V>() {
        static constexpr int W = lanes<V>;
        const V a = lanes_of<V>([](int i) { return i; }), b = 100.0f + a;
        auto from = [=](int i) { return i < W ? a[i] : b[i - W]; };
        auto alternating = [=](int i) { return i % 2 ? b[i / 2] : a[i / 2]; };
        EXPECT_ORDER(reverse(a), a[W - 1 - i]);
        EXPECT_ORDER(interleave(a, b).a, alternating(i));
        EXPECT_ORDER(interleave(a, b).b, alternating(i + W));
        EXPECT_ORDER(deinterleave(a, b).a, from(2 * i));
        EXPECT_ORDER(deinterleave(a, b).b, from(2 * i + 1));
        EXPECT_ORDER(swap_pairs(a), a[i ^ 1]);
        EXPECT_ORDER(even_odd(a, b), i % 2 ? b[i] : a[i]);
        EXPECT_ORDER(transpose_pairs(a, b).a, i % 2 ? b[i - 1] : a[i]);
        EXPECT_ORDER(transpose_pairs(a, b).b, i % 2 ? b[i] : a[i + 1]);
        EXPECT_ORDER(shift_in(a, -5.0f), i ? a[i - 1] : -5.0f);
        V rows[4] = {a, b, a + 0.5f, b + 0.5f}, tiles[4];
        std::copy_n(rows, 4, tiles);
        transpose_quads(tiles); // transpose, of an array
        for (int j = 0; j < 4; j++)
            EXPECT_ORDER(tiles[j], rows[i % 4][i / 4 * 4 + j]);

        // Complex samples: sample k of two vectors stands in lanes 2k and 2k + 1.
        auto backwards = [=](int i) { return i / 2 % 2 ? b[W - 2 - i / 4 * 2 + i % 2] : a[i / 4 * 2 + i % 2]; };
        EXPECT_ORDER(split(a, b).a, from(2 * split_order<V>(i)));
        EXPECT_ORDER(split(a, b).b, from(2 * split_order<V>(i) + 1));
        EXPECT_ORDER(join(split(a, b).a, split(a, b).b).a, a[i]);
        EXPECT_ORDER(join(split(a, b).a, split(a, b).b).b, b[i]);
        EXPECT_ORDER(to_split_order(a), a[split_order<V>(i)]);
        EXPECT_ORDER(to_split_order(to_split_order(a)), a[i]);
        EXPECT_ORDER(to_split_order(reverse(a)), reverse(to_split_order(a))[i]);
        EXPECT_ORDER(interleave_backwards(a, b).a, backwards(i));
        EXPECT_ORDER(interleave_backwards(a, b).b, backwards(i + W));
        const auto [lo, hi] = interleave_backwards(a, b);
        EXPECT_ORDER(deinterleave_backwards(lo, hi).a, a[i]);
        EXPECT_ORDER(deinterleave_backwards(lo, hi).b, b[i]);
    });
    EXPECT_EQ(krl::reverse(3.0f) + to_split_order(4.0f) + split(5.0f, 6.0f).b + join(7.0f, 8.0f).a, 20.0f);

    static constexpr int W = 4;
    const f32x4 a = {0, 1, 2, 3}, b = 100.0f + a;
    EXPECT_ORDER(reverse_complex(a), a[i ^ 2]);
    EXPECT_ORDER(interleave_complex(a, b).a, i < 2 ? a[i] : b[i - 2]);
    EXPECT_ORDER(interleave_complex(a, b).b, i < 2 ? a[i + 2] : b[i]);
    EXPECT_ORDER(lower_halves(a, b), i < 2 ? a[i] : b[i - 2]);
    EXPECT_ORDER(upper_halves(a, b), i < 2 ? a[i + 2] : b[i]);
}

template <int members> void expect_structures() {
    static constexpr int W = lanes<f32v>;
    std::vector<float> ramp(members * W);
    std::iota(ramp.begin(), ramp.end(), 1.0f);
    for (size_t at = 0; at < 4; at++) { // bytes
        GuardedBuffer<uint8_t> in(sizeof(float) * ramp.size(), at), out(in.size(), 3 - at);
        std::memcpy(in.data(), ramp.data(), in.size());
        f32v v[members];
        load_structures(v, in.data());
        for (int m = 0; m < members; m++)
            EXPECT_ORDER(v[m], ramp[members * i + m]);
        store_structures(out.data(), v);
        EXPECT_EQ(out.values(), in.values()) << members;
    }
}
TEST(LanesStructures, AreTakenApartAndPutTogether) {
    expect_structures<2>();
    expect_structures<3>();
    expect_structures<6>();
}

TEST(LanesHalves, StandSideBySide) {
    static constexpr int W = 4;
    const f32x4 a = {0, 1, 2, 3}, b = 100.0f + a, c = {9, 7, 5, 3}, sides[2] = {a, b};
    const f32x4x2 both = beside(a, b), factor = beside(c, -c);
    auto expect = [](f32x4x2 v, f32x4 first, f32x4 second) {
        EXPECT_ORDER(first_half(v), first[i]);
        EXPECT_ORDER(second_half(v), second[i]);
    };
    expect(both, a, b);
    expect(swap_halves(both), b, a);
    expect(reverse(both), reverse(b), reverse(a));
    expect(mul_add(both, factor, both), mul_add(a, c, a), mul_add(b, -c, b));
    expect(mul_sub_from(both, factor, both), mul_sub_from(a, c, a), mul_sub_from(b, -c, b));
    const f32v joined = from_halves([&](int h) { return sides[h]; });
    for (int h = 0; h < halves; h++)
        EXPECT_ORDER(half(joined, h), sides[h][i]);

    const f32v vectors[5] = {joined, {}, {}, {}, joined + 0.5f};
    for (int h = 0; h < halves; h++) {
        EXPECT_ORDER(quads<f32x4>(vectors, h), sides[h][i]);
        for (int i = 0; i < lanes<f32v>; i++)
            EXPECT_EQ(quads<f32v>(vectors, h)[i], sides[h][i % 4] + (i < 4 ? 0.0f : 0.5f));
    }
}

TEST(LanesMemory, IsReadAndWrittenInPlace) {
    each_vector([]<class V>() {
        static constexpr int W = lanes<V>;
        std::vector<float> ramp(32);
        std::iota(ramp.begin(), ramp.end(), 1.0f);
        for (size_t at = 0; at < 8; at++) {
            const float* p = ramp.data() + at;
            GuardedBuffer<float> copy(W, at);
            store(copy.data(), load<V>(p));
            EXPECT_BITS_EQ(copy.data(), p, W);
            EXPECT_ORDER(load_as<V>(p), p[i]);
            EXPECT_ORDER(load_twice<V>(p), p[i / 2]);
            EXPECT_ORDER(load_twice_backwards<V>(p), p[(W - 1 - i) / 2]);
            EXPECT_ORDER(load_groups<V>(p).a, p[i % 4 + i / 4 * 8]);
            EXPECT_ORDER(load_groups<V>(p).b, p[i % 4 + i / 4 * 8 + 4]);
            EXPECT_ORDER((load_groups<V, 12>(p).b), p[i % 4 + i / 4 * 12 + 4]);
        }
        GuardedBuffer<float> aligned(ramp);
        store_aligned(aligned.data() + W, load_aligned<V>(aligned.data()) + splat<V>(0.5f));
        EXPECT_ORDER(aligned, ramp[i]);
        EXPECT_ORDER(aligned.data() + W, ramp[i] + 0.5f);
        for (int count = 0; count < W; count++) { // and not a byte more
            const std::vector<float> few(ramp.begin(), ramp.begin() + count);
            EXPECT_ORDER(load_first<V>(few.data(), count), i < count ? few[i] : 0.0f);
            if constexpr (W == 4) {
                GuardedBuffer<float> stored(count);
                store_first(stored.data(), load<V>(ramp.data()), count);
                EXPECT_BITS_EQ(stored.data(), few, count);
            }
        }
    });
    each_double([]<class V>() {
        static constexpr int W = lanes<V>;
        const std::vector<float> x = {0.1f, 0.2f, 0.3f, 0.4f};
        EXPECT_ORDER(load_as<V>(x.data()), double(x[i]));
        for (int count = 1; count < W; count++)
            EXPECT_ORDER(load_first_as<V>(std::vector(x.begin(), x.begin() + count).data(), count),
                         i < count ? double(x[i]) : 0.0);
    });
    for (int x : {-32768, -1, 0, 32767}) {
        GuardedBuffer<int16_t> in(std::vector<int16_t>{static_cast<int16_t>(x), 1, -2, 300}, 1), four(4, 3);
        store_int16(four.data(), load_int16(in.data()));
        EXPECT_EQ(four.values(), in.values());
        EXPECT_EQ(load_int16(in.data())[0], x);
    }
}

TEST(LanesConversions, RoundOnce) {
    each_vector([]<class V>() {
        static constexpr auto product = [](auto x) {
            const auto wide = to_double(x);
            return to_single({wide.a * 1.1, wide.b * 1.1});
        };
        EXPECT_LANES(product(a), static_cast<float>(double(a) * 1.1));
        static constexpr int W = lanes<V> / 2;
        const V v = lanes_of<V>([](int i) { return 0.1f * static_cast<float>(i); });
        EXPECT_ORDER(to_double(v).a, double(v[i]));
        EXPECT_ORDER(to_double(v).b, double(v[i + W]));
    });
    // The first few are in the range of int32_t, or NaN.
    const std::vector<float> values = {0.5f,       -0.5f,          1.5f,      2.5f,      -3.5f,    0.3f,     -0.7f,
                                       8388607.5f, 0x1.fffffep30f, -0x1p31f,  nan_value, 32767.4f, 32767.6f, -32768.5f,
                                       32768.5f,   -40000.0f,      -1.0e-40f, 0x1p31f,   -3e9f,    infinity, -infinity};
    constexpr size_t in_range = 17;
    const auto saturated = [](float x, double most) {
        return std::isnan(x) ? 0.0 : std::clamp(std::nearbyint(double(x)), -most - 1, most);
    };
    for (int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
        each_vector([&]<class V>() {
            for (size_t at = 0; at + lanes<V> <= values.size(); at++) {
                std::fesetround(mode);
                using ints = std::array<int32_t, lanes<V>>;
                using shorts = std::array<int16_t, 2 * lanes<V>>;
                const V v = load<V>(&values[at]);
                const auto whole = std::bit_cast<ints>(round_to_int(v));
                const auto all = std::bit_cast<ints>(round_to_int_saturated(v));
                const auto packed = std::bit_cast<shorts>(pack_int16(v, reverse(v)));
                ints expected;
                shorts expected_packed;
                for (int i = 0; i < lanes<V>; i++) {
                    expected[i] = static_cast<int32_t>(saturated(values[at + i], 0x1p31 - 1));
                    expected_packed[2 * i] = static_cast<int16_t>(saturated(values[at + i], 32767));
                    expected_packed[2 * (lanes<V> - 1 - i) + 1] = expected_packed[2 * i];
                }
                std::fesetround(FE_TONEAREST);
                EXPECT_EQ(all, expected) << "from value " << at << " on, mode " << mode;
                EXPECT_EQ(packed, expected_packed) << "from value " << at << " on, mode " << mode;
                if (at + lanes<V> <= in_range) {
                    EXPECT_EQ(whole, expected) << "from value " << at << " on, mode " << mode;
                }
            }
        });
    each_vector([]<class V>() {
        static constexpr int W = lanes<V>;
        using M = typename lane_traits<V>::mask;
        const M v = lanes_of<M>([](int i) { return (1 << 24) + 2 * i - 1; });
        EXPECT_ORDER(to_float(v), static_cast<float>(v[i]));
        EXPECT_ORDER(to_float_from_fixed<31>(v), static_cast<float>(v[i]) * 0x1p-31f);
        EXPECT_ORDER(to_float_from_fixed<15>(-v), static_cast<float>(-v[i]) * 0x1p-15f);
        const int16_t samples[] = {-32768, 32767, -1, 1, 0, -2, 300, -301};
        const M both = lanes_of<M>([&](int i) { return samples[i] * 65536 + static_cast<uint16_t>(samples[7 - i]); });
        EXPECT_ORDER(unpack_int16(both).a, samples[7 - i] / 32768.0f);
        EXPECT_ORDER(unpack_int16(both).b, samples[i] / 32768.0f);
    });
}

} // namespace
} // namespace korla_test
