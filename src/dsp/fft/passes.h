// The passes of a self-sorting transform.
//
// A transform of N = R1 * R2 * ... points runs one pass per radix. Pass p joins R transforms of length L = R1 * ... *
// R(p-1) into one of length R*L: butterfly j = L*b + k (0 <= k < L) takes input q from position j + q*N/R, turns it by
// e^(-2*pi*i*q*k/(R*L)), and writes result m to position L*R*b + k + m*L. The first pass (L = 1) turns nothing. The
// last one (b = 0) writes the positions it reads, so that it also runs in place.
//
// Direction and scale live at the two ends only. An inverse transform swaps real and imaginary parts as the first pass
// loads and as the last pass stores, which costs nothing; every pass between computes a forward transform.
#pragma once

#include "dsp/fft/butterflies.h"
#include "dsp/fft/lengths.h"
#include "dsp/fft/twiddles.h"

namespace krl::fft {

enum class direction { forward, inverse };

// Lengths whose radix-4 and radix-8 kernels differ in the rounding of their twiddle factors, and in nothing else: their passes
// are functions that both call, with the table as an argument. Of other lengths the compiler may know the table.
template <int N> constexpr bool has_two_roundings = std::ranges::count(radix8_mixed_lengths, N) > 0;
#if defined(__clang__)
#    define KRL_FFT_SHARED __attribute__((noinline))
#else
#    define KRL_FFT_SHARED __attribute__((noinline, noclone))
#endif

// ---- layouts -------------------------------------------------------------------------------------------------------
//
// The first pass reads and the last pass writes interleaved complex samples. Between them the parts stand apart, in one
// of two layouts. Both let a group of samples start where start(i) says, the imaginary parts `imaginary` floats behind
// the real ones.

// After a first radix that is a multiple of 8: a block of one vector holds its real parts and then its imaginary parts,
// in split order. A block starts at the same float as its samples do in the interleaved layout, so that a pass can
// change from one to the other in place.
struct blocks {
    static constexpr int width = lanes<f32v>;
    static constexpr bool split = true;
    static constexpr int imaginary = width;
    static constexpr int start(int i) { return 2 * i; } // i is a multiple of width
    // The sample in a lane, counted through consecutive blocks.
    static constexpr int sample_in(int lane) { return lane / width * width + split_order<f32v>(lane % width); }
};

// After other radices: all real parts, then all imaginary parts, in natural order. Groups start anywhere and may
// overlap.
template <int N> struct planes {
    static constexpr bool split = false;
    static constexpr int imaginary = N;
    static constexpr int start(int i) { return i; }
    static constexpr int sample_in(int lane) { return lane; }
};

template <class V, direction dir> KRL_INLINE complex<V> parts_of(V lo, V hi) {
    const auto [re, im] = split(lo, hi);
    return dir == direction::forward ? complex<V>{re, im} : complex<V>{im, re};
}
template <class V, direction dir> KRL_INLINE complex<V> load_samples(const float* p) {
    return parts_of<V, dir>(in_register(load<V>(p)), in_register(load<V>(p + lanes<V>)));
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
template <class V, class layout, direction dir> KRL_INLINE void store_samples(float* p, complex<V> x) {
    const V re = dir == direction::forward ? x.re : x.im, im = dir == direction::forward ? x.im : x.re;
    const auto [lo, hi] = layout::split ? join(re, im) : interleave(re, im);
    store(p, lo);
    store(p + lanes<V>, hi);
}
template <class V, class layout> KRL_INLINE complex<V> load_parts(const float* p) {
    return {in_register(load<V>(p)), in_register(load<V>(p + layout::imaginary))};
}
template <class V, class layout> KRL_INLINE void store_parts(float* p, complex<V> x) {
    store(p, x.re);
    store(p + layout::imaginary, x.im);
}

// ---- first pass ----------------------------------------------------------------------------------------------------

// Takes the results of butterflies 0, 1, ..., one butterfly a lane, and puts those of butterfly b to positions R*b + m:
// rows become columns, four results of four butterflies at a time, as soon as the four are there. Only the first
// `count` lanes hold butterflies.
//
// Blocks are stored a whole vector at a time, because the next pass will load whole vectors soon: a load that spans two
// younger stores has to wait for both to reach the cache.
template <class V, class layout, int R, int count> class transposed_results {
public:
    explicit KRL_INLINE transposed_results(float* to) : dst(to) {}

    template <int m> KRL_INLINE void operator()(detail::index<m>, complex<V> v) {
        x[m] = v;
        detail::unroll<stores>([&](auto i) __attribute__((always_inline)) {
            constexpr int lane = i * wide < R - wide ? i * wide : R - wide; // the last store repeats some results
            if constexpr (last_of(lane) == m)
                store_results<lane>();
        });
    }

private:
    using W = std::conditional_t<layout::split, f32v, f32x4>; // what one store takes
    static constexpr int wide = lanes<W>, stores = (R + wide - 1) / wide;
    static_assert(R >= wide && (R % wide == 0 || !layout::split));

    static constexpr int last_of(int lane) {
        int last = layout::sample_in(lane);
        for (int i = 1; i < wide; i++)
            if (result_rank<R>(layout::sample_in(lane + i)) > result_rank<R>(last))
                last = layout::sample_in(lane + i);
        return last;
    }
    template <int lane> KRL_INLINE void store_results() {
        V re[wide], im[wide];
        for (int i = 0; i < wide; i++) {
            re[i] = x[layout::sample_in(lane + i)].re;
            im[i] = x[layout::sample_in(lane + i)].im;
        }
        for (int i = 0; i < wide; i += 4) {
            transpose_quads(re + i);
            transpose_quads(im + i);
        }
        detail::unroll<lanes<V>>([&](auto i) __attribute__((always_inline)) {
            constexpr int butterfly = split_order<V>(i);
            if constexpr (butterfly < count) {
                float* p = dst + layout::start(butterfly * R + lane);
                store(p, quads<W>(re + i % 4, i / 4));
                store(p + layout::imaginary, quads<W>(im + i % 4, i / 4));
            }
        });
    }

    complex<V> x[R];
    float* dst;
};

template <int N, direction dir, bool scaled, int R, class layout> struct first_pass {
    static constexpr int count = N / R;
    // Fewer butterflies than lanes: the narrowest vector that takes them all.
    using V = std::conditional_t<(count > 4), f32v, f32x4>;
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
        transposed_results<V, layout, R, active> results(dst + layout::start(R * j));
        butterfly<R, V>(
            [=](auto q) __attribute__((always_inline)) { return input<active, q>(src, j); },
            [&](auto m, complex<V> v) __attribute__((always_inline)) { results(m, v); });
    }
    static KRL_INLINE void run(float* dst, const float* src) {
        if constexpr (has_two_roundings<N>)
            shared(dst, src);
        else
            every_step(dst, src);
    }

private:
    static KRL_FFT_SHARED void shared(float* dst, const float* src) { every_step(dst, src); }
    static KRL_INLINE void every_step(float* dst, const float* src) {
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

// ---- later passes --------------------------------------------------------------------------------------------------

// w: twiddle_table<V, R, L>. store_result(i, x) puts x to the positions from i on.
template <int N, int R, int L, class layout, class V, class Store>
KRL_INLINE void twiddled_pass(const float* src, const float* w, Store store_result) {
    using table = twiddle_table<V, R, L>;
    constexpr int width = lanes<V>;
    static_assert(N % (R * L) == 0 && (L % width == 0 || !layout::split));
    if constexpr (R * L == N && table::groups <= 4) // the loop will be unrolled
        w = as_table(w);
    for (int group = 0; group < table::groups; group++, w += table::group_size) {
        const int k = L % width == 0 ? group * width : table::first_position(group);
        for (int b = 0; b < N / (R * L); b++) {
            const float* const from = src + layout::start(L * b + k);
            butterfly<R, V>(
                [=](auto q) __attribute__((always_inline)) {
                    const complex<V> x = load_parts<V, layout>(from + layout::start(q * (N / R)));
                    if constexpr (q == 0)
                        return x;
                    else
                        return rotate(x, in_register(load_aligned<V>(w + 2 * (q - 1) * width)),
                                      in_register(load_aligned<V>(w + (2 * q - 1) * width)));
                },
                [=](auto m, complex<V> x) __attribute__((always_inline)) { store_result(L * R * b + k + m * L, x); });
        }
    }
}

// Lanes of the pass behind transforms of length L.
template <int L> using lanes_behind = std::conditional_t<(L >= lanes<f32v>), f32v, f32x4>;

template <int N, int R, int L, class layout>
KRL_INLINE void middle_steps(float* dst, const float* src, const float* w) {
    using V = lanes_behind<L>;
    twiddled_pass<N, R, L, layout, V>(
        src, w, [dst](int i, complex<V> x) __attribute__((always_inline)) {
            store_parts<V, layout>(dst + layout::start(i), x);
        });
}
template <int N, direction dir, int R, class layout>
KRL_INLINE void last_steps(float* dst, const float* src, const float* w) {
    using V = lanes_behind<N / R>;
    twiddled_pass<N, R, N / R, layout, V>(
        src, w, [dst](int i, complex<V> x) __attribute__((always_inline)) {
            store_samples<V, layout, dir>(dst + 2 * i, x);
        });
}

// Functions of their own, so that transforms that differ in scale, and middle passes that differ in direction, share
// them.
template <int N, int R, int L, class layout>
KRL_FFT_SHARED void shared_middle_pass(float* dst, const float* src, const float* w) {
    middle_steps<N, R, L, layout>(dst, src, w);
}
template <int N, direction dir, int R, class layout>
KRL_FFT_SHARED void shared_last_pass(float* dst, const float* src, const float* w) {
    last_steps<N, dir, R, layout>(dst, src, w);
}
template <int N, int R, int L, rounding precision, class layout>
__attribute__((noinline)) void middle_pass_alone(float* dst, const float* src) {
    middle_steps<N, R, L, layout>(dst, src, twiddles<lanes_behind<L>, R, L, precision, layout::split>.value);
}
template <int N, direction dir, int R, rounding precision, class layout>
__attribute__((noinline)) void last_pass_alone(float* dst, const float* src) {
    constexpr int L = N / R;
    last_steps<N, dir, R, layout>(dst, src, twiddles<lanes_behind<L>, R, L, precision, layout::split>.value);
}

template <int N, int R, int L, rounding precision, class layout>
KRL_INLINE void middle_pass(float* dst, const float* src) {
    if constexpr (has_two_roundings<N>)
        shared_middle_pass<N, R, L, layout>(dst, src, twiddles<lanes_behind<L>, R, L, precision, layout::split>.value);
    else
        middle_pass_alone<N, R, L, precision, layout>(dst, src);
}
template <int N, direction dir, int R, rounding precision, class layout>
KRL_INLINE void last_pass(float* dst, const float* src) {
    constexpr int L = N / R;
    if constexpr (has_two_roundings<N>)
        shared_last_pass<N, dir, R, layout>(dst, src, twiddles<lanes_behind<L>, R, L, precision, layout::split>.value);
    else
        last_pass_alone<N, dir, R, precision, layout>(dst, src);
}

} // namespace krl::fft
