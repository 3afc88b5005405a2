// The fastest transform of a length: for everything in the library that runs an FFT whose radix does not matter.
#pragma once

#include "korla/dsp/fft.h"

namespace krl::fft {

// The radix-8 pair {unscaled, scaled} where the length has one, else its radix-4 pair; null when it has neither.
const krl_fft_pair* fastest_forward(uint32_t n);
const krl_fft_pair* fastest_inverse(uint32_t n);

} // namespace krl::fft
