// From a length to its kernels: selectors, pairs and entry tables.
#include "dsp/fft/fastest.h"
#include "dsp/fft/lengths.h"

namespace {

// The pair of kernels with one direction and family for every length, found by comparing the length.
#define KRL_FFT_RETURN_PAIR(kernel, N)                                                                                 \
    case N: {                                                                                                          \
        static constexpr krl_fft_pair pair = {kernel##_##N, kernel##_##N##_s};                                         \
        return &pair;                                                                                                  \
    }
#define KRL_FFT_RETURN_R4(N) KRL_FFT_RETURN_PAIR(KRL_r4_fft, N)
#define KRL_FFT_RETURN_R4_INVERSE(N) KRL_FFT_RETURN_PAIR(KRL_r4_inv_fft, N)
#define KRL_FFT_RETURN_R8(N) KRL_FFT_RETURN_PAIR(KRL_r8_fft, N)
#define KRL_FFT_RETURN_R8_INVERSE(N) KRL_FFT_RETURN_PAIR(KRL_r8_inv_fft, N)

krl_fft_kernel* unscaled_of(const krl_fft_pair* pair) { return pair ? pair->unscaled : nullptr; }
krl_fft_kernel* scaled_of(const krl_fft_pair* pair) { return pair ? pair->scaled : nullptr; }

} // namespace

const krl_fft_pair* KRL_r4_cplx_fwd_pair(uint32_t n) {
    switch (n) {
        KRL_FFT_POWERS_OF_TWO(KRL_FFT_RETURN_R4)
        KRL_FFT_MIXED_LENGTHS(KRL_FFT_RETURN_R4)
    default: return nullptr;
    }
}
const krl_fft_pair* KRL_r4_cplx_inv_pair(uint32_t n) {
    switch (n) {
        KRL_FFT_POWERS_OF_TWO(KRL_FFT_RETURN_R4_INVERSE)
        KRL_FFT_MIXED_LENGTHS(KRL_FFT_RETURN_R4_INVERSE)
    default: return nullptr;
    }
}
const krl_fft_pair* KRL_r8_cplx_fwd_pair(uint32_t n) {
    switch (n) {
        KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_RETURN_R8)
        KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_RETURN_R8)
    default: return nullptr;
    }
}
const krl_fft_pair* KRL_r8_cplx_inv_pair(uint32_t n) {
    switch (n) {
        KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_RETURN_R8_INVERSE)
        KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_RETURN_R8_INVERSE)
    default: return nullptr;
    }
}

krl_fft_kernel* KRL_r4_cplx_fwd_unscaled(uint32_t n) { return unscaled_of(KRL_r4_cplx_fwd_pair(n)); }
krl_fft_kernel* KRL_r4_cplx_fwd_scaled(uint32_t n) { return scaled_of(KRL_r4_cplx_fwd_pair(n)); }
krl_fft_kernel* KRL_r4_cplx_inv_unscaled(uint32_t n) { return unscaled_of(KRL_r4_cplx_inv_pair(n)); }
krl_fft_kernel* KRL_r4_cplx_inv_scaled(uint32_t n) { return scaled_of(KRL_r4_cplx_inv_pair(n)); }

namespace krl::fft {

const krl_fft_pair* fastest_forward(uint32_t n) {
    const krl_fft_pair* pair = KRL_r8_cplx_fwd_pair(n);
    return pair ? pair : KRL_r4_cplx_fwd_pair(n);
}
const krl_fft_pair* fastest_inverse(uint32_t n) {
    const krl_fft_pair* pair = KRL_r8_cplx_inv_pair(n);
    return pair ? pair : KRL_r4_cplx_inv_pair(n);
}

} // namespace krl::fft

int32_t krl_valid_pair_ptr(const krl_fft_pair* pair) { return pair != nullptr; }

#define KRL_FFT_LENGTH(N) N,
#define KRL_FFT_FWD_SCL(N) krl_fft_fwd_scl_##N,
#define KRL_FFT_FWD_USC(N) krl_fft_fwd_usc_##N,
#define KRL_FFT_INV_SCL(N) krl_fft_inv_scl_##N,
#define KRL_FFT_INV_USC(N) krl_fft_inv_usc_##N,

krl_fft_entry* const krl_fft_cplx_fwd_scl[12] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_FWD_SCL)};
krl_fft_entry* const krl_fft_cplx_fwd_usc[12] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_FWD_USC)};
krl_fft_entry* const krl_fft_cplx_inv_scl[12] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_INV_SCL)};
krl_fft_entry* const krl_fft_cplx_inv_usc[12] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_INV_USC)};
krl_fft_entry* const krl_odd_fft_cplx_fwd_scl[31] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_FWD_SCL)};
krl_fft_entry* const krl_odd_fft_cplx_fwd_usc[31] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_FWD_USC)};
krl_fft_entry* const krl_odd_fft_cplx_inv_scl[31] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_INV_SCL)};
krl_fft_entry* const krl_odd_fft_cplx_inv_usc[31] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_INV_USC)};

const uint32_t krl_non_power_two_lengths[31] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_LENGTH)};
const uint32_t krl_num_of_non_power_two_lengths = sizeof(krl_non_power_two_lengths) / sizeof(uint32_t);
