// Mixing: the rows of a tile, or buffers of any stride.
#include "downmixer/mix.h"

#include "downmixer/layouts.h"
#include "downmixer/mix_row.h"

using namespace krl;

namespace korla::downmixer {
void find_used_inputs(uint16_t* used_inputs, const float* gains, uint32_t outputs, uint32_t inputs) {
    static_assert(max_inputs <= 8 * sizeof *used_inputs);
    for (uint32_t o = 0; o < outputs; o++) {
        uint16_t used = 0;
        for (uint32_t i = 0; i < inputs; i++)
            used = static_cast<uint16_t>(used | (gains[o * inputs + i] != 0.0f) << i);
        used_inputs[o] = used;
    }
}

float mix(PlanarBuffer out, const Matrix& shared_matrix, PlanarBuffer in, uint32_t frames) {
    const Matrix matrix = shared_matrix; // stores to the rows cannot change the copy
    constexpr int groups = tile_frames / lanes<f32v>;
    f32v peaks[peak_chains] = {};
    if (frames == tile_frames) {
        for (uint32_t o = 0; o < matrix.outputs; o++)
            mix_row<f32v, groups>(
                out.row(o), matrix.gains + o * matrix.inputs, matrix.used_inputs[o],
                [&](size_t i) { return in.row(i); }, peaks);
        return greatest(peaks);
    }
    float peak[1] = {};
    for (uint32_t o = 0; o < matrix.outputs; o++)
        for (uint32_t t = 0; t < frames; t++)
            mix_row<float, 1>(
                out.row(o) + t, matrix.gains + o * matrix.inputs, matrix.used_inputs[o],
                [&](size_t i) { return in.row(i) + t; }, peak);
    return peak[0];
}

void mix_strided(const korvex_downmixer_buffer& out, const Matrix& matrix, const korvex_downmixer_buffer& in,
                 uint32_t frames) {
    for (uint32_t o = 0; o < out.channel_count; o++) {
        auto* dst = static_cast<float*>(out.channels[o]);
        for (size_t t = 0; t < frames; t++)
            dst[t * out.stride] = 0.0f;
        if (o < matrix.outputs)
            for (uint64_t used = matrix.used_inputs[o]; used != 0;) {
                const size_t i = take_lowest(used);
                const float gain = matrix.gains[o * matrix.inputs + i];
                const auto* src = static_cast<const float*>(in.channels[i]);
                for (size_t t = 0; t < frames; t++)
                    dst[t * out.stride] += src[t * in.stride] * gain;
            }
    }
}

} // namespace korla::downmixer
