// The state that binds a length to the kernels a caller asked for, and the transforms that run through it.
#include "dsp/core/align.h"
#include "dsp/fft/look_up.h"
#include "dsp/fft/real_split.h"

struct krl_fft_state {
    krl_fft_entry* forward_scaled;
    krl_fft_entry* inverse_scaled;
    krl_fft_entry* forward_unscaled;
    krl_fft_entry* inverse_unscaled;
    uint32_t n;
    uint32_t transforms;
};
static_assert(sizeof(krl_fft_state) == 40 && alignof(krl_fft_state) == 8);

namespace {

using namespace krl;

constexpr uint32_t complex_transforms =
    KRL_FFT_CPLX_FWD_SCALED | KRL_FFT_CPLX_FWD_UNSCALED | KRL_FFT_CPLX_INV_SCALED | KRL_FFT_CPLX_INV_UNSCALED;
constexpr uint32_t real_transforms =
    KRL_FFT_REAL_FWD_SCALED | KRL_FFT_REAL_FWD_UNSCALED | KRL_FFT_REAL_INV_SCALED | KRL_FFT_REAL_INV_UNSCALED;

bool is_supported(uint32_t n, uint32_t transforms) {
    if ((transforms & ~(complex_transforms | real_transforms)) != 0)
        return false;
    if (std::has_single_bit(n))
        return n > 1 && n <= fft::longest_entry;
    return (transforms & real_transforms) == 0 && fft::mixed_index(n) >= 0;
}

} // namespace

int32_t KRL_fft_is_supported(uint32_t n, uint32_t transforms) { return is_supported(n, transforms); }

uint32_t KRL_fft_state_query_mem(uint32_t n, uint32_t transforms) {
    return is_supported(n, transforms) ? sizeof(krl_fft_state) + alignof(krl_fft_state) - 1 : 0;
}

uint32_t KRL_fft_scratch_query_mem(void) { return 0; }

krl_fft_state* KRL_fft_init(void* memory, uint32_t n, uint32_t transforms) {
    if (memory == nullptr || !is_supported(n, transforms))
        return nullptr;
    auto* state = align_up<krl_fft_state>(memory, alignof(krl_fft_state));
    *state = {nullptr, nullptr, nullptr, nullptr, n, transforms};
    const auto entry_of = [n](krl_fft_entry* const* powers_of_two, krl_fft_entry* const* mixed) {
        return std::has_single_bit(n) ? powers_of_two[std::countr_zero(n)] : mixed[fft::mixed_index(n)];
    };
    if (transforms & (KRL_FFT_CPLX_FWD_SCALED | KRL_FFT_REAL_FWD_SCALED))
        state->forward_scaled = entry_of(krl_fft_cplx_fwd_scl, krl_odd_fft_cplx_fwd_scl);
    if (transforms & (KRL_FFT_CPLX_INV_SCALED | KRL_FFT_REAL_INV_SCALED))
        state->inverse_scaled = entry_of(krl_fft_cplx_inv_scl, krl_odd_fft_cplx_inv_scl);
    if (transforms & (KRL_FFT_CPLX_FWD_UNSCALED | KRL_FFT_REAL_FWD_UNSCALED))
        state->forward_unscaled = entry_of(krl_fft_cplx_fwd_usc, krl_odd_fft_cplx_fwd_usc);
    if (transforms & (KRL_FFT_CPLX_INV_UNSCALED | KRL_FFT_REAL_INV_UNSCALED))
        state->inverse_unscaled = entry_of(krl_fft_cplx_inv_usc, krl_odd_fft_cplx_inv_usc);
    return state;
}

void KRL_fft_shutdown(krl_fft_state* state) {
    if (state != nullptr)
        *state = {};
}

void KRL_fft_CLfwd_scaledCL(const krl_fft_state* state, float* out, float* in) { state->forward_scaled(out, in, in); }
void KRL_fft_CLfwd_unscaledCL(const krl_fft_state* state, float* out, float* in) {
    state->forward_unscaled(out, in, in);
}
void KRL_fft_CLinv_scaledCL(const krl_fft_state* state, float* out, float* in) { state->inverse_scaled(out, in, in); }
void KRL_fft_CLinv_unscaledCL(const krl_fft_state* state, float* out, float* in) {
    state->inverse_unscaled(out, in, in);
}

void KRL_fft_CLfwd_scaledL(const krl_fft_state* state, float* out, float* in) {
    state->forward_scaled(out, in, in);
    fft::split_forward(out, state->n, 0.5f);
}
void KRL_fft_CLfwd_unscaledL(const krl_fft_state* state, float* out, float* in) {
    state->forward_unscaled(out, in, in);
    fft::split_forward(out, state->n, 1.0f);
}
void KRL_fft_Linv_scaledCL(const krl_fft_state* state, float* out, float* in) {
    fft::split_inverse(in, state->n, 0.5f);
    state->inverse_scaled(out, in, in);
}
void KRL_fft_Linv_unscaledCL(const krl_fft_state* state, float* out, float* in) {
    fft::split_inverse(in, state->n, 1.0f);
    state->inverse_unscaled(out, in, in);
}
