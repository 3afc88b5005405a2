// QMF analysis: the polyphase filter over a ring of past blocks, and what its outputs become before the modulation.
#include <cstring>

#include "dsp/core/complex_lanes.h"
#include "dsp/filterbank/qmf.h"

using namespace krl;

// ring[0] holds the newest past block of M samples, ring[2P-2] the oldest; the pointers stand behind the blocks in the
// state memory.
struct krl_qmf_analysis : qmf::Bank {
    static constexpr uint32_t bytes_per_block = sizeof(float*);
    float** ring;

    explicit krl_qmf_analysis(const Bank& bank) : Bank(bank), ring(reinterpret_cast<float**>(state + state_length())) {
        for (uint32_t i = 0; i < state_blocks(); i++)
            ring[i] = state + i * bands;
        clear();
    }
    void clear() { std::memset(state, 0, state_length() * sizeof(float)); }
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
template <int P, int slots, class Sink> KRL_INLINE void polyphase(krl_qmf_analysis& bank, const float* in, Sink sink) {
    constexpr int past = 2 * P - 1;
    static_assert(slots <= past);
    const uint32_t M = bank.bands;
    const float* c = bank.prototype;
    // From the oldest to the newest block. The newest take the place of the oldest, which nothing needs any more.
    float* history[past];
    for (int t = 0; t < past; t++)
        history[t] = bank.ring[past - 1 - t];
    for (int t = 0; t < past; t++)
        bank.ring[past - 1 - t] = history[(t + slots) % past];

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
    void modulate(const krl_qmf_analysis& bank, uint32_t slot, float* f) const {
        krl_forwardModulationReal(f, out + size_t{slot} * bank.slot_increment, bank.bands, bank.half_fft,
                                  bank.tables->dct, bank.scratch);
    }
};
struct ComplexSubbands {
    float* const* out;

    // v[i] = (a + j b) (sin + j cos), with a and b the outputs in descending order.
    static KRL_INLINE void store_output(float* v, uint32_t k, uint32_t M, const float* rotations, f32v even, f32v odd) {
        const uint32_t i = M - k - lanes<f32v>;
        const auto [sine, cosine] = load_groups<f32v>(rotations + 2 * i);
        store_complex(v + 2 * i, multiply_fused(complex<f32v>{reverse(even), reverse(odd)}, {sine, cosine}));
    }
    void modulate(const krl_qmf_analysis& bank, uint32_t slot, float* v) const {
        qmf::forward_modulation(bank, v, out[slot]);
    }
};

template <int P, int slots, class Subbands>
void analyse_slots(krl_qmf_analysis& bank, Subbands subbands, uint32_t first, const float* in) {
    alignas(32) float filtered[slots][2 * most_bands];
    polyphase<P, slots>(bank, in + size_t{first} * bank.bands,
                        [&filtered, M = bank.bands, rotations = bank.tables->scaled_rotations](int slot, uint32_t k,
                                                                                               f32v even, f32v odd) {
                            Subbands::store_output(filtered[slot], k, M, rotations, even, odd);
                        });
    for (int slot = 0; slot < slots; slot++)
        subbands.modulate(bank, first + slot, filtered[slot]);
}

template <int P, class Subbands> void analyse(krl_qmf_analysis& bank, Subbands subbands, const float* in) {
    uint32_t slot = 0;
    for (; slot + slots_at_once <= bank.slots; slot += slots_at_once)
        analyse_slots<P, slots_at_once>(bank, subbands, slot, in);
    for (; slot < bank.slots; slot++)
        analyse_slots<P, 1>(bank, subbands, slot, in);
}

template <class Subbands> void analyse(krl_qmf_analysis* bank, Subbands subbands, const float* in) {
    if (bank)
        (bank->periods == 5 ? analyse<5, Subbands> : analyse<4, Subbands>)(*bank, subbands, in);
}

// f(flat block, ring block) for every block, oldest first. Only states of five periods travel.
template <class F> void for_each_state_block(const krl_qmf_analysis* bank, F f) {
    if (!bank || bank->periods != 5)
        return;
    for (uint32_t i = 0; i < 9; i++)
        f(i * bank->bands, bank->ring[8 - i], bank->bands * sizeof(float));
}

int32_t reconfigure(const qmf::Family& family, krl_qmf_analysis* bank, const qmf::Parameters& parameters) {
    if (!bank)
        return -1;
    const qmf::Bank fresh = qmf::configure(family, parameters, bank->state, bank->scratch);
    if (!fresh.bands)
        return -1;
    new (bank) krl_qmf_analysis(fresh);
    return 0;
}

} // namespace

// ---- memory and parameters, by family ------------------------------------------------------------------------------

uint32_t KRL_qmf_analysisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state, uint32_t* scratch,
                                     uint32_t* instance) {
    return qmf::query_memory(qmf::family_L, krl_qmf_analysis::bytes_per_block, M, selector, state, scratch, instance);
}
uint32_t KRL_qmf_analysisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state, uint32_t* scratch,
                                     uint32_t* instance) {
    return qmf::query_memory(qmf::family_S, krl_qmf_analysis::bytes_per_block, M, selector, state, scratch, instance);
}

krl_qmf_analysis* krl_qmf_analysisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
                                         void* state, void* scratch, void* instance) {
    return qmf::open<krl_qmf_analysis>(qmf::family_L, {M, slots, mode, P, prototype}, state, scratch, instance);
}
krl_qmf_analysis* krl_qmf_analysisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
                                         void* state, void* scratch, void* instance) {
    return qmf::open<krl_qmf_analysis>(qmf::family_S, {M, slots, mode, P, prototype}, state, scratch, instance);
}

int32_t krl_qmf_analysisL_reconfig(krl_qmf_analysis* bank, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                   const float* prototype) {
    return reconfigure(qmf::family_L, bank, {M, slots, mode, P, prototype});
}
int32_t krl_qmf_analysisS_reconfig(krl_qmf_analysis* bank, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                   const float* prototype) {
    return reconfigure(qmf::family_S, bank, {M, slots, mode, P, prototype});
}

// ---- what both families share --------------------------------------------------------------------------------------

void KRL_qmf_analysisL_init(krl_qmf_analysis* bank) {
    if (bank)
        bank->clear();
}
void KRL_qmf_analysisL_set_slot_increment(krl_qmf_analysis* bank, uint32_t increment) {
    if (bank)
        bank->slot_increment = increment;
}
uint32_t KRL_qmf_analysisL_get_delay(const krl_qmf_analysis* bank) {
    return bank ? bank->bands * bank->periods - bank->bands / 2 : 0;
}
uint32_t KRL_qmf_analysisL_get_filter_state_length(uint32_t selector, uint32_t M) { return (selector ? 9 : 7) * M; }
uint32_t KRL_qmf_analysisL_get_max_filter_state_length(uint32_t selector) {
    return KRL_qmf_analysisL_get_filter_state_length(selector, 64);
}
void KRL_load_CLqmf_analysisL_filter_stateL(krl_qmf_analysis* bank, const float* src) {
    for_each_state_block(bank, [=](uint32_t at, float* block, size_t bytes) { std::memcpy(block, src + at, bytes); });
}
void KRL_Lunload_CLqmf_analysisL_filter_state(const krl_qmf_analysis* bank, float* dst) {
    for_each_state_block(bank, [=](uint32_t at, float* block, size_t bytes) { std::memcpy(dst + at, block, bytes); });
}
void KRL_Lqmf_analysisL(krl_qmf_analysis* bank, float* out, const float* in) { analyse(bank, RealSubbands{out}, in); }
void KRL_CLqmf_analysisL(krl_qmf_analysis* bank, float* const* out, const float* in) {
    analyse(bank, ComplexSubbands{out}, in);
}
void KRL_qmf_analysisL_close(krl_qmf_analysis*) {}

KRL_QMF_SAME_FUNCTION(KRL_qmf_analysisS_init, KRL_qmf_analysisL_init);
KRL_QMF_SAME_FUNCTION(KRL_qmf_analysisS_set_slot_increment, KRL_qmf_analysisL_set_slot_increment);
KRL_QMF_SAME_FUNCTION(KRL_qmf_analysisS_get_delay, KRL_qmf_analysisL_get_delay);
KRL_QMF_SAME_FUNCTION(KRL_qmf_analysisS_get_filter_state_length, KRL_qmf_analysisL_get_filter_state_length);
KRL_QMF_SAME_FUNCTION(KRL_qmf_analysisS_get_max_filter_state_length, KRL_qmf_analysisL_get_max_filter_state_length);
KRL_QMF_SAME_FUNCTION(KRL_load_CLqmf_analysisS_filter_stateL, KRL_load_CLqmf_analysisL_filter_stateL);
KRL_QMF_SAME_FUNCTION(KRL_Lunload_CLqmf_analysisS_filter_state, KRL_Lunload_CLqmf_analysisL_filter_state);
KRL_QMF_SAME_FUNCTION(KRL_Lqmf_analysisS, KRL_Lqmf_analysisL);
KRL_QMF_SAME_FUNCTION(KRL_CLqmf_analysisS, KRL_CLqmf_analysisL);
KRL_QMF_SAME_FUNCTION(KRL_qmf_analysisS_close, KRL_qmf_analysisL_close);
