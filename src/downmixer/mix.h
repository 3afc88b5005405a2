// The matrix: out = sum of gain * in, channel by channel in input order, each product rounded before it is added.
#pragma once

#include <cstdint>

#include "downmixer/sample_formats.h"
#include "korla/downmixer.h"

namespace korla::downmixer {

struct Matrix {
    const float* gains;          // [outputs][inputs]
    const uint16_t* used_inputs; // [outputs] bit i: the gain of input i is not zero
    uint32_t outputs;
    uint32_t inputs; // at most 16
};

// Fills in used_inputs: a gain that is zero now is never looked at again.
void find_used_inputs(uint16_t* used_inputs, const float* gains, uint32_t outputs, uint32_t inputs);

// True where every input goes to one output and every output comes from one input; then routes has that of every input.
bool find_routes(Route* routes, const Matrix& matrix);

// Mixes between float buffers of any stride that share no memory. Channels of out that the matrix has no row for become
// silent.
void mix_strided(const korvex_downmixer_buffer& out, const Matrix& matrix, const korvex_downmixer_buffer& in,
                 uint32_t frames);

} // namespace korla::downmixer
