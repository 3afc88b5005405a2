// Radix-4 kernels and entries of the mixed lengths from 180 to below 240.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_180(KRL_FFT_DEFINE_MIXED)
