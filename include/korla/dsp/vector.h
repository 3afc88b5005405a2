/* Operations on vectors of float samples whose length n is an argument.
 *
 * Conventions, the pair rule and alignment: korla/dsp/types.h.
 */
#ifndef KORLA_DSP_VECTOR_H
#define KORLA_DSP_VECTOR_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** The largest magnitude among x[0..n-1]; 0 for n = 0.
 *
 * NaN: _flex ignores NaN samples and gives NaN only when every sample is one; _strict gives NaN as soon as one sample is.
 */
KRL_API float krl_vec_Labs_maxLU_flex(const float *x, uint32_t n);
KRL_API float KRL_vec_Labs_maxLU_strict(const float *x, uint32_t n);

KRL_END_DECLS

#endif
