/* Element-wise operations on blocks and weighted sums of blocks.
 *
 * Every operand is one block of KRL_BLK_LEN = 32 samples unless a line says otherwise; i = 0..31 throughout.
 * Conventions, the pair rule and alignment: korla/dsp/types.h.
 *
 * Both entries of every member compute the same bits. Each reads all of its operands, limits and gains included, before
 * its first store, so a _flex destination may overlap any of them at any offset.
 *
 * maxNum and minNum are those of IEEE 754-2008: a quiet NaN operand is ignored, so the result is NaN only when every
 * operand is; -0 is below +0. fma(a, b, c) is a * b + c rounded once. Other operations propagate NaN.
 *
 * Gains g are read from memory, one float per input, and need float alignment only. Shifts u are 0..127; 2^u is exact.
 * For other u nothing outside the buffers is touched, but the factor is unspecified.
 */
#ifndef KORLA_DSP_BLOCK_H
#define KORLA_DSP_BLOCK_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/* ---- one or two operands ---------------------------------------------------------------------------------------- */

/** dst[i] = |x[i]|; clears the sign of NaN as well. */
KRL_API void krl_blk_LabsL_flex(float* dst, const float* x);
KRL_API void KRL_blk_LabsL_strict(float* dst, const float* x);

/** dst[i] = minNum(maxNum(x[i], lim[0]), lim[1]): clips to [lim[0], lim[1]]. A NaN sample counts as lim[0]. */
KRL_API void krl_blk_LclipL_flex(float* dst, const float* lim, const float* x);
KRL_API void KRL_blk_LclipL_strict(float* dst, const float* lim, const float* x);

/** dst[i] = val[0] where a[i] > b[i], val[1] elsewhere (also where either is NaN). */
KRL_API void krl_blk_LcmpLL_flex(float* dst, const float* val, const float* a, const float* b);
KRL_API void KRL_blk_LcmpLL_strict(float* dst, const float* val, const float* a, const float* b);

/** dst[i] = c. */
KRL_API void krl_blk_Lconst_flex(float* dst, float c);
KRL_API void KRL_blk_Lconst_strict(float* dst, float c);

/** dst[i] = maxNum(a[i], b[i]). */
KRL_API void krl_blk_LmaxLL_flex(float* dst, const float* a, const float* b);
KRL_API void KRL_blk_LmaxLL_strict(float* dst, const float* a, const float* b);

/** dst[i] = minNum(a[i], b[i]). */
KRL_API void krl_blk_LminLL_flex(float* dst, const float* a, const float* b);
KRL_API void KRL_blk_LminLL_strict(float* dst, const float* a, const float* b);

/** dst[i] = maxNum of a[i], b[i] and c[i]. */
KRL_API void krl_blk_LmaxLLL_flex(float* dst, const float* a, const float* b, const float* c);
KRL_API void KRL_blk_LmaxLLL_strict(float* dst, const float* a, const float* b, const float* c);

/** dst[i] = minNum of a[i], b[i] and c[i]. */
KRL_API void krl_blk_LminLLL_flex(float* dst, const float* a, const float* b, const float* c);
KRL_API void KRL_blk_LminLLL_strict(float* dst, const float* a, const float* b, const float* c);

/** dst[i] = a[i] + b[i]. The "sadd" of this float library does not saturate. */
KRL_API void krl_blk_LsaddLL_flex(float* dst, const float* a, const float* b);
KRL_API void KRL_blk_LsaddLL_strict(float* dst, const float* a, const float* b);

/** dst[i] = a[i] - b[i]. */
KRL_API void krl_blk_LsubLL_flex(float* dst, const float* a, const float* b);
KRL_API void KRL_blk_LsubLL_strict(float* dst, const float* a, const float* b);

/** Sum and difference: a[i], b[i] become a[i] + b[i], a[i] - b[i], both from the old values.
 *
 * The two blocks do not overlap each other, in either entry.
 */
KRL_API void krl_blk_LLdeshuffleLL_inplace_flex(float* a, float* b);
KRL_API void KRL_blk_LLdeshuffleLL_inplace_strict(float* a, float* b);

/** Half sum and half difference, the inverse of the deshuffle: with h = 0.5 * b[i], a[i] and b[i] become
 * fma(a[i], 0.5, h) and fma(a[i], 0.5, -h), both from the old values.
 *
 * The two blocks do not overlap each other, in either entry.
 */
KRL_API void krl_blk_LLshuffleLL_inplace_flex(float* a, float* b);
KRL_API void KRL_blk_LLshuffleLL_inplace_strict(float* a, float* b);

/** dst[i] = (a[i] * s[i]) * 2^u, two single-precision steps. */
KRL_API void krl_blk_Lmpy_shlLSU_flex(float* dst, const float* a, const float* s, uint32_t u);
KRL_API void KRL_blk_Lmpy_shlLSU_strict(float* dst, const float* a, const float* s, uint32_t u);

/** dst[i] = (a[i] * b[i]) * 2^u in double precision, rounded once to single. */
KRL_API void krl_blk_Lmpy_shlLLU_flex(float* dst, const float* a, const float* b, uint32_t u);
KRL_API void KRL_blk_Lmpy_shlLLU_strict(float* dst, const float* a, const float* b, uint32_t u);

/* ---- weighted sums of one to four blocks ------------------------------------------------------------------------ *
 *
 * The sum starts with the last product, acc = g[k-1] * x(k-1)[i], and goes on with acc = fma(xj[i], g[j], acc) for
 * j = k-2 down to 0.
 */

/** dst[i] = g[0] * x0[i]. */
KRL_API void krl_blk_LmixL_flex(float* dst, const float* g, const float* x0);
KRL_API void KRL_blk_LmixL_strict(float* dst, const float* g, const float* x0);

/** dst[i] = g[0] * x0[i] + g[1] * x1[i]. */
KRL_API void krl_blk_LmixLL_flex(float* dst, const float* g, const float* x0, const float* x1);
KRL_API void KRL_blk_LmixLL_strict(float* dst, const float* g, const float* x0, const float* x1);

/** dst[i] = g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i]. */
KRL_API void krl_blk_LmixLLL_flex(float* dst, const float* g, const float* x0, const float* x1, const float* x2);
KRL_API void KRL_blk_LmixLLL_strict(float* dst, const float* g, const float* x0, const float* x1, const float* x2);

/** dst[i] = g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i] + g[3] * x3[i]. */
KRL_API void krl_blk_LmixLLLL_flex(float* dst, const float* g, const float* x0, const float* x1, const float* x2,
                                   const float* x3);
KRL_API void KRL_blk_LmixLLLL_strict(float* dst, const float* g, const float* x0, const float* x1, const float* x2,
                                     const float* x3);

/** dst[i] = x0[i] * (g[0] * 2^u): the factor is formed first, in single precision. */
KRL_API void krl_blk_Lmix_shlUL_flex(float* dst, const float* g, uint32_t u, const float* x0);
KRL_API void KRL_blk_Lmix_shlUL_strict(float* dst, const float* g, uint32_t u, const float* x0);

/** dst[i] = (g[0] * x0[i] + g[1] * x1[i]) * 2^u: the sum of blk_LmixLL, then scaled. */
KRL_API void krl_blk_Lmix_shlULL_flex(float* dst, const float* g, uint32_t u, const float* x0, const float* x1);
KRL_API void KRL_blk_Lmix_shlULL_strict(float* dst, const float* g, uint32_t u, const float* x0, const float* x1);

/** dst[i] = (g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i]) * 2^u: the sum of blk_LmixLLL, then scaled. */
KRL_API void krl_blk_Lmix_shlULLL_flex(float* dst, const float* g, uint32_t u, const float* x0, const float* x1,
                                       const float* x2);
KRL_API void KRL_blk_Lmix_shlULLL_strict(float* dst, const float* g, uint32_t u, const float* x0, const float* x1,
                                         const float* x2);

/** dst[i] = (g[0] * x0[i] + .. + g[3] * x3[i]) * 2^u: the sum of blk_LmixLLLL, then scaled. */
KRL_API void krl_blk_Lmix_shlULLLL_flex(float* dst, const float* g, uint32_t u, const float* x0, const float* x1,
                                        const float* x2, const float* x3);
KRL_API void KRL_blk_Lmix_shlULLLL_strict(float* dst, const float* g, uint32_t u, const float* x0, const float* x1,
                                          const float* x2, const float* x3);

/* ---- weighted sums of n blocks ---------------------------------------------------------------------------------- *
 *
 * The entries without a suffix take any alignment and any overlap, like the _flex entries. n = 0 writes zeros and reads
 * nothing. The sum is kept in registers: each input is read once, dst is written once.
 */

/** dst[i] = sum over j < n of g[j] * xj[i]; the n blocks (const float *) are the variable arguments.
 *
 * The first r = (n - 1) mod 4 + 1 inputs are summed like the mix of r blocks above, from the last of them to the first;
 * then acc = fma(xj[i], g[j], acc) for j = r..n-1.
 */
KRL_API void KRL_blk_LmixnL(float* dst, const float* g, uint32_t n, ...);
KRL_API void KRL_blk_LmixnL_strict(float* dst, const float* g, uint32_t n, ...);

/** dst[i] = sum over j < n of xj[i] * (g[j] * 2^u); the blocks after x0 are the variable arguments.
 *
 * acc = x0[i] * (g[0] * 2^u), then acc = fma(xj[i], g[j] * 2^u, acc) for j = 1..n-1; each gain is scaled first.
 */
KRL_API void KRL_blk_Lmix_shlUnL(float* dst, const float* g, uint32_t u, uint32_t n, const float* x0, ...);
KRL_API void KRL_blk_Lmix_shlUnL_strict(float* dst, const float* g, uint32_t u, uint32_t n, const float* x0, ...);

/** dst[i] = (sum over j < n of g[j] * x[32 * j + i]) * 2^u: x holds n consecutive blocks.
 *
 * acc = x[i] * g[0], then acc = fma(x[32 * j + i], g[j], acc) for j = 1..n-1, then acc * 2^u.
 */
KRL_API void KRL_blk_Lmix_shlaL(float* dst, const float* g, uint32_t n, const float* x, uint32_t u);
KRL_API void KRL_blk_Lmix_shlaL_strict(float* dst, const float* g, uint32_t n, const float* x, uint32_t u);

KRL_END_DECLS

#endif
