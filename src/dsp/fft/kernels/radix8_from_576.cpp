// Radix-8 kernels of the mixed lengths from 576 to below 768.
#include "dsp/fft/kernels.h"

KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_576(KRL_FFT_DEFINE_RADIX8)
