// Which gains count, and mixing between buffers of any stride.
#include "downmixer/mix.h"

#include "downmixer/layouts.h"
#include "downmixer/mix_row.h"

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

bool find_routes(Route* routes, const Matrix& matrix) {
    if (matrix.outputs != matrix.inputs)
        return false;
    uint64_t all = 0;
    for (uint32_t o = 0; o < matrix.outputs; o++) {
        uint64_t used = matrix.used_inputs[o];
        if (used == 0 || (used & all) != 0)
            return false;
        all |= used;
        const size_t i = take_lowest(used);
        if (used != 0)
            return false;
        routes[i] = {o, matrix.gains[o * matrix.inputs + i]};
    }
    return true;
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
