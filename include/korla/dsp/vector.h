/* Operations on vectors of float samples whose length n is an argument.
 *
 * Conventions, the pair rule and alignment: korla/dsp/types.h. A vector is n consecutive floats. n = 0 writes nothing;
 * what a reduction then returns is said with it.
 *
 * Overlap. The result of a _flex entry is as if all sources had been read before the first store, at any offset between
 * the destination and a source. With two sources that overlap the destination, both have to lie on its same side (or
 * coincide with it): one order of processing must suit both.
 *
 * Rounding. Element-wise members round each stated operation once: the same bits from both entries, on every target,
 * and for an element wherever it stands in the vector. Sums (Ldot, Ndot, Lsum_sqr, Lmean_sqr) keep M partial sums:
 * element i is added to partial sum i mod M with one fused multiply-add, all starting at +0; at the end sum j is
 * added to by sum j + M/2, then j + M/4, and so on down to one. M is 32 for the products and 64 for the squares. So
 * sums too are the same to the bit from both entries, for any alignment and on every target; the error bound is that
 * of about n / M + 6 steps.
 *
 * NaN and infinity pass through the arithmetic. Nothing traps and nothing is reported.
 */
#ifndef KORLA_DSP_VECTOR_H
#define KORLA_DSP_VECTOR_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/* ---- element-wise ------------------------------------------------------------------------------------------------ */

/** dst[i] = x[i] * m[i], i = 0..n-1. */
KRL_API void krl_vec_LmaskLSU_flex(float* dst, const float* x, const float* m, uint32_t n);
KRL_API void KRL_vec_LmaskLSU_strict(float* dst, const float* x, const float* m, uint32_t n);

/** dst[i] = x[i] * m[n-1-i], i = 0..n-1: one half of a symmetric window serves both slopes. n < 1 does nothing.
 *
 * dst may coincide with or overlap x; m has to stay apart from dst.
 */
KRL_API void krl_vec_Lmask_rev_coefLSU_flex(float* dst, const float* x, const float* m, int32_t n);
KRL_API void KRL_vec_Lmask_rev_coefLSU_strict(float* dst, const float* x, const float* m, int32_t n);

/** dst[i] = x[i] * g, i = 0..n-1. */
KRL_API void krl_vec_LmpyLSU_flex(float* dst, const float* x, float g, uint32_t n);
KRL_API void KRL_vec_LmpyLSU_strict(float* dst, const float* x, float g, uint32_t n);

/** x[i] = x[i] * g, i = 0..n-1. */
KRL_API void krl_vec_LmpyLSU_inplace_flex(float* x, float g, uint32_t n);
KRL_API void KRL_vec_LmpyLSU_inplace_strict(float* x, float g, uint32_t n);

/** dst[i] = v, i = 0..n-1. */
KRL_API void krl_vec_LsetLU_flex(float* dst, float v, uint32_t n);
KRL_API void KRL_vec_LsetLU_strict(float* dst, float v, uint32_t n);

/** dst[i] = x[i] * 2^s, i = 0..n-1, with s limited to -60..60. One multiplication by the exact factor. */
KRL_API void krl_vec_LshlLIU_flex(float* dst, const float* x, int32_t s, uint32_t n);
KRL_API void KRL_vec_LshlLIU_strict(float* dst, const float* x, int32_t s, uint32_t n);

/** x[i] = x[i] * 2^s, i = 0..n-1, with s limited to -60..60. */
KRL_API void krl_vec_LshlLIU_inplace_flex(float* x, int32_t s, uint32_t n);
KRL_API void KRL_vec_LshlLIU_inplace_strict(float* x, int32_t s, uint32_t n);

/** LshlLIU_inplace for coefficients: x[i] = x[i] * 2^s, i = 0..n-1, with s limited to -60..60. */
KRL_API void krl_vec_SshlSIU_inplace_flex(float* x, int32_t s, uint32_t n);
KRL_API void KRL_vec_SshlSIU_inplace_strict(float* x, int32_t s, uint32_t n);

/* ---- reductions -------------------------------------------------------------------------------------------------- */

/** 1 when |a[i] - b[i]| <= tol for every i = 0..n-1, else 0; 1 for n = 0.
 *
 * A difference that is NaN (a NaN sample, equal infinities) counts as equal.
 */
KRL_API int32_t krl_vec_IeqLLU_flex(const float* a, const float* b, uint32_t n, float tol);
KRL_API int32_t KRL_vec_IeqLLU_strict(const float* a, const float* b, uint32_t n, float tol);

/** The largest magnitude among x[0..n-1]; 0 for n = 0.
 *
 * NaN: _flex ignores NaN samples and gives NaN only when every sample is one; _strict gives NaN as soon as one sample
 * is.
 */
KRL_API float krl_vec_Labs_maxLU_flex(const float* x, uint32_t n);
KRL_API float KRL_vec_Labs_maxLU_strict(const float* x, uint32_t n);

/** Labs_maxLU for coefficients: the largest magnitude among x[0..n-1]; 0 for n = 0. */
KRL_API float krl_vec_Sabs_maxSU_flex(const float* x, uint32_t n);
KRL_API float KRL_vec_Sabs_maxSU_strict(const float* x, uint32_t n);

/** The sum of a[i] * b[i] over i = 0..n-1, accumulated in single precision; 0 for n = 0. */
KRL_API float krl_vec_LdotLLU_flex(const float* a, const float* b, uint32_t n);
KRL_API float KRL_vec_LdotLLU_strict(const float* a, const float* b, uint32_t n);

/** The sum of a[i] * b[i] over i = 0..n-1 in double precision: the samples are widened first, so every product is exact
 * before it is added. For long correlations. 0 for n = 0.
 */
KRL_API double krl_vec_NdotLLU_flex(const float* a, const float* b, uint32_t n);
KRL_API double KRL_vec_NdotLLU_strict(const float* a, const float* b, uint32_t n);

/** (The sum of x[i]^2 over i = 0..n-1) * 2^-shift, shift 0..126; 0 for n = 0. */
KRL_API float krl_vec_Lsum_sqrLUU_flex(const float* x, uint32_t shift, uint32_t n);
KRL_API float KRL_vec_Lsum_sqrLUU_strict(const float* x, uint32_t shift, uint32_t n);

/** (The sum of x[i]^2 over i = 0..n-1) * r with r = 1/n rounded to single; 0 for n = 0. */
KRL_API float krl_vec_Lmean_sqrLU_flex(const float* x, uint32_t n);
KRL_API float KRL_vec_Lmean_sqrLU_strict(const float* x, uint32_t n);

/** Headroom in bits: the largest s, limited to 0..60, for which max |x[i]| * 2^s stays below 1. 60 when all are zero
 * and for n = 0.
 *
 * A maximum in [0.5, 1) gives 0, in [0.25, 0.5) gives 1; 1.0 or more, infinity and a NaN maximum give 0. The entries
 * are the same function: the maximum is Labs_maxLU of the _strict entry (NaN propagates) when x is on 32 bytes and n
 * a multiple of 4, of the _flex entry (NaN ignored) otherwise.
 */
KRL_API uint32_t krl_vec_UnormLU_flex(const float* x, uint32_t n);
KRL_API uint32_t KRL_vec_UnormLU_strict(const float* x, uint32_t n);

/** UnormLU for coefficients, on Sabs_maxSU. */
KRL_API uint32_t krl_vec_UnormSU_flex(const float* x, uint32_t n);
KRL_API uint32_t KRL_vec_UnormSU_strict(const float* x, uint32_t n);

KRL_END_DECLS

#endif
