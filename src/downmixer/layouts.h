// Channel maps, speaker masks and the built-in downmix modes.
#pragma once

#include <cstdint>

namespace korla::downmixer {

inline constexpr int map_length = 256;
inline constexpr uint8_t empty_slot = 42; // a higher code is invalid
inline constexpr uint32_t max_inputs = 12;
inline constexpr uint32_t max_outputs = 256;

// The set of channels in a map: bit c for engine code c, bits 39, 40, 41 for a second 9, 10, 3.
struct Speakers {
    uint64_t mask;  // 0: no channel, or an invalid code
    uint32_t count; // channels
};
Speakers speakers_of(const uint8_t* codes);

// A built-in mode: the matrix of one input layout, one row per output channel, one column per input channel.
struct Mode {
    uint32_t outputs;
    const float* matrix; // null: no such layout
};
Mode mode_of(uint64_t mask);

} // namespace korla::downmixer
