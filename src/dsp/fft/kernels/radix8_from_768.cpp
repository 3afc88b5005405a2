// Radix-8 kernels of the mixed lengths from 768 on.
#include "dsp/fft/kernels.h"

KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_768(KRL_FFT_DEFINE_RADIX8)
