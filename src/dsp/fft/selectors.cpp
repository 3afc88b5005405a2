// From a length to its kernels: the tables of all kernels and entries, and the selectors that look into them.
#include <algorithm>

#include "dsp/fft/fastest.h"
#include "dsp/fft/look_up.h"

namespace krl::fft {

namespace {

#define KRL_FFT_PAIR(kernel, N)                                                                                        \
    { kernel##_##N, kernel##_##N##_s }

// The radix-8 pairs of N; null ones where no list has it.
struct radix8_pairs {
    krl_fft_pair forward, inverse;
};
template <int N> constexpr radix8_pairs radix8{};
#define KRL_FFT_RADIX8_PAIRS(N)                                                                                        \
    template <> constexpr radix8_pairs radix8<N>{KRL_FFT_PAIR(KRL_r8_fft, N), KRL_FFT_PAIR(KRL_r8_inv_fft, N)};
KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_RADIX8_PAIRS)
KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_RADIX8_PAIRS)

#define KRL_FFT_ALL_PAIRS(N)                                                                                           \
    {KRL_FFT_PAIR(KRL_r4_fft, N), KRL_FFT_PAIR(KRL_r4_inv_fft, N), radix8<N>.forward, radix8<N>.inverse},

const krl_fft_pair* find_pair(uint32_t n, krl_fft_pair kernels::*which) {
    const kernels* k = find(n);
    return k != nullptr && (k->*which).unscaled != nullptr ? &(k->*which) : nullptr;
}
const krl_fft_pair* or_else(const krl_fft_pair* first, const krl_fft_pair* second) { return first ? first : second; }
krl_fft_kernel* unscaled_of(const krl_fft_pair* pair) { return pair ? pair->unscaled : nullptr; }
krl_fft_kernel* scaled_of(const krl_fft_pair* pair) { return pair ? pair->scaled : nullptr; }

} // namespace

constinit const kernels power_of_two_kernels[] = {KRL_FFT_POWERS_OF_TWO(KRL_FFT_ALL_PAIRS)};
constinit const kernels mixed_kernels[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_ALL_PAIRS)};

int mixed_index(uint32_t n) {
    const uint32_t *first = std::begin(krl_non_power_two_lengths), *last = std::end(krl_non_power_two_lengths);
    const uint32_t* found = std::lower_bound(first, last, n);
    return found != last && *found == n ? static_cast<int>(found - first) : -1;
}

const krl_fft_pair* fastest_forward(uint32_t n) { return or_else(KRL_r8_cplx_fwd_pair(n), KRL_r4_cplx_fwd_pair(n)); }
const krl_fft_pair* fastest_inverse(uint32_t n) { return or_else(KRL_r8_cplx_inv_pair(n), KRL_r4_cplx_inv_pair(n)); }

} // namespace krl::fft

using namespace krl::fft;

const krl_fft_pair* KRL_r4_cplx_fwd_pair(uint32_t n) { return find_pair(n, &kernels::radix4_forward); }
const krl_fft_pair* KRL_r4_cplx_inv_pair(uint32_t n) { return find_pair(n, &kernels::radix4_inverse); }
const krl_fft_pair* KRL_r8_cplx_fwd_pair(uint32_t n) { return find_pair(n, &kernels::radix8_forward); }
const krl_fft_pair* KRL_r8_cplx_inv_pair(uint32_t n) { return find_pair(n, &kernels::radix8_inverse); }

krl_fft_kernel* KRL_r4_cplx_fwd_unscaled(uint32_t n) { return unscaled_of(KRL_r4_cplx_fwd_pair(n)); }
krl_fft_kernel* KRL_r4_cplx_fwd_scaled(uint32_t n) { return scaled_of(KRL_r4_cplx_fwd_pair(n)); }
krl_fft_kernel* KRL_r4_cplx_inv_unscaled(uint32_t n) { return unscaled_of(KRL_r4_cplx_inv_pair(n)); }
krl_fft_kernel* KRL_r4_cplx_inv_scaled(uint32_t n) { return scaled_of(KRL_r4_cplx_inv_pair(n)); }

int32_t krl_valid_pair_ptr(const krl_fft_pair* pair) { return pair != nullptr; }

#define KRL_FFT_LENGTH(N) N,
const uint32_t krl_non_power_two_lengths[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_LENGTH)};
const uint32_t krl_num_of_non_power_two_lengths = KRL_FFT_MIXED_LENGTH_COUNT;

#define KRL_FFT_FWD_SCL(N) krl_fft_fwd_scl_##N,
#define KRL_FFT_FWD_USC(N) krl_fft_fwd_usc_##N,
#define KRL_FFT_INV_SCL(N) krl_fft_inv_scl_##N,
#define KRL_FFT_INV_USC(N) krl_fft_inv_usc_##N,
krl_fft_entry* const krl_fft_cplx_fwd_scl[] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_FWD_SCL)};
krl_fft_entry* const krl_fft_cplx_fwd_usc[] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_FWD_USC)};
krl_fft_entry* const krl_fft_cplx_inv_scl[] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_INV_SCL)};
krl_fft_entry* const krl_fft_cplx_inv_usc[] = {nullptr, KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_INV_USC)};
krl_fft_entry* const krl_odd_fft_cplx_fwd_scl[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_FWD_SCL)};
krl_fft_entry* const krl_odd_fft_cplx_fwd_usc[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_FWD_USC)};
krl_fft_entry* const krl_odd_fft_cplx_inv_scl[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_INV_SCL)};
krl_fft_entry* const krl_odd_fft_cplx_inv_usc[] = {KRL_FFT_MIXED_LENGTHS(KRL_FFT_INV_USC)};
