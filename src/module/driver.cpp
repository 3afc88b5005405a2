// Processing: how many frames, is there room, then copy or feed the engine chunk by chunk.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "downmixer/state.h"
#include "module/instance.h"

namespace korla::module {
namespace {

uint32_t bytes_per_sample(uint32_t engine_format) {
    switch (engine_format) {
    case KORVEX_FORMAT_INT16: return 2;
    case 1:
    case 2: return 1;
    case KORVEX_FORMAT_INT32_IN_64:
    case KORVEX_FORMAT_DOUBLE: return 8;
    default: return 4;
    }
}

// False: the engine takes no such format from a host.
bool engine_format_of_host(uint32_t host_format, uint32_t& engine_format) {
    switch (host_format) {
    case ACLI_SAMPLE_INT16: engine_format = KORVEX_FORMAT_INT16; return true;
    case ACLI_SAMPLE_INT32: engine_format = KORVEX_FORMAT_INT32; return true;
    case ACLI_SAMPLE_FLOAT32: engine_format = KORVEX_FORMAT_FLOAT_STAGED; return true;
    default: return false;
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
void copy_frames(const acli_media_format& format, uint64_t sample_bytes, const acli_buffer& in, acli_buffer& out,
                 uint64_t frames) {
    const uint64_t in_frame = sample_bytes * format.input_channel_count;
    const uint64_t out_frame = sample_bytes * format.output_channel_count;
    const auto* src = static_cast<const char*>(in.data);
    auto* dst = static_cast<char*>(out.data);
    if (in_frame == out_frame) {
        std::memmove(dst, src, std::min<uint64_t>(frames * in_frame, in.bytes));
        return;
    }
    const uint64_t copied = std::min(in_frame, out_frame);
    for (uint64_t t = 0; t < frames && t * in_frame < in.bytes; t++)
        std::memmove(dst + t * out_frame, src + t * in_frame, std::min(copied, in.bytes - t * in_frame));
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

// Points one channel pointer at each channel of a chunk of `size` bytes. False: a planar chunk that does not divide.
bool set_channel_pointers(char* base, korvex_downmixer_buffer& buffer, uint64_t size) {
    uint64_t step = bytes_per_sample(buffer.format);
    if (buffer.channel_count > buffer.stride) { // one channel after another
        step = size / buffer.channel_count;
        if (step * buffer.channel_count != size)
            return false;
    }
    for (uint32_t i = 0; i < buffer.channel_count; i++)
        buffer.channels[i] = base + i * step;
    return true;
}

korvex_downmixer_buffer describe(uint32_t channels, bool interleaved, uint32_t engine_format, void** pointers) {
    return {channels, interleaved ? channels : 1, engine_format, pointers};
}

} // namespace

bool process(Instance& instance, const acli_buffer& in, acli_buffer& out) {
    const acli_media_format& format = instance.format;
    const int32_t signed_frames = frames_of(in);
    if (signed_frames < 0)
        return false;
    uint64_t frames = static_cast<uint32_t>(signed_frames);
    const uint64_t sample_bytes = in.bits_per_sample / 8;
    const uint64_t produced = sample_bytes * frames * format.output_channel_count;
    if (produced > out.bytes)
        return false;

    if (instance.pass_through) {
        if (!in.data || !out.data)
            return false;
        copy_frames(format, sample_bytes, in, out, frames);
        out.bytes = static_cast<uint32_t>(produced);
        return true;
    }

    if (!instance.engine_ready && !bring_up_engine(instance))
        return false;
    uint32_t engine_format;
    if (!in.data || !out.data || !instance.engine || !engine_format_of_host(format.sample_format, engine_format))
        return false;

    // What the host says of the buffer must agree with what the stream was configured for.
    const uint64_t slot = bytes_per_sample(engine_format);
    if (format.input_channel_count > ACLI_MAX_CHANNELS || format.input_channel_count < instance.engine->matrix.inputs ||
        frames * slot * format.input_channel_count > in.bytes ||
        frames * slot * format.output_channel_count > out.bytes)
        return false;

    korvex_downmixer_buffer input =
        describe(format.input_channel_count, format.interleaved, engine_format, instance.input_channels);
    korvex_downmixer_buffer output =
        describe(format.output_channel_count, format.interleaved, engine_format, instance.output_channels);
    auto* src = static_cast<char*>(in.data);
    auto* dst = static_cast<char*>(out.data);
    while (frames > 0) {
        const uint64_t n = std::min<uint64_t>(frames, ACLI_MAX_CHUNK);
        const uint64_t in_bytes = n * slot * input.channel_count;
        const uint64_t out_bytes = n * slot * output.channel_count;
        if (!set_channel_pointers(src, input, in_bytes) || !set_channel_pointers(dst, output, out_bytes) ||
            korvex_downmixer_process(instance.engine, &input, &output, static_cast<uint32_t>(n)) != 0)
            return false;
        src += in_bytes;
        dst += out_bytes;
        frames -= n;
    }
    out.bytes = static_cast<uint32_t>(produced);
    return true;
}

} // namespace korla::module
