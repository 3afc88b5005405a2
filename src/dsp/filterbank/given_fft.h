// The FFT of a function whose caller may hand it a pair of kernels: of that pair, else the radix-4 kernel of the
// length; null when there is none.
#pragma once

#include "korla/dsp/fft.h"

namespace krl {

inline krl_fft_kernel* unscaled_fft(const krl_fft_pair* given, uint32_t n) {
    return given ? given->unscaled : KRL_r4_cplx_fwd_unscaled(n);
}
inline krl_fft_kernel* scaled_fft(const krl_fft_pair* given, uint32_t n) {
    return given ? given->scaled : KRL_r4_cplx_fwd_scaled(n);
}

} // namespace krl
