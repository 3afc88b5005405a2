// Transforms of 2, 4, 6 and 8 points in straight lines. All of them read their input before they write, so that out may
// be in.
#pragma once

#include "dsp/fft/passes.h"

namespace krl::fft {

template <int N> inline constexpr bool is_short = N == 2 || N == 4 || N == 6 || N == 8;

template <bool scaled, int N> KRL_INLINE f32x4 load_scaled(const float* p) {
    return scaled ? load<f32x4>(p) * (1.0f / N) : load<f32x4>(p);
}

template <int N, direction dir, bool scaled> KRL_INLINE void short_transform(float* out, const float* in) {
    constexpr bool forward = dir == direction::forward;
    if constexpr (N == 2) {
        const f32x4 x = load_scaled<scaled, N>(in), sign = {1.0f, 1.0f, -1.0f, -1.0f};
        store(out, mul_add(__builtin_shufflevector(x, x, 2, 3, 2, 3), sign, __builtin_shufflevector(x, x, 0, 1, 0, 1)));
    } else if constexpr (N == 4) {
        // Two samples a vector. The difference of samples 1 and 3 is turned by -i (i for the inverse).
        const f32x4 x01 = load_scaled<scaled, N>(in), x23 = load_scaled<scaled, N>(in + 4);
        const f32x4 sum = x01 + x23, difference = x01 - x23;
        const f32x4 turn = forward ? f32x4{1.0f, 1.0f, 1.0f, -1.0f} : f32x4{1.0f, 1.0f, -1.0f, 1.0f};
        const f32x4 even = __builtin_shufflevector(sum, difference, 0, 1, 4, 5);
        const f32x4 odd = __builtin_shufflevector(sum, difference, 2, 3, 7, 6);
        store(out, mul_add(odd, turn, even));
        store(out + 4, mul_sub_from(odd, turn, even));
    } else if constexpr (N == 8) {
        // Samples j and j + 4 to the lanes j of a sum and a difference; the bins of even and odd index are the
        // four-point transforms of their lanes, done side by side: (re even, re odd, im even, im odd).
        const auto [a_re, a_im] = split(load_scaled<scaled, N>(in), load_scaled<scaled, N>(in + 4));
        const auto [b_re, b_im] = split(load_scaled<scaled, N>(in + 8), load_scaled<scaled, N>(in + 12));
        constexpr float h = 0.707106781186547524f;
        const f32x4 cos = {1.0f, h, 0.0f, -h}, sin = forward ? f32x4{0.0f, h, 1.0f, h} : f32x4{0.0f, -h, -1.0f, -h};
        const complex<f32x4> sum = {a_re + b_re, a_im + b_im};
        const complex<f32x4> turned = rotate(complex<f32x4>{a_re - b_re, a_im - b_im}, cos, sin);
        f32x4 x[4] = {sum.re, turned.re, sum.im, turned.im};
        transpose_quads(x);
        const f32x4 ac = x[0] + x[2], bd = x[1] + x[3], am = x[0] - x[2], bm = x[1] - x[3];
        const f32x4 turn = forward ? f32x4{1.0f, 1.0f, -1.0f, -1.0f} : f32x4{-1.0f, -1.0f, 1.0f, 1.0f};
        const f32x4 side = __builtin_shufflevector(bm, bm, 2, 3, 0, 1);
        const f32x4 bins[4] = {ac + bd, mul_add(side, turn, am), ac - bd, mul_sub_from(side, turn, am)};
        for (int m = 0; m < 4; m++)
            store(out + 4 * m, __builtin_shufflevector(bins[m], bins[m], 0, 2, 1, 3));
    } else {
        detail::values<N, float> results;
        butterfly<N, float>(
            [=](auto q) __attribute__((always_inline)) {
                const float re = in[2 * q], im = in[2 * q + 1], f = scaled ? 1.0f / N : 1.0f;
                return forward ? complex<float>{re * f, im * f} : complex<float>{im * f, re * f};
            },
            results.sink());
        for (int i = 0; i < N; i++) {
            out[2 * i] = forward ? results(i).re : results(i).im;
            out[2 * i + 1] = forward ? results(i).im : results(i).re;
        }
    }
}

} // namespace krl::fft
