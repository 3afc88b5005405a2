// Radix-8 kernels of the mixed lengths from 144 to below 240.
#include "dsp/fft/kernels.h"

KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_144(KRL_FFT_DEFINE_RADIX8)
