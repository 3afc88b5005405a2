// Radix-4 kernels and entries of the mixed lengths from 120 to below 180.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_120(KRL_FFT_DEFINE_MIXED)
