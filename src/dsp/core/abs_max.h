// The largest magnitude of a vector.
//
// Magnitudes are compared as integers: without their sign bit, floats order as their bit patterns do, infinity stands
// above every number and NaN above infinity. So the propagating maximum is one integer maximum, and the ignoring one
// first moves NaN below every number. Maxima are exact in any order, so four independent chains hide the latency and
// the last lanes may be read twice.
#pragma once

#include "dsp/core/pair.h"

namespace krl {

template <class access, class V> KRL_INLINE auto magnitude_key(V v) {
    auto bits = bit_cast<typename lane_traits<V>::mask>(abs(v));
    if constexpr (access::is_strict)
        return bits;
    else
        return bits | (v != v); // NaN becomes -1
}

template <class access> inline float abs_max(const float* x, size_t n) {
    using K = typename lane_traits<f32v>::mask;
    constexpr size_t width = lanes<f32v>;
    int32_t best = access::is_strict ? 0 : -1;
    if (n >= width) {
        auto key = [x](size_t i) { return magnitude_key<access>(load<f32v>(x + i)); };
        K k0 = key(0), k1 = k0, k2 = k0, k3 = k0;
        size_t i = width;
        for (; i + 4 * width <= n; i += 4 * width) {
            k0 = max_int(k0, key(i));
            k1 = max_int(k1, key(i + width));
            k2 = max_int(k2, key(i + 2 * width));
            k3 = max_int(k3, key(i + 3 * width));
        }
        for (; i + width <= n; i += width)
            k0 = max_int(k0, key(i));
        k0 = max_int(max_int(k0, k1), max_int(max_int(k2, k3), key(n - width)));
        best = max_of_lanes(k0);
    } else {
        for (size_t i = 0; i < n; i++) {
            const int32_t bits = bit_cast<int32_t>(x[i]) & 0x7fffffff;
            const int32_t key = !access::is_strict && x[i] != x[i] ? -1 : bits;
            best = key > best ? key : best;
        }
    }
    if (best == -1) // nothing but NaN, or nothing at all
        return n == 0 ? 0.0f : __builtin_nanf("");
    return bit_cast<float>(best);
}

} // namespace krl
