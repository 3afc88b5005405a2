// One row of a matrix at work: what everything that mixes is made of.
#pragma once

#include <cstdint>

#include "dsp/core/lanes.h"

namespace korla::downmixer {

// f(i) for every bit i of used, ascending.
template <class F> KRL_INLINE void for_each_used(uint32_t used, F f) {
    for (; used != 0; used &= used - 1)
        f(__builtin_ctz(used));
}

// Mixes `groups` vectors of frames of the inputs in `used`, input i being at row_of(i), into out. Returns `peak`, raised
// to the greatest magnitudes stored; NaN does not count. Products are rounded and added in input order. The sum starts
// from +0, so that a row whose products are all -0 gives +0; a zero gain is no term at all, so that it does not turn an
// infinite sample into NaN.
template <class V, int groups, class RowOf>
KRL_INLINE V mix_row(float* out, const float* gains, uint32_t used, RowOf row_of, V peak) {
    V sum[groups];
    for (int g = 0; g < groups; g++)
        sum[g] = krl::splat<V>(0.0f);
    for_each_used(
        used, [&](int i) __attribute__((always_inline)) {
            const float* x = row_of(i);
            for (int g = 0; g < groups; g++)
                sum[g] = sum[g] + krl::load<V>(x + g * krl::lanes<V>) * gains[i];
        });
    for (int g = 0; g < groups; g++) {
        krl::store(out + g * krl::lanes<V>, sum[g]);
        peak = krl::max_of_number(krl::abs(sum[g]), peak);
    }
    return peak;
}

} // namespace korla::downmixer
