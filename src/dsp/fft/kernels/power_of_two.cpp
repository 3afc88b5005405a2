// Radix-4 and radix-8 kernels and the per-length entries of the powers of two: three names for one transform.
#include "dsp/fft/kernels.h"

KRL_FFT_POWERS_OF_TWO(KRL_FFT_DEFINE_RADIX4)
KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_DEFINE_RADIX8)
KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_DEFINE_ENTRIES)
