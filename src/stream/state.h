// The record behind korla_stream, and what happens to samples inside it.
#pragma once

#include "downmixer/sample_formats.h"
#include "limiter/limiter.h"
#include "stream/mixer.h"
#include "stream/shared.h"

namespace korla::stream {

using downmixer::PlanarBuffer;
using downmixer::tile_frames;

// Frames that go through the stages together.
inline constexpr uint32_t group_frames = 256, group_tiles = group_frames / tile_frames;
// A row of the work buffers. Input: up to 31 frames of an unfinished tile, then a group. Output: up to 31 frames that
// could not be written yet, up to frame tile_frames; then a group.
inline constexpr uint32_t row_frames = tile_frames + group_frames;
static_assert(tile_frames == 32, "latencies and buffer sizes are documented with it");

} // namespace korla::stream

struct korla_stream {
    // Settled by open.
    void* owned;                // what close frees; null: the memory is the caller's
    korla_stream_config config; // but for the matrix
    bool copies;
    uint8_t source[KORLA_MAX_SPEAKERS]; // of each output channel, where the stream copies: the input channel
    korla::stream::Downmix downmix;
    korla::downmixer::ReadFrames read;
    korla::downmixer::WriteFrames write;
    korla::downmixer::PlanarBuffer in, out;
    void* limiter_memory;

    // What changes on the way.
    korvex_ht_kvlim* limiter;
    korla::stream::Mixer mixer;
    uint32_t changes_seen; // of the controls
    bool fresh;            // no frame has gone in yet
    uint32_t gathered;     // frames at the start of `in` that do not fill a tile yet
    uint32_t waiting;      // frames before frame tile_frames of `out` that have not been written
    uint32_t to_skip;      // frames of the look-ahead's start that are yet to be left out

    // Shared with other threads.
    korla::stream::SharedControls controls;
    korla::stream::SharedMeters meters;
};

namespace korla::stream {

// Forgets the past of a stream, but nothing of its settings.
void forget(korla_stream& stream);

// Takes over what the controls say now: by a ramp, or at once before the first frame.
void take_controls(korla_stream& stream);

} // namespace korla::stream
