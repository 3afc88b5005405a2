// A whole transform: the passes of one factorisation, and where the data stands between them.
#pragma once

#include "dsp/fft/lengths.h"
#include "dsp/fft/passes.h"
#include "dsp/fft/short_transforms.h"

namespace krl::fft {

template <int R, int... rest> struct radices { static constexpr int first = R; };

// The factorisations, first pass first; among the possible ones the fastest on x86-64 with eight lanes. After a first
// radix that is a multiple of 8 all later passes work on whole vectors. Other first radices, four at least, leave
// groups that overlap, which must not run in place: these transforms have two passes or three.
template <int N> struct plan;
// clang-format off
template <> struct plan<12> { using type = radices<4, 3>; };
template <> struct plan<15> { using type = radices<5, 3>; };
template <> struct plan<16> { using type = radices<4, 4>; };
template <> struct plan<20> { using type = radices<4, 5>; };
template <> struct plan<24> { using type = radices<8, 3>; };
template <> struct plan<30> { using type = radices<6, 5>; };
template <> struct plan<32> { using type = radices<8, 4>; };
template <> struct plan<36> { using type = radices<4, 9>; };
template <> struct plan<40> { using type = radices<8, 5>; };
template <> struct plan<45> { using type = radices<9, 5>; };
template <> struct plan<48> { using type = radices<8, 6>; };
template <> struct plan<60> { using type = radices<12, 5>; };
template <> struct plan<64> { using type = radices<8, 8>; };
template <> struct plan<72> { using type = radices<12, 6>; };
template <> struct plan<80> { using type = radices<16, 5>; };
template <> struct plan<90> { using type = radices<15, 6>; };
template <> struct plan<96> { using type = radices<16, 6>; };
template <> struct plan<120> { using type = radices<8, 15>; };
template <> struct plan<128> { using type = radices<16, 8>; };
template <> struct plan<144> { using type = radices<24, 6>; };
template <> struct plan<160> { using type = radices<8, 5, 4>; };
template <> struct plan<180> { using type = radices<12, 5, 3>; };
template <> struct plan<192> { using type = radices<24, 8>; };
template <> struct plan<240> { using type = radices<16, 15>; };
template <> struct plan<256> { using type = radices<16, 16>; };
template <> struct plan<288> { using type = radices<8, 6, 6>; };
template <> struct plan<320> { using type = radices<8, 4, 10>; };
template <> struct plan<360> { using type = radices<8, 3, 5, 3>; };
template <> struct plan<384> { using type = radices<24, 4, 4>; };
template <> struct plan<480> { using type = radices<16, 5, 6>; };
template <> struct plan<512> { using type = radices<16, 8, 4>; };
template <> struct plan<576> { using type = radices<24, 4, 6>; };
template <> struct plan<640> { using type = radices<16, 4, 10>; };
template <> struct plan<720> { using type = radices<24, 5, 6>; };
template <> struct plan<768> { using type = radices<16, 4, 12>; };
template <> struct plan<960> { using type = radices<8, 4, 5, 6>; };
template <> struct plan<1024> { using type = radices<8, 8, 4, 4>; };
template <> struct plan<2048> { using type = radices<8, 4, 4, 4, 4>; };
template <> struct plan<4096> { using type = radices<8, 8, 8, 8>; };
// clang-format on

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
