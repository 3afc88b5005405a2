// Complex vectors beside VOLK, a plain loop and memcpy.
#include <korla/dsp/complex.h>

#include "side_by_side.h"

#include "peers/plain_loops.h"
#include "peers/volk_kernel.h"

using namespace korla_bench;

namespace {

constexpr float c[14] = {0.3f, -0.7f, 1.1f, 0.9f, -0.2f, 0.6f, 0.05f, -1.4f, 0.8f, 0.33f, -0.61f, 0.12f, 0.77f, 2.1f};
constexpr float gain = -1.0f, small = 1e-9f; // what accumulates over millions of calls stays in range

lv_32fc_t* complex(float* p) { return reinterpret_cast<lv_32fc_t*>(p); }

#define CALL(...) [](Buffers& x, uint32_t n) { __VA_ARGS__; }

const std::vector<Row> rows = {
    {"complex", "CLaddCLCLU", CALL(krl_CLaddCLCLU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_CLaddCLCLU_strict(x.d, x.a, x.b, n)), CALL(plain::add(x.d, x.a, x.b, n)),
     KORLA_VOLK(volk_32fc_x2_add_32fc, complex(x.d), complex(x.a), complex(x.b), n)},
    {"complex", "CLsubCLCLU", CALL(krl_CLsubCLCLU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_CLsubCLCLU_strict(x.d, x.a, x.b, n)), CALL(plain::subtract(x.d, x.a, x.b, n)),
     KORLA_VOLK(volk_32f_x2_subtract_32f, x.d, x.a, x.b, 2 * n)},
    {"complex", "CLcopyCLU", CALL(krl_CLcopyCLU_flex(x.d, x.a, n)), CALL(KRL_CLcopyCLU_strict(x.d, x.a, n)),
     CALL(plain::copy(x.d, x.a, n))},
    {"complex", "CLzeroCLU", CALL(krl_CLzeroCLU_flex(x.d, n)), CALL(KRL_CLzeroCLU_strict(x.d, n)),
     CALL(plain::zero(x.d, n))},
    {"complex", "CLmpyCLSU", CALL(krl_CLmpyCLSU_flex(x.d, x.a, gain, n)), CALL(KRL_CLmpyCLSU_strict(x.d, x.a, gain, n)),
     CALL(plain::scale_complex(x.d, x.a, gain, n)), KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.a, gain, 2 * n)},
    {"complex", "CLmpyCLVSU", CALL(krl_CLmpyCLVSU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_CLmpyCLVSU_strict(x.d, x.a, x.b, n)), CALL(plain::scale_by_vector(x.d, x.a, x.b, n)),
     KORLA_VOLK(volk_32fc_32f_multiply_32fc, complex(x.d), complex(x.a), x.b, n)},
    {"complex", "CLmpyCLCSU", CALL(krl_CLmpyCLCSU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_CLmpyCLCSU_strict(x.d, x.a, x.b, n)), CALL(plain::multiply_complex(x.d, x.a, x.b, n)),
     KORLA_VOLK(volk_32fc_x2_multiply_32fc, complex(x.d), complex(x.a), complex(x.b), n)},
    {"complex", "CLmacCLCLU", CALL(krl_CLmacCLCLU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_CLmacCLCLU_strict(x.d, x.a, x.b, n)), CALL(plain::accumulate_product(x.d, x.a, x.b, n))},
    {"complex", "CLmacCLLU", CALL(krl_CLmacCLLU_flex(x.d, x.a, small, n)),
     CALL(KRL_CLmacCLLU_strict(x.d, x.a, small, n)), CALL(plain::accumulate_scaled(x.d, x.a, small, n))},
    {"complex", "CLmixCLCLSSU", CALL(krl_CLmixCLCLSSU_flex(x.d, x.a, x.b, c[0], c[1], n)),
     CALL(KRL_CLmixCLCLSSU_strict(x.d, x.a, x.b, c[0], c[1], n)), CALL(plain::mix(x.d, x.a, x.b, c[0], c[1], n))},
    {"complex", "CLmix4CL4SU", CALL(krl_CLmix4CL4SU_flex(x.d, x.a, c, n)), CALL(KRL_CLmix4CL4SU_strict(x.d, x.a, c, n)),
     CALL(plain::mix_stack(x.d, x.a, c, 4, n))},
    {"complex", "CLCLmix4CL8SU", CALL(krl_CLCLmix4CL8SU_flex(x.d, x.e, x.a, c, n)),
     CALL(KRL_CLCLmix4CL8SU_strict(x.d, x.e, x.a, c, n)), CALL(plain::mix_stack_to_both(x.d, x.e, x.a, c, 4, n))},
    {"complex", "CLCLmix6CL12SU", CALL(krl_CLCLmix6CL12SU_flex(x.d, x.e, x.a, c, n)),
     CALL(KRL_CLCLmix6CL12SU_strict(x.d, x.e, x.a, c, n)), CALL(plain::mix_stack_to_both(x.d, x.e, x.a, c, 6, n))},
    {"complex", "CLCLmix7CL14SU", CALL(krl_CLCLmix7CL14SU_flex(x.d, x.e, x.a, c, n)),
     CALL(KRL_CLCLmix7CL14SU_strict(x.d, x.e, x.a, c, n)), CALL(plain::mix_stack_to_both(x.d, x.e, x.a, c, 7, n))},
    {"complex", "CLshlCLUU", CALL(krl_CLshlCLUU_flex(x.d, x.a, 3, n)), CALL(KRL_CLshlCLUU_strict(x.d, x.a, 3, n)),
     CALL(plain::scale_complex(x.d, x.a, 8.0f, n)), KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.a, 8.0f, 2 * n)},
    {"complex", "CLshrCLUU", CALL(krl_CLshrCLUU_flex(x.d, x.a, 3, n)), CALL(KRL_CLshrCLUU_strict(x.d, x.a, 3, n)),
     CALL(plain::scale_complex(x.d, x.a, 0.125f, n)), KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.a, 0.125f, 2 * n)},
    {"complex", "CLmpy_shlCLSIU", CALL(krl_CLmpy_shlCLSIU_flex(x.d, x.a, gain, 1, n)),
     CALL(KRL_CLmpy_shlCLSIU_strict(x.d, x.a, gain, 1, n)), CALL(plain::scale_complex(x.d, x.a, gain * 2.0f, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.a, gain * 2.0f, 2 * n)},
    {"complex", "CLmpy_shlCLSIU_inplace", CALL(krl_CLmpy_shlCLSIU_inplace_flex(x.d, gain, 0, n)),
     CALL(KRL_CLmpy_shlCLSIU_inplace_strict(x.d, gain, 0, n)), CALL(plain::scale_complex_inplace(x.d, gain, n)),
     KORLA_VOLK(volk_32f_s32f_multiply_32f, x.d, x.d, gain, 2 * n)},
    {"complex", "CLrecipCLUU", CALL(krl_CLrecipCLUU_flex(x.d, x.a, 1, n)), CALL(KRL_CLrecipCLUU_strict(x.d, x.a, 1, n)),
     CALL(plain::reciprocal(x.d, x.a, 0.5f, n))},
    {"complex", "CLmpy_recipCLLIU", CALL(krl_CLmpy_recipCLLIU_flex(x.d, x.a, gain, 1, n)),
     CALL(KRL_CLmpy_recipCLLIU_strict(x.d, x.a, gain, 1, n)), CALL(plain::reciprocal(x.d, x.a, gain * 2.0f, n))},
    {"complex", "CLdivCLCLU", CALL(krl_CLdivCLCLU_flex(x.d, x.a, x.b, n)),
     CALL(KRL_CLdivCLCLU_strict(x.d, x.a, x.b, n)), CALL(plain::divide(x.d, x.a, x.b, n)),
     KORLA_VOLK(volk_32fc_x2_divide_32fc, complex(x.d), complex(x.a), complex(x.b), n)},
    {"complex", "VLsquaredmagCLIU", CALL(krl_VLsquaredmagCLIU_flex(x.d, x.a, 0, n)),
     CALL(KRL_VLsquaredmagCLIU_strict(x.d, x.a, 0, n)), CALL(plain::squared_magnitude(x.d, x.a, 1.0f, n)),
     KORLA_VOLK(volk_32fc_magnitude_squared_32f, x.d, complex(x.a), n)},
    {"complex", "cvec_Lmpy_conjLLIU", CALL(krl_cvec_Lmpy_conjLLIU_flex(x.d, x.a, x.b, 0, n)),
     CALL(KRL_cvec_Lmpy_conjLLIU_strict(x.d, x.a, x.b, 0, n)), CALL(plain::multiply_conjugate(x.d, x.a, x.b, 1.0f, n)),
     KORLA_VOLK(volk_32fc_x2_multiply_conjugate_32fc, complex(x.d), complex(x.a), complex(x.b), n)},
};

} // namespace

int main() {
    std::printf("VOLK machine: %s\n", volk_get_machine());
    return print_side_by_side(rows);
}
