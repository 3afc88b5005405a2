// Real-input transforms without a state.
#include "korla/dsp/rfft.h"

#include <bit>

#include "dsp/fft/lengths.h"
#include "dsp/fft/real_split.h"

using namespace krl;

namespace {

constexpr uint32_t longest = 4096;

bool is_supported(uint32_t n) { return n >= 2 && n <= longest && fft::is_power_of_two(n); }

// By log2(n) - 1: the selectors, which know the mixed lengths too, would cost the shortest transforms a third of their
// time.
#define KRL_FFT_FORWARD_PAIR(N) {KRL_r4_fft_##N, KRL_r4_fft_##N##_s},
#define KRL_FFT_INVERSE_PAIR(N) {KRL_r4_inv_fft_##N, KRL_r4_inv_fft_##N##_s},
constexpr krl_fft_pair forward_pairs[] = {KRL_FFT_POWERS_OF_TWO(KRL_FFT_FORWARD_PAIR)};
constexpr krl_fft_pair inverse_pairs[] = {KRL_FFT_POWERS_OF_TWO(KRL_FFT_INVERSE_PAIR)};
#undef KRL_FFT_FORWARD_PAIR
#undef KRL_FFT_INVERSE_PAIR
const krl_fft_pair& pair_of(const krl_fft_pair* pairs, uint32_t n) { return pairs[std::countr_zero(n) - 1]; }

void forward(krl_fft_kernel* kernel, float* in, float* out, uint32_t n, float g) {
    kernel(out, in, n);
    fft::split_forward(out, n, g);
}

void forward_of_halves(const float* second_half, const float* first_half, float* out, uint32_t n, float g) {
    if (!is_supported(n))
        return;
    float signal[2 * longest];
    __builtin_memcpy(signal, first_half, n * sizeof(float));
    __builtin_memcpy(signal + n, second_half, n * sizeof(float));
    forward(pair_of(forward_pairs, n).scaled, signal, out, n, g);
}

} // namespace

void KRL_r4_rfft_nn(float* in, float* out, uint32_t n) {
    if (is_supported(n))
        forward(pair_of(forward_pairs, n).unscaled, in, out, n, 1.0f);
}
void KRL_r4_rfft_nn_s(float* in, float* out, uint32_t n) {
    if (is_supported(n))
        forward(pair_of(forward_pairs, n).scaled, in, out, n, 0.5f);
}

void KRL_r4_rsplit_fft_nn(const float* second_half, const float* first_half, float* out, uint32_t n) {
    forward_of_halves(second_half, first_half, out, n, 1.0f);
}
void KRL_r4_rsplit_fft_nn_s(const float* second_half, const float* first_half, float* out, uint32_t n) {
    forward_of_halves(second_half, first_half, out, n, 0.5f);
}

void KRL_r4_inv_rfft_nn(float* spectrum, float* out, uint32_t n) {
    if (!is_supported(n))
        return;
    fft::split_inverse(spectrum, n, 1.0f);
    pair_of(inverse_pairs, n).unscaled(out, spectrum, n);
}
void KRL_r4_inv_rfft_half_n(float* spectrum, float* out, uint32_t n) { KRL_r4_inv_rfft_nn(spectrum, out, n); }
void KRL_r4_inv_rfft_nn_s(float* spectrum, float* out, uint32_t n) {
    if (!is_supported(n))
        return;
    fft::split_inverse(spectrum, n, 0.5f);
    pair_of(inverse_pairs, n).scaled(out, spectrum, n);
}
