// QMF synthesis: the modulation of several slots ahead, then the delay line over groups of bands.
#include <cstring>

#include "dsp/core/complex_lanes.h"
#include "dsp/filterbank/delay_line.h"
#include "dsp/filterbank/qmf.h"

using namespace krl;

// The state is the delay line: for every group of four bands its 2P-1 sums, four bands each.
struct krl_qmf_synthesis : qmf::Bank {
    static constexpr uint32_t bytes_per_block = 0;

    explicit krl_qmf_synthesis(const Bank& bank) : Bank(bank) { clear(); }
    void clear() { std::memset(state, 0, state_length() * sizeof(float)); }
};

namespace {

// Slots are modulated a few at a time, so that the delay line of a group of bands stays in registers over them.
constexpr uint32_t slots_at_once = 8, most_bands = 64;

// The two kinds of sub-bands: how a slot becomes the 2M floats that the filter starts from, and what then enters the
// even taps (the real part) and the odd taps (the imaginary part) of the bands from k on.
struct RealSubbands {
    const float* in;
    float gain = 2.0f;

    void modulate(const krl_qmf_synthesis& bank, uint32_t slot, float* g) const {
        const uint32_t M = bank.bands;
        std::memcpy(g, in + size_t{slot} * bank.slot_increment, M * sizeof(float));
        krl_inverseModulationReal(g, g + M, M, bank.half_fft, bank.tables->dct);
    }
    static KRL_INLINE complex<f32v> load_input(const float* g, uint32_t k, uint32_t M, const float*) {
        return {load_aligned<f32v>(g + k), load_aligned<f32v>(g + M + k)};
    }
};
struct ComplexSubbands {
    const float* const* in;
    float gain = 2.0f;

    void modulate(const krl_qmf_synthesis& bank, uint32_t slot, float* Y) const {
        qmf::inverse_modulation(bank, in[slot], Y);
    }
    // Y exp(-j pi k / (2M)); the table holds halves.
    static KRL_INLINE complex<f32v> load_input(const float* Y, uint32_t k, uint32_t, const float* rotations) {
        const auto [sine, cosine] = load_groups<f32v>(rotations + 2 * k);
        return splat<f32v>(2.0f) * rotate_fused(load_complex<f32v>(Y + 2 * k), cosine, sine);
    }
};

// `slots` slots through the delay line. The tables for P = 4 expect their even taps negated.
template <int P, class Subbands>
void filter(const krl_qmf_synthesis& bank, float* out, const float (*modulated)[2 * most_bands], uint32_t slots,
            float gain) {
    const uint32_t M = bank.bands;
    const float *prototype = bank.prototype, *rotations = bank.tables->rotations;
    float* states = bank.state;
    const f32v gains = splat<f32v>(gain);
    using Line = DelayLineInRegisters<2 * P, P == 4 ? 0b01010101 : 0>;
    for (uint32_t k = 0; k < M; k += lanes<f32v>) {
        const float* c = prototype + k;
        float* state = states + k * Line::sums;
        Line line(state);
        for (uint32_t slot = 0; slot < slots; slot++) {
            const complex<f32v> x = Subbands::load_input(modulated[slot], k, M, rotations);
            const f32v y = line.step(x.re, x.im, [=](uint32_t j) { return load<f32v>(c + j * M); });
            store(out + slot * M + k, y * gains);
        }
        line.store_to(state);
    }
}

template <class Subbands> void synthesise(krl_qmf_synthesis* bank, float* out, Subbands subbands) {
    if (!bank)
        return;
    alignas(32) float modulated[slots_at_once][2 * most_bands];
    const auto filter_of_periods = bank->periods == 5 ? filter<5, Subbands> : filter<4, Subbands>;
    for (uint32_t slot = 0; slot < bank->slots; slot += slots_at_once) {
        const uint32_t rest = bank->slots - slot, slots = rest < slots_at_once ? rest : slots_at_once;
        for (uint32_t i = 0; i < slots; i++)
            subbands.modulate(*bank, slot + i, modulated[i]);
        filter_of_periods(*bank, out + size_t{slot} * bank->bands, modulated, slots, subbands.gain);
    }
}

} // namespace

// ---- memory and parameters, by family ------------------------------------------------------------------------------

uint32_t KRL_qmf_synthesisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state, uint32_t* scratch,
                                      uint32_t* instance) {
    return qmf::query_memory(qmf::family_L, krl_qmf_synthesis::bytes_per_block, M, selector, state, scratch, instance);
}
uint32_t KRL_qmf_synthesisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state, uint32_t* scratch,
                                      uint32_t* instance) {
    return qmf::query_memory(qmf::family_S, krl_qmf_synthesis::bytes_per_block, M, selector, state, scratch, instance);
}

krl_qmf_synthesis* krl_qmf_synthesisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                           const float* prototype, void* state, void* scratch, void* instance) {
    return qmf::open<krl_qmf_synthesis>(qmf::family_L, {M, slots, mode, P, prototype}, state, scratch, instance);
}
krl_qmf_synthesis* krl_qmf_synthesisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                           const float* prototype, void* state, void* scratch, void* instance) {
    return qmf::open<krl_qmf_synthesis>(qmf::family_S, {M, slots, mode, P, prototype}, state, scratch, instance);
}

// ---- what both families share --------------------------------------------------------------------------------------

void KRL_qmf_synthesisL_init(krl_qmf_synthesis* bank) {
    if (bank)
        bank->clear();
}
void KRL_qmf_synthesisL_set_slot_increment(krl_qmf_synthesis* bank, uint32_t increment) {
    if (bank)
        bank->slot_increment = increment;
}
uint32_t KRL_qmf_synthesisL_get_delay(const krl_qmf_synthesis* bank) {
    return bank ? bank->bands * bank->periods + 1 - bank->bands / 2 : 0;
}
void KRL_qmf_synthesisL_copy_states(krl_qmf_synthesis* bank, const krl_qmf_synthesis* other) {
    if (bank && other && bank->bands == other->bands && bank->periods == other->periods)
        std::memmove(bank->state, other->state, bank->state_length() * sizeof(float));
}
void KRL_Lqmf_synthesisL(krl_qmf_synthesis* bank, float* out, const float* in) {
    synthesise(bank, out, RealSubbands{in});
}
void KRL_Lqmf_synthesisCL(krl_qmf_synthesis* bank, float* out, const float* const* in) {
    synthesise(bank, out, ComplexSubbands{in});
}
void KRL_Lqmf_synthesisCL_Head1Bit(krl_qmf_synthesis* bank, float* out, const float* const* in) {
    synthesise(bank, out, ComplexSubbands{in, 4.0f});
}
void KRL_qmf_synthesisL_close(krl_qmf_synthesis*) {}

KRL_QMF_SAME_FUNCTION(KRL_qmf_synthesisS_init, KRL_qmf_synthesisL_init);
KRL_QMF_SAME_FUNCTION(KRL_qmf_synthesisS_set_slot_increment, KRL_qmf_synthesisL_set_slot_increment);
KRL_QMF_SAME_FUNCTION(KRL_qmf_synthesisS_get_delay, KRL_qmf_synthesisL_get_delay);
KRL_QMF_SAME_FUNCTION(KRL_qmf_synthesisS_copy_states, KRL_qmf_synthesisL_copy_states);
KRL_QMF_SAME_FUNCTION(KRL_Sqmf_synthesisL, KRL_Lqmf_synthesisL);
KRL_QMF_SAME_FUNCTION(KRL_Sqmf_synthesisCL, KRL_Lqmf_synthesisCL);
KRL_QMF_SAME_FUNCTION(KRL_qmf_synthesisS_close, KRL_qmf_synthesisL_close);
