// Blocks combined with a scalar.
#include "korla/dsp/block_scalar.h"

#include "dsp/core/block_map.h"
#include "dsp/core/exp2.h"

using namespace krl;

namespace {

auto maximum_with = []<class access>(access, float x) {
    return [x](auto v) { return max_of_entry<access>(v, splat<decltype(v)>(x)); };
};
auto multiply_by = [](float g) { return [g](auto v) { return v * g; }; };
auto multiply_by_shifted = [](float g, uint32_t u) { return multiply_by(g * exp2_int(static_cast<int32_t>(u))); };

} // namespace

KRL_PAIR(void, krl_BLmaxBLL_flex, KRL_BLmaxBLL_strict, (float* dst, const float* src, float x),
         map_block<access>(dst, maximum_with(access{}, x), src);)

KRL_PAIR(void, krl_BLmaxBLL_inplace_flex, KRL_BLmaxBLL_inplace_strict, (float* dst, float x),
         map_block<access>(dst, maximum_with(access{}, x), dst);)

KRL_PAIR(void, krl_BLmpyBLS_inplace_flex, KRL_BLmpyBLS_inplace_strict, (float* dst, float g),
         map_block<access>(dst, multiply_by(g), dst);)

KRL_PAIR(void, krl_BLmpy_scaleBLSU_flex, KRL_BLmpy_scaleBLSU_strict,
         (float* dst, const float* src, float g, uint32_t u), map_block<access>(dst, multiply_by_shifted(g, u), src);)

KRL_PAIR(void, krl_BLmpy_scaleBLSU_inplace_flex, KRL_BLmpy_scaleBLSU_inplace_strict, (float* dst, float g, uint32_t u),
         map_block<access>(dst, multiply_by_shifted(g, u), dst);)

// A product of two floats is exact in double precision: rounded once, it is the product in single precision.
KRL_PAIR(void, krl_BLmpy_scale_xBLSU_flex, KRL_BLmpy_scale_xBLSU_strict,
         (float* dst, const float* src, float g, uint32_t u), map_block<access>(dst, multiply_by_shifted(g, u), src);)

KRL_PAIR(void, krl_BLsaddBLL_flex, KRL_BLsaddBLL_strict, (float* dst, const float* src, float x),
         map_block<access>(
             dst, [x](auto v) { return v + x; }, src);)
