// What analysis and synthesis of the QMF banks share: the instance, the tables of each band count, and the two
// families.
#pragma once

#include <new>

#include "dsp/core/align.h"
#include "korla/dsp/qmf.h"

namespace krl::qmf {

// The families differ in their memory alone: the bands it is sized for, and what a query answers.
struct Family {
    uint32_t fewest_bands; // memory is sized for M bands from this number to 64, and for 32 bands otherwise
    uint32_t instance_bytes, query_result;

    constexpr uint32_t memory_bands(uint32_t M) const { return M >= fewest_bands && M <= 64 ? M : 32; }
};
inline constexpr Family family_L{0, 127, 127}, family_S{64, 119, 1024};

// Exports a function of the S family that has nothing of its own under the name that the public header declares: as a
// second name of the L family's.
#define KRL_QMF_SAME_FUNCTION(S_name, L_name) extern decltype(L_name) S_name __attribute__((alias(#L_name)))

// What open and reconfig are given.
struct Parameters {
    uint32_t bands, slots, mode, periods;
    const float* prototype;
};

enum Mode : uint32_t { no_twiddle = 0, short_twiddle = 8 }; // any other value: full twiddle

// The constants of one band count. Null rotations of sub-bands mean that the mode has none (short) or is refused (full).
struct BandTables {
    uint32_t bands;
    const float *rotations, *scaled_rotations, *short_rotations, *full_rotations, *dct;
};

struct Bank : Parameters {
    uint32_t slot_increment;
    const BandTables* tables;
    const float* rotations;       // of sub-bands; null: none
    const krl_fft_pair* fft;      // of length M
    const krl_fft_pair* half_fft; // of length M/2
    float *state, *scratch;

    uint32_t state_blocks() const { return 2 * periods - 1; }
    uint32_t state_length() const { return state_blocks() * bands; }
};

// A Bank with these parameters and the given memory, or bands = 0 when they are refused.
Bank configure(const Family& family, const Parameters& parameters, float* state, float* scratch);

// Stores the bytes of the three memory blocks where the pointers are not null. bytes_per_block: what the state memory
// holds beside the samples, for each of its 2P-1 blocks.
uint32_t query_memory(const Family& family, uint32_t bytes_per_block, uint32_t M, uint32_t selector, uint32_t* state,
                      uint32_t* scratch, uint32_t* instance);

// The modulation of a slot of complex sub-bands: krl_forwardModulationComplex and krl_inverseModulationComplex with what the bank has.
void forward_modulation(const Bank& bank, float* v, float* X);
void inverse_modulation(const Bank& bank, const float* X, float* Y);

// Places an Instance, a struct derived from Bank, in caller memory; null when the parameters are refused.
template <class Instance>
Instance* open(const Family& family, const Parameters& parameters, void* state, void* scratch, void* instance) {
    static_assert(sizeof(Instance) + alignof(Instance) - 1 <= family_S.instance_bytes);
    if (!state || !scratch || !instance)
        return nullptr;
    const Bank bank = configure(family, parameters, align_up<float>(state, 32), align_up<float>(scratch, 32));
    return bank.bands ? new (align_up(instance, alignof(Instance))) Instance{bank} : nullptr;
}

} // namespace krl::qmf
