// The exported largest magnitudes of a vector; core holds the loop, because the limiter uses it too.
#include "korla/dsp/vector.h"

#include "dsp/core/abs_max.h"

using namespace krl;

KRL_PAIR(float, krl_vec_Labs_maxLU_flex, KRL_vec_Labs_maxLU_strict, (const float* x, uint32_t n),
         return abs_max<access>(x, n);)

KRL_PAIR(float, krl_vec_Sabs_maxSU_flex, KRL_vec_Sabs_maxSU_strict, (const float* x, uint32_t n),
         return abs_max<access>(x, n);)
