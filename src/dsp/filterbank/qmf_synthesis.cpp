#include "dsp/filterbank/delay_line.h"
#include "dsp/filterbank/qmf.h"

#include <string.h>

using namespace krl;
using qmf::Family;

// The state is the delay line: for every group of four bands its 2P-1 sums, four bands each.
struct krl_qmf_synthesis : qmf::Bank {
    explicit krl_qmf_synthesis(const Bank& bank) : Bank(bank) { clear(); }
    void clear() { memset(state, 0, state_length() * sizeof(float)); }
};

namespace {

// Slots are modulated a few at a time, so that the delay line of a group of bands stays in registers over them.
constexpr uint32_t slots_at_once = 8, most_bands = 64;

struct FilterInput {
    f32v even, odd;
};

// The two kinds of sub-bands: how a slot becomes the 2M floats that the filter starts from, and what then enters the
// even and odd taps of the bands from k on.
struct RealSubbands {
    const float* in;
    float gain = 2.0f;

    void modulate(const krl_qmf_synthesis& synthesis, uint32_t slot, float* g) const {
        const uint32_t M = synthesis.bands;
        memcpy(g, in + size_t{slot} * synthesis.slot_increment, M * sizeof(float));
        krl_inverseModulationReal(g, g + M, M, synthesis.half_fft, synthesis.tables->dct);
    }
    static KRL_INLINE FilterInput load_input(const float* g, uint32_t k, uint32_t M, const float*) {
        return {load_aligned<f32v>(g + k), load_aligned<f32v>(g + M + k)};
    }
};
struct ComplexSubbands {
    const float* const* in;
    float gain = 2.0f;

    void modulate(const krl_qmf_synthesis& synthesis, uint32_t slot, float* Y) const {
        krl_inverseModulationComplex(in[slot], Y, synthesis.scratch, synthesis.bands, synthesis.mode, synthesis.twiddle,
                                     synthesis.fft);
    }
    // even + j odd = Y exp(-j pi k / (2M)); the table holds halves.
    static KRL_INLINE FilterInput load_input(const float* Y, uint32_t k, uint32_t, const float* rotations) {
        const auto [re, im] = deinterleave(load_aligned<f32v>(Y + 2 * k), load_aligned<f32v>(Y + 2 * k + lanes<f32v>));
        const auto [sine, cosine] = load_groups<f32v>(rotations + 2 * k);
        const f32v even = fma(re, cosine, im * sine), odd = fma(im, cosine, -(re * sine));
        return {even + even, odd + odd};
    }
};

// `slots` slots through the delay line. The tables for P = 4 expect their even taps negated.
template <int P, class Subbands>
void filter(const krl_qmf_synthesis& synthesis, float* out, const float (*modulated)[2 * most_bands], uint32_t slots,
            float gain) {
    const uint32_t M = synthesis.bands;
    const float *prototype = synthesis.prototype, *rotations = synthesis.tables->rotations;
    float* states = synthesis.state;
    const f32v gains = splat<f32v>(gain);
    using Line = DelayLineInRegisters<2 * P, P == 4 ? 0x55 : 0>;
    for (uint32_t k = 0; k < M; k += lanes<f32v>) {
        const float* c = prototype + k;
        float* state = states + k * Line::sums;
        Line line(state);
        for (uint32_t slot = 0; slot < slots; slot++) {
            const FilterInput x = Subbands::load_input(modulated[slot], k, M, rotations);
            const f32v y = line.step(x.even, x.odd, [=](uint32_t j) { return load<f32v>(c + j * M); });
            store(out + slot * M + k, y * gains);
        }
        line.store_to(state);
    }
}

template <class Subbands> void synthesise(krl_qmf_synthesis* synthesis, float* out, Subbands subbands) {
    if (!synthesis)
        return;
    alignas(32) float modulated[slots_at_once][2 * most_bands];
    const auto filter_of_periods = synthesis->periods == 5 ? filter<5, Subbands> : filter<4, Subbands>;
    for (uint32_t slot = 0; slot < synthesis->slots; slot += slots_at_once) {
        const uint32_t rest = synthesis->slots - slot, slots = rest < slots_at_once ? rest : slots_at_once;
        for (uint32_t i = 0; i < slots; i++)
            subbands.modulate(*synthesis, slot + i, modulated[i]);
        filter_of_periods(*synthesis, out + size_t{slot} * synthesis->bands, modulated, slots, subbands.gain);
    }
}

void clear(krl_qmf_synthesis* synthesis) {
    if (synthesis)
        synthesis->clear();
}

void set_slot_increment(krl_qmf_synthesis* synthesis, uint32_t increment) {
    if (synthesis)
        synthesis->slot_increment = increment;
}

uint32_t delay(const krl_qmf_synthesis* synthesis) {
    return synthesis ? synthesis->bands * synthesis->periods + 1 - synthesis->bands / 2 : 0;
}

void copy_states(krl_qmf_synthesis* synthesis, const krl_qmf_synthesis* other) {
    if (synthesis && other && synthesis->bands == other->bands && synthesis->periods == other->periods)
        memmove(synthesis->state, other->state, synthesis->state_length() * sizeof(float));
}

} // namespace

// ---- L family ------------------------------------------------------------------------------------------------------

uint32_t KRL_qmf_synthesisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                      uint32_t* instance_bytes) {
    return qmf::store_sizes(qmf::memory_sizes(Family::L, M, selector, 0), state_bytes, scratch_bytes, instance_bytes);
}
krl_qmf_synthesis* krl_qmf_synthesisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                           const float* prototype, void* state_memory, void* scratch_memory,
                                           void* instance_memory) {
    return qmf::open<krl_qmf_synthesis>(Family::L, M, slots, mode, P, prototype, state_memory, scratch_memory,
                                        instance_memory);
}
void KRL_qmf_synthesisL_init(krl_qmf_synthesis* synthesis) { clear(synthesis); }
void KRL_qmf_synthesisL_set_slot_increment(krl_qmf_synthesis* synthesis, uint32_t increment) {
    set_slot_increment(synthesis, increment);
}
uint32_t KRL_qmf_synthesisL_get_delay(const krl_qmf_synthesis* synthesis) { return delay(synthesis); }
void KRL_qmf_synthesisL_copy_states(krl_qmf_synthesis* synthesis, const krl_qmf_synthesis* other) {
    copy_states(synthesis, other);
}
void KRL_Lqmf_synthesisL(krl_qmf_synthesis* synthesis, float* out, const float* in) {
    synthesise(synthesis, out, RealSubbands{in});
}
void KRL_Lqmf_synthesisCL(krl_qmf_synthesis* synthesis, float* out, const float* const* in) {
    synthesise(synthesis, out, ComplexSubbands{in});
}
void KRL_Lqmf_synthesisCL_Head1Bit(krl_qmf_synthesis* synthesis, float* out, const float* const* in) {
    synthesise(synthesis, out, ComplexSubbands{in, 4.0f});
}
void KRL_qmf_synthesisL_close(krl_qmf_synthesis*) {}

// ---- S family ------------------------------------------------------------------------------------------------------

uint32_t KRL_qmf_synthesisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                      uint32_t* instance_bytes) {
    return qmf::store_sizes(qmf::memory_sizes(Family::S, M, selector, 0), state_bytes, scratch_bytes, instance_bytes);
}
krl_qmf_synthesis* krl_qmf_synthesisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                           const float* prototype, void* state_memory, void* scratch_memory,
                                           void* instance_memory) {
    return qmf::open<krl_qmf_synthesis>(Family::S, M, slots, mode, P, prototype, state_memory, scratch_memory,
                                        instance_memory);
}
void KRL_qmf_synthesisS_init(krl_qmf_synthesis* synthesis) { clear(synthesis); }
void KRL_qmf_synthesisS_set_slot_increment(krl_qmf_synthesis* synthesis, uint32_t increment) {
    set_slot_increment(synthesis, increment);
}
uint32_t KRL_qmf_synthesisS_get_delay(const krl_qmf_synthesis* synthesis) { return delay(synthesis); }
void KRL_qmf_synthesisS_copy_states(krl_qmf_synthesis* synthesis, const krl_qmf_synthesis* other) {
    copy_states(synthesis, other);
}
void KRL_Sqmf_synthesisL(krl_qmf_synthesis* synthesis, float* out, const float* in) {
    synthesise(synthesis, out, RealSubbands{in});
}
void KRL_Sqmf_synthesisCL(krl_qmf_synthesis* synthesis, float* out, const float* const* in) {
    synthesise(synthesis, out, ComplexSubbands{in});
}
void KRL_qmf_synthesisS_close(krl_qmf_synthesis*) {}
