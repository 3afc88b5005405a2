// Radix-4 kernels and entries of the mixed lengths from 80 to below 120.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_80(KRL_FFT_DEFINE_MIXED)
