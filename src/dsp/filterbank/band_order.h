// Between FFT bins and sub-bands.
//
// A complex-modulated bank of M bands gets its bands from an FFT of M bins: band 2k is bin k and band 2k+1 is bin
// M-1-k, and one of the two is conjugated, because real input makes bin M-1-k turn the other way round.
#pragma once

#include "dsp/core/lanes.h"

namespace krl {

enum class Conjugated { even_bands, odd_bands };

namespace detail {

template <bool wanted, class V> KRL_INLINE V conjugate_if(V v) {
    if constexpr (wanted)
        return conjugate(v);
    else
        return v;
}

} // namespace detail

struct AsTheyAre {
    KRL_INLINE lane_pair<f32v> operator()(f32v a, f32v b, uint32_t) const { return {a, b}; }
};

// M is a multiple of 8. The buffers hold M complex values and are apart. turn(a, b, m) has the last word on the two vectors of
// complex samples that start at band m on their way out of the bins, or the first on their way in.
template <Conjugated which, class Turn = AsTheyAre>
KRL_INLINE void bands_from_bins(float* bands, const float* bins, uint32_t m, Turn turn = {}) {
    constexpr uint32_t step = lanes<f32v>; // floats: lanes / 2 complex values
#pragma GCC unroll 2
    for (uint32_t k = 0; k < m; k += step) {
        const f32v low = load<f32v>(bins + k), high = load<f32v>(bins + 2 * m - step - k);
        const auto [a, b] = interleave_backwards(detail::conjugate_if<which == Conjugated::even_bands>(low),
                                                 detail::conjugate_if<which == Conjugated::odd_bands>(high));
        const auto [first, second] = turn(a, b, k);
        store(bands + 2 * k, first);
        store(bands + 2 * k + step, second);
    }
}

template <Conjugated which, class Turn = AsTheyAre>
KRL_INLINE void bins_from_bands(float* bins, const float* bands, uint32_t m, Turn turn = {}) {
    constexpr uint32_t step = lanes<f32v>;
#pragma GCC unroll 2
    for (uint32_t k = 0; k < m; k += step) {
        const auto [first, second] = turn(load<f32v>(bands + 2 * k), load<f32v>(bands + 2 * k + step), k);
        const auto [even, odd] = deinterleave_backwards(first, second);
        store(bins + k, detail::conjugate_if<which == Conjugated::even_bands>(even));
        store(bins + 2 * m - step - k, detail::conjugate_if<which == Conjugated::odd_bands>(odd));
    }
}

} // namespace krl
