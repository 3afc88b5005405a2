// What analysis and synthesis of the QMF banks share: parameters, their tables, and the memory rules of the two
// families.
#pragma once

#include <new>

#include "dsp/core/align.h"
#include "korla/dsp/qmf.h"

namespace krl::qmf {

enum class Family { L, S };

// The constants of one band count. A null twiddle means that the mode has no rotation (short) or is refused (full).
struct BandTables {
    uint32_t bands;
    const float *rotations, *scaled_rotations, *short_twiddle, *full_twiddle, *dct;
};

enum Mode : uint32_t { no_twiddle = 0, short_twiddle = 8 }; // any other value: full twiddle

struct Bank {
    uint32_t bands, periods, slots, slot_increment, mode;
    const float* prototype;
    const BandTables* tables;
    const float* twiddle;         // null: none
    const krl_fft_pair* fft;      // of length M
    const krl_fft_pair* half_fft; // of length M/2
    float *state, *scratch;

    uint32_t state_length() const { return (2 * periods - 1) * bands; }
};

// A Bank with these parameters and the given memory, or bands = 0 when they are refused.
Bank configure(Family family, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
               void* state, void* scratch);

struct MemorySizes {
    uint32_t state, scratch, instance, result;
};

// bytes_per_block: what the state memory holds beside the samples, for each of its 2P-1 blocks.
MemorySizes memory_sizes(Family family, uint32_t M, uint32_t selector, uint32_t bytes_per_block);
uint32_t store_sizes(const MemorySizes& sizes, uint32_t* state, uint32_t* scratch, uint32_t* instance);

// Places an Instance, a struct derived from Bank, in caller memory; null when the parameters are refused.
template <class Instance>
Instance* open(Family family, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
               void* state, void* scratch, void* instance) {
    static_assert(sizeof(Instance) + alignof(Instance) - 1 <= 119, "fits the instance memory of either family");
    if (!state || !scratch || !instance)
        return nullptr;
    const Bank bank = configure(family, M, slots, mode, P, prototype, align_up(state, 32), align_up(scratch, 32));
    return bank.bands ? new (align_up(instance, alignof(Instance))) Instance{bank} : nullptr;
}

} // namespace krl::qmf
