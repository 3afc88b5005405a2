/* A block combined with a scalar.
 *
 * Each member reads one block of KRL_BLK_LEN samples (or works in place on dst) and writes one block; the scalar is
 * passed by value. Conventions, the pair rule and alignment: korla/dsp/types.h. Each _flex entry reads the whole block
 * before it writes, so dst may overlap src at any offset.
 *
 * Shifts u are 0..127; 2^u is exact. For other u nothing outside the buffers is touched, but the factor is unspecified.
 */
#ifndef KORLA_DSP_BLOCK_SCALAR_H
#define KORLA_DSP_BLOCK_SCALAR_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** dst[i] = max(src[i], x), i = 0..31. NaN: _flex ignores a quiet NaN operand (maxNum), _strict propagates it. */
KRL_API void krl_BLmaxBLL_flex(float* dst, const float* src, float x);
KRL_API void KRL_BLmaxBLL_strict(float* dst, const float* src, float x);

/** dst[i] = max(dst[i], x), with the NaN rules of BLmaxBLL. */
KRL_API void krl_BLmaxBLL_inplace_flex(float* dst, float x);
KRL_API void KRL_BLmaxBLL_inplace_strict(float* dst, float x);

/** dst[i] = dst[i] * g. */
KRL_API void krl_BLmpyBLS_inplace_flex(float* dst, float g);
KRL_API void KRL_BLmpyBLS_inplace_strict(float* dst, float g);

/** dst[i] = src[i] * (g * 2^u); the factor is formed once, in single precision. */
KRL_API void krl_BLmpy_scaleBLSU_flex(float* dst, const float* src, float g, uint32_t u);
KRL_API void KRL_BLmpy_scaleBLSU_strict(float* dst, const float* src, float g, uint32_t u);

/** dst[i] = dst[i] * (g * 2^u). */
KRL_API void krl_BLmpy_scaleBLSU_inplace_flex(float* dst, float g, uint32_t u);
KRL_API void KRL_BLmpy_scaleBLSU_inplace_strict(float* dst, float g, uint32_t u);

/** dst[i] = src[i] * (g * 2^u): the factor in single precision, the product in double, rounded once to single. The same bits as
 * BLmpy_scaleBLSU, since a product of two floats is exact in double precision. */
KRL_API void krl_BLmpy_scale_xBLSU_flex(float* dst, const float* src, float g, uint32_t u);
KRL_API void KRL_BLmpy_scale_xBLSU_strict(float* dst, const float* src, float g, uint32_t u);

/** dst[i] = src[i] + x. The "sadd" of this float library does not saturate. */
KRL_API void krl_BLsaddBLL_flex(float* dst, const float* src, float x);
KRL_API void KRL_BLsaddBLL_strict(float* dst, const float* src, float x);

KRL_END_DECLS

#endif
