// Reductions of vectors: the one loop over independent partial sums.
//
// Element i adds to partial sum i mod `sums`; at the end the partial sums are joined in halves, sum j with sum
// j + sums / 2, then j with j + sums / 4, and so on. The order is a property of the operation and not of the lane width
// or of the alignment, so both entries and all targets return the same bits.
#pragma once

#include "dsp/core/pair.h"

namespace krl {

template <int count, class V> KRL_INLINE V join_halves(const V* s) {
    if constexpr (count == 1) {
        return s[0];
    } else {
        V joined[count / 2];
#pragma GCC unroll 8
        for (int c = 0; c < count / 2; c++)
            joined[c] = s[c] + s[c + count / 2];
        return join_halves<count / 2>(joined);
    }
}

// The sum over i = 0..n-1 of what step(s, x[i]...) adds to s. Acc is the vector of accumulators, of floats or doubles;
// step gets lanes of that type. Enough `sums` hide the latency of step behind the loads.
template <class access, class Acc, int sums, class Step, class... P>
KRL_INLINE element_of<Acc> reduce_vector(size_t n, Step step, const P*... x) {
    constexpr size_t width = lanes<Acc>;
    constexpr int chains = sums / width;
    if constexpr (access::is_strict)
        assert((is_aligned(x, strict_alignment) && ...) && n % 4 == 0);
    Acc s[chains];
#pragma GCC unroll 16
    for (Acc& sum : s)
        sum = Acc{};
    size_t i = 0;
    for (; i + sums <= n; i += sums) {
#pragma GCC unroll 16
        for (int c = 0; c < chains; c++)
            s[c] = step(s[c], load_as<Acc>(x + i + c * width)...);
    }
    if (const size_t rest = n - i; rest > 0) {
#pragma GCC unroll 16
        for (size_t c = 0; c < chains; c++) {
            if (rest >= (c + 1) * width)
                s[c] = step(s[c], load_as<Acc>(x + i + c * width)...);
            else if (rest > c * width)
                s[c] = step(s[c], load_first_as<Acc>(x + i + c * width, rest - c * width)...);
        }
    }
    return sum_of_lanes(join_halves<chains>(s));
}

} // namespace krl
