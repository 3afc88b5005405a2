// What exports the kernels and entries of one length.
#pragma once

#include "dsp/fft/transform.h"

namespace krl::fft {

template <int N, direction dir, bool scaled, rounding precision>
KRL_INLINE void run(float* out, float* in, float* work) {
    if constexpr (is_short<N>)
        short_transform<N, dir, scaled>(out, in);
    else
        transform<N, dir, scaled, precision>::run(out, in, work);
}

template <int N, direction dir, bool scaled, rounding precision> KRL_INLINE void kernel(float* out, float* in) {
    run<N, dir, scaled, precision>(out, in, in);
}

// The entry of a power of two: work area of its own, and the input taken from out when there is none.
template <int N, direction dir, bool scaled> KRL_INLINE void entry(float* out, float* in, float* work) {
    if (in == nullptr || in == out) {
        if constexpr (runs_in_place(N)) {
            in = out;
        } else {
            __builtin_memcpy(work, out, 2 * N * sizeof(float));
            in = work;
        }
    }
    run<N, dir, scaled, rounding::full>(out, in, work);
}

} // namespace krl::fft

#define KRL_FFT_DEFINE_KERNELS(radix, N, precision)                                                                    \
    void KRL_##radix##_fft_##N(float* out, float* in, uint32_t) {                                                      \
        krl::fft::kernel<N, krl::fft::direction::forward, false, precision>(out, in);                                  \
    }                                                                                                                  \
    void KRL_##radix##_fft_##N##_s(float* out, float* in, uint32_t) {                                                  \
        krl::fft::kernel<N, krl::fft::direction::forward, true, precision>(out, in);                                   \
    }                                                                                                                  \
    void KRL_##radix##_inv_fft_##N(float* out, float* in, uint32_t) {                                                  \
        krl::fft::kernel<N, krl::fft::direction::inverse, false, precision>(out, in);                                  \
    }                                                                                                                  \
    void KRL_##radix##_inv_fft_##N##_s(float* out, float* in, uint32_t) {                                              \
        krl::fft::kernel<N, krl::fft::direction::inverse, true, precision>(out, in);                                   \
    }
