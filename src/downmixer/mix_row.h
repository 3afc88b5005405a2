// One row of a matrix at work: what everything that mixes is made of.
#pragma once

#include <cstdint>

#include "dsp/core/lanes.h"

namespace korla::downmixer {

// f(i) for every bit i of used, ascending.
template <class F> KRL_INLINE void for_each_used(uint32_t used, F f) {
    for (; used != 0; used &= used - 1)
        f(static_cast<uint32_t>(__builtin_ctz(used)));
}

// Mixes `groups` vectors of frames of the inputs in `used`, input i being at row_of(i), into out. Returns `peak`, raised
// to the greatest magnitudes stored; NaN does not count. Products are rounded and added in input order. The sum starts
// from +0, so that a row whose products are all -0 gives +0; a zero gain is no term at all, so that it does not turn an
// infinite sample into NaN.
template <class V, int groups, class RowOf>
KRL_INLINE V mix_row(float* out, const float* gains, uint32_t used, RowOf row_of, V peak) {
    V sum[groups];
    const V zero = krl::splat<V>(0.0f);
    const auto add = [&](auto to, uint32_t i) __attribute__((always_inline)) {
        const float* x = row_of(i);
        const float gain = gains[i];
        for (int g = 0; g < groups; g++)
            sum[g] = to(g) + krl::load<V>(x + g * krl::lanes<V>) * gain;
    };
    if (used != 0) { // many rows have just one term
        add([&](int) { return zero; }, static_cast<uint32_t>(__builtin_ctz(used)));
        for_each_used(
            used & (used - 1), [&](uint32_t i) __attribute__((always_inline)) { add([&](int g) { return sum[g]; }, i); });
    } else {
        for (V& s : sum)
            s = zero;
    }
    for (int g = 0; g < groups; g++) {
        krl::store(out + g * krl::lanes<V>, sum[g]);
        peak = krl::max_of_number(krl::abs(sum[g]), peak);
    }
    return peak;
}

} // namespace korla::downmixer
