// A whole transform: the passes of one factorisation, and where the data stands between them.
#pragma once

#include "dsp/fft/passes.h"
#include "dsp/fft/plans.h"
#include "dsp/fft/short_transforms.h"

namespace krl::fft {

template <int N, direction dir, bool scaled, rounding precision, class Plan = typename plan<N>::type> class transform {
public:
    // work may be in. Neither overlaps out, except that in may be out for two passes without blocks.
    static void run(float* out, const float* in, float* work) {
        if constexpr (Plan::first % 8 == 0)
            blocked(Plan{}, out, in, work);
        else
            planar(Plan{}, out, in, work);
    }

private:
    template <int R, int... rest>
    static KRL_INLINE void blocked(radices<R, rest...>, float* out, const float* in, float* work) {
        first_pass<N, dir, scaled, R, blocks>::run(out, in);
        later_passes<blocks, R, true>(radices<rest...>{}, out, work);
    }
    template <int R, int... rest>
    static KRL_INLINE void planar(radices<R, rest...>, float* out, const float* in, float* work) {
        using layout = planes<N>;
        if constexpr (sizeof...(rest) == 1) {
            // Overlapping groups must not run in place. What stands between two passes is short and stays on the stack.
            alignas(32) float between[2 * N];
            first_pass<N, dir, scaled, R, layout>::run(between, in);
            (last_pass<N, dir, rest, precision, layout>(out, between), ...);
        } else {
            static_assert(sizeof...(rest) == 2);
            first_pass<N, dir, scaled, R, layout>::run(out, in);
            later_passes<layout, R, true>(radices<rest...>{}, out, work);
        }
    }

    // Results alternate between out and work; the last pass writes out, in place when the one before ended there.
    template <class layout, int L, bool in_out, int R, int... rest>
    static KRL_INLINE void later_passes(radices<R, rest...>, float* out, float* work) {
        const float* src = in_out ? out : work;
        if constexpr (sizeof...(rest) == 0) {
            last_pass<N, dir, R, precision, layout>(out, src);
        } else {
            middle_pass<N, R, L, precision, layout>(in_out ? work : out, src);
            later_passes<layout, L * R, !in_out>(radices<rest...>{}, out, work);
        }
    }
};

} // namespace krl::fft
