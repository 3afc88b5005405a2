// Real-input transforms without a state.
#include "korla/dsp/rfft.h"

#include "dsp/fft/look_up.h"
#include "dsp/fft/real_split.h"

using namespace krl::fft;

namespace {

void forward(krl_fft_kernel* kernel, float* in, float* out, uint32_t n, float g) {
    kernel(out, in, n);
    split_forward(out, n, g);
}

void forward_of_halves(const float* second_half, const float* first_half, float* out, uint32_t n, float g) {
    const kernels* k = find_power_of_two(n);
    if (k == nullptr)
        return;
    float signal[2 * longest];
    __builtin_memcpy(signal, first_half, n * sizeof(float));
    __builtin_memcpy(signal + n, second_half, n * sizeof(float));
    forward(k->radix4_forward.scaled, signal, out, n, g);
}

} // namespace

void KRL_r4_rfft_nn(float* in, float* out, uint32_t n) {
    if (const kernels* k = find_power_of_two(n))
        forward(k->radix4_forward.unscaled, in, out, n, 1.0f);
}
void KRL_r4_rfft_nn_s(float* in, float* out, uint32_t n) {
    if (const kernels* k = find_power_of_two(n))
        forward(k->radix4_forward.scaled, in, out, n, 0.5f);
}

void KRL_r4_rsplit_fft_nn(const float* second_half, const float* first_half, float* out, uint32_t n) {
    forward_of_halves(second_half, first_half, out, n, 1.0f);
}
void KRL_r4_rsplit_fft_nn_s(const float* second_half, const float* first_half, float* out, uint32_t n) {
    forward_of_halves(second_half, first_half, out, n, 0.5f);
}

void KRL_r4_inv_rfft_nn(float* spectrum, float* out, uint32_t n) {
    if (const kernels* k = find_power_of_two(n)) {
        split_inverse(spectrum, n, 1.0f);
        k->radix4_inverse.unscaled(out, spectrum, n);
    }
}
void KRL_r4_inv_rfft_half_n(float* spectrum, float* out, uint32_t n) { KRL_r4_inv_rfft_nn(spectrum, out, n); }
void KRL_r4_inv_rfft_nn_s(float* spectrum, float* out, uint32_t n) {
    if (const kernels* k = find_power_of_two(n)) {
        split_inverse(spectrum, n, 0.5f);
        k->radix4_inverse.scaled(out, spectrum, n);
    }
}
