#include "dsp/core/lanes.h"
#include "dsp/filterbank/qmf.h"

#include <string.h>

using namespace krl;
using qmf::Family;

// ring[0] holds the newest past block of M samples, ring[2P-2] the oldest; the pointers stand behind the blocks in the
// state memory.
struct krl_qmf_analysis : qmf::Bank {
    float** ring;

    explicit krl_qmf_analysis(const Bank& bank) : Bank(bank), ring(reinterpret_cast<float**>(state + state_length())) {
        for (uint32_t i = 0; i < 2 * periods - 1; i++)
            ring[i] = state + i * bands;
        clear();
    }
    void clear() { memset(state, 0, state_length() * sizeof(float)); }
};

namespace {

// Slots are filtered a few at a time, so that every block of samples is loaded once for all of them.
constexpr uint32_t slots_at_once = 4, most_bands = 64;

// `slots` slots through the polyphase filter with its 2P taps per phase k = 0..M-1. With x_j the block of j slots
// before one:
//
//     even[k] = sum over i = 0..P-1 of c[2i M + k] x_(2P-1-2i)[k]          negated for P = 4, whose tables expect it
//     odd[k] = sum over i = 0..P-1 of c[(2i+1) M + k] x_(2P-2-2i)[k]
//
// each as a chain of fused steps in the order of i. Calls sink(slot, k, even, odd) for runs of lanes<f32v> phases.
template <int P, int slots, class Sink>
KRL_INLINE void polyphase(krl_qmf_analysis& analysis, const float* in, Sink sink) {
    constexpr int past = 2 * P - 1;
    static_assert(slots <= past);
    const uint32_t M = analysis.bands;
    const float* c = analysis.prototype;
    // From the oldest to the newest block. The newest take the place of the oldest, which nothing needs any more.
    float* history[past];
    for (int t = 0; t < past; t++)
        history[t] = analysis.ring[past - 1 - t];
    for (int t = 0; t < past; t++)
        analysis.ring[past - 1 - t] = history[(t + slots) % past];

    for (uint32_t k = 0; k < M; k += lanes<f32v>) {
        f32v even[slots], odd[slots];
#pragma GCC unroll 16
        for (int t = 0; t < past + slots; t++) {
            const f32v x = t < past ? load_aligned<f32v>(history[t] + k) : load<f32v>(in + (t - past) * M + k);
#pragma GCC unroll 8
            for (int slot = 0; slot < slots; slot++) {
                const int block = t - slot; // of the prototype
                if (block < 0 || block > past)
                    continue;
                f32v& sum = block % 2 == 0 ? even[slot] : odd[slot];
                const f32v tap = load<f32v>(c + block * M + k);
                sum = block < 2 ? tap * x : fma(tap, x, sum);
            }
        }
#pragma GCC unroll 8
        for (int slot = 0; slot < slots; slot++) {
            store_aligned(history[slot] + k, load<f32v>(in + slot * M + k));
            sink(slot, k, P == 4 ? -even[slot] : even[slot], odd[slot]);
        }
    }
}

// The two kinds of sub-bands: what becomes of the filter's outputs, 2M floats a slot, and how they make a slot's
// sub-bands.
struct RealSubbands {
    float* out;

    // In descending order.
    static KRL_INLINE void store_output(float* f, uint32_t k, uint32_t M, const float*, f32v even, f32v odd) {
        store(f + M - k - lanes<f32v>, reverse(odd));
        store(f + 2 * M - k - lanes<f32v>, reverse(even));
    }
    void modulate(const krl_qmf_analysis& analysis, uint32_t slot, float* f) const {
        krl_forwardModulationReal(f, out + size_t{slot} * analysis.slot_increment, analysis.bands, analysis.half_fft,
                                  analysis.tables->dct, analysis.scratch);
    }
};
struct ComplexSubbands {
    float* const* out;

    // v[i] = (a + j b) (sin + j cos), with a and b the outputs in descending order.
    static KRL_INLINE void store_output(float* v, uint32_t k, uint32_t M, const float* rotations, f32v even, f32v odd) {
        const uint32_t i = M - k - lanes<f32v>;
        const f32v a = reverse(even), b = reverse(odd);
        const auto [sine, cosine] = load_groups<f32v>(rotations + 2 * i);
        const auto [lo, hi] = interleave(fma(a, sine, -(b * cosine)), fma(a, cosine, b * sine));
        store(v + 2 * i, lo);
        store(v + 2 * i + lanes<f32v>, hi);
    }
    void modulate(const krl_qmf_analysis& analysis, uint32_t slot, float* v) const {
        krl_forwardModulationComplex(v, out[slot], analysis.scratch, analysis.bands, analysis.mode, analysis.twiddle,
                                     analysis.fft);
    }
};

template <int P, int slots, class Subbands>
void analyse_slots(krl_qmf_analysis& analysis, Subbands subbands, uint32_t first, const float* in) {
    alignas(32) float filtered[slots][2 * most_bands];
    polyphase<P, slots>(analysis, in + size_t{first} * analysis.bands,
                        [&filtered, M = analysis.bands,
                         rotations = analysis.tables->scaled_rotations](int slot, uint32_t k, f32v even, f32v odd) {
                            Subbands::store_output(filtered[slot], k, M, rotations, even, odd);
                        });
    for (int slot = 0; slot < slots; slot++)
        subbands.modulate(analysis, first + slot, filtered[slot]);
}

template <int P, class Subbands> void analyse(krl_qmf_analysis& analysis, Subbands subbands, const float* in) {
    uint32_t slot = 0;
    for (; slot + slots_at_once <= analysis.slots; slot += slots_at_once)
        analyse_slots<P, slots_at_once>(analysis, subbands, slot, in);
    for (; slot < analysis.slots; slot++)
        analyse_slots<P, 1>(analysis, subbands, slot, in);
}

template <class Subbands> void analyse(krl_qmf_analysis* analysis, Subbands subbands, const float* in) {
    if (analysis)
        (analysis->periods == 5 ? analyse<5, Subbands> : analyse<4, Subbands>)(*analysis, subbands, in);
}

int32_t reconfigure(Family family, krl_qmf_analysis* analysis, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                    const float* prototype) {
    if (!analysis)
        return -1;
    const qmf::Bank bank = qmf::configure(family, M, slots, mode, P, prototype, analysis->state, analysis->scratch);
    if (!bank.bands)
        return -1;
    new (analysis) krl_qmf_analysis(bank);
    return 0;
}

void clear(krl_qmf_analysis* analysis) {
    if (analysis)
        analysis->clear();
}

void set_slot_increment(krl_qmf_analysis* analysis, uint32_t increment) {
    if (analysis)
        analysis->slot_increment = increment;
}

uint32_t delay(const krl_qmf_analysis* analysis) {
    return analysis ? analysis->bands * analysis->periods - analysis->bands / 2 : 0;
}

uint32_t filter_state_length(uint32_t selector, uint32_t M) { return (selector ? 9 : 7) * M; }

// f(flat block, ring block) for every block, oldest first. Only states of five periods travel.
template <class F> void for_each_state_block(const krl_qmf_analysis* analysis, F f) {
    if (!analysis || analysis->periods != 5)
        return;
    for (uint32_t i = 0; i < 9; i++)
        f(i * analysis->bands, analysis->ring[8 - i], analysis->bands * sizeof(float));
}
void load_state(krl_qmf_analysis* analysis, const float* src) {
    for_each_state_block(analysis, [=](uint32_t at, float* block, size_t bytes) { memcpy(block, src + at, bytes); });
}
void unload_state(const krl_qmf_analysis* analysis, float* dst) {
    for_each_state_block(analysis, [=](uint32_t at, float* block, size_t bytes) { memcpy(dst + at, block, bytes); });
}

} // namespace

// ---- L family ------------------------------------------------------------------------------------------------------

uint32_t KRL_qmf_analysisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                     uint32_t* instance_bytes) {
    return qmf::store_sizes(qmf::memory_sizes(Family::L, M, selector, sizeof(float*)), state_bytes, scratch_bytes,
                            instance_bytes);
}
krl_qmf_analysis* krl_qmf_analysisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
                                         void* state_memory, void* scratch_memory, void* instance_memory) {
    return qmf::open<krl_qmf_analysis>(Family::L, M, slots, mode, P, prototype, state_memory, scratch_memory,
                                       instance_memory);
}
int32_t krl_qmf_analysisL_reconfig(krl_qmf_analysis* analysis, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                   const float* prototype) {
    return reconfigure(Family::L, analysis, M, slots, mode, P, prototype);
}
void KRL_qmf_analysisL_init(krl_qmf_analysis* analysis) { clear(analysis); }
void KRL_qmf_analysisL_set_slot_increment(krl_qmf_analysis* analysis, uint32_t increment) {
    set_slot_increment(analysis, increment);
}
uint32_t KRL_qmf_analysisL_get_delay(const krl_qmf_analysis* analysis) { return delay(analysis); }
uint32_t KRL_qmf_analysisL_get_filter_state_length(uint32_t selector, uint32_t M) {
    return filter_state_length(selector, M);
}
uint32_t KRL_qmf_analysisL_get_max_filter_state_length(uint32_t selector) { return filter_state_length(selector, 64); }
void KRL_load_CLqmf_analysisL_filter_stateL(krl_qmf_analysis* analysis, const float* src) { load_state(analysis, src); }
void KRL_Lunload_CLqmf_analysisL_filter_state(const krl_qmf_analysis* analysis, float* dst) {
    unload_state(analysis, dst);
}
void KRL_Lqmf_analysisL(krl_qmf_analysis* analysis, float* out, const float* in) {
    analyse(analysis, RealSubbands{out}, in);
}
void KRL_CLqmf_analysisL(krl_qmf_analysis* analysis, float* const* out, const float* in) {
    analyse(analysis, ComplexSubbands{out}, in);
}
void KRL_qmf_analysisL_close(krl_qmf_analysis*) {}

// ---- S family ------------------------------------------------------------------------------------------------------

uint32_t KRL_qmf_analysisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                     uint32_t* instance_bytes) {
    return qmf::store_sizes(qmf::memory_sizes(Family::S, M, selector, sizeof(float*)), state_bytes, scratch_bytes,
                            instance_bytes);
}
krl_qmf_analysis* krl_qmf_analysisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
                                         void* state_memory, void* scratch_memory, void* instance_memory) {
    return qmf::open<krl_qmf_analysis>(Family::S, M, slots, mode, P, prototype, state_memory, scratch_memory,
                                       instance_memory);
}
int32_t krl_qmf_analysisS_reconfig(krl_qmf_analysis* analysis, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                   const float* prototype) {
    return reconfigure(Family::S, analysis, M, slots, mode, P, prototype);
}
void KRL_qmf_analysisS_init(krl_qmf_analysis* analysis) { clear(analysis); }
void KRL_qmf_analysisS_set_slot_increment(krl_qmf_analysis* analysis, uint32_t increment) {
    set_slot_increment(analysis, increment);
}
uint32_t KRL_qmf_analysisS_get_delay(const krl_qmf_analysis* analysis) { return delay(analysis); }
uint32_t KRL_qmf_analysisS_get_filter_state_length(uint32_t selector, uint32_t M) {
    return filter_state_length(selector, M);
}
uint32_t KRL_qmf_analysisS_get_max_filter_state_length(uint32_t selector) { return filter_state_length(selector, 64); }
void KRL_load_CLqmf_analysisS_filter_stateL(krl_qmf_analysis* analysis, const float* src) { load_state(analysis, src); }
void KRL_Lunload_CLqmf_analysisS_filter_state(const krl_qmf_analysis* analysis, float* dst) {
    unload_state(analysis, dst);
}
void KRL_Lqmf_analysisS(krl_qmf_analysis* analysis, float* out, const float* in) {
    analyse(analysis, RealSubbands{out}, in);
}
void KRL_CLqmf_analysisS(krl_qmf_analysis* analysis, float* const* out, const float* in) {
    analyse(analysis, ComplexSubbands{out}, in);
}
void KRL_qmf_analysisS_close(krl_qmf_analysis*) {}
