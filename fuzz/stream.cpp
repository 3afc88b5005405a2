// Any config and any sequence of calls on a stream: layouts, formats, modes, sizes and controls out of the fuzzer's bytes,
// in buffers of exactly the size that was promised. What comes out is as long as announced and never above the ceiling.
#include <korla/stream.h>

#include <cmath>

#include "hostile_host.h"

using namespace korla_fuzz;

namespace {

constexpr uint32_t greatest_side = KORLA_MAX_SPEAKERS + 1;

korla_layout layout(Bytes& bytes) {
    korla_layout layout = {};
    const uint8_t choice = bytes.u8();
    if (korla_layout_at(choice, &layout))
        return layout;
    layout.count = choice % 15u; // more than there are, too
    for (uint32_t& speaker : layout.speakers)
        speaker = bytes.u8() % 50u;
    return layout;
}

// One side of a call: frames in planes, each in memory of its own.
struct Side {
    std::unique_ptr<Buffer> planes[greatest_side];
    void* pointers[greatest_side] = {};
    Side(const korla_layout& layout, uint32_t format, uint32_t planar, size_t frames, uint8_t misalignment) {
        const size_t channels = planar ? 1 : layout.count;
        for (uint32_t c = 0; c < (planar ? layout.count : 1); c++) {
            planes[c] = std::make_unique<Buffer>(frames * channels * korla_format_bytes(format), misalignment);
            pointers[c] = planes[c]->data();
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes bytes(data, size);
    korla_stream_config config = {};
    config.size = sizeof config;
    config.in = layout(bytes), config.out = layout(bytes);
    const uint8_t choice = bytes.u8();
    config.in_format = bytes.u8() % 8u, config.out_format = bytes.u8() % 8u;
    config.in_planar = choice & 1, config.out_planar = choice >> 1 & 1;
    config.mode = choice >> 2 & 3;
    config.flags = choice >> 4 & 1;
    config.rate = choice >> 5 & 1 ? bytes.u32() : 48000;
    float gains[KORLA_MAX_SPEAKERS * KORLA_MAX_SPEAKERS];
    if (choice >> 6 & 1) {
        for (float& gain : gains)
            gain = (bytes.u8() - 128.0f) / 64.0f;
        config.matrix = gains;
    }

    const size_t needed = korla_stream_memory(&config);
    Buffer memory(needed, choice >> 7);
    korla_stream* stream = nullptr;
    char reason[40];
    const bool opened = korla_stream_open(&config, memory.data(), needed, &stream, reason, sizeof reason) == KORLA_OK;
    require(opened == (needed > 0));
    if (!opened)
        return 0;

    bool limits = true;
    for (int call = 0; call < 12 && !bytes.empty(); call++) {
        const uint8_t what = bytes.u8();
        if (what & 1) {
            const uint32_t control = bytes.u8() % 8u;
            const float value = static_cast<float>(static_cast<int8_t>(bytes.u8()));
            korla_stream_set(stream, control, control == KORLA_LIMITER ? value > 0 : value);
            limits &= control != KORLA_LIMITER;
        }
        if (what & 2)
            require(korla_stream_reset(stream) == KORLA_OK);
        const size_t frames = what & 4 ? bytes.u8() : bytes.u16() % 2000u;
        const bool drains = what & 8;
        const size_t ready = drains ? korla_stream_pending(stream) : korla_stream_ready(stream, frames);
        const size_t capacity = what & 16 ? ready : ready / 2;
        Side in(config.in, config.in_format, config.in_planar, frames, what >> 5 & 3);
        Side out(config.out, config.out_format, config.out_planar, capacity, what >> 6 & 3);
        size_t produced = 12345;
        const korla_status status =
            drains ? korla_stream_drain(stream, out.pointers, capacity, &produced)
                   : korla_stream_process(stream, in.pointers, frames, out.pointers, capacity, &produced);
        if (status != KORLA_OK) {
            require(produced == 12345);
            continue;
        }
        require(produced == ready && produced <= capacity);
        korla_meters meters = {};
        meters.size = sizeof meters;
        require(korla_stream_meters(stream, &meters) == KORLA_OK);
        for (uint32_t c = 0; c < config.out.count && limits && korla_stream_latency(stream) > 0; c++)
            require(meters.output_peak[c] <= 1.0f + 0x1p-21f); // whatever the ceiling is on its way to
    }
    korla_stream_close(stream);
    return 0;
}
