// Forward transforms of a few points, held in registers: the butterflies of the passes.
//
// butterfly<R, V>(in, out) transforms the R inputs in(q) and hands result m to out(m, value), lane by lane; q and m are
// integral constants. Inputs are asked for when they are needed and results handed on as soon as they are known,
// because that is what keeps a large butterfly in the registers of the target.
//
// All butterflies are forward. Swapping the real and imaginary parts of input and output turns a forward transform into
// an inverse one, and the passes do that for nothing where they load and store.
#pragma once

#include <utility>

#include "dsp/core/complex_lanes.h"
#include "dsp/core/trig.h"

namespace krl::fft {

template <int R, class V, class In, class Out> KRL_INLINE void butterfly(In in, Out out);

namespace detail {

constexpr int inverse_modulo(int a, int m) {
    for (int i = 1; i < m; i++)
        if (a * i % m == 1)
            return i;
    return 1; // m is 1
}
constexpr int gcd(int a, int b) { return b == 0 ? a : gcd(b, a % b); }

// How a butterfly without a body of its own is cut: this many points, then the rest.
constexpr int first_factor(int r) { return r % 4 == 0 ? 4 : r % 3 == 0 ? 3 : r % 2 == 0 ? 2 : 5; }

// f(integral constants 0..n-1): loops whose index is a constant in the body.
template <int n, class F> KRL_INLINE void unroll(F f) {
    [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
        (f(std::integral_constant<int, i>{}), ...);
    }
    (std::make_integer_sequence<int, n>{});
}

template <int i> using index = std::integral_constant<int, i>;

// R values in registers, as inputs of one butterfly and results of another.
template <int R, class V> struct values {
    complex<V> x[R];
    KRL_INLINE complex<V> operator()(int q) const { return x[q]; }
    KRL_INLINE auto sink() {
        return [this](int m, complex<V> v) __attribute__((always_inline)) { x[m] = v; };
    }
};

// Results m with m mod A = a and m mod B = b where A and B are coprime, otherwise the b-th result of row a.
template <int A, int B> constexpr int composite_result(int a, int b) {
    if (gcd(A, B) != 1)
        return a + A * b;
    return (B * inverse_modulo(B % A, A) * a + A * inverse_modulo(A % B, B) * b) % (A * B);
}

// A*B points: B transforms of A points, the twiddle factors e^(-2*pi*i*a*b/(A*B)), and A transforms of B points. When A
// and B are coprime, another order of inputs and results takes the place of the factors (I. J. Good 1958, L. H. Thomas
// 1963).
template <int A, int B, class V, class In, class Out> KRL_INLINE void composite_butterfly(In in, Out out) {
    constexpr bool coprime = gcd(A, B) == 1;
    values<A, V> columns[B];
    unroll<B>([&](auto b) __attribute__((always_inline)) {
        butterfly<A, V>(
            [&](auto a) __attribute__((always_inline)) {
                return in(index < coprime ? (B * a + A * b) % (A * B) : B * a + b > {});
            },
            columns[b].sink());
        if constexpr (A * B > 8)
            scheduling_barrier();
    });
    unroll<A>([&](auto a) __attribute__((always_inline)) {
        butterfly<B, V>(
            [&](auto b) __attribute__((always_inline)) {
                constexpr sin_cos w = sin_cos_turn(coprime ? 0 : a * b, A * B);
                const complex<V> x = columns[b](a);
                if constexpr (w.sin == 0.0 && w.cos == 1.0)
                    return x;
                else if constexpr (w.cos == 0.0 && w.sin == 1.0)
                    return times_minus_i(x);
                else
                    return rotate(x, splat<V>(static_cast<float>(w.cos)), splat<V>(static_cast<float>(w.sin)));
            },
            [&](auto b, complex<V> v)
                __attribute__((always_inline)) { out(index<composite_result<A, B>(a, b)>{}, v); });
        if constexpr (A * B > 8)
            scheduling_barrier();
    });
}

} // namespace detail

// The order in which out() sees the results of butterfly<R>: rank of result m.
template <int R> constexpr int result_rank(int m) {
    if constexpr (R <= 4) {
        return m;
    } else if constexpr (R == 5) {
        return m == 4 ? 2 : m >= 2 ? m + 1 : m;
    } else if constexpr (R == 8) {
        return m % 4 * 2 + m / 4;
    } else {
        constexpr int A = detail::first_factor(R), B = R / A;
        for (int a = 0; a < A; a++)
            for (int b = 0; b < B; b++)
                if (detail::composite_result<A, B>(a, b) == m)
                    return a * B + result_rank<B>(b);
        return 0;
    }
}

template <int R, class V, class In, class Out> KRL_INLINE void butterfly(In in, Out out) {
    using detail::index;
    if constexpr (R == 1) {
        out(index<0>{}, in(index<0>{}));
    } else if constexpr (R == 2) {
        const complex<V> a = in(index<0>{}), b = in(index<1>{});
        out(index<0>{}, a + b);
        out(index<1>{}, a - b);
    } else if constexpr (R == 3) {
        const V half = splat<V>(0.5f), h = splat<V>(static_cast<float>(sin_turn(1, 3)));
        const complex<V> a = in(index<1>{}), b = in(index<2>{}), s = a + b, d = a - b, x0 = in(index<0>{});
        const complex<V> u = sub_times(x0, half, s);
        out(index<0>{}, x0 + s);
        out(index<1>{}, sub_i_times(u, h, d));
        out(index<2>{}, add_i_times(u, h, d));
    } else if constexpr (R == 4) {
        const complex<V> a = in(index<0>{}), c = in(index<2>{}), ac = a + c, am = a - c;
        const complex<V> b = in(index<1>{}), d = in(index<3>{}), bd = b + d, bm = b - d;
        out(index<0>{}, ac + bd);
        out(index<1>{}, sub_i(am, bm));
        out(index<2>{}, ac - bd);
        out(index<3>{}, add_i(am, bm));
    } else if constexpr (R == 5) {
        // cos(2*pi/5) and cos(4*pi/5) are -1/4 plus and minus sqrt(5)/4.
        const V quarter = splat<V>(0.25f), c = splat<V>(0.559016994374947424f);
        const V s1 = splat<V>(static_cast<float>(sin_turn(1, 5))), s2 = splat<V>(static_cast<float>(sin_turn(2, 5)));
        const complex<V> a = in(index<1>{}), d = in(index<4>{}), p = a + d, m = a - d;
        const complex<V> b = in(index<2>{}), e = in(index<3>{}), q = b + e, n = b - e;
        const complex<V> x0 = in(index<0>{}), sum = p + q;
        out(index<0>{}, x0 + sum);
        const complex<V> w = sub_times(x0, quarter, sum), r = p - q;
        const complex<V> u = add_times(w, c, r), v = sub_times(w, c, r);
        const complex<V> y = add_times(complex<V>{m.re * s1, m.im * s1}, s2, n);
        const complex<V> z = sub_times(complex<V>{m.re * s2, m.im * s2}, s1, n);
        out(index<1>{}, sub_i(u, y));
        out(index<4>{}, add_i(u, y));
        out(index<2>{}, sub_i(v, z));
        out(index<3>{}, add_i(v, z));
    } else if constexpr (R == 8) {
        // Two four-point transforms; the odd one's bins turned by eighths, the diagonal ones without their factor c,
        // which the last additions apply.
        detail::values<4, V> even, odd;
        butterfly<4, V>(
            [&](auto q) __attribute__((always_inline)) { return in(index<2 * q>{}); }, even.sink());
        butterfly<4, V>(
            [&](auto q) __attribute__((always_inline)) { return in(index<2 * q + 1>{}); }, odd.sink());
        const V c = splat<V>(static_cast<float>(cos_turn(1, 8)));
        const complex<V> d1 = {odd(1).re + odd(1).im, odd(1).im - odd(1).re};
        const complex<V> d3 = {odd(3).im - odd(3).re, odd(3).re + odd(3).im}; // its imaginary part counts negative
        out(index<0>{}, even(0) + odd(0));
        out(index<4>{}, even(0) - odd(0));
        out(index<1>{}, add_times(even(1), c, d1));
        out(index<5>{}, sub_times(even(1), c, d1));
        out(index<2>{}, sub_i(even(2), odd(2)));
        out(index<6>{}, add_i(even(2), odd(2)));
        out(index<3>{}, complex<V>{mul_add(d3.re, c, even(3).re), mul_sub_from(d3.im, c, even(3).im)});
        out(index<7>{}, complex<V>{mul_sub_from(d3.re, c, even(3).re), mul_add(d3.im, c, even(3).im)});
    } else {
        constexpr int A = detail::first_factor(R);
        detail::composite_butterfly<A, R / A, V>(in, out);
    }
}

} // namespace krl::fft
