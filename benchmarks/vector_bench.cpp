// Real vectors beside VOLK, a plain loop and memcpy.
#include <korla/dsp/vector.h>

#include "side_by_side.h"

#include "peers/plain_loops.h"
#include "peers/volk_kernel.h"

using namespace korla_bench;

namespace {

float result; // where reductions leave their value, so that no call is idle

constexpr float gain = -1.0f; // keeps the magnitude of what is scaled in place
constexpr float tolerance = 2.0f;

#define CALL(...) [](Buffers& x, uint32_t n) { __VA_ARGS__; }
#define VALUE(...)                                                                                                     \
    [](Buffers& x, uint32_t n) {                                                                                       \
        result = static_cast<float>(__VA_ARGS__);                                                                      \
        (void)x;                                                                                                       \
    }

const std::vector<Row> rows = {
    {"vector element-wise", "vec_LmaskLSU", CALL(krl_vec_LmaskLSU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_vec_LmaskLSU_strict(x.d, x.a, x.b, n)), CALL(plain::multiply(x.d, x.a, x.b, n)),
     KORLA_VOLK(volk_32f_x2_multiply_32f, x.d, x.a, x.b, n)},
    {"vector element-wise", "vec_Lmask_rev_coefLSU", CALL(krl_vec_Lmask_rev_coefLSU_flex(x.d, x.a, x.b, int32_t(n))),
     CALL(KRL_vec_Lmask_rev_coefLSU_strict(x.d, x.a, x.b, int32_t(n))),
     CALL(plain::multiply_reversed(x.d, x.a, x.b, int32_t(n)))},
    {"vector element-wise", "vec_LmpyLSU", CALL(krl_vec_LmpyLSU_flex(x.d, x.a, gain, n)),
     CALL(KRL_vec_LmpyLSU_strict(x.d, x.a, gain, n)), CALL(plain::scale(x.d, x.a, gain, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.a, gain, n)},
    {"vector element-wise", "vec_LmpyLSU_inplace", CALL(krl_vec_LmpyLSU_inplace_flex(x.d, gain, n)),
     CALL(KRL_vec_LmpyLSU_inplace_strict(x.d, gain, n)), CALL(plain::scale_inplace(x.d, gain, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.d, gain, n)},
    {"vector element-wise", "vec_LsetLU", CALL(krl_vec_LsetLU_flex(x.d, gain, n)),
     CALL(KRL_vec_LsetLU_strict(x.d, gain, n)), CALL(plain::set(x.d, gain, n))},
    {"vector element-wise", "vec_LshlLIU", CALL(krl_vec_LshlLIU_flex(x.d, x.a, 3, n)),
     CALL(KRL_vec_LshlLIU_strict(x.d, x.a, 3, n)), CALL(plain::scale(x.d, x.a, 8.0f, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.a, 8.0f, n)},
    {"vector element-wise", "vec_LshlLIU_inplace", CALL(krl_vec_LshlLIU_inplace_flex(x.d, 0, n)),
     CALL(KRL_vec_LshlLIU_inplace_strict(x.d, 0, n)), CALL(plain::scale_inplace(x.d, 1.0f, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.d, 1.0f, n)},
    {"vector element-wise", "vec_SshlSIU_inplace", CALL(krl_vec_SshlSIU_inplace_flex(x.d, 0, n)),
     CALL(KRL_vec_SshlSIU_inplace_strict(x.d, 0, n)), CALL(plain::scale_inplace(x.d, 1.0f, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.d, 1.0f, n)},

    {"vector reductions", "vec_IeqLLU", VALUE(krl_vec_IeqLLU_flex(x.a, x.b, n, tolerance)),
     VALUE(KRL_vec_IeqLLU_strict(x.a, x.b, n, tolerance)), VALUE(plain::equal(x.a, x.b, n, tolerance))},
    {"vector reductions", "vec_Labs_maxLU", VALUE(krl_vec_Labs_maxLU_flex(x.a, n)),
     VALUE(KRL_vec_Labs_maxLU_strict(x.a, n)), VALUE(plain::abs_max(x.a, n))},
    {"vector reductions", "vec_Sabs_maxSU", VALUE(krl_vec_Sabs_maxSU_flex(x.a, n)),
     VALUE(KRL_vec_Sabs_maxSU_strict(x.a, n)), VALUE(plain::abs_max(x.a, n))},
    {"vector reductions", "vec_LdotLLU", VALUE(krl_vec_LdotLLU_flex(x.a, x.b, n)),
     VALUE(KRL_vec_LdotLLU_strict(x.a, x.b, n)), VALUE(plain::dot(x.a, x.b, n)),
     KORLA_VOLK(volk_32f_x2_dot_prod_32f, &result, x.a, x.b, n)},
    {"vector reductions", "vec_NdotLLU", VALUE(krl_vec_NdotLLU_flex(x.a, x.b, n)),
     VALUE(KRL_vec_NdotLLU_strict(x.a, x.b, n)), VALUE(plain::dot_double(x.a, x.b, n))},
    {"vector reductions", "vec_Lsum_sqrLUU", VALUE(krl_vec_Lsum_sqrLUU_flex(x.a, 1, n)),
     VALUE(KRL_vec_Lsum_sqrLUU_strict(x.a, 1, n)), VALUE(plain::sum_of_squares(x.a, n) * 0.5f),
     KORLA_VOLK(volk_32f_x2_dot_prod_32f, &result, x.a, x.a, n)},
    {"vector reductions", "vec_Lmean_sqrLU", VALUE(krl_vec_Lmean_sqrLU_flex(x.a, n)),
     VALUE(KRL_vec_Lmean_sqrLU_strict(x.a, n)), VALUE(plain::sum_of_squares(x.a, n) / static_cast<float>(n)),
     KORLA_VOLK(volk_32f_x2_dot_prod_32f, &result, x.a, x.a, n)},
    {"vector reductions", "vec_UnormLU", VALUE(krl_vec_UnormLU_flex(x.a, n)), VALUE(KRL_vec_UnormLU_strict(x.a, n)),
     VALUE(plain::abs_max(x.a, n))},
    {"vector reductions", "vec_UnormSU", VALUE(krl_vec_UnormSU_flex(x.a, n)), VALUE(KRL_vec_UnormSU_strict(x.a, n)),
     VALUE(plain::abs_max(x.a, n))},
};

} // namespace

int main() {
    std::printf("VOLK machine: %s\n", volk_get_machine());
    return print_side_by_side(rows);
}
