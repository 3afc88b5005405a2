// Radix-4 kernels of the mixed lengths and the per-length entries that call them. Twiddle factors are rounded to six
// decimals; length 6 has none.
#include "dsp/fft/kernels.h"

#define KRL_FFT_DEFINE_RADIX4(N)                                                                                       \
    KRL_FFT_DEFINE_KERNELS(r4, N, krl::fft::rounding::six_decimals)                                                    \
    void krl_fft_fwd_scl_##N(float* out, float* in, float*) { KRL_r4_fft_##N##_s(out, in, N); }                        \
    void krl_fft_fwd_usc_##N(float* out, float* in, float*) { KRL_r4_fft_##N(out, in, N); }                            \
    void krl_fft_inv_scl_##N(float* out, float* in, float*) { KRL_r4_inv_fft_##N##_s(out, in, N); }                    \
    void krl_fft_inv_usc_##N(float* out, float* in, float*) { KRL_r4_inv_fft_##N(out, in, N); }

KRL_FFT_MIXED_LENGTHS(KRL_FFT_DEFINE_RADIX4)
