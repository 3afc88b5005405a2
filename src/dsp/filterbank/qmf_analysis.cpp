#include "dsp/filterbank/qmf.h"
#include "dsp/core/lanes.h"

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

// One slot through the polyphase filter, twice the prototype's P taps per phase k = 0..M-1. With x_j the block of j slots ago:
//
//     even[k] = sum over i = 0..P-1 of c[2i M + k] x_(2P-1-2i)[k]          negated for P = 4, whose tables expect it
//     odd[k] = sum over i = 0..P-1 of c[(2i+1) M + k] x_(2P-2-2i)[k]
//
// each as a chain of fused steps in the order of i. Calls sink(k, even, odd) for runs of lanes<f32v> phases.
template <int P, class Sink> KRL_INLINE void polyphase(krl_qmf_analysis& analysis, const float* in, Sink sink) {
    const uint32_t M = analysis.bands;
    const float* c = analysis.prototype;
    float* block[2 * P - 1];
    block[0] = analysis.ring[2 * P - 2]; // the oldest, x_(2P-1), makes room for the newest
    for (int j = 1; j < 2 * P - 1; j++)
        block[j] = analysis.ring[j - 1];
    memcpy(analysis.ring, block, sizeof(block));

    for (uint32_t k = 0; k < M; k += lanes<f32v>) {
        const f32v newest = load<f32v>(in + k);
        f32v even = load<f32v>(c + k) * load_aligned<f32v>(block[0] + k);
        f32v odd = load<f32v>(c + M + k) * load_aligned<f32v>(block[2 * P - 2] + k);
#pragma GCC unroll 4
        for (int i = 1; i < P; i++) {
            even = fma(load<f32v>(c + 2 * i * M + k), load_aligned<f32v>(block[2 * P - 1 - 2 * i] + k), even);
            odd = fma(load<f32v>(c + (2 * i + 1) * M + k),
                      i == P - 1 ? newest : load_aligned<f32v>(block[2 * P - 2 - 2 * i] + k), odd);
        }
        store_aligned(block[0] + k, newest);
        sink(k, P == 4 ? -even : even, odd);
    }
}

template <int P> void analyse_real(krl_qmf_analysis& analysis, float* out, const float* in) {
    const uint32_t M = analysis.bands;
    float* f = analysis.scratch;
    for (uint32_t slot = 0; slot < analysis.slots; slot++, in += M, out += analysis.slot_increment) {
        polyphase<P>(analysis, in, [=](uint32_t k, f32v even, f32v odd) { // in descending order
            store(f + M - k - lanes<f32v>, reverse(odd));
            store(f + 2 * M - k - lanes<f32v>, reverse(even));
        });
        krl_forwardModulationReal(f, out, M, analysis.half_fft, analysis.tables->dct, f + 2 * M);
    }
}

template <int P> void analyse_complex(krl_qmf_analysis& analysis, float* const* out, const float* in) {
    const uint32_t M = analysis.bands;
    float* v = analysis.scratch;
    const float* rotations = analysis.tables->scaled_rotations;
    for (uint32_t slot = 0; slot < analysis.slots; slot++, in += M) {
        // v[i] = (a + j b) (sin + j cos) with a, b the filter outputs in descending order
        polyphase<P>(analysis, in, [=](uint32_t k, f32v even, f32v odd) {
            const uint32_t i = M - k - lanes<f32v>;
            const f32v a = reverse(even), b = reverse(odd);
            const auto [sine, cosine] = load_groups<f32v>(rotations + 2 * i);
            const auto [lo, hi] = interleave(fma(a, sine, -(b * cosine)), fma(a, cosine, b * sine));
            store(v + 2 * i, lo);
            store(v + 2 * i + lanes<f32v>, hi);
        });
        krl_forwardModulationComplex(v, out[slot], v + 2 * M, M, analysis.mode, analysis.twiddle, analysis.fft);
    }
}

void analyse(krl_qmf_analysis* analysis, float* out, const float* in) {
    if (analysis)
        (analysis->periods == 5 ? analyse_real<5> : analyse_real<4>)(*analysis, out, in);
}
void analyse(krl_qmf_analysis* analysis, float* const* out, const float* in) {
    if (analysis)
        (analysis->periods == 5 ? analyse_complex<5> : analyse_complex<4>)(*analysis, out, in);
}

int32_t reconfigure(Family family, krl_qmf_analysis* analysis, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                    const float* prototype) {
    if (!analysis)
        return -1;
    const qmf::Bank bank =
        qmf::configure(family, M, slots, mode, P, prototype, analysis->state, analysis->scratch);
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

// ---- L family ---------------------------------------------------------------------------------------------------------

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
void KRL_Lqmf_analysisL(krl_qmf_analysis* analysis, float* out, const float* in) { analyse(analysis, out, in); }
void KRL_CLqmf_analysisL(krl_qmf_analysis* analysis, float* const* out, const float* in) { analyse(analysis, out, in); }
void KRL_qmf_analysisL_close(krl_qmf_analysis*) {}

// ---- S family ---------------------------------------------------------------------------------------------------------

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
void KRL_Lqmf_analysisS(krl_qmf_analysis* analysis, float* out, const float* in) { analyse(analysis, out, in); }
void KRL_CLqmf_analysisS(krl_qmf_analysis* analysis, float* const* out, const float* in) { analyse(analysis, out, in); }
void KRL_qmf_analysisS_close(krl_qmf_analysis*) {}
