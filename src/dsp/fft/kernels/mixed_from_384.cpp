// Radix-4 kernels and entries of the mixed lengths from 384 to below 576.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_384(KRL_FFT_DEFINE_MIXED)
