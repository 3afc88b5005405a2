// The way of the samples: gather tiles, mix, limit, write.
#include <algorithm>
#include <cstring>

#include "dsp/core/lanes.h"
#include "stream/state.h"

using namespace krl;

namespace korla::stream {
namespace {

// Magnitudes above it count as silence.
constexpr float greatest_sample = 0x1p64f;

// ---- the caller's buffers ------------------------------------------------------------------------------------------

// The caller's planes as the engine's formats take them: of packed frames they ask for the first pointer only.
korvex_downmixer_buffer buffer_of(void* const* planes, uint32_t channels, uint32_t planar) {
    return {channels, planar ? 1 : channels, 0, const_cast<void**>(planes)};
}

bool planes_are_null(const void* const* planes, uint32_t channels, uint32_t planar) {
    for (uint32_t c = 0; c < (planar ? channels : 1); c++)
        if (!planes[c])
            return true;
    return false;
}

// ---- copying -------------------------------------------------------------------------------------------------------

// Where the samples of one side stand.
struct Places {
    bool planar;
    size_t channels, sample_bytes;
    size_t plane(size_t channel) const { return planar ? channel : 0; }
    size_t byte(size_t frame, size_t channel) const {
        return (planar ? frame : frame * channels + channel) * sample_bytes;
    }
};

void copy(const korla_stream& s, const void* const* in, void* const* out, size_t frames) {
    const korla_stream_config& config = s.config;
    const size_t channels = config.in.count, sample_bytes = korla_format_bytes(config.in_format);
    const Places from = {config.in_planar != 0, channels, sample_bytes};
    const Places to = {config.out_planar != 0, channels, sample_bytes};
    bool in_order = !from.planar && !to.planar;
    for (uint32_t o = 0; o < channels; o++)
        in_order &= s.source[o] == o;
    if (in_order) {
        std::memmove(out[0], in[0], frames * channels * sample_bytes);
        return;
    }
    // A frame is read whole before it is written, because the buffers may be the same.
    for (size_t t = 0; t < frames; t++) {
        char samples[KORLA_MAX_SPEAKERS][sizeof(double)];
        for (size_t c = 0; c < channels; c++)
            std::memcpy(samples[c], static_cast<const char*>(in[from.plane(c)]) + from.byte(t, c), sample_bytes);
        for (size_t c = 0; c < channels; c++)
            std::memcpy(static_cast<char*>(out[to.plane(c)]) + to.byte(t, c), samples[s.source[c]], sample_bytes);
    }
}

// ---- the stages ----------------------------------------------------------------------------------------------------

using ints = lane_traits<f32v>::mask;

// The greatest magnitudes of n samples, a multiple of a tile, lane by lane, as the bits of floats; those of NaN are the
// greatest.
KRL_INLINE ints greatest_bits(const float* x, uint32_t n) {
    constexpr uint32_t width = lanes<f32v>;
    const ints magnitude = splat<ints>(INT32_MAX);
    const auto at = [=](uint32_t i) { return bit_cast<ints>(load<f32v>(x + i)) & magnitude; };
    ints a{}, b{};
    for (uint32_t i = 0; i < n; i += 4 * width) {
        a = max_int(a, max_int(at(i), at(i + width)));
        b = max_int(b, max_int(at(i + 2 * width), at(i + 3 * width)));
    }
    return max_int(a, b);
}

uint64_t silence_broken_samples(float* x, uint32_t n) {
    uint64_t count = 0;
    for (uint32_t i = 0; i < n; i++)
        if (!(__builtin_fabsf(x[i]) <= greatest_sample)) {
            x[i] = 0.0f;
            count++;
        }
    return count;
}

// Makes silence of what is no sample, and measures. No peak that a meter shows exceeds greatest_sample, so that one
// comparison finds both a broken sample and a new peak.
void measure_input(korla_stream& s, uint32_t frames) {
    for (uint32_t c = 0; c < s.config.in.count; c++) {
        float* row = s.in.row(c);
        Peak& meter = s.meters.input_peak[c];
        ints greatest = greatest_bits(row, frames);
        if (!any(greatest > splat<ints>(bit_cast<int32_t>(meter.seen()))))
            continue;
        if (max_of_lanes(greatest) > bit_cast<int32_t>(greatest_sample)) {
            s.meters.silenced.add(silence_broken_samples(row, frames));
            greatest = greatest_bits(row, frames);
        }
        meter.see(bit_cast<float>(max_of_lanes(greatest)));
    }
}

void measure_output(korla_stream& s, uint32_t frames) {
    for (uint32_t c = 0; c < s.config.out.count; c++) {
        const ints greatest = greatest_bits(s.out.row(c) + tile_frames, frames);
        Peak& meter = s.meters.output_peak[c];
        if (any(greatest > splat<ints>(bit_cast<int32_t>(meter.seen()))))
            meter.see(bit_cast<float>(max_of_lanes(greatest)));
    }
}

// Mixes and limits the tiles at the start of `in`; results stand from frame tile_frames of `out` on.
void run_tiles(korla_stream& s, uint32_t tiles) {
    limiter::Fade fades[group_tiles];
    float least_gain = 1.0f;
    measure_input(s, tiles * tile_frames);
    for (uint32_t k = 0; k < tiles; k++) {
        if (s.controls.changes() != s.changes_seen)
            take_controls(s);
        const uint32_t first = k * tile_frames;
        const float peak = s.mixer.mix(s.out.from(tile_frames + first), s.in.from(first));
        limiter::next_fade(*s.limiter, peak, fades[k]);
        least_gain = std::min(least_gain, s.limiter->gain);
    }
    limiter::delay_and_fade(*s.limiter, s.out.row(0) + tile_frames, row_frames, fades, tiles);
    s.meters.least_gain.see(least_gain);
    measure_output(s, tiles * tile_frames);
}

// Moves `count` frames of every row from one place to another.
void move_frames(PlanarBuffer rows, uint32_t channels, uint32_t to, uint32_t from, uint32_t count) {
    if (count == 0 || to == from)
        return;
    for (uint32_t c = 0; c < channels; c++)
        std::memmove(rows.row(c) + to, rows.row(c) + from, count * sizeof(float));
}

// Silence in place of input, for draining.
void read_silence(PlanarBuffer rows, uint32_t channels, uint32_t first, uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        std::memset(rows.row(c) + first, 0, frames * sizeof(float));
}

// Takes n frames, at most a group, from `in` at frame `from`, or silence where `in` is null, and writes what is ready to
// `out` at frame `to`, at most `most` frames. Returns the frames written.
uint32_t advance(korla_stream& s, const korvex_downmixer_buffer* in, size_t from, uint32_t n,
                 const korvex_downmixer_buffer& out, size_t to, size_t most) {
    const uint32_t inputs = s.config.in.count, outputs = s.config.out.count;
    if (s.fresh)
        take_controls(s);
    s.fresh = false;
    if (!in)
        read_silence(s.in, inputs, s.gathered, n);
    else
        s.read(s.in.from(s.gathered), *in, inputs, from, n);
    s.gathered += n;

    const uint32_t tiles = s.gathered / tile_frames, whole = tiles * tile_frames;
    if (tiles > 0)
        run_tiles(s, tiles);
    s.gathered -= whole;
    move_frames(s.in, inputs, 0, whole, s.gathered);

    const uint32_t skipped = std::min(s.to_skip, whole); // in push mode, where nothing waits
    s.to_skip -= skipped;
    const uint32_t start = tile_frames - s.waiting + skipped, end = tile_frames + whole;
    const uint32_t ready = s.config.mode == KORLA_PUSH ? end - start : n;
    const auto written = static_cast<uint32_t>(std::min<size_t>(ready, most));
    s.write(out, s.out.from(start), outputs, to, written);
    s.waiting = end - start - written;
    move_frames(s.out, outputs, tile_frames - s.waiting, end - s.waiting, s.waiting);
    return written;
}

} // namespace
} // namespace korla::stream

using namespace korla::stream;

size_t korla_stream_ready(const korla_stream* stream, size_t in_frames) {
    if (!stream)
        return 0;
    if (stream->copies || stream->config.mode != KORLA_PUSH)
        return in_frames;
    const size_t whole = (stream->gathered + in_frames) / tile_frames * tile_frames;
    return whole - std::min<size_t>(whole, stream->to_skip);
}

size_t korla_stream_pending(const korla_stream* stream) {
    if (!stream || stream->copies || stream->fresh)
        return 0;
    if (stream->config.mode != KORLA_PUSH)
        return korla_stream_latency(stream);
    return stream->gathered + tile_frames - stream->to_skip;
}

korla_status korla_stream_process(korla_stream* stream, const void* const* in, size_t in_frames, void* const* out,
                                  size_t capacity, size_t* produced) {
    constexpr size_t most_frames = SIZE_MAX / (KORLA_MAX_SPEAKERS * sizeof(double)) - tile_frames;
    if (!stream || in_frames > most_frames)
        return KORLA_BAD_ARGUMENT;
    korla_stream& s = *stream;
    const korla_stream_config& config = s.config;
    if (config.mode == KORLA_SAME_LENGTH_32 && in_frames % tile_frames != 0)
        return KORLA_BAD_ARGUMENT;
    const size_t ready = korla_stream_ready(stream, in_frames);
    if (in_frames > 0 && (!in || planes_are_null(in, config.in.count, config.in_planar)))
        return KORLA_BAD_ARGUMENT;
    if (ready > 0 && (!out || planes_are_null(out, config.out.count, config.out_planar)))
        return KORLA_BAD_ARGUMENT;
    if (ready > capacity)
        return KORLA_NO_ROOM;

    if (s.copies) {
        if (in_frames > 0)
            copy(s, in, out, in_frames);
    } else {
        const auto source = buffer_of(const_cast<void* const*>(in), config.in.count, config.in_planar);
        const auto sink = buffer_of(out, config.out.count, config.out_planar);
        size_t written = 0;
        for (size_t taken = 0; taken < in_frames;) {
            const auto n = static_cast<uint32_t>(std::min<size_t>(in_frames - taken, group_frames));
            written += advance(s, &source, taken, n, sink, written, SIZE_MAX);
            taken += n;
        }
    }
    s.meters.frames_in.add(in_frames);
    s.meters.frames_out.add(ready);
    if (produced)
        *produced = ready;
    return KORLA_OK;
}

korla_status korla_stream_drain(korla_stream* stream, void* const* out, size_t capacity, size_t* produced) {
    if (!stream)
        return KORLA_BAD_ARGUMENT;
    korla_stream& s = *stream;
    const korla_stream_config& config = s.config;
    const size_t pending = korla_stream_pending(stream);
    if (pending > 0 && (!out || planes_are_null(out, config.out.count, config.out_planar)))
        return KORLA_BAD_ARGUMENT;
    if (pending > capacity)
        return KORLA_NO_ROOM;
    if (pending > 0) {
        const auto sink = buffer_of(out, config.out.count, config.out_planar);
        const uint32_t silence = config.mode == KORLA_PUSH ? 2 * tile_frames : static_cast<uint32_t>(pending);
        advance(s, nullptr, 0, silence, sink, 0, pending);
    }
    s.meters.frames_out.add(pending);
    forget(s);
    if (produced)
        *produced = pending;
    return KORLA_OK;
}
