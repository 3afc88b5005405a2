// A whole transform: the passes of one factorisation, and where the data stands between them.
#pragma once

#include "dsp/fft/lengths.h"
#include "dsp/fft/passes.h"

namespace krl::fft {

template <int... R> struct radices {};

// The factorisations, first pass first. The first radix is 8 (4 where the length is no multiple of 8), so that all later
// passes work on whole vectors of eight (four) samples.
template <int N> struct plan;
template <> struct plan<2> { using type = radices<2>; };
template <> struct plan<4> { using type = radices<4>; };
template <> struct plan<6> { using type = radices<6>; };
template <> struct plan<8> { using type = radices<8>; };
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
template <> struct plan<60> { using type = radices<4, 3, 5>; };
template <> struct plan<64> { using type = radices<8, 8>; };
template <> struct plan<72> { using type = radices<8, 9>; };
template <> struct plan<80> { using type = radices<8, 2, 5>; };
template <> struct plan<90> { using type = radices<6, 3, 5>; };
template <> struct plan<96> { using type = radices<8, 3, 4>; };
template <> struct plan<120> { using type = radices<8, 3, 5>; };
template <> struct plan<128> { using type = radices<8, 4, 4>; };
template <> struct plan<144> { using type = radices<8, 3, 6>; };
template <> struct plan<160> { using type = radices<8, 4, 5>; };
template <> struct plan<180> { using type = radices<4, 9, 5>; };
template <> struct plan<192> { using type = radices<8, 4, 6>; };
template <> struct plan<240> { using type = radices<8, 6, 5>; };
template <> struct plan<256> { using type = radices<8, 8, 4>; };
template <> struct plan<288> { using type = radices<8, 6, 6>; };
template <> struct plan<320> { using type = radices<8, 8, 5>; };
template <> struct plan<360> { using type = radices<8, 9, 5>; };
template <> struct plan<384> { using type = radices<8, 3, 4, 4>; };
template <> struct plan<480> { using type = radices<8, 3, 4, 5>; };
template <> struct plan<512> { using type = radices<8, 4, 4, 4>; };
template <> struct plan<576> { using type = radices<8, 3, 4, 6>; };
template <> struct plan<640> { using type = radices<8, 4, 4, 5>; };
template <> struct plan<720> { using type = radices<8, 6, 3, 5>; };
template <> struct plan<768> { using type = radices<8, 4, 4, 6>; };
template <> struct plan<960> { using type = radices<8, 4, 6, 5>; };
template <> struct plan<1024> { using type = radices<8, 8, 4, 4>; };
template <> struct plan<2048> { using type = radices<8, 4, 4, 4, 4>; };
template <> struct plan<4096> { using type = radices<8, 8, 4, 4, 4>; };

// Lanes of the passes of length N: the widest that its first radix fills.
template <int N>
using lanes_of = std::conditional_t<N % 8 == 0 && (N > 16), f32v, std::conditional_t<N % 4 == 0 && (N > 8), f32x4, float>>;

template <int N, direction dir, bool scaled, rounding precision> struct transform {
    using V = lanes_of<N>;

    // Results alternate between out and work; the last pass writes out, in place when the one before ended there.
    template <int L, int R, int... rest>
    static KRL_INLINE void later_passes(radices<R, rest...>, float* out, float* work, bool in_out) {
        const float* src = in_out ? out : work;
        if constexpr (sizeof...(rest) == 0) {
            last_pass<N, dir, R, precision, V>(out, src);
        } else {
            middle_pass<N, R, L, precision, V>(in_out ? work : out, src);
            later_passes<L * R>(radices<rest...>{}, out, work, !in_out);
        }
    }
    template <int R, int... rest>
    static KRL_INLINE void passes(radices<R, rest...>, float* out, const float* in, float* work) {
        if constexpr (sizeof...(rest) == 0) {
            complex<float> x[N];
            const float factor = scaled ? 1.0f / N : 1.0f;
            for (int i = 0; i < N; i++) {
                x[i] = load_samples<float, dir>(in + 2 * i);
                if constexpr (scaled)
                    x[i] = {x[i].re * factor, x[i].im * factor};
            }
            butterfly<R>(x);
            for (int i = 0; i < N; i++)
                store_samples<float, dir>(out + 2 * i, x[i]);
        } else {
            first_pass<N, dir, scaled, R, lanes<V>>::run(out, in);
            later_passes<R>(radices<rest...>{}, out, work, true);
        }
    }

    // work may be in. Neither overlaps out, except that short transforms (runs_in_place) read everything first.
    static void run(float* out, const float* in, float* work) { passes(typename plan<N>::type{}, out, in, work); }
};

} // namespace krl::fft
