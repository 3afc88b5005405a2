// Twiddle factor tables of the passes, made at compile time.
#pragma once

#include "dsp/core/lanes.h"
#include "dsp/core/trig.h"

namespace krl::fft {

// How the cosines and sines of a table are rounded: once to float, or to six decimals first.
enum class rounding { full, six_decimals };

constexpr float round_to(rounding precision, double x) {
    if (precision == rounding::full)
        return static_cast<float>(x);
    const auto millionths = static_cast<int64_t>(x * 1e6 + (x < 0 ? -0.5 : 0.5));
    return static_cast<float>(static_cast<double>(millionths) / 1e6);
}

// The factors of the pass that joins R transforms of length L into one of length R*L: input q at sub-position k is
// turned by e^(-2*pi*i*q*k/(R*L)). They stand in the order in which the pass reads them: for every group of positions
// k, and for q = 1..R-1, the cosines of a whole vector and then its sines, in the lane order of the data. The span R*L
// alone decides the values, so that transforms of different lengths share a table.
//
// Groups are lanes<V> positions wide. Where L is no multiple of that, the last group ends at L and repeats some
// positions.
template <class V, int R, int L> struct twiddle_table {
    static constexpr int width = lanes<V>, groups = (L + width - 1) / width, group_size = 2 * (R - 1) * width;
    static_assert(L >= width);
    static constexpr int first_position(int group) { return group * width <= L - width ? group * width : L - width; }

    alignas(32) float value[groups * group_size];

    static constexpr twiddle_table make(rounding precision, bool split) {
        twiddle_table t{};
        float* p = t.value;
        for (int group = 0; group < groups; group++)
            for (int q = 1; q < R; q++, p += 2 * width)
                for (int lane = 0; lane < width; lane++) {
                    const int k = first_position(group) + (split ? split_order<V>(lane) : lane);
                    const sin_cos w = sin_cos_turn(q * k, R * L);
                    p[lane] = round_to(precision, w.cos);
                    p[width + lane] = round_to(precision, w.sin);
                }
        return t;
    }
};

// Lanes in split order or in natural order.
template <class V, int R, int L, rounding precision, bool split>
inline constexpr auto twiddles = twiddle_table<V, R, L>::make(precision, split);

} // namespace krl::fft
