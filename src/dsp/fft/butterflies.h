// Forward transforms of a few points, held in registers: the butterflies of the passes.
//
// butterfly<R>(x) replaces x[0..R-1] by its R-point forward transform in natural order, lane by lane. There are no inverse
// ones: swapping the real and imaginary parts of input and output turns a forward transform into an inverse one, and the
// passes do that for nothing where they load and store.
#pragma once

#include <utility>

#include "dsp/core/lanes.h"
#include "dsp/core/trig.h"

namespace krl::fft {

template <class V> struct complex { V re, im; };

template <class V> KRL_INLINE complex<V> operator+(complex<V> a, complex<V> b) { return {a.re + b.re, a.im + b.im}; }
template <class V> KRL_INLINE complex<V> operator-(complex<V> a, complex<V> b) { return {a.re - b.re, a.im - b.im}; }

// a * (c - i*s)
template <class V> KRL_INLINE complex<V> rotate(complex<V> a, V c, V s) {
    return {mul_add(a.im, s, a.re * c), mul_sub_from(a.re, s, a.im * c)};
}
template <class V> KRL_INLINE complex<V> times_minus_i(complex<V> a) { return {a.im, -a.re}; }

// a + g*b, a - g*b, a - i*g*b, a + i*g*b for a real g
template <class V> KRL_INLINE complex<V> add_times(complex<V> a, V g, complex<V> b) {
    return {mul_add(b.re, g, a.re), mul_add(b.im, g, a.im)};
}
template <class V> KRL_INLINE complex<V> sub_times(complex<V> a, V g, complex<V> b) {
    return {mul_sub_from(b.re, g, a.re), mul_sub_from(b.im, g, a.im)};
}
template <class V> KRL_INLINE complex<V> sub_i_times(complex<V> a, V g, complex<V> b) {
    return {mul_add(b.im, g, a.re), mul_sub_from(b.re, g, a.im)};
}
template <class V> KRL_INLINE complex<V> add_i_times(complex<V> a, V g, complex<V> b) {
    return {mul_sub_from(b.im, g, a.re), mul_add(b.re, g, a.im)};
}
template <class V> KRL_INLINE complex<V> sub_i(complex<V> a, complex<V> b) { return {a.re + b.im, a.im - b.re}; }
template <class V> KRL_INLINE complex<V> add_i(complex<V> a, complex<V> b) { return {a.re - b.im, a.im + b.re}; }

template <int R, class V> KRL_INLINE void butterfly(complex<V>* x);

namespace detail {

constexpr int inverse_modulo(int a, int m) {
    for (int i = 1; i < m; i++)
        if (a * i % m == 1)
            return i;
    return 1; // m is 1
}
constexpr int gcd(int a, int b) { return b == 0 ? a : gcd(b, a % b); }

// f(integral constants 0..n-1): loops whose index is a constant in the body.
template <int n, class F> KRL_INLINE void unroll(F f) {
    [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
        (f(std::integral_constant<int, i>{}), ...);
    }(std::make_integer_sequence<int, n>{});
}

// A*B points with A and B coprime: no twiddle factors between the two steps (I. J. Good 1958, L. H. Thomas 1963).
template <int A, int B, class V> KRL_INLINE void coprime_butterfly(complex<V>* x) {
    complex<V> columns[B][A];
    unroll<B>([&](auto b) __attribute__((always_inline)) {
        unroll<A>([&](auto a) __attribute__((always_inline)) { columns[b][a] = x[(B * a + A * b) % (A * B)]; });
        butterfly<A>(columns[b]);
    });
    constexpr int to_a = B * inverse_modulo(B % A, A), to_b = A * inverse_modulo(A % B, B);
    unroll<A>([&](auto a) __attribute__((always_inline)) {
        complex<V> row[B];
        unroll<B>([&](auto b) __attribute__((always_inline)) { row[b] = columns[b][a]; });
        butterfly<B>(row);
        unroll<B>([&](auto b) __attribute__((always_inline)) { x[(to_a * a + to_b * b) % (A * B)] = row[b]; });
    });
}

// A*B points in general, with the twiddle factors e^(-2*pi*i*a*b/(A*B)) as constants.
template <int A, int B, class V> KRL_INLINE void composite_butterfly(complex<V>* x) {
    complex<V> columns[B][A];
    unroll<B>([&](auto b) __attribute__((always_inline)) {
        unroll<A>([&](auto a) __attribute__((always_inline)) { columns[b][a] = x[B * a + b]; });
        butterfly<A>(columns[b]);
    });
    unroll<A>([&](auto a) __attribute__((always_inline)) {
        complex<V> row[B];
        unroll<B>([&](auto b) __attribute__((always_inline)) {
            constexpr sin_cos w = sin_cos_turn(a * b, A * B);
            row[b] = columns[b][a];
            if constexpr (w.cos == 0.0 && w.sin > 0.0)
                row[b] = times_minus_i(row[b]);
            else if constexpr (w.sin != 0.0)
                row[b] = rotate(row[b], splat<V>(static_cast<float>(w.cos)), splat<V>(static_cast<float>(w.sin)));
        });
        butterfly<B>(row);
        unroll<B>([&](auto b) __attribute__((always_inline)) { x[a + A * b] = row[b]; });
    });
}

} // namespace detail

template <int R, class V> KRL_INLINE void butterfly(complex<V>* x) {
    if constexpr (R == 1) {
    } else if constexpr (R == 2) {
        const complex<V> a = x[0], b = x[1];
        x[0] = a + b, x[1] = a - b;
    } else if constexpr (R == 3) {
        const V half = splat<V>(0.5f), h = splat<V>(static_cast<float>(sin_turn(1, 3)));
        const complex<V> s = x[1] + x[2], d = x[1] - x[2], u = sub_times(x[0], half, s);
        x[0] = x[0] + s, x[1] = sub_i_times(u, h, d), x[2] = add_i_times(u, h, d);
    } else if constexpr (R == 4) {
        const complex<V> ac = x[0] + x[2], bd = x[1] + x[3], am = x[0] - x[2], bm = x[1] - x[3];
        x[0] = ac + bd, x[1] = sub_i(am, bm), x[2] = ac - bd, x[3] = add_i(am, bm);
    } else if constexpr (R == 5) {
        const V c1 = splat<V>(static_cast<float>(cos_turn(1, 5))), c2 = splat<V>(static_cast<float>(cos_turn(2, 5)));
        const V s1 = splat<V>(static_cast<float>(sin_turn(1, 5))), s2 = splat<V>(static_cast<float>(sin_turn(2, 5)));
        const complex<V> p = x[1] + x[4], m = x[1] - x[4], q = x[2] + x[3], n = x[2] - x[3];
        const complex<V> u = add_times(add_times(x[0], c1, p), c2, q), v = add_times(add_times(x[0], c2, p), c1, q);
        const complex<V> y = add_times(complex<V>{m.re * s1, m.im * s1}, s2, n);
        const complex<V> z = sub_times(complex<V>{m.re * s2, m.im * s2}, s1, n);
        x[0] = x[0] + (p + q);
        x[1] = sub_i(u, y), x[4] = add_i(u, y), x[2] = sub_i(v, z), x[3] = add_i(v, z);
    } else if constexpr (R == 8) {
        // Two four-point transforms; the odd one's bins turned by eighths, the diagonal ones without their factor c, which
        // the last additions apply.
        complex<V> even[4] = {x[0], x[2], x[4], x[6]}, odd[4] = {x[1], x[3], x[5], x[7]};
        butterfly<4>(even);
        butterfly<4>(odd);
        const V c = splat<V>(static_cast<float>(cos_turn(1, 8)));
        const complex<V> d1 = {odd[1].re + odd[1].im, odd[1].im - odd[1].re};
        const complex<V> d3 = {odd[3].im - odd[3].re, odd[3].re + odd[3].im}; // subtracted imaginary part below
        x[0] = even[0] + odd[0], x[4] = even[0] - odd[0];
        x[1] = add_times(even[1], c, d1), x[5] = sub_times(even[1], c, d1);
        x[2] = sub_i(even[2], odd[2]), x[6] = add_i(even[2], odd[2]);
        x[3] = {mul_add(d3.re, c, even[3].re), mul_sub_from(d3.im, c, even[3].im)};
        x[7] = {mul_sub_from(d3.re, c, even[3].re), mul_add(d3.im, c, even[3].im)};
    } else {
        constexpr int A = R % 4 == 0 ? 4 : R % 3 == 0 ? 3 : R % 2 == 0 ? 2 : 5;
        if constexpr (detail::gcd(A, R / A) == 1)
            detail::coprime_butterfly<A, R / A>(x);
        else
            detail::composite_butterfly<A, R / A>(x);
    }
}

} // namespace krl::fft
