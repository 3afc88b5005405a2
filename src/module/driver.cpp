// Processing: how many frames, is there room, then copy or feed the engine chunk by chunk.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "downmixer/engine.h"
#include "downmixer/speakers.h"
#include "module/instance.h"

namespace korla::module {
namespace {

struct SampleFormat {
    uint32_t engine_format;
    uint64_t bytes; // per sample; 0: the engine takes no such format from a host
};
SampleFormat sample_format_of(uint32_t host_format) {
    switch (host_format) {
    case ACLI_SAMPLE_INT16: return {KORVEX_FORMAT_INT16, 2};
    case ACLI_SAMPLE_INT32: return {KORVEX_FORMAT_INT32, 4};
    case ACLI_SAMPLE_FLOAT32: return {KORVEX_FORMAT_FLOAT_STAGED, 4};
    default: return {};
    }
}

// A signed 32-bit division, as the interface defines it: a call of 2 GiB or more has a negative count and is refused.
int32_t frames_of(const acli_buffer& in) {
    const auto frame_bytes = static_cast<int32_t>(in.bits_per_sample / 8 * in.channels);
    if (frame_bytes == 0)
        return 0;
    return static_cast<int32_t>(int64_t{static_cast<int32_t>(in.bytes)} / frame_bytes);
}

// Copies whole input frames to output frame positions, as far as both reach.
bool copy_frames(const acli_media_format& format, uint64_t sample_bytes, uint64_t frames, const acli_buffer& in,
                 const acli_buffer& out) {
    if (!in.data || !out.data)
        return false;
    const uint64_t in_frame = sample_bytes * format.input_channel_count;
    const uint64_t out_frame = sample_bytes * format.output_channel_count;
    const auto* src = static_cast<const char*>(in.data);
    auto* dst = static_cast<char*>(out.data);
    if (in_frame == out_frame) {
        std::memmove(dst, src, std::min<uint64_t>(frames * in_frame, in.bytes));
        return true;
    }
    const uint64_t copied = std::min(in_frame, out_frame);
    for (uint64_t t = 0; t < frames && t * in_frame < in.bytes; t++)
        std::memmove(dst + t * out_frame, src + t * in_frame, std::min(copied, in.bytes - t * in_frame));
    return true;
}

// Sizes, allocates and initialises the engine for the applied configuration.
bool bring_up_engine(Instance& instance) {
    std::free(instance.engine_memory);
    instance.engine_memory = nullptr;
    instance.engine = nullptr;

    // A block that was refused since has left its codes here, which the kept matrix may have no columns for.
    const acli_media_format& format = instance.format;
    if (instance.custom_matrix && downmixer::speakers_of(instance.engine_codes).count != instance.matrix_columns)
        return false;
    uint64_t size;
    korvex_downmixer_mem(ACLI_MAX_CHUNK, instance.engine_codes, format.output_channel_count, &size);
    if (size == 0)
        return false;
    instance.engine_memory = std::calloc(1, size);
    if (!instance.engine_memory)
        return false;
    instance.engine =
        korvex_downmixer_init(ACLI_MAX_CHUNK, format.sample_rate, instance.engine_codes, format.output_channel_count,
                              instance.custom_matrix, instance.engine_memory);
    if (!instance.engine) {
        std::free(instance.engine_memory);
        instance.engine_memory = nullptr;
        return false;
    }
    instance.engine_ready = 1;
    return true;
}

// One side of a call, as the engine is shown it chunk by chunk.
struct Side {
    korvex_downmixer_buffer buffer;
    char* next; // where the next chunk begins
    uint64_t sample_bytes;

    Side(uint32_t channels, bool interleaved, SampleFormat format, void** pointers, void* data)
        : buffer{channels, interleaved ? channels : 1, format.engine_format, pointers}, next(static_cast<char*>(data)),
          sample_bytes(format.bytes) {}

    // Points at the channels of the next frames. They stand beside each other, or one run behind the other.
    void take(uint64_t frames) {
        const uint64_t step = buffer.channel_count > buffer.stride ? frames * sample_bytes : sample_bytes;
        for (uint32_t i = 0; i < buffer.channel_count; i++)
            buffer.channels[i] = next + i * step;
        next += frames * sample_bytes * buffer.channel_count;
    }
};

bool mix_frames(Instance& instance, uint64_t frames, const acli_buffer& in, const acli_buffer& out) {
    const acli_media_format& format = instance.format;
    if (!instance.engine_ready && !bring_up_engine(instance))
        return false;
    const SampleFormat sample = sample_format_of(format.sample_format);
    if (!in.data || !out.data || !sample.bytes)
        return false;

    // What the host says of the buffer must agree with what the stream was configured for.
    if (format.input_channel_count > ACLI_MAX_CHANNELS ||
        format.input_channel_count < downmixer::input_count(*instance.engine) ||
        frames * sample.bytes * format.input_channel_count > in.bytes ||
        frames * sample.bytes * format.output_channel_count > out.bytes)
        return false;

    Side source(format.input_channel_count, format.interleaved, sample, instance.input_channels, in.data);
    Side target(format.output_channel_count, format.interleaved, sample, instance.output_channels, out.data);
    while (frames > 0) {
        const uint64_t n = std::min<uint64_t>(frames, ACLI_MAX_CHUNK);
        source.take(n);
        target.take(n);
        // Sets the channel count of the source to the engine's own, by which later chunks are taken.
        if (korvex_downmixer_process(instance.engine, &source.buffer, &target.buffer, static_cast<uint32_t>(n)) != 0)
            return false;
        frames -= n;
    }
    return true;
}

} // namespace

bool process(Instance& instance, const acli_buffer& in, acli_buffer& out) {
    const int32_t frames = frames_of(in);
    if (frames < 0)
        return false;
    const auto count = static_cast<uint64_t>(frames);
    const uint64_t sample_bytes = in.bits_per_sample / 8;
    const uint64_t produced = sample_bytes * count * instance.format.output_channel_count;
    if (produced > out.bytes)
        return false;
    const bool done = instance.pass_through ? copy_frames(instance.format, sample_bytes, count, in, out)
                                            : mix_frames(instance, count, in, out);
    if (done)
        out.bytes = static_cast<uint32_t>(produced);
    return done;
}

} // namespace korla::module
