// What analysis and synthesis of the modulated bank share: the instance, its memory, and which calls are refused.
#pragma once

#include <cstring>

#include "dsp/core/align.h"
#include "dsp/fft/fastest.h"
#include "korla/dsp/mfb.h"

namespace krl::mfb {

inline constexpr uint32_t tap_blocks = 10;               // a prototype has this many taps per band
inline constexpr uint32_t state_blocks = tap_blocks - 1; // floats of state per band
inline constexpr uint32_t band_multiple = 8;             // the widest step over the bands

struct Bank {
    float** channels;        // one block of 9M floats per channel
    const krl_fft_pair* fft; // forward, length M
    uint32_t slot;           // analysis: ring phase, the slot counter modulo 9
    uint32_t bands, channel_count;

    void clear_channel(uint32_t channel) const {
        std::memset(channels[channel], 0, state_blocks * sizeof(float) * size_t{bands});
    }
};
static_assert(sizeof(Bank) == 32);

// Bytes for any alignment of the block: record_bytes covers the record and twice the slack of 31 (the record, the first
// channel block); 39 bytes per channel are its pointer and slack. Blocks after the first need none of theirs (9M floats
// are a multiple of 32 bytes), which leaves room for the record's own fields.
inline size_t memory_bytes(uint32_t channels, uint32_t bands, size_t record_bytes) {
    size_t channel_bytes, all, result;
    if (__builtin_mul_overflow(size_t{bands}, state_blocks * sizeof(float), &channel_bytes) ||
        __builtin_add_overflow(channel_bytes, 39, &channel_bytes) ||
        __builtin_mul_overflow(channel_bytes, channels, &all) || __builtin_add_overflow(all, record_bytes, &result))
        return SIZE_MAX;
    return result;
}

inline size_t scratch_bytes(uint32_t bands) { return 4 * sizeof(float) * size_t{bands} + 31; }

// Places the record, the channel pointers and the channel blocks, all cleared. Null for what no bank can be made of.
template <class Instance> Instance* place(uint32_t channels, uint32_t bands, void* memory) {
    static_assert(sizeof(Instance) == sizeof(Bank));
    const krl_fft_pair* fft = fft::fastest_forward(bands);
    if (!memory || bands % band_multiple != 0 || !fft)
        return nullptr;
    auto* bank = align_up<Instance>(memory, 32);
    bank->channels = reinterpret_cast<float**>(bank + 1);
    bank->fft = fft;
    bank->slot = 0;
    bank->bands = bands;
    bank->channel_count = channels;
    auto* block = align_up<float>(bank->channels + channels, 32);
    for (uint32_t channel = 0; channel < channels; channel++, block += state_blocks * size_t{bands}) {
        bank->channels[channel] = block;
        bank->clear_channel(channel);
    }
    return bank;
}

template <class Pointer> bool any_null(const Pointer* const* slots, uint32_t slot_count, uint32_t channels) {
    for (uint32_t slot = 0; slot < slot_count; slot++) {
        if (!slots[slot])
            return true;
        for (uint32_t channel = 0; channel < channels; channel++)
            if (!slots[slot][channel])
                return true;
    }
    return false;
}

// Whether a process call names everything it needs and fits the bank. Checked before the first write, so that a
// refused call changes nothing.
template <class Out, class In>
bool accepts(const Bank* bank, const float* prototype, const float* twiddle, const void* scratch, uint32_t channels,
             uint32_t slots, uint32_t bands, const Out* const* out, const In* const* in) {
    if (slots == 0 || channels == 0)
        return false;
    return bank && prototype && twiddle && scratch && out && in && bands == bank->bands &&
           channels <= bank->channel_count && !any_null(out, slots, channels) && !any_null(in, slots, channels);
}

} // namespace krl::mfb

struct krl_mfb_analysis : krl::mfb::Bank {};
struct krl_mfb_synthesis : krl::mfb::Bank {};
