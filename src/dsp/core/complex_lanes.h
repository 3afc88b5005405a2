// Complex samples in lanes: the real parts of a vector's samples in one vector, the imaginary parts in another.
//
// Products. A complex product is four real ones, of which each part fuses one with the sum and rounds the other. Which
// one, and whether the fused step may be two roundings where the target has no such instruction, decides the bits of a
// result; so there is one function for each choice that the transforms and banks have made.
#pragma once

#include <type_traits>

#include "dsp/core/lanes.h"

namespace krl {

template <class V> struct complex { V re, im; };

template <class V> KRL_INLINE complex<V> operator+(complex<V> a, complex<V> b) { return {a.re + b.re, a.im + b.im}; }
template <class V> KRL_INLINE complex<V> operator-(complex<V> a, complex<V> b) { return {a.re - b.re, a.im - b.im}; }
template <class V> KRL_INLINE complex<V> operator*(V g, complex<V> a) { return {g * a.re, g * a.im}; }
template <class V> KRL_INLINE complex<V> reverse(complex<V> a) { return {reverse(a.re), reverse(a.im)}; }

// ---- sums with a quarter turn or a real factor ---------------------------------------------------------------------

template <class V> KRL_INLINE complex<V> times_minus_i(complex<V> a) { return {a.im, -a.re}; }
template <class V> KRL_INLINE complex<V> add_i(complex<V> a, complex<V> b) { return {a.re - b.im, a.im + b.re}; }
template <class V> KRL_INLINE complex<V> sub_i(complex<V> a, complex<V> b) { return {a.re + b.im, a.im - b.re}; }

// a + g*b, a - g*b, a + i*g*b, a - i*g*b for a real g; fused where the target does it in one instruction.
template <class V> KRL_INLINE complex<V> add_times(complex<V> a, V g, complex<V> b) {
    return {mul_add(b.re, g, a.re), mul_add(b.im, g, a.im)};
}
template <class V> KRL_INLINE complex<V> sub_times(complex<V> a, V g, complex<V> b) {
    return {mul_sub_from(b.re, g, a.re), mul_sub_from(b.im, g, a.im)};
}
template <class V> KRL_INLINE complex<V> add_i_times(complex<V> a, V g, complex<V> b) {
    return {mul_sub_from(b.im, g, a.re), mul_add(b.re, g, a.im)};
}
template <class V> KRL_INLINE complex<V> sub_i_times(complex<V> a, V g, complex<V> b) {
    return {mul_add(b.im, g, a.re), mul_sub_from(b.re, g, a.im)};
}

// ---- products ------------------------------------------------------------------------------------------------------

// a * (c - i*s). The products with c are rounded, those with s fused where the target does it in one instruction.
template <class V> KRL_INLINE complex<V> rotate(complex<V> a, V c, V s) {
    return {mul_add(a.im, s, a.re * c), mul_sub_from(a.re, s, a.im * c)};
}
// a * w. The products with a.re are rounded, those with a.im fused where the target does it in one instruction.
template <class V> KRL_INLINE complex<V> multiply(complex<V> a, complex<V> w) {
    return {mul_sub_from(a.im, w.im, a.re * w.re), mul_add(a.im, w.re, a.re * w.im)};
}
// a * (c - i*s). The products with s are rounded, those with c fused on every target.
template <class V> KRL_INLINE complex<V> rotate_fused(complex<V> a, V c, V s) {
    return {fma(a.re, c, a.im * s), fma(a.im, c, -(a.re * s))};
}
// a * w. The products with a.im are rounded, those with a.re fused on every target.
template <class V> KRL_INLINE complex<V> multiply_fused(complex<V> a, complex<V> w) {
    return {fma(a.re, w.re, -(a.im * w.im)), fma(a.re, w.im, a.im * w.re)};
}
// conj(a) * (c + i*s). The products with a.im are rounded, those with a.re fused on every target.
template <class V> KRL_INLINE complex<V> rotate_conjugate_fused(complex<V> a, V c, V s) {
    return {fma(a.re, c, a.im * s), fma(a.re, s, -(a.im * c))};
}

// ---- memory --------------------------------------------------------------------------------------------------------

// As many consecutive samples as V has lanes, in their order.
template <class V> KRL_INLINE complex<V> load_complex(const float* p) {
    if constexpr (lanes<V> == 1) {
        return {p[0], p[1]};
    } else {
        const auto [re, im] = deinterleave(load<V>(p), load<V>(p + lanes<V>));
        return {re, im};
    }
}
template <class V> KRL_INLINE void store_complex(float* p, complex<V> z) {
    if constexpr (lanes<V> == 1) {
        p[0] = z.re;
        p[1] = z.im;
    } else {
        const auto [lo, hi] = interleave(z.re, z.im);
        store(p, lo);
        store(p + lanes<V>, hi);
    }
}

// The same with the lanes in split order, which costs less.
template <class V> KRL_INLINE complex<V> load_split(const float* p) {
    const auto [re, im] = split(load<V>(p), load<V>(p + lanes<V>));
    return {re, im};
}
template <class V> KRL_INLINE void store_split(float* p, complex<V> z) {
    const auto [lo, hi] = join(z.re, z.im);
    store(p, lo);
    store(p + lanes<V>, hi);
}

// The same backwards: the last of them in the first lane. Four lanes exchange whole samples before they take the parts apart, so
// that a vector costs one shuffle more and not two.
template <class V> KRL_INLINE complex<V> load_split_backwards(const float* p) {
    if constexpr (lanes<V> == 4) {
        const auto [re, im] = deinterleave(reverse_complex(load<V>(p + 4)), reverse_complex(load<V>(p)));
        return {re, im};
    } else {
        return reverse(load_split<V>(p));
    }
}
template <class V> KRL_INLINE void store_split_backwards(float* p, complex<V> z) {
    if constexpr (lanes<V> == 4) {
        const auto [lo, hi] = interleave(z.re, z.im);
        store(p, reverse_complex(hi));
        store(p + 4, reverse_complex(lo));
    } else {
        store_split(p, reverse(z));
    }
}

// Forwards, for loops that do little between load and store: in one instruction where the target has it.
template <class V> KRL_INLINE complex<V> load_samples(const float* p) {
#if defined(KRL_NEON)
    if constexpr (std::is_same_v<V, f32v>) {
        f32v v[2];
        load_structures<2>(v, p);
        return {v[0], v[1]};
    }
#endif
    return load_split<V>(p);
}
template <class V> KRL_INLINE void store_samples(float* p, complex<V> z) {
#if defined(KRL_NEON)
    if constexpr (std::is_same_v<V, f32v>) {
        f32v v[2] = {z.re, z.im};
        return store_structures<2>(p, v);
    }
#endif
    store_split(p, z);
}

} // namespace krl
