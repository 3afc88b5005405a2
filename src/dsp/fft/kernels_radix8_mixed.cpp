// Radix-8 kernels of the mixed lengths: full-precision twiddle factors.
#include "dsp/fft/kernels.h"

#define KRL_FFT_DEFINE_RADIX8(N) KRL_FFT_DEFINE_KERNELS(r8, N, krl::fft::rounding::full)
KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_DEFINE_RADIX8)
