// Element-wise operations on real vectors.
#include "korla/dsp/vector.h"

#include "dsp/core/exp2.h"
#include "dsp/core/vector_map.h"

using namespace krl;

namespace {

auto times = [](auto x, auto y) { return x * y; };
auto multiply_by = [](float g) { return [g](auto x) { return x * g; }; };
auto keep = [](auto x) { return x; };

// 2^s, s limited to what a float signal can use.
inline float limited_shift(int32_t s) { return exp2_int(s > 60 ? 60 : s < -60 ? -60 : s); }

template <class access> inline void mask_reversed(float* dst, const float* x, const float* m, int32_t n) {
    if (n > 0)
        map_vector<access>(to(dst), static_cast<size_t>(n), times, from(x), from_end(m, static_cast<size_t>(n)));
}

} // namespace

KRL_PAIR(void, krl_vec_LmaskLSU_flex, KRL_vec_LmaskLSU_strict, (float* dst, const float* x, const float* m, uint32_t n),
         map_vector<access>(to(dst), n, times, from(x), from(m));)

KRL_PAIR(void, krl_vec_Lmask_rev_coefLSU_flex, KRL_vec_Lmask_rev_coefLSU_strict,
         (float* dst, const float* x, const float* m, int32_t n), mask_reversed<access>(dst, x, m, n);)

KRL_PAIR(void, krl_vec_LmpyLSU_flex, KRL_vec_LmpyLSU_strict, (float* dst, const float* x, float g, uint32_t n),
         map_vector<access>(to(dst), n, multiply_by(g), from(x));)

KRL_PAIR(void, krl_vec_LmpyLSU_inplace_flex, KRL_vec_LmpyLSU_inplace_strict, (float* x, float g, uint32_t n),
         map_vector<access>(to(x), n, multiply_by(g), from(x));)

KRL_PAIR(void, krl_vec_LsetLU_flex, KRL_vec_LsetLU_strict, (float* dst, float v, uint32_t n),
         map_vector<access>(to(dst), n, keep, constant{v});)

KRL_PAIR(void, krl_vec_LshlLIU_flex, KRL_vec_LshlLIU_strict, (float* dst, const float* x, int32_t s, uint32_t n),
         map_vector<access>(to(dst), n, multiply_by(limited_shift(s)), from(x));)

KRL_PAIR(void, krl_vec_LshlLIU_inplace_flex, KRL_vec_LshlLIU_inplace_strict, (float* x, int32_t s, uint32_t n),
         map_vector<access>(to(x), n, multiply_by(limited_shift(s)), from(x));)

KRL_PAIR(void, krl_vec_SshlSIU_inplace_flex, KRL_vec_SshlSIU_inplace_strict, (float* x, int32_t s, uint32_t n),
         map_vector<access>(to(x), n, multiply_by(limited_shift(s)), from(x));)
