// Modulated bank, synthesis: bands to bins, FFT, rotation, delay line.
//
// Slot T's band X[m] adds to sample n of the ten blocks from T on
//
//     2 h[n] Re(X[m] conj(phi_m) e^(i pi (2m+1) (n + 9M - D) / (2M)))
//
// with phi_m the phase that the analysis gave the band, h the synthesis prototype and D the delay of the chain. As in
// the analysis, block j turns by a power of i, so that even taps take the real and odd taps the imaginary part of the
// rotated FFT (or the other way round), with signs in pairs: one delay line serves all.
#include "dsp/core/complex_lanes.h"
#include "dsp/filterbank/band_order.h"
#include "dsp/filterbank/delay_line.h"
#include "dsp/filterbank/mfb.h"

namespace krl::mfb {
namespace {

// What the delay line takes at its even and odd taps, of w = FFT * twiddle.
enum class Part { re, minus_re, im, minus_im };

// h_j of band k: c_j[k], c_(9-j)[k], or c_(9-j)[M-1-k], the prototype backwards in time sample by sample.
enum class TapOrder { forward, backward_blocks, backward };

// Conventions with a factor i on all bins (legacy, even_1, even_3) carry it behind the FFT instead: it turns re into
// im.
struct Convention {
    Conjugated half;
    Part even, odd;
    TapOrder taps;
    bool reversed_output;
};
using enum Part;
using enum Conjugated;
constexpr Convention symmetric{even_bands, minus_im, re, TapOrder::forward, false};
constexpr Convention legacy{odd_bands, minus_im, minus_re, TapOrder::forward, true};
constexpr Convention legacy_extra_latency{even_bands, re, im, TapOrder::backward_blocks, false};
constexpr Convention even_0{even_bands, re, im, TapOrder::backward, false};
constexpr Convention even_1{odd_bands, minus_re, im, TapOrder::backward, true};
constexpr Convention even_2{odd_bands, re, im, TapOrder::backward, false};
constexpr Convention even_3{even_bands, minus_re, im, TapOrder::backward, true};

template <Part which> KRL_INLINE f32x4 part_of(complex<f32x4> w) {
    switch (which) {
    case re: return w.re;
    case minus_re: return -w.re;
    case im: return w.im;
    case minus_im: return -w.im;
    }
}

constexpr uint32_t tap_signs = 0b0011001100; // in pairs: taps 2, 3, 6 and 7 are negated

template <Convention form>
void unfold(float* out, float* state, const float* prototype, const float* twiddle, const float* bins, uint32_t bands) {
#pragma GCC unroll 2
    for (size_t k = 0; k < bands; k += 4) {
        const complex<f32x4> w = multiply(load_complex<f32x4>(bins + 2 * k),
                                          {load<f32x4>(twiddle + 2 * k), load<f32x4>(twiddle + 2 * k + 4)});
        const f32x4x2 in = beside(part_of<form.even>(w), part_of<form.odd>(w));

        const size_t tap_band = form.taps == TapOrder::backward ? bands - 4 - k : k;
        const float* c = prototype + tap_blocks * tap_band;
        const f32x4 sum = delay_line_in_memory<tap_blocks, tap_signs>(state + state_blocks * k, in, [=](int i) {
            if constexpr (form.taps == TapOrder::forward)
                return load<f32x4x2>(c + 8 * i);
            const f32x4x2 pair = load<f32x4x2>(c + 8 * (4 - i));
            return form.taps == TapOrder::backward ? reverse(pair) : swap_halves(pair);
        });
        const f32x4 block = sum + sum;
        if constexpr (form.reversed_output)
            store(out + bands - 4 - k, reverse(block));
        else
            store(out + k, block);
    }
}

template <Convention form>
void synthesise(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle, void* scratch, uint32_t channels,
                uint32_t slots, uint32_t bands, float* const* const* out, const float* const* const* in) {
    if (!accepts(bank, prototype, twiddle, scratch, channels, slots, bands, out, in))
        return;
    float* v = align_up<float>(scratch, 32);
    float* bins = v + 2 * size_t{bands};
    for (uint32_t slot = 0; slot < slots; slot++)
        for (uint32_t channel = 0; channel < channels; channel++) {
            bins_from_bands<form.half>(v, in[slot][channel], bands);
            bank->fft->unscaled(bins, v, bands);
            unfold<form>(out[slot][channel], bank->channels[channel], prototype, twiddle, bins, bands);
        }
}

} // namespace
} // namespace krl::mfb

using namespace krl::mfb;

size_t KRL_mfb_p10km_synthesisCL_query_mem(uint32_t channels, uint32_t, uint32_t m) {
    return memory_bytes(channels, m, 78);
}
size_t KRL_mfb_p10km_synthesisCL_query_scratch(uint32_t, uint32_t, uint32_t m) { return scratch_bytes(m); }

krl_mfb_synthesis* KRL_Lmfb_p10km_synthesisCL_init(uint32_t channels, uint32_t, uint32_t m, void* memory) {
    return place<krl_mfb_synthesis>(channels, m, memory);
}
void KRL_Lmfb_p10km_synthesisCL_close(krl_mfb_synthesis*) {}

#define KRL_MFB_SYNTHESIS(name, form)                                                                                  \
    void name(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle, void* scratch, uint32_t channels, \
              uint32_t slots, uint32_t m, float* const* const* out, const float* const* const* in) {                   \
        synthesise<form>(bank, prototype, twiddle, scratch, channels, slots, m, out, in);                              \
    }
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_symmetric, symmetric)
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_legacy, legacy)
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency, legacy_extra_latency)
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_0, even_0)
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_1, even_1)
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_2, even_2)
KRL_MFB_SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_3, even_3)
