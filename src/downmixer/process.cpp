// One chunk: convert -> mix -> limit -> convert.
#include <algorithm>

#include "downmixer/state.h"
#include "dsp/core/abs_max.h"

namespace korla::downmixer {
namespace {

// The greatest magnitude of a tile, over all output channels.
float peak_of_tile(PlanarBuffer rows, uint32_t channels) {
    float peak = 0.0f;
    for (uint32_t c = 0; c < channels; c++) {
        const float channel_peak = krl::abs_max<krl::flex>(rows.row(c), tile_frames);
        if (channel_peak > peak)
            peak = channel_peak;
    }
    return peak;
}

// Through the work buffers, in two phases over groups of tiles. First every tile is converted, mixed and measured,
// while the gain computer follows one tile behind the mixing; then every channel is delayed and faded in one run, and
// the tiles are converted back.
//
// Behind a short chunk `out` still holds what the limiter gave in earlier calls. It passes through the limiter again,
// because the limiter always advances by a whole block.
void process_staged(korvex_downmixer_state& state, const korvex_downmixer_buffer& in,
                    const korvex_downmixer_buffer& out, uint32_t frames) {
    constexpr uint32_t group_frames = 256, group_tiles = group_frames / tile_frames;
    const uint32_t inputs = state.matrix.inputs, outputs = state.matrix.outputs;
    const ReadTile read = reader_of(in, inputs);
    const WriteTile write = writer_of(out, outputs);
    korvex_ht_kvlim& limiter = *state.limiter;

    for (uint32_t first = 0; first < state.block; first += group_frames) {
        const uint32_t tiles = std::min(group_frames, state.block - first) / tile_frames;
        auto valid_frames = [&](uint32_t tile_first) {
            return std::min(tile_frames, frames - std::min(frames, tile_first));
        };

        limiter::Fade fades[group_tiles];
        for (uint32_t k = 0; k < tiles; k++) {
            const uint32_t tile_first = first + k * tile_frames, n = valid_frames(tile_first);
            const PlanarBuffer mixed = state.out.from(tile_first), converted = state.in.from(tile_first);
            float peak = 0.0f;
            if (n > 0) {
                read(converted, in, inputs, tile_first, n);
                peak = mix(mixed, state.matrix, converted, n);
            }
            if (n < tile_frames)
                peak = peak_of_tile(mixed, outputs);
            fades[k] = limiter::next_fade(limiter, peak);
        }

        limiter::delay_and_fade(limiter, state.out.row(0) + first, state.out.row_length, fades, tiles);

        for (uint32_t k = 0; k < tiles; k++) {
            const uint32_t tile_first = first + k * tile_frames, n = valid_frames(tile_first);
            if (n > 0)
                write(out, state.out.from(tile_first), outputs, tile_first, n);
        }
    }
}

// Float input is mixed into the caller's buffer and limited there.
void process_in_place(korvex_downmixer_state& state, const korvex_downmixer_buffer& in,
                      const korvex_downmixer_buffer& out, uint32_t frames) {
    mix_strided(out, state.matrix, in, frames);
    auto* const* channels = reinterpret_cast<float* const*>(out.channels);
    korvex_ht_kvlim_process(state.limiter, channels, channels, out.stride, out.stride);
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
