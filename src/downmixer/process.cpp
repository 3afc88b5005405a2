// One chunk: convert -> mix -> limit -> convert.
#include <algorithm>

#include "downmixer/layouts.h"
#include "downmixer/mix_row.h"
#include "downmixer/peaks.h"
#include "downmixer/state.h"

namespace korla::downmixer {
namespace {

// ---- through the work buffers --------------------------------------------------------------------------------------

// Tiles are read, mixed, limited and written back in groups, which stay in the nearest cache on their way.
constexpr uint32_t group_frames = 256, group_tiles = group_frames / tile_frames;

struct Chunk {
    korvex_downmixer_state& state;
    const korvex_downmixer_buffer &in, &out;
    uint32_t frames;

    // Of `count` frames from `first` on, those that the chunk fills.
    uint32_t frames_from(uint32_t first, uint32_t count) const {
        return std::min(count, frames - std::min(frames, first));
    }
};

// Mixes a whole tile. Returns the greatest magnitude that it stored; NaN does not count.
KRL_INLINE float mix_whole(PlanarBuffer out, const Matrix& matrix, PlanarBuffer in) {
    krl::f32v peaks[peak_chains] = {};
    const float* gains = matrix.gains;
    for (uint32_t o = 0; o < matrix.outputs; o++, gains += matrix.inputs)
        mix_row<krl::f32v, tile_frames / krl::lanes<krl::f32v>>(
            out.row(o), gains, matrix.used_inputs[o], [&](size_t i) { return in.row(i); }, peaks);
    return greatest(peaks);
}

// Mixes n frames of a tile, frame by frame.
void mix_part(PlanarBuffer out, const Matrix& matrix, PlanarBuffer in, uint32_t n) {
    float peak[1] = {}; // not that of the tile
    for (uint32_t o = 0; o < matrix.outputs; o++)
        for (uint32_t t = 0; t < n; t++)
            mix_row<float, 1>(
                out.row(o) + t, matrix.gains + o * matrix.inputs, matrix.used_inputs[o],
                [&](size_t i) { return in.row(i) + t; }, peak);
}

// The peak of a tile that the chunk does not fill: behind the chunk's end, it still holds what the limiter gave in
// earlier calls, and that goes through the limiter again, because the limiter always advances by a whole block.
float peak_of_tile(PlanarBuffer out, uint32_t channels) {
    float peak = 0.0f;
    for (uint32_t c = 0; c < channels; c++)
        peak = limiter::peak_of(out.row(c), tile_frames, peak);
    return peak;
}

// How the chunk is read: into the input's rows, which are then mixed, or, where the matrix only routes, mixed at once.
struct Reader {
    ReadFrames read;
    ReadRouted read_routed; // or null
    explicit Reader(const Chunk& chunk) {
        const korvex_downmixer_state& state = chunk.state;
        read = reader_of(chunk.in, state.matrix.inputs);
        read_routed = state.is_routing ? routed_reader_of(chunk.in, state.matrix.inputs) : nullptr;
    }
};

// The gain computer follows one tile behind the mixing; then all channels are delayed and faded in one run.
void mix_and_limit(const Chunk& chunk, const Reader& reader, uint32_t first, uint32_t tiles) {
    korvex_downmixer_state& state = chunk.state;
    limiter::Fade fades[group_tiles];
    const Matrix matrix = state.matrix; // stores to the rows cannot change the copy
    const auto [read, read_routed] = reader;
    const uint32_t filled = chunk.frames_from(first, tiles * tile_frames);
    if (filled > 0 && !read_routed)
        read(state.in.from(first), chunk.in, matrix.inputs, first, filled);
    const uint32_t whole_tiles = filled / tile_frames;
    for (uint32_t k = 0; k < tiles; k++) {
        const uint32_t at = first + k * tile_frames;
        const PlanarBuffer in = state.in.from(at), out = state.out.from(at);
        float peak;
        if (k < whole_tiles) {
            peak = read_routed ? read_routed(out, chunk.in, state.routes, matrix.inputs, at, tile_frames)
                               : mix_whole(out, matrix, in);
        } else {
            const uint32_t n = k == whole_tiles ? filled % tile_frames : 0;
            if (read_routed && n > 0)
                read_routed(out, chunk.in, state.routes, matrix.inputs, at, n);
            else
                mix_part(out, matrix, in, n);
            peak = peak_of_tile(out, matrix.outputs);
        }
        limiter::next_fade(*state.limiter, peak, fades[k]);
    }
    limiter::delay_and_fade(*state.limiter, state.out.from(first).samples, state.out.row_length, fades, tiles);
}

void write_back(const Chunk& chunk, WriteFrames write, uint32_t first, uint32_t tiles) {
    if (const uint32_t n = chunk.frames_from(first, tiles * tile_frames); n > 0)
        write(chunk.out, chunk.state.out.from(first), chunk.state.matrix.outputs, first, n);
}

// f(first frame, tiles) for every group.
template <class F> void for_each_group(uint32_t block, F f) {
    for (uint32_t first = 0; first < block; first += group_frames)
        f(first, std::min(group_frames, block - first) / tile_frames);
}

// A frame that is written back may lie over frames that are still to be read, if the buffers share memory and there is
// more than one group. Then everything is read before the first one is written.
void process_staged(const Chunk& chunk) {
    const Matrix& matrix = chunk.state.matrix;
    const uint32_t block = chunk.state.block;
    const Reader reader(chunk);
    const WriteFrames write = writer_of(chunk.out, matrix.outputs);
    const bool read_all_first =
        block > group_frames && share_memory(chunk.in, matrix.inputs, chunk.out, matrix.outputs, chunk.frames);
    for_each_group(block, [&](uint32_t first, uint32_t tiles) {
        mix_and_limit(chunk, reader, first, tiles);
        if (!read_all_first)
            write_back(chunk, write, first, tiles);
    });
    if (read_all_first)
        for_each_group(block, [&](uint32_t first, uint32_t tiles) { write_back(chunk, write, first, tiles); });
}

// ---- in the caller's buffer ----------------------------------------------------------------------------------------

// Float input is mixed into the caller's buffer and limited there; by way of the input work buffer if it shares memory
// with the output.
void process_direct(const Chunk& chunk) {
    korvex_downmixer_state& state = chunk.state;
    const uint32_t inputs = state.matrix.inputs;
    korvex_downmixer_buffer in = chunk.in, out = chunk.out;
    out.format = KORVEX_FORMAT_FLOAT;
    out.channel_count = std::max(out.channel_count, state.matrix.outputs);
    void* rows[max_inputs];
    if (share_memory(in, inputs, out, out.channel_count, chunk.frames)) {
        const ReadFrames read = reader_of(in, inputs);
        read(state.in, in, inputs, 0, chunk.frames);
        for (uint32_t c = 0; c < inputs; c++)
            rows[c] = state.in.row(c);
        in = {inputs, 1, KORVEX_FORMAT_FLOAT, rows};
    }
    mix_strided(out, state.matrix, in, chunk.frames);
    auto* const* channels = reinterpret_cast<float* const*>(out.channels);
    korvex_ht_kvlim_process(state.limiter, channels, channels, out.stride, out.stride);
}

} // namespace
} // namespace korla::downmixer

int32_t korvex_downmixer_process(korvex_downmixer_state* state, korvex_downmixer_buffer* in,
                                 korvex_downmixer_buffer* out, uint32_t frames) {
    in->channel_count = state->matrix.inputs;
    const korla::downmixer::Chunk chunk = {*state, *in, *out, std::min(frames, state->block)};
    if (in->format == KORVEX_FORMAT_FLOAT)
        process_direct(chunk);
    else
        process_staged(chunk);
    return 0;
}
