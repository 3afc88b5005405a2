// The passes of every length: the one list of factorisations.
#pragma once

#include <type_traits>

#include "dsp/fft/lengths.h"

namespace krl::fft {

// X(N, radices ..): N is their product, first pass first; chosen among all by instructions on aarch64 and time on x86-64
// (tools/choose_fft_plans.py). After a first radix that is a multiple of 8 all later passes work on whole vectors. Other
// first radices, four at least, leave groups that overlap, which must not run in place: these transforms have two passes
// or three.
//
// Lengths 2, 4, 6 and 8 are straight lines of code (short_transforms.h). A length that stands here alone, and in no
// list of the public header, is on trial: tests and benchmarks run it, the library does not have it.
// clang-format off
#define KRL_FFT_PLANS(X)                                                                                              \
    X(12, 4, 3) X(15, 5, 3) X(16, 4, 4) X(20, 4, 5) X(24, 8, 3) X(30, 10, 3) X(32, 8, 4) X(36, 4, 9) X(40, 4, 10)     \
    X(45, 15, 3) X(48, 8, 6) X(60, 4, 15) X(64, 8, 8) X(72, 12, 6) X(80, 16, 5) X(90, 15, 6) X(96, 16, 6)             \
    X(100, 4, 5, 5) X(120, 8, 15) X(128, 16, 8) X(144, 24, 6) X(160, 8, 5, 4) X(180, 12, 15) X(192, 24, 8)            \
    X(240, 16, 15) X(256, 16, 16) X(288, 24, 12) X(320, 8, 4, 10) X(360, 24, 15) X(384, 24, 16)                       \
    X(480, 8, 6, 10) X(512, 8, 8, 8) X(576, 8, 6, 12) X(640, 16, 4, 10) X(720, 8, 6, 15) X(768, 16, 4, 12)            \
    X(960, 16, 6, 10) X(1024, 8, 8, 16) X(2048, 16, 8, 16) X(4096, 16, 16, 16)
// clang-format on

template <int R, int... rest> struct radices { static constexpr int first = R, product = (R * ... * rest); };

template <int N> struct plan;
#define KRL_FFT_PLAN(N, ...)                                                                                           \
    template <> struct plan<N> { using type = radices<__VA_ARGS__>; };                                                 \
    static_assert(plan<N>::type::product == N);
KRL_FFT_PLANS(KRL_FFT_PLAN)
#undef KRL_FFT_PLAN

// f(integral constant N) for every length on trial.
template <class F> void for_each_trial_length(F f) {
    constexpr auto exported = [](int n) {
        return std::ranges::count(powers_of_two, n) + std::ranges::count(mixed_lengths, n) > 0;
    };
#define KRL_FFT_TRY(N, ...)                                                                                            \
    if constexpr (!exported(N))                                                                                        \
        f(std::integral_constant<int, N>{});
    KRL_FFT_PLANS(KRL_FFT_TRY)
#undef KRL_FFT_TRY
}

} // namespace krl::fft
