// A loop over a range of indices in the widest lanes that fit, without a tail, and lanes that run backwards in memory.
#pragma once

#include "dsp/core/complex_lanes.h"

namespace krl {

template <class V> struct lane_tag { using type = V; };

// The lanes p[0], p[-1], p[-2] ..
template <class V> KRL_INLINE V load_backwards(const float* p) { return reverse(load<V>(p - (lanes<V> - 1))); }
template <class V> KRL_INLINE void store_backwards(float* p, V v) { store(p - (lanes<V> - 1), reverse(v)); }
// The complex samples at p, p - 2, p - 4 ..
template <class V> KRL_INLINE complex<V> load_complex_backwards(const float* p) {
    const float* const first = p - 2 * (lanes<V> - 1);
    if constexpr (lanes<V> == 4) // where split order is the order in memory
        return load_split_backwards<V>(first);
    else
        return reverse(load_complex<V>(first));
}
template <class V> KRL_INLINE void store_complex_backwards(float* p, complex<V> z) {
    float* const first = p - 2 * (lanes<V> - 1);
    if constexpr (lanes<V> == 4)
        store_split_backwards(first, z);
    else
        store_complex(first, reverse(z));
}

namespace detail {

template <class V, class Step> KRL_INLINE void sweep_in(uint32_t first, uint32_t last, Step step) {
    constexpr uint32_t width = lanes<V>;
    for (uint32_t i = first; i + width <= last; i += width)
        step(lane_tag<V>{}, i);
    if ((last - first) % width != 0)
        step(lane_tag<V>{}, last - width);
}

} // namespace detail

// Calls step(lane_tag<V>, i) so that the runs i .. i + lanes<V> - 1 cover first .. last - 1. When the length is not a
// multiple of the lanes, the last run overlaps the one before: a step must not change what another one reads.
template <class Step> KRL_INLINE void sweep(uint32_t first, uint32_t last, Step step) {
    const uint32_t count = last - first;
    if (count >= lanes<f32v>)
        return detail::sweep_in<f32v>(first, last, step);
    if constexpr (lanes < f32v >> 4)
        if (count >= 4)
            return detail::sweep_in<f32x4>(first, last, step);
    detail::sweep_in<float>(first, last, step);
}

} // namespace krl
