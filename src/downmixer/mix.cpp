#include "downmixer/mix.h"

#include <cstring>

#include "dsp/core/lanes.h"

using namespace krl;

namespace korla::downmixer {
namespace {

struct Term {
    const float* in;
    float gain;
};

// The sum starts from +0, so that a row whose products are all -0 gives +0; a zero gain contributes nothing, not even
// the NaN of a product with infinity, because it is not a term.
template <class V, int unroll> KRL_INLINE void add_terms(float* out, const Term* terms, uint32_t count, uint32_t t) {
    V sum[unroll];
    for (int i = 0; i < unroll; i++)
        sum[i] = splat<V>(0.0f);
    for (uint32_t k = 0; k < count; k++)
        for (int i = 0; i < unroll; i++)
            sum[i] = sum[i] + load<V>(terms[k].in + t + i * lanes<V>) * terms[k].gain;
    for (int i = 0; i < unroll; i++)
        store(out + t + i * lanes<V>, sum[i]);
}

void mix_row(float* out, const Term* terms, uint32_t count, uint32_t frames) {
    constexpr uint32_t width = lanes<f32v>, unroll = 4;
    uint32_t t = 0;
    for (; t + unroll * width <= frames; t += unroll * width)
        add_terms<f32v, unroll>(out, terms, count, t);
    for (; t < frames; t++)
        add_terms<float, 1>(out, terms, count, t);
}

} // namespace

void mix(const PlanarBuffer& out, const Matrix& matrix, const PlanarBuffer& in, uint32_t frames) {
    for (uint32_t o = 0; o < matrix.outputs; o++) {
        Term terms[max_inputs];
        uint32_t count = 0;
        for (uint32_t i = 0; i < matrix.inputs; i++) {
            const float gain = matrix.gains[o * matrix.inputs + i];
            if (gain != 0.0f)
                terms[count++] = {in.row(i), gain};
        }
        mix_row(out.row(o), terms, count, frames);
    }
}

void mix_strided(const korvex_downmixer_buffer& out, const Matrix& matrix, const korvex_downmixer_buffer& in,
                 uint32_t frames) {
    const auto channel = [](const korvex_downmixer_buffer& buffer, uint32_t c) {
        return static_cast<float*>(buffer.channels[c]);
    };
    if (out.stride != 1) {
        std::memset(out.channels[0], 0, sizeof(float) * frames * out.channel_count);
    } else {
        for (uint32_t c = 0; c < out.channel_count; c++)
            std::memset(out.channels[c], 0, sizeof(float) * frames);
    }
    for (uint32_t o = 0; o < matrix.outputs; o++)
        for (uint32_t i = 0; i < matrix.inputs; i++) {
            const float gain = matrix.gains[o * matrix.inputs + i];
            if (gain == 0.0f)
                continue;
            const float* src = channel(in, i);
            float* dst = channel(out, o);
            for (size_t t = 0; t < frames; t++)
                dst[t * out.stride] += src[t * in.stride] * gain;
        }
}

} // namespace korla::downmixer
