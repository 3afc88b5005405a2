// Radix-4 kernels and entries of the mixed lengths from 240 to below 384.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_240(KRL_FFT_DEFINE_MIXED)
