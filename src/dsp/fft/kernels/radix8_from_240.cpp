// Radix-8 kernels of the mixed lengths from 240 to below 576.
#include "dsp/fft/kernels.h"

KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_240(KRL_FFT_DEFINE_RADIX8)
