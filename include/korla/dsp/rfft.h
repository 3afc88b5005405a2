/* Real-input transforms without a state: a real signal of length 2N through one complex transform of length N.
 *
 * N is a power of two 2..4096. The signal is 2N floats; its packed spectrum is N complex values: element 0 holds X[0]
 * in its real and X[N] in its imaginary part (both are real), element k = 1..N-1 holds X[k], where
 *
 *   X[k] = sum over n = 0..2N-1 of x[n] * e^(-2*pi*i*n*k/(2N)).
 *
 * Buffers need the alignment of a float. Input and output must not overlap. An N that is not supported is the caller's
 * error; nothing is written then.
 *
 * Method. The samples are read as N complex ones, z[n] = x[2n] + i*x[2n+1], and one split step separates the spectra of
 * the even and the odd samples (H. V. Sorensen et al., "Real-valued fast Fourier transform algorithms", 1987).
 *
 * Reentrant, no allocation, no state.
 */
#ifndef KORLA_DSP_RFFT_H
#define KORLA_DSP_RFFT_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** out = X, or X / (2N) in the scaled form `_s`. in, 2N floats, is the work area and unspecified after the call. */
KRL_API void KRL_r4_rfft_nn(float* in, float* out, uint32_t n);
KRL_API void KRL_r4_rfft_nn_s(float* in, float* out, uint32_t n);

/** The same of a signal given as two halves, second half first in the argument list: x[N..2N-1], then x[0..N-1].
 *
 * out = X / N, or X / (2N) in the form `_s`. The halves, N floats each, stay untouched; out must not overlap them. The
 * signal is assembled on the stack: 8N bytes, at most 32 KiB.
 */
KRL_API void KRL_r4_rsplit_fft_nn(const float* second_half, const float* first_half, float* out, uint32_t n);
KRL_API void KRL_r4_rsplit_fft_nn_s(const float* second_half, const float* first_half, float* out, uint32_t n);

/** Packed spectrum to signal: out = 2N * x; out = x in the scaled form `_s`. spectrum is rewritten and unspecified
 * after the call. KRL_r4_inv_rfft_half_n is a second name of KRL_r4_inv_rfft_nn. */
KRL_API void KRL_r4_inv_rfft_nn(float* spectrum, float* out, uint32_t n);
KRL_API void KRL_r4_inv_rfft_half_n(float* spectrum, float* out, uint32_t n);
KRL_API void KRL_r4_inv_rfft_nn_s(float* spectrum, float* out, uint32_t n);

KRL_END_DECLS

#endif
