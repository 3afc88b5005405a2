// What exports the kernels and entries of one length.
#pragma once

#include "dsp/fft/transform.h"

namespace krl::fft {

template <int N, direction dir, bool scaled, rounding precision>
KRL_INLINE void run(float* out, float* in, float* work) {
    if constexpr (is_short<N>)
        short_transform<N, dir, scaled>(out, in);
    else
        transform<N, dir, scaled, precision>::run(out, in, work);
}

template <int N, direction dir, bool scaled, rounding precision> KRL_INLINE void kernel(float* out, float* in) {
    run<N, dir, scaled, precision>(out, in, in);
}

// The entry of a power of two: work area of its own, and the input taken from out when there is none.
template <int N, direction dir, bool scaled> KRL_INLINE void entry(float* out, float* in, float* work) {
    if (in == nullptr || in == out) {
        if constexpr (runs_in_place(N)) {
            in = out;
        } else {
            __builtin_memcpy(work, out, 2 * N * sizeof(float));
            in = work;
        }
    }
    run<N, dir, scaled, rounding::full>(out, in, work);
}

} // namespace krl::fft

// The definitions of the functions of one length, one macro for each family of names:
//
//   KRL_r4_fft_N .. KRL_r4_inv_fft_N_s        KRL_FFT_DEFINE_KERNELS(r4, N, precision)
//   KRL_r8_fft_N .. KRL_r8_inv_fft_N_s        KRL_FFT_DEFINE_KERNELS(r8, N, precision)
//   krl_fft_fwd_scl_N .. krl_fft_inv_usc_N    KRL_FFT_DEFINE_ENTRIES(N), of mixed lengths KRL_FFT_DEFINE_MIXED(N)
//
// The files in kernels/ expand them, each for the part of the lengths that its name says.
#define KRL_FFT_DEFINE_KERNELS(radix, N, precision)                                                                    \
    void KRL_##radix##_fft_##N(float* out, float* in, uint32_t) {                                                      \
        krl::fft::kernel<N, krl::fft::direction::forward, false, precision>(out, in);                                  \
    }                                                                                                                  \
    void KRL_##radix##_fft_##N##_s(float* out, float* in, uint32_t) {                                                  \
        krl::fft::kernel<N, krl::fft::direction::forward, true, precision>(out, in);                                   \
    }                                                                                                                  \
    void KRL_##radix##_inv_fft_##N(float* out, float* in, uint32_t) {                                                  \
        krl::fft::kernel<N, krl::fft::direction::inverse, false, precision>(out, in);                                  \
    }                                                                                                                  \
    void KRL_##radix##_inv_fft_##N##_s(float* out, float* in, uint32_t) {                                              \
        krl::fft::kernel<N, krl::fft::direction::inverse, true, precision>(out, in);                                   \
    }

#define KRL_FFT_DEFINE_ENTRIES(N)                                                                                      \
    void krl_fft_fwd_scl_##N(float* out, float* in, float* work) {                                                     \
        krl::fft::entry<N, krl::fft::direction::forward, true>(out, in, work);                                         \
    }                                                                                                                  \
    void krl_fft_fwd_usc_##N(float* out, float* in, float* work) {                                                     \
        krl::fft::entry<N, krl::fft::direction::forward, false>(out, in, work);                                        \
    }                                                                                                                  \
    void krl_fft_inv_scl_##N(float* out, float* in, float* work) {                                                     \
        krl::fft::entry<N, krl::fft::direction::inverse, true>(out, in, work);                                         \
    }                                                                                                                  \
    void krl_fft_inv_usc_##N(float* out, float* in, float* work) {                                                     \
        krl::fft::entry<N, krl::fft::direction::inverse, false>(out, in, work);                                        \
    }

// Mixed lengths: radix-4 kernels with twiddle factors of six decimals (length 6 has none), and entries that call them.
#define KRL_FFT_DEFINE_MIXED(N)                                                                                        \
    KRL_FFT_DEFINE_KERNELS(r4, N, krl::fft::rounding::six_decimals)                                                    \
    void krl_fft_fwd_scl_##N(float* out, float* in, float*) { KRL_r4_fft_##N##_s(out, in, N); }                        \
    void krl_fft_fwd_usc_##N(float* out, float* in, float*) { KRL_r4_fft_##N(out, in, N); }                            \
    void krl_fft_inv_scl_##N(float* out, float* in, float*) { KRL_r4_inv_fft_##N##_s(out, in, N); }                    \
    void krl_fft_inv_usc_##N(float* out, float* in, float*) { KRL_r4_inv_fft_##N(out, in, N); }

#define KRL_FFT_DEFINE_RADIX4(N) KRL_FFT_DEFINE_KERNELS(r4, N, krl::fft::rounding::full)
#define KRL_FFT_DEFINE_RADIX8(N) KRL_FFT_DEFINE_KERNELS(r8, N, krl::fft::rounding::full)
