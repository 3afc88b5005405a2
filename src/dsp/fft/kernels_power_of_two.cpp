// Radix-4 and radix-8 kernels and the per-length entries of the powers of two: three names for one transform.
#include "dsp/fft/kernels.h"

#define KRL_FFT_DEFINE_RADIX4(N) KRL_FFT_DEFINE_KERNELS(r4, N, krl::fft::rounding::full)
#define KRL_FFT_DEFINE_RADIX8(N) KRL_FFT_DEFINE_KERNELS(r8, N, krl::fft::rounding::full)
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

KRL_FFT_POWERS_OF_TWO(KRL_FFT_DEFINE_RADIX4)
KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_DEFINE_RADIX8)
KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_DEFINE_ENTRIES)
