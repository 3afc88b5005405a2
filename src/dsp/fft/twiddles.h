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

// The factors of the pass that joins R transforms of length L into one of length R*L: input q at sub-position k is turned by
// e^(-2*pi*i*q*k/(R*L)). They stand in the order in which the pass reads them: for every group of `width` positions k, and
// for q = 1..R-1, `width` cosines and then `width` sines, the lanes in split order. The span R*L alone decides the values,
// so that transforms of different lengths share a table.
template <int R, int L, int width> struct alignas(32) twiddle_table {
    float value[2 * (R - 1) * L];

    template <class V> static constexpr twiddle_table make(rounding precision) {
        twiddle_table t{};
        float* p = t.value;
        for (int k = 0; k < L; k += width)
            for (int q = 1; q < R; q++, p += 2 * width)
                for (int lane = 0; lane < width; lane++) {
                    const sin_cos w = sin_cos_turn(q * (k + split_order<V>(lane)), R * L);
                    p[lane] = round_to(precision, w.cos);
                    p[width + lane] = round_to(precision, w.sin);
                }
        return t;
    }
};

template <class V, int R, int L, rounding precision>
inline constexpr auto twiddles = twiddle_table<R, L, lanes<V>>::template make<V>(precision);

} // namespace krl::fft
