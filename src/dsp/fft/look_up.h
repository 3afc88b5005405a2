// From a length to all that the library has for it: the one search behind selectors, states, real transforms and banks.
#pragma once

#include <bit>

#include "dsp/fft/lengths.h"

namespace krl::fft {

// The kernels of one length. Where it has no radix-8 kernels, their members are null.
struct kernels {
    krl_fft_pair radix4_forward, radix4_inverse, radix8_forward, radix8_inverse;
};

extern const kernels power_of_two_kernels[std::size(powers_of_two)];
extern const kernels mixed_kernels[std::size(mixed_lengths)];

// Null for what is no length.
inline const kernels* find_power_of_two(uint32_t n) {
    const bool known = n > 1 && n <= longest && std::has_single_bit(n);
    return known ? &power_of_two_kernels[std::countr_zero(n) - 1] : nullptr;
}

// Index of n among the mixed lengths, or -1.
int mixed_index(uint32_t n);

inline const kernels* find(uint32_t n) {
    if (std::has_single_bit(n))
        return find_power_of_two(n);
    const int i = mixed_index(n);
    return i >= 0 ? &mixed_kernels[i] : nullptr;
}

} // namespace krl::fft
