/* Cosine transforms: DCT-II, DCT-III, and the two steps that turn a complex FFT into a DCT-IV.
 *
 * Method. A DCT of N real samples is a real-input FFT of the samples in the order 0, 2, 4, .. 5, 3, 1 followed by a
 * rotation of each bin by a quarter of its angle (J. Makhoul, "A fast cosine transform in one and two dimensions", IEEE
 * Trans. ASSP 28(1), 1980). The real-input FFT is a complex FFT of length N/2 and a split of bin pairs.
 *
 * Lengths. N is a multiple of 4 for which a forward FFT of length N/2 exists (korla/dsp/fft.h): 4 to 8192 for powers of
 * two, 12 to 1920 for mixed lengths. Another N is refused: nothing is written.
 *
 * Nothing is allocated and there is no state; calls that run at the same time need buffers of their own. Data buffers
 * need the alignment of a float. NaN and infinity spread over the whole result, as in any transform.
 */
#ifndef KORLA_DSP_DCT_H
#define KORLA_DSP_DCT_H

#include <korla/dsp/fft.h>

KRL_BEGIN_DECLS

/* ---- twiddle tables -----------------------------------------------------------------------------------------------
 *
 * Seven forms per length L; each holds L floats, for m = 0..L-1, and starts on a multiple of 16 bytes:
 *
 *   krl_dct_twiddle_table16_L<L>          sin(pi m / (2L))             the table of a transform of length N = L
 *   krl_dct_twiddle_table16_1_L<L>        sin(pi (m + 1) / (2L))
 *   krl_dct_twiddle_table16_rev_L<L>      cos(pi m / (2L))
 *   krl_dct_twiddle_table16_rev_1_L<L>    cos(pi (m + 1) / (2L))
 *   krl_dct_twiddle_table16_L<L>_cos      cos(pi m / (2L))
 *   krl_dct_twiddle_table16_L<L>_1        0.5 sin(pi (4m + 1) / (8L))
 *   krl_dct_twiddle_table16_L<L>_2        0.5 cos(pi (4m + 1) / (8L))
 *
 * Every value is the exact one rounded once. Exceptions: L = 2 has no _cos form; L = 640 has neither of the plain, _1
 * (behind the length) and _2 forms.
 */

/** Lengths with all seven forms. */
#define KRL_DCT_TWIDDLE_LENGTHS(X)                                                                                     \
    X(4)                                                                                                               \
    X(8) X(12) X(15) X(16) X(24) X(30) X(32) X(36) X(45) X(48) X(60) X(64) X(72) X(90) X(96) X(120) X(128) X(144)      \
        X(180) X(192) X(240) X(256) X(288) X(320) X(360) X(384) X(480) X(512) X(576) X(720) X(768) X(960) X(1024)
/** Lengths with the _1_L, _rev_L and _rev_1_L forms: all. */
#define KRL_DCT_TWIDDLE_LENGTHS_ALL(X) X(2) KRL_DCT_TWIDDLE_LENGTHS(X) X(640)
/** Lengths with the plain, _1 and _2 forms. */
#define KRL_DCT_TWIDDLE_LENGTHS_SINE(X) X(2) KRL_DCT_TWIDDLE_LENGTHS(X)
/** Lengths with the _cos form. */
#define KRL_DCT_TWIDDLE_LENGTHS_COSINE(X) KRL_DCT_TWIDDLE_LENGTHS(X) X(640)

#define KRL_DCT_DECLARE_TWIDDLES_ALL(L)                                                                                \
    KRL_API extern const float krl_dct_twiddle_table16_1_L##L[L];                                                      \
    KRL_API extern const float krl_dct_twiddle_table16_rev_L##L[L];                                                    \
    KRL_API extern const float krl_dct_twiddle_table16_rev_1_L##L[L];
#define KRL_DCT_DECLARE_TWIDDLES_SINE(L)                                                                               \
    KRL_API extern const float krl_dct_twiddle_table16_L##L[L];                                                        \
    KRL_API extern const float krl_dct_twiddle_table16_L##L##_1[L];                                                    \
    KRL_API extern const float krl_dct_twiddle_table16_L##L##_2[L];
#define KRL_DCT_DECLARE_TWIDDLES_COSINE(L) KRL_API extern const float krl_dct_twiddle_table16_L##L##_cos[L];
/** One table of a length; its form is said above. */
KRL_DCT_TWIDDLE_LENGTHS_ALL(KRL_DCT_DECLARE_TWIDDLES_ALL)
KRL_DCT_TWIDDLE_LENGTHS_SINE(KRL_DCT_DECLARE_TWIDDLES_SINE)
KRL_DCT_TWIDDLE_LENGTHS_COSINE(KRL_DCT_DECLARE_TWIDDLES_COSINE)

/* ---- DCT-II and DCT-III -------------------------------------------------------------------------------------------
 *
 *   pair   the FFT kernels of length N/2: what KRL_r8_cplx_fwd_pair(N/2) or KRL_r4_cplx_fwd_pair(N/2) returns. Null:
 *          the radix-4 kernel is looked up.
 *   table  krl_dct_twiddle_table16_L<N>, or any table[m] = sin(pi m / (2N)), m = 0..N-1.
 *   out    N floats. Apart from in.
 *   in     N floats: the input, and the work area: its contents are unspecified after the call.
 */

/** out[k] = (1/N) * sum over m = 0..N-1 of in[m] * cos(pi (2m + 1) k / (2N)), k = 0..N-1. */
KRL_API void krl_dctII_scaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N);

/** The same sum without the factor 1/N; the scaled result is exactly 1/N times this one up to rounding. */
KRL_API void krl_dctII_unscaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N);

/** out[m] = (1/N) * sum over k = 0..N-1 of in[k] * cos(pi (2m + 1) k / (2N)), m = 0..N-1.
 *
 * in[0] has the same weight as the other coefficients: this is the transpose of the scaled DCT-II. To invert the
 * unscaled DCT-II, halve in[0] and double the result.
 */
KRL_API void krl_dctIII_scaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N);

/** In-place forms: data, N floats, becomes its transform. N at most 2048; a greater N is refused.
 *
 * They copy data to 8 KiB of stack and transform from there.
 */
KRL_API void _krl_ldct2_scaled_iplu(const krl_fft_pair* pair, const float* table, float* data, uint32_t N);
KRL_API void _krl_ldct2_unscaled_iplu(const krl_fft_pair* pair, const float* table, float* data, uint32_t N);
KRL_API void _krl_ldct3_scaled_iplu(const krl_fft_pair* pair, const float* table, float* data, uint32_t N);

/* ---- DCT-IV steps -------------------------------------------------------------------------------------------------
 *
 * A DCT-IV of 2N real samples is a pre-twiddle, a complex FFT of length N and a post-twiddle. Any N; the buffers of a
 * call do not overlap.
 */

/** out[k] = (a[k] + j b[k]) * (c - j s), with s = w[2k] and c = w[2N-1-2k], k = 0..N-1.
 *
 * out: N complex samples. w: 2N floats; with w[m] = sin(pi (2m + 1) / (8N)) the factor is exp(-j pi (4k + 1) / (8N)).
 */
KRL_API void krl_dct4_premodulation(float* out, const float* w, const float* a, const float* b, uint32_t N);

/** out[2k] = G (Re z[k] c[k] + Im z[k] s[k]), out[2N-1-2k] = G (Re z[k] s[k] - Im z[k] c[k]), k = 0..N-1, with G = 1.
 *
 * out: 2N floats. z: N complex samples. s, c: N floats with s[0] = 0 and c[0] = 1; when N is not a multiple of 4 these
 * two entries are not read as given but taken for 0 and 1.
 */
KRL_API void krl_dct4_postmodulation_shl0(float* out, const float* z, const float* s, const float* c, uint32_t N);

/** As krl_dct4_postmodulation_shl0, with G = 2. */
KRL_API void krl_dct4_postmodulation_shl1(float* out, const float* z, const float* s, const float* c, uint32_t N);

/** As krl_dct4_postmodulation_shl0, with G = 4. */
KRL_API void krl_dct4_postmodulation_shl2(float* out, const float* z, const float* s, const float* c, uint32_t N);

/** As krl_dct4_postmodulation_shl0, with G = 2^shift exactly, shift = -126..127. */
KRL_API void krl_dct4_postmodulation_shl(float* out, const float* z, const float* s, const float* c, int32_t shift,
                                         uint32_t N);

KRL_END_DECLS

#endif
