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

struct FilterInput { f32x4 even, odd; };

// One slot through the delay line; input(k) gives what enters the even and odd taps of bands k..k+3. The tables for P = 4
// expect their even taps negated.
template <int P, class Input> KRL_INLINE void filter(krl_qmf_synthesis& synthesis, float* out, float gain, Input input) {
    const uint32_t M = synthesis.bands;
    float* state = synthesis.state;
    for (uint32_t k = 0; k < M; k += 4, state += 4 * (2 * P - 1)) {
        const float* c = synthesis.prototype + k;
        const FilterInput x = input(k);
        const f32x4 y = delay_line<2 * P, P == 4 ? 0x55 : 0>(state, x.even, x.odd,
                                                             [=](uint32_t j) { return load<f32x4>(c + j * M); });
        store(out + k, y * splat<f32x4>(gain));
    }
}

template <int P> void synthesise_real(krl_qmf_synthesis& synthesis, float* out, const float* in) {
    const uint32_t M = synthesis.bands;
    float *g = synthesis.scratch, *g_odd = g + M;
    for (uint32_t slot = 0; slot < synthesis.slots; slot++, out += M, in += synthesis.slot_increment) {
        memcpy(g, in, M * sizeof(float));
        krl_inverseModulationReal(g, g_odd, M, synthesis.half_fft, synthesis.tables->dct);
        filter<P>(synthesis, out, 2.0f, [=](uint32_t k) {
            return FilterInput{load_aligned<f32x4>(g + k), load_aligned<f32x4>(g_odd + k)};
        });
    }
}

template <int P> void synthesise_complex(krl_qmf_synthesis& synthesis, float* out, const float* const* in, float gain) {
    const uint32_t M = synthesis.bands;
    float *spectrum = synthesis.scratch, *Y = spectrum + 2 * M;
    const float* rotations = synthesis.tables->rotations;
    for (uint32_t slot = 0; slot < synthesis.slots; slot++, out += M) {
        krl_inverseModulationComplex(in[slot], Y, spectrum, M, synthesis.mode, synthesis.twiddle, synthesis.fft);
        // even + j odd = Y exp(-j pi k / (2M)); the table holds halves
        filter<P>(synthesis, out, gain, [=](uint32_t k) {
            const auto [re, im] = deinterleave(load_aligned<f32x4>(Y + 2 * k), load_aligned<f32x4>(Y + 2 * k + 4));
            const auto [sine, cosine] = load_groups<f32x4>(rotations + 2 * k);
            const f32x4 even = fma(re, cosine, im * sine), odd = fma(im, cosine, -(re * sine));
            return FilterInput{even + even, odd + odd};
        });
    }
}

void synthesise(krl_qmf_synthesis* synthesis, float* out, const float* in) {
    if (synthesis)
        (synthesis->periods == 5 ? synthesise_real<5> : synthesise_real<4>)(*synthesis, out, in);
}
void synthesise(krl_qmf_synthesis* synthesis, float* out, const float* const* in, float gain = 2.0f) {
    if (synthesis)
        (synthesis->periods == 5 ? synthesise_complex<5> : synthesise_complex<4>)(*synthesis, out, in, gain);
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

// ---- L family ---------------------------------------------------------------------------------------------------------

uint32_t KRL_qmf_synthesisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                      uint32_t* instance_bytes) {
    return qmf::store_sizes(qmf::memory_sizes(Family::L, M, selector, 0), state_bytes, scratch_bytes, instance_bytes);
}
krl_qmf_synthesis* krl_qmf_synthesisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
                                           void* state_memory, void* scratch_memory, void* instance_memory) {
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
void KRL_Lqmf_synthesisL(krl_qmf_synthesis* synthesis, float* out, const float* in) { synthesise(synthesis, out, in); }
void KRL_Lqmf_synthesisCL(krl_qmf_synthesis* synthesis, float* out, const float* const* in) {
    synthesise(synthesis, out, in);
}
void KRL_Lqmf_synthesisCL_Head1Bit(krl_qmf_synthesis* synthesis, float* out, const float* const* in) {
    synthesise(synthesis, out, in, 4.0f);
}
void KRL_qmf_synthesisL_close(krl_qmf_synthesis*) {}

// ---- S family ---------------------------------------------------------------------------------------------------------

uint32_t KRL_qmf_synthesisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                      uint32_t* instance_bytes) {
    return qmf::store_sizes(qmf::memory_sizes(Family::S, M, selector, 0), state_bytes, scratch_bytes, instance_bytes);
}
krl_qmf_synthesis* krl_qmf_synthesisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
                                           void* state_memory, void* scratch_memory, void* instance_memory) {
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
void KRL_Sqmf_synthesisL(krl_qmf_synthesis* synthesis, float* out, const float* in) { synthesise(synthesis, out, in); }
void KRL_Sqmf_synthesisCL(krl_qmf_synthesis* synthesis, float* out, const float* const* in) {
    synthesise(synthesis, out, in);
}
void KRL_qmf_synthesisS_close(krl_qmf_synthesis*) {}
