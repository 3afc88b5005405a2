// The matrix: out = sum of gain * in, channel by channel in input order, each product rounded before it is added.
#pragma once

#include <cstdint>

#include "downmixer/layouts.h"
#include "downmixer/sample_formats.h"
#include "korla/downmixer.h"

namespace korla::downmixer {

struct Matrix {
    const float* gains; // [outputs][inputs]
    uint32_t outputs;
    uint32_t inputs; // at most max_inputs
};

void mix(const PlanarBuffer& out, const Matrix& matrix, const PlanarBuffer& in, uint32_t frames);

// The same between float buffers of any stride. out may not overlap in.
void mix_strided(const korvex_downmixer_buffer& out, const Matrix& matrix, const korvex_downmixer_buffer& in,
                 uint32_t frames);

} // namespace korla::downmixer
