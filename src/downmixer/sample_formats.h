// Conversion between the caller's samples and planar float rows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "korla/downmixer.h"

namespace korla::downmixer {

// One row of floats per channel, one row behind the other.
struct PlanarBuffer {
    float* samples;
    size_t row_length;
    float* row(size_t channel) const { return samples + channel * row_length; }
    PlanarBuffer from(uint32_t frame) const { return {samples + frame, row_length}; }
};

// Frames that are mixed at a time.
inline constexpr uint32_t tile_frames = 32;

// Converts `frames` frames from `first` on, of the first `channels` channels of the caller's buffer; the planar side
// starts at its frame 0.
using ReadFrames = void (*)(PlanarBuffer dst, const korvex_downmixer_buffer& src, uint32_t channels, size_t first,
                            uint32_t frames);
using WriteFrames = void (*)(const korvex_downmixer_buffer& dst, PlanarBuffer src, uint32_t channels, size_t first,
                             uint32_t frames);

// Reads as ReadFrames does, but mixes: channel c, times a gain, is all of what row routes[c].row gets. Returns the
// greatest magnitude that it stored; NaN does not count.
struct Route {
    uint32_t row;
    float gain;
};
using ReadRouted = float (*)(PlanarBuffer dst, const korvex_downmixer_buffer& src, const Route* routes,
                             uint32_t channels, size_t first, uint32_t frames);

enum class SampleFormat : uint8_t {
    none,
    int16,
    int24,       // in three bytes
    int24_in_32, // at the bottom of four
    int32,
    int32_in_64, // at the bottom of eight
    float32,
    float64
};

enum class Arrangement : uint8_t {
    planar,   // one run of samples a channel
    packed,   // frame follows frame without a gap; channels[0] is where the first one starts
    scattered // any other stride and places
};

ReadFrames reader_of(SampleFormat format, Arrangement arrangement);
WriteFrames writer_of(SampleFormat format, Arrangement arrangement);

// The conversion for a buffer's format and arrangement. A format without one leaves the destination as it is.
ReadFrames reader_of(const korvex_downmixer_buffer& src, uint32_t channels);
WriteFrames writer_of(const korvex_downmixer_buffer& dst, uint32_t channels);

// Null where there is none: only packed frames have one.
ReadRouted routed_reader_of(const korvex_downmixer_buffer& src, uint32_t channels);

// True where the memory between the first and the last sample of one buffer meets that of the other.
bool share_memory(const korvex_downmixer_buffer& a, uint32_t a_channels, const korvex_downmixer_buffer& b,
                  uint32_t b_channels, uint32_t frames);

} // namespace korla::downmixer
