// The passes of a self-sorting transform.
//
// A transform of N = R1 * R2 * ... points runs one pass per radix. Pass p joins R transforms of length L = R1 * ... * R(p-1)
// into one of length R*L: butterfly j = L*b + k (0 <= k < L) takes input q from position j + q*N/R, turns it by
// e^(-2*pi*i*q*k/(R*L)), and writes result m to position L*R*b + k + m*L. The first pass (L = 1) turns nothing. The last one
// (b = 0) writes the positions it reads, so that it also runs in place.
//
// Layout. The first pass reads and the last pass writes interleaved complex samples. Between them, every block of
// lanes<V> samples holds their real parts and then their imaginary parts, both in split order: a block starts at the same
// float as its samples do in the interleaved layout.
//
// Direction and scale live at the two ends only. An inverse transform swaps real and imaginary parts as the first pass loads
// and as the last pass stores, which costs nothing; every pass between computes a forward transform.
#pragma once

#include "dsp/fft/butterflies.h"
#include "dsp/fft/twiddles.h"

namespace krl::fft {

enum class direction { forward, inverse };

template <class V, direction dir> KRL_INLINE complex<V> parts_of(V lo, V hi) {
    const auto [re, im] = split(lo, hi);
    return dir == direction::forward ? complex<V>{re, im} : complex<V>{im, re};
}
template <class V, direction dir> KRL_INLINE complex<V> load_samples(const float* p) {
    return parts_of<V, dir>(load<V>(p), load<V>(p + lanes<V>));
}
template <class V, direction dir> KRL_INLINE void store_samples(float* p, complex<V> x) {
    const auto [lo, hi] = dir == direction::forward ? join(x.re, x.im) : join(x.im, x.re);
    store(p, lo);
    store(p + lanes<V>, hi);
}
template <class V> KRL_INLINE complex<V> load_block(const float* p) { return {load<V>(p), load<V>(p + lanes<V>)}; }
template <class V> KRL_INLINE void store_block(float* p, complex<V> x) {
    store(p, x.re);
    store(p + lanes<V>, x.im);
}

// The results x[0..R-1] of butterflies j.., one butterfly a lane, to positions R*j.. in blocks of `width` samples: rows
// become columns. Only the first `count` lanes hold butterflies.
template <int width, int R, class V> KRL_INLINE void store_transposed(float* dst, const complex<V>* x, int count) {
    constexpr int n = lanes<V>;
    static_assert(R % n == 0 && R % width == 0);
    using B = std::conditional_t<width == lanes<f32v>, f32v, std::conditional_t<width == 4, f32x4, float>>;
    detail::unroll<R / n>([&](auto unit) __attribute__((always_inline)) {
        constexpr int lane = unit * n % width, block = unit * n / width * width;
        V re[n], im[n];
        for (int i = 0; i < n; i++) {
            const int m = block + split_order<B>(lane + i);
            re[i] = x[m].re;
            im[i] = x[m].im;
        }
        transpose(re);
        transpose(im);
        detail::unroll<n>([&](auto i) __attribute__((always_inline)) {
            constexpr int butterfly = split_order<V>(i);
            if (butterfly < count) {
                float* p = dst + 2 * (butterfly * R + block) + lane;
                store(p, re[i]);
                store(p + width, im[i]);
            }
        });
    });
}

// Samples in the first `count` < lanes lanes, nothing read behind them; the other lanes are unspecified.
template <class V, direction dir, int count> KRL_INLINE complex<V> load_first_samples(const float* p) {
    constexpr int n = lanes<V>;
    if constexpr (2 * count >= n) {
        V hi = splat<V>(0.0f);
        for (int i = 0; i < 2 * count - n; i++)
            hi[i] = p[n + i];
        return parts_of<V, dir>(load<V>(p), hi);
    } else {
        V lo = splat<V>(0.0f);
        for (int i = 0; i < 2 * count; i++)
            lo[i] = p[i];
        return parts_of<V, dir>(lo, lo);
    }
}

template <int N, direction dir, bool scaled, int R, int width> struct first_pass {
    static constexpr int count = N / R;
    // Fewer butterflies than lanes: the narrowest vector that takes them all, half empty at worst.
    using V = std::conditional_t<width == 1, float,
                                 std::conditional_t<(lanes<f32v> > 4 && width > 4 && count > 4), f32v, f32x4>>;
    static constexpr int n = lanes<V>;

    // Butterflies j..j+active-1.
    template <int active> static KRL_INLINE void step(float* dst, const float* src, int j) {
        complex<V> x[R];
        detail::unroll<R>([&](auto q) __attribute__((always_inline)) {
            // A whole vector may be read as long as it ends inside the input.
            if constexpr (active == n || q * count + n <= N)
                x[q] = load_samples<V, dir>(src + 2 * (j + q * count));
            else
                x[q] = load_first_samples<V, dir, N - q * count>(src + 2 * (j + q * count));
            if constexpr (scaled) {
                const V factor = splat<V>(1.0f / N);
                x[q] = {x[q].re * factor, x[q].im * factor};
            }
        });
        butterfly<R>(x);
        store_transposed<width, R>(dst + 2 * R * j, x, active);
    }
    static KRL_INLINE void run(float* dst, const float* src) {
        if constexpr (count < n) {
            step<count>(dst, src, 0);
        } else {
            for (int j = 0; j + n <= count; j += n)
                step<n>(dst, src, j);
            if constexpr (count % n != 0) // the last vector repeats some butterflies
                step<n>(dst, src, count - n);
        }
    }
};

template <int N, int R, int L, rounding precision, class V, class Store>
KRL_INLINE void twiddled_pass(float* dst, const float* src, Store store_result) {
    constexpr int width = lanes<V>;
    static_assert(N % (R * L) == 0 && L % width == 0);
    for (int k = 0; k < L; k += width) {
        const float* w = twiddles<V, R, L, precision>.value + 2 * (R - 1) * k;
        for (int b = 0; b < N / (R * L); b++) {
            complex<V> x[R];
            x[0] = load_block<V>(src + 2 * (L * b + k));
            detail::unroll<R - 1>([&](auto i) __attribute__((always_inline)) {
                constexpr int q = i + 1;
                x[q] = rotate(load_block<V>(src + 2 * (L * b + k + q * (N / R))), load_aligned<V>(w + 2 * i * width),
                              load_aligned<V>(w + (2 * i + 1) * width));
            });
            butterfly<R>(x);
            for (int m = 0; m < R; m++)
                store_result(dst + 2 * (L * R * b + k + m * L), x[m]);
        }
    }
}

template <int N, int R, int L, rounding precision, class V> void middle_pass(float* dst, const float* src) {
    twiddled_pass<N, R, L, precision, V>(dst, src, [](float* p, complex<V> x)
                                             __attribute__((always_inline)) { store_block(p, x); });
}
template <int N, direction dir, int R, rounding precision, class V> void last_pass(float* dst, const float* src) {
    twiddled_pass<N, R, N / R, precision, V>(dst, src, [](float* p, complex<V> x)
                                                 __attribute__((always_inline)) { store_samples<V, dir>(p, x); });
}

} // namespace krl::fft
