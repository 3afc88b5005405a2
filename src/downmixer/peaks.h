// The greatest magnitudes of what is mixed, vector by vector.
#pragma once

#include "dsp/core/lanes.h"

namespace korla::downmixer {

// Chains of maxima, so that one does not wait for the other.
inline constexpr int peak_chains = 2;

// The greatest of the peaks.
template <class V, int chains> KRL_INLINE float greatest(const V (&peaks)[chains]) {
    V peak = peaks[0];
    for (int i = 1; i < chains; i++)
        peak = krl::max_of_number(peaks[i], peak);
    return krl::max_of_magnitudes(peak);
}

} // namespace korla::downmixer
