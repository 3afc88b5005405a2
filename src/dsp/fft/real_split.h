// The step between a real spectrum of 2N points and the complex spectrum of the signal's N sample pairs.
//
// With z[n] = x[2n] + i*x[2n+1] and Z its N-point transform, the bins k and N-k of Z hold the spectra of the even
// samples (E) and of the odd samples (O): X[k] = E + e^(-i*pi*k/N) * O, X[N-k] = conj(E - e^(-i*pi*k/N) * O).
#pragma once

#include <cstdint>

namespace krl::fft {

// Both work in place on n complex values, n a power of two from 2 to `longest`.
// Z -> g * X, packed: value 0 holds the bins 0 and n, both real.
void split_forward(float* z, uint32_t n, float g);
// Packed X -> 2g * Z.
void split_inverse(float* x, uint32_t n, float g);

} // namespace krl::fft
