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
template <class V> KRL_INLINE complex<V> load_block(const float* p) {
    return {in_register(load<V>(p)), in_register(load<V>(p + lanes<V>))};
}
template <class V> KRL_INLINE void store_block(float* p, complex<V> x) {
    store(p, x.re);
    store(p + lanes<V>, x.im);
}

// Takes the results of butterflies j.., one butterfly a lane, to positions R*j.. in blocks of `width` samples: rows become
// columns, four results of four butterflies at a time, as soon as the four are there. Only the first `count` lanes hold
// butterflies.
template <class V, int width, int R, int count> struct transposed_results {
    complex<V> x[R];
    float* dst;

    template <int m> KRL_INLINE void operator()(std::integral_constant<int, m>, complex<V> v) {
        if constexpr (lanes<V> == 1) {
            store_block(dst + 2 * m, v);
        } else {
            x[m] = v;
            detail::unroll<R / 4>([&](auto unit) __attribute__((always_inline)) {
                if constexpr (last_of(unit) == m)
                    store_unit<unit * 4>();
            });
        }
    }

private:
    // Result that stands in lane `lane` of the R / width blocks that one butterfly fills.
    static constexpr int result_in(int lane) {
        using B = std::conditional_t<width == 4, f32x4, f32v>;
        return lane / width * width + split_order<B>(lane % width);
    }
    static constexpr int last_of(int unit) {
        int last = result_in(4 * unit);
        for (int i = 1; i < 4; i++)
            if (result_rank<R>(result_in(4 * unit + i)) > result_rank<R>(last))
                last = result_in(4 * unit + i);
        return last;
    }
    template <int lane> KRL_INLINE void store_unit() {
        static_assert(R % width == 0 && width % 4 == 0);
        V re[4], im[4];
        for (int i = 0; i < 4; i++) {
            re[i] = x[result_in(lane + i)].re;
            im[i] = x[result_in(lane + i)].im;
        }
        transpose_quads(re);
        transpose_quads(im);
        detail::unroll<lanes<V>>([&](auto i) __attribute__((always_inline)) {
            constexpr int butterfly = split_order<V>(i);
            if constexpr (butterfly < count) {
                float* p = dst + 2 * (butterfly * R + lane / width * width) + lane % width;
                store(p, quad(re[i % 4], i / 4));
                store(p + width, quad(im[i % 4], i / 4));
            }
        });
    }
};

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

    // Input q of butterflies j..j+active-1.
    template <int active, int q> static KRL_INLINE complex<V> input(const float* src, int j) {
        complex<V> x;
        // A whole vector may be read as long as it ends inside the input.
        if constexpr (active == n || q * count + n <= N)
            x = load_samples<V, dir>(src + 2 * (j + q * count));
        else
            x = load_first_samples<V, dir, N - q * count>(src + 2 * (j + q * count));
        if constexpr (scaled) {
            const V factor = splat<V>(1.0f / N);
            x = {x.re * factor, x.im * factor};
        }
        return x;
    }
    template <int active> static KRL_INLINE void step(float* dst, const float* src, int j) {
        transposed_results<V, width, R, active> results;
        results.dst = dst + 2 * R * j;
        butterfly<R, V>([=](auto q) __attribute__((always_inline)) { return input<active, q>(src, j); },
                        [&](auto m, complex<V> v) __attribute__((always_inline)) { results(m, v); });
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
            const float* const from = src + 2 * (L * b + k);
            float* const to = dst + 2 * (L * R * b + k);
            butterfly<R, V>(
                [=](auto q) __attribute__((always_inline)) {
                    const complex<V> x = load_block<V>(from + 2 * q * (N / R));
                    if constexpr (q == 0)
                        return x;
                    else
                        return rotate(x, in_register(load_aligned<V>(w + 2 * (q - 1) * width)),
                                      in_register(load_aligned<V>(w + (2 * q - 1) * width)));
                },
                [=](auto m, complex<V> x) __attribute__((always_inline)) { store_result(to + 2 * m * L, x); });
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
