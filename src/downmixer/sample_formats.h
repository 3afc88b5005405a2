// Conversion between the caller's samples and the planar float work buffers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "korla/downmixer.h"

namespace korla::downmixer {

// One row of `row_length` floats per channel, one row behind the other.
struct PlanarBuffer {
    float* samples;
    uint32_t row_length;
    float* row(uint32_t channel) const { return samples + static_cast<size_t>(channel) * row_length; }
};

// `frames` frames of the first `channels` channels. A format without a conversion leaves the destination as it is.
void to_planar(const PlanarBuffer& dst, const korvex_downmixer_buffer& src, uint32_t channels, uint32_t frames);
void from_planar(const korvex_downmixer_buffer& dst, const PlanarBuffer& src, uint32_t channels, uint32_t frames);

} // namespace korla::downmixer
