// Modulated bank, analysis: ten blocks of input under the prototype, folded to M complex values, rotated, transformed.
//
// With w[jM+k] the last 10 blocks of input (j = 9 the newest) and c the prototype, band m is proportional to
//
//     sum over n = 0 .. 10M-1 of c[n] w[n] e^(-i pi (2m+1) n / (2M)).
//
// Block j contributes the factor (-i)^j, which is real for even blocks and imaginary for odd ones: E and O collect
// them. What is left over k, e^(-i pi k / (2M)) e^(-2 pi i q k / M) for m = 2q, is the twiddle and an FFT of length M;
// bins from the upper half, conjugated, are the bands in between.
#include "dsp/core/complex_lanes.h"
#include "dsp/filterbank/band_order.h"
#include "dsp/filterbank/mfb.h"

namespace krl::mfb {
namespace {

// The legacy convention reads every block of input back to front and conjugates the phases. Both conventions share the
// rest: with a factor i on every bin, so no more than the sign of O and the conjugated half differ.
struct Convention {
    bool reversed_input;
    bool negated_odd;
    Conjugated half;
};
constexpr Convention direct{false, false, Conjugated::odd_bands};
constexpr Convention legacy{true, true, Conjugated::even_bands};

// v[k] = (O + iE) * twiddle[k], and the new block, halved, takes the place of the oldest. ring[0] is the oldest block.
template <Convention form>
void fold(float* v, float* const (&ring)[state_blocks], const float* prototype, const float* twiddle, const float* in,
          uint32_t bands) {
    using V = f32v;
#pragma GCC unroll 2
    for (size_t k = 0; k < bands; k += lanes<V>) {
        const float* c = prototype + tap_blocks * k;
        const auto taps = [&](uint32_t j) { return load_groups<V, 4 * tap_blocks>(c + 4 * j); }; // j and j + 1
        const auto past = [&](uint32_t j) { return load<V>(ring[j] + k); };
        const V newest =
            splat<V>(0.5f) * (form.reversed_input ? reverse(load<V>(in + bands - lanes<V> - k)) : load<V>(in + k));

        const auto [first_even, first_odd] = taps(0);
        V even = first_even * past(0), odd = first_odd * past(1);
        for (uint32_t j = 2; j < 8; j += 2) {
            const auto [c_even, c_odd] = taps(j);
            even = j % 4 != 0 ? mul_sub_from(c_even, past(j), even) : mul_add(c_even, past(j), even);
            odd = j % 4 != 0 ? mul_sub_from(c_odd, past(j + 1), odd) : mul_add(c_odd, past(j + 1), odd);
        }
        even = mul_add(taps(8).a, past(8), even);
        odd = mul_add(taps(8).b, newest, odd);
        store(ring[0] + k, newest);

        const auto [re, im] = load_groups<V>(twiddle + 2 * k);
        store_complex(v + 2 * k, multiply(complex<V>{form.negated_odd ? -odd : odd, even}, {re, im}));
    }
}

// bands[m] *= e[m], e grouped by four: four real parts, four imaginary parts.
void rotate_bands(float* bands, const float* e, uint32_t count) {
    using V = f32x4;
    for (uint32_t m = 0; m < 2 * count; m += 8)
        store_complex(bands + m, multiply(load_complex<V>(bands + m), {load<V>(e + m), load<V>(e + m + 4)}));
}

// `extra` null: no further rotation.
template <Convention form>
void analyse(krl_mfb_analysis* bank, const float* prototype, const float* twiddle, void* scratch, const float* extra,
             uint32_t channels, uint32_t slots, uint32_t bands, float* const* const* out,
             const float* const* const* in) {
    if (!accepts(bank, prototype, twiddle, scratch, channels, slots, bands, out, in))
        return;
    float* v = align_up<float>(scratch, 32);
    float* bins = v + 2 * size_t{bands};
    for (uint32_t slot = 0; slot < slots; slot++) {
        for (uint32_t channel = 0; channel < channels; channel++) {
            float* ring[state_blocks];
            float* const first = bank->channels[channel];
            float* block = first + bank->slot * size_t{bands};
            for (float*& place : ring) {
                place = block;
                block = block + bands == first + state_blocks * size_t{bands} ? first : block + bands;
            }
            fold<form>(v, ring, prototype, twiddle, in[slot][channel], bands);
            bank->fft->scaled(bins, v, bands);
            bands_from_bins<form.half>(out[slot][channel], bins, bands);
            if (extra)
                rotate_bands(out[slot][channel], extra, bands);
        }
        bank->slot = bank->slot + 1 == state_blocks ? 0 : bank->slot + 1;
    }
}

} // namespace
} // namespace krl::mfb

using namespace krl::mfb;

size_t KRL_mfb_p10km_analysisL_query_mem(uint32_t channels, uint32_t, uint32_t m) {
    return memory_bytes(channels, m, 86);
}
size_t KRL_mfb_p10km_analysisL_query_scratch(uint32_t, uint32_t, uint32_t m) { return scratch_bytes(m); }

krl_mfb_analysis* KRL_CLmfb_p10km_analysisL_init(uint32_t channels, uint32_t, uint32_t m, void* memory) {
    return place<krl_mfb_analysis>(channels, m, memory);
}
void KRL_mfb_p10km_analysisL_reset_channel(krl_mfb_analysis* bank, uint32_t m, uint32_t channel) {
    if (bank && m == bank->bands && channel < bank->channel_count)
        bank->clear_channel(channel);
}
void KRL_load_mfb_p10km_analysisL_filter_state(krl_mfb_analysis*, const float*) {}
void KRL_unload_mfb_p10km_analysisL_filter_state(krl_mfb_analysis*, float*) {}
void KRL_CLmfb_p10km_analysisL_close(krl_mfb_analysis*) {}

void KRL_CLmfb_p10km_analysisL(krl_mfb_analysis* bank, const float* prototype, const float* twiddle, void* scratch,
                               uint32_t channels, uint32_t slots, uint32_t m, float* const* const* out,
                               const float* const* const* in) {
    analyse<direct>(bank, prototype, twiddle, scratch, nullptr, channels, slots, m, out, in);
}
void KRL_CLmfb_p10km_analysisL_legacy(krl_mfb_analysis* bank, const float* prototype, const float* twiddle,
                                      void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                      float* const* const* out, const float* const* const* in) {
    analyse<legacy>(bank, prototype, twiddle, scratch, nullptr, channels, slots, m, out, in);
}
void KRL_CLmfb_p10km_analysisL_legacy_twiddle(krl_mfb_analysis* bank, const float* prototype, const float* twiddle,
                                              void* scratch, const float* extra_twiddle, uint32_t channels,
                                              uint32_t slots, uint32_t m, float* const* const* out,
                                              const float* const* const* in) {
    if (extra_twiddle)
        analyse<legacy>(bank, prototype, twiddle, scratch, extra_twiddle, channels, slots, m, out, in);
}
