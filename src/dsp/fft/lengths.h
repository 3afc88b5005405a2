// The lengths of the transforms as arrays. The lists that kernels, entries, tables, searches, tests and benchmarks are
// made from stand in the public header, because the declarations come from them too.
#pragma once

#include <algorithm>
#include <iterator>

#include "korla/dsp/fft.h"

namespace krl::fft {

#define KRL_FFT_AS_ELEMENT(N) N,
inline constexpr int entry_powers_of_two[] = {KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_AS_ELEMENT)};
inline constexpr int powers_of_two[] = {KRL_FFT_POWERS_OF_TWO(KRL_FFT_AS_ELEMENT)};
inline constexpr int mixed_lengths[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_AS_ELEMENT)};
inline constexpr int radix8_mixed_lengths[] = {KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_AS_ELEMENT)};
#undef KRL_FFT_AS_ELEMENT
static_assert(std::ranges::is_sorted(mixed_lengths), "searched by halving");

// The longest transform, complex or real, and the longest power of two that a state may have.
inline constexpr uint32_t longest = std::end(powers_of_two)[-1];
inline constexpr uint32_t longest_entry = std::end(entry_powers_of_two)[-1];

// Kernels that may run with out == in.
constexpr bool runs_in_place(int n) { return n == 2 || n == 4 || n == 6 || n == 8 || n == 16; }

} // namespace krl::fft
