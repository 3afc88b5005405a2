// Radix-4 kernels and entries of the mixed lengths from 576 to below 720.
#include "dsp/fft/kernels.h"

KRL_FFT_MIXED_LENGTHS_FROM_576(KRL_FFT_DEFINE_MIXED)
