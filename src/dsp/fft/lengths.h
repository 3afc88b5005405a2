// The lengths of the transforms and the factorisation of each: the list from which kernels, entries, tables, selectors,
// tests and benchmarks are made. The X-macros stand in the public header, because the declarations come from them too.
#pragma once

#include "korla/dsp/fft.h"

namespace krl::fft {

#define KRL_FFT_AS_ELEMENT(N) N,
inline constexpr int powers_of_two[] = {KRL_FFT_POWERS_OF_TWO(KRL_FFT_AS_ELEMENT)};
inline constexpr int mixed_lengths[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_AS_ELEMENT)};
inline constexpr int radix8_powers_of_two[] = {KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_AS_ELEMENT)};
inline constexpr int radix8_mixed_lengths[] = {KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_AS_ELEMENT)};
#undef KRL_FFT_AS_ELEMENT

constexpr bool is_power_of_two(uint32_t n) { return n != 0 && (n & (n - 1)) == 0; }

// Kernels that may run with out == in.
constexpr bool runs_in_place(int n) { return n == 2 || n == 4 || n == 6 || n == 8 || n == 16; }

} // namespace krl::fft
