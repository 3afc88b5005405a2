// One chunk: convert -> mix -> limit -> convert.
#include <algorithm>

#include "downmixer/state.h"

namespace korla::downmixer {
namespace {

void limit(korvex_downmixer_state& state, size_t stride, limiter::NanRule nan_rule) {
    float* const* channels = state.limiter_channels;
    limiter::process(*state.limiter, channels, channels, channels, stride, stride, state.matrix.outputs, nan_rule);
}

// Through the work buffers. Behind a short chunk `out` still holds what the limiter gave in earlier calls; it passes
// through the limiter again, because the limiter always advances by a whole block. Where in memory a channel stands must
// not decide how NaN counts.
void process_staged(korvex_downmixer_state& state, const korvex_downmixer_buffer& in,
                    const korvex_downmixer_buffer& out, uint32_t frames) {
    to_planar(state.in, in, state.matrix.inputs, frames);
    mix(state.out, state.matrix, state.in, frames);
    for (uint32_t c = 0; c < state.matrix.outputs; c++)
        state.limiter_channels[c] = state.out.row(c);
    limit(state, 1, limiter::NanRule::ignore);
    from_planar(out, state.out, state.matrix.outputs, frames);
}

// Float input is mixed into the caller's buffer and limited there.
void process_in_place(korvex_downmixer_state& state, const korvex_downmixer_buffer& in,
                      const korvex_downmixer_buffer& out, uint32_t frames) {
    mix_strided(out, state.matrix, in, frames);
    for (uint32_t c = 0; c < state.matrix.outputs; c++)
        state.limiter_channels[c] = static_cast<float*>(out.channels[c]);
    limit(state, out.stride, limiter::NanRule::by_alignment);
}

} // namespace
} // namespace korla::downmixer

int32_t korvex_downmixer_process(korvex_downmixer_state* state, korvex_downmixer_buffer* in,
                                 korvex_downmixer_buffer* out, uint32_t frames) {
    in->channel_count = state->matrix.inputs;
    frames = std::min(frames, state->block);
    if (in->format == KORVEX_FORMAT_FLOAT)
        korla::downmixer::process_in_place(*state, *in, *out, frames);
    else
        korla::downmixer::process_staged(*state, *in, *out, frames);
    return 0;
}
