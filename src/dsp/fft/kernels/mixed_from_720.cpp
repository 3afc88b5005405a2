// Radix-4 kernels and entries of the mixed lengths from 720 on.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_720(KRL_FFT_DEFINE_MIXED)
