// Radix-4 kernels and entries of the mixed lengths from 6 to below 80.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_6(KRL_FFT_DEFINE_MIXED)
