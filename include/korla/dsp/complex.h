/* Operations on vectors of complex samples.
 *
 * Conventions, the pair rule and alignment: korla/dsp/types.h. A complex sample is two floats, real part first; a
 * complex vector of n samples is 2n consecutive floats and is passed as a pointer to the first. n, the last argument,
 * counts complex samples; n = 0 does nothing. Real vectors ("V") hold n floats.
 *
 * Overlap. The result of a _flex entry is as if all sources had been read before the first store, at any offset
 * between destination and source; with two sources that overlap the destination, both have to lie on its same side
 * (or coincide with it). A real and a complex vector that overlap have to admit one order of processing: the real one
 * may begin where the complex one begins (as CLmpyCLVSU and VLsquaredmagCLIU with everything in one buffer do) or end
 * where it ends. The outputs of the mixes from stacked inputs stay apart from the inputs and from each other.
 *
 * Rounding. In the formulas below a product in brackets is rounded on its own; a product without brackets is fused
 * with the sum it stands in (one rounding). Both entries follow the same steps, with the one exception said at
 * CLmpyCLCSU, so they give the same bits, on every target, for a sample wherever it stands in the vector.
 *
 * Powers of two. 2^e stands for a factor made exactly in the exponent of a float: e is -126..127 (a right shift
 * 0..126). Other values are harmless to memory, but the factor is unspecified.
 *
 * Infinity, NaN and zero divisors give what the arithmetic of the stated steps gives; nothing traps.
 */
#ifndef KORLA_DSP_COMPLEX_H
#define KORLA_DSP_COMPLEX_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/* ---- sums and copies --------------------------------------------------------------------------------------------- */

/** d[k] = a[k] + b[k], k = 0..n-1. */
KRL_API void krl_CLaddCLCLU_flex(float* d, const float* a, const float* b, uint32_t n);
KRL_API void KRL_CLaddCLCLU_strict(float* d, const float* a, const float* b, uint32_t n);

/** d[k] = a[k] - b[k], k = 0..n-1. */
KRL_API void krl_CLsubCLCLU_flex(float* d, const float* a, const float* b, uint32_t n);
KRL_API void KRL_CLsubCLCLU_strict(float* d, const float* a, const float* b, uint32_t n);

/** d[k] = a[k], k = 0..n-1: 8n bytes, any overlap. The entries are the same function. */
KRL_API void krl_CLcopyCLU_flex(float* d, const float* a, uint32_t n);
KRL_API void KRL_CLcopyCLU_strict(float* d, const float* a, uint32_t n);

/** d[k] = 0, k = 0..n-1: 8n zero bytes. The entries are the same function. */
KRL_API void krl_CLzeroCLU_flex(float* d, uint32_t n);
KRL_API void KRL_CLzeroCLU_strict(float* d, uint32_t n);

/* ---- products ---------------------------------------------------------------------------------------------------- */

/** d[k] = g * a[k], k = 0..n-1, g real. */
KRL_API void krl_CLmpyCLSU_flex(float* d, const float* a, float g, uint32_t n);
KRL_API void KRL_CLmpyCLSU_strict(float* d, const float* a, float g, uint32_t n);

/** d[k] = v[k] * a[k], k = 0..n-1, v a real vector of n floats. */
KRL_API void krl_CLmpyCLVSU_flex(float* d, const float* a, const float* v, uint32_t n);
KRL_API void KRL_CLmpyCLVSU_strict(float* d, const float* a, const float* v, uint32_t n);

/** d[k] = a[k] * b[k], k = 0..n-1.
 *
 * im = a.re b.im + [a.im b.re]. _flex: re = a.re b.re - [a.im b.im]; _strict: re = [a.re b.re] - a.im b.im. The real
 * parts of the entries can differ in the last bit.
 */
KRL_API void krl_CLmpyCLCSU_flex(float* d, const float* a, const float* b, uint32_t n);
KRL_API void KRL_CLmpyCLCSU_strict(float* d, const float* a, const float* b, uint32_t n);

/** acc[k] += a[k] * b[k], k = 0..n-1.
 *
 * re = (acc.re + a.re b.re) - a.im b.im: two fused steps; im = (a.re b.im + [a.im b.re]) + acc.im.
 */
KRL_API void krl_CLmacCLCLU_flex(float* acc, const float* a, const float* b, uint32_t n);
KRL_API void KRL_CLmacCLCLU_strict(float* acc, const float* a, const float* b, uint32_t n);

/** acc[k] += g * a[k], k = 0..n-1, g real; one fused step. */
KRL_API void krl_CLmacCLLU_flex(float* acc, const float* a, float g, uint32_t n);
KRL_API void KRL_CLmacCLLU_strict(float* acc, const float* a, float g, uint32_t n);

/** d[k] = a' * conj(b') with a' = 2^e a[k], b' = 2^e b[k], k = 0..n-1; the result carries 2^(2e).
 *
 * re = a'.re b'.re + [a'.im b'.im], im = a'.im b'.re - [a'.re b'.im].
 */
KRL_API void krl_cvec_Lmpy_conjLLIU_flex(float* d, const float* a, const float* b, int32_t e, uint32_t n);
KRL_API void KRL_cvec_Lmpy_conjLLIU_strict(float* d, const float* a, const float* b, int32_t e, uint32_t n);

/** v[k] = a'.re a'.re + [a'.im a'.im] with a' = 2^e a[k], k = 0..n-1; v is a real vector of n floats. */
KRL_API void krl_VLsquaredmagCLIU_flex(float* v, const float* a, int32_t e, uint32_t n);
KRL_API void KRL_VLsquaredmagCLIU_strict(float* v, const float* a, int32_t e, uint32_t n);

/* ---- mixes ------------------------------------------------------------------------------------------------------- *
 *
 * Coefficients are real. Each term after the first adds in one fused step, in the order of the inputs.
 *
 * Stacked inputs: `in` points to several complex vectors one behind the other; each occupies R complex samples, where R
 * is n rounded up to a multiple of 4, so input j begins at in + 2*R*j floats. The samples between n and R are not read.
 */

/** d[k] = [ga a[k]] + gb b[k], k = 0..n-1. */
KRL_API void krl_CLmixCLCLSSU_flex(float* d, const float* a, const float* b, float ga, float gb, uint32_t n);
KRL_API void KRL_CLmixCLCLSSU_strict(float* d, const float* a, const float* b, float ga, float gb, uint32_t n);

/** d[k] = sum over j = 0..3 of c[j] in_j[k], k = 0..n-1. */
KRL_API void krl_CLmix4CL4SU_flex(float* d, const float* in, const float* c, uint32_t n);
KRL_API void KRL_CLmix4CL4SU_strict(float* d, const float* in, const float* c, uint32_t n);

/** d0[k] = sum over j = 0..3 of c[j] in_j[k], d1[k] = sum of c[4+j] in_j[k], k = 0..n-1. */
KRL_API void krl_CLCLmix4CL8SU_flex(float* d0, float* d1, const float* in, const float* c, uint32_t n);
KRL_API void KRL_CLCLmix4CL8SU_strict(float* d0, float* d1, const float* in, const float* c, uint32_t n);

/** d0[k] = sum over j = 0..5 of c[j] in_j[k], d1[k] = sum of c[6+j] in_j[k], k = 0..n-1. The entries are the
 * same function: _strict, too, takes any n.
 */
KRL_API void krl_CLCLmix6CL12SU_flex(float* d0, float* d1, const float* in, const float* c, uint32_t n);
KRL_API void KRL_CLCLmix6CL12SU_strict(float* d0, float* d1, const float* in, const float* c, uint32_t n);

/** d0[k] = sum over j = 0..6 of c[j] in_j[k], d1[k] = sum of c[7+j] in_j[k], k = 0..n-1. The first four terms are those
 * of CLmix4CL4SU, the last three add to its result.
 */
KRL_API void krl_CLCLmix7CL14SU_flex(float* d0, float* d1, const float* in, const float* c, uint32_t n);
KRL_API void KRL_CLCLmix7CL14SU_strict(float* d0, float* d1, const float* in, const float* c, uint32_t n);

/** Reserved words, both 0. No operation reads them. */
KRL_API extern const uint32_t krl_clclmix5cl10csu_c;
KRL_API extern const uint32_t krl_clclmix5cl10csu_order_coef_c;

/* ---- powers of two ----------------------------------------------------------------------------------------------- */

/** d[k] = 2^s a[k], k = 0..n-1, s 0..127. s = 0 copies the bits, and does nothing when d is a. */
KRL_API void krl_CLshlCLUU_flex(float* d, const float* a, uint32_t s, uint32_t n);
KRL_API void KRL_CLshlCLUU_strict(float* d, const float* a, uint32_t s, uint32_t n);

/** d[k] = 2^-s a[k], k = 0..n-1, s 0..126. s = 0 copies the bits, and does nothing when d is a. */
KRL_API void krl_CLshrCLUU_flex(float* d, const float* a, uint32_t s, uint32_t n);
KRL_API void KRL_CLshrCLUU_strict(float* d, const float* a, uint32_t s, uint32_t n);

/** d[k] = f a[k], k = 0..n-1, with f = g * 2^e rounded to single. */
KRL_API void krl_CLmpy_shlCLSIU_flex(float* d, const float* a, float g, int32_t e, uint32_t n);
KRL_API void KRL_CLmpy_shlCLSIU_strict(float* d, const float* a, float g, int32_t e, uint32_t n);

/** a[k] = f a[k], k = 0..n-1, with f = g * 2^e rounded to single. */
KRL_API void krl_CLmpy_shlCLSIU_inplace_flex(float* a, float g, int32_t e, uint32_t n);
KRL_API void KRL_CLmpy_shlCLSIU_inplace_strict(float* a, float g, int32_t e, uint32_t n);

/* ---- division ---------------------------------------------------------------------------------------------------- *
 *
 * m = x.re x.re + [x.im x.im], the squared magnitude of the divisor, is formed in single precision (it overflows for
 * divisors above 1.8e19 and underflows below 1e-19); its reciprocal is taken in double. The parts of the numerator are
 * formed in single precision, multiplied by the reciprocal in double and rounded once to single. A zero divisor gives
 * infinities or NaN.
 */

/** d[k] = 2^-s / a[k], k = 0..n-1, s 0..126: numerators [f a.re] and [-f a.im] with f = 2^-s. */
KRL_API void krl_CLrecipCLUU_flex(float* d, const float* a, uint32_t s, uint32_t n);
KRL_API void KRL_CLrecipCLUU_strict(float* d, const float* a, uint32_t s, uint32_t n);

/** d[k] = f / a[k], k = 0..n-1, with f = g * 2^e rounded to single: numerators [f a.re] and [-f a.im]. */
KRL_API void krl_CLmpy_recipCLLIU_flex(float* d, const float* a, float g, int32_t e, uint32_t n);
KRL_API void KRL_CLmpy_recipCLLIU_strict(float* d, const float* a, float g, int32_t e, uint32_t n);

/** d[k] = a[k] / b[k], k = 0..n-1: numerators a.re b.re + [a.im b.im] and a.im b.re - [a.re b.im].
 *
 * A sample over itself is 1 plus an imaginary part of at most one rounding error of a.re b.im over m.
 */
KRL_API void krl_CLdivCLCLU_flex(float* d, const float* a, const float* b, uint32_t n);
KRL_API void KRL_CLdivCLCLU_strict(float* d, const float* a, const float* b, uint32_t n);

KRL_END_DECLS

#endif
