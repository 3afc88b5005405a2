// One row of a matrix at work: what everything that mixes is made of.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dsp/core/lanes.h"

namespace korla::downmixer {

// The lowest input of `used`, which is taken out.
KRL_INLINE size_t take_lowest(uint64_t& used) {
    const auto i = static_cast<size_t>(__builtin_ctzll(used));
    used &= used - 1;
    return i;
}

// Mixes `groups` vectors of frames of the inputs in `used`, input i being at row_of(i), into out. Raises `peaks`, which
// are numbers, to the greatest magnitudes stored; NaN does not count. Products are rounded and added in input order.
// The sum starts from +0, so that a row whose products are all -0 gives +0; a zero gain is no term at all, so that it
// does not turn an infinite sample into NaN.
//
// Most rows have one to three terms: those are added in straight code, further ones in a loop.
template <class V, int groups, int chains, class RowOf>
KRL_INLINE void mix_row(float* out, const float* gains, uint64_t used, RowOf row_of, V (&peaks)[chains]) {
    V sum[groups];
    const float* x[3];
    float gain[3];
    const auto take = [&](int n) __attribute__((always_inline)) {
        const size_t i = take_lowest(used);
        x[n] = row_of(i);
        gain[n] = gains[i];
    };
    const auto term = [&](int n, int g) { return krl::load<V>(x[n] + g * krl::lanes<V>) * gain[n]; };
    const auto start_with = [&](int terms) __attribute__((always_inline)) {
        for (int g = 0; g < groups; g++)
            sum[g] = krl::splat<V>(0.0f);
        for (int n = 0; n < terms; n++)
            for (int g = 0; g < groups; g++)
                sum[g] = sum[g] + term(n, g);
    };
    if (used == 0) {
        start_with(0);
    } else if (take(0); used == 0) {
        start_with(1);
    } else if (take(1); used == 0) {
        start_with(2);
    } else {
        take(2);
        start_with(3);
        while (used != 0) { // NOLINT(bugprone-infinite-loop): take() takes from it
            take(0);
            for (int g = 0; g < groups; g++)
                sum[g] = sum[g] + term(0, g);
        }
    }
    for (int g = 0; g < groups; g++) {
        krl::store(out + g * krl::lanes<V>, sum[g]);
        peaks[g % chains] = krl::max_of_number(krl::abs(sum[g]), peaks[g % chains]);
    }
}

} // namespace korla::downmixer
