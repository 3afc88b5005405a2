// Opening and closing, controls and meters.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "downmixer/gains.h"
#include "dsp/core/align.h"
#include "stream/speakers.h"
#include "stream/state.h"

// The records that programs were compiled with.
static_assert(sizeof(korla_layout) == 52 && offsetof(korla_layout, speakers) == 4);
static_assert(sizeof(korla_stream_config) == 144 && offsetof(korla_stream_config, in) == 8 &&
              offsetof(korla_stream_config, matrix) == 136);
static_assert(sizeof(korla_meters) == 128 && offsetof(korla_meters, frames_in) == 104);

namespace korla::stream {
namespace {

constexpr size_t alignment = 64;
constexpr float limiter_boost = 0x1.41857ep-7f; // +8 dB on the limiter's scale of 1/256

// The sample rates with time constants; a stream at another rate uses those of the nearest.
constexpr uint32_t limiter_rates[] = {24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000};

uint32_t nearest_limiter_rate(uint32_t rate) {
    const auto distance = [rate](uint32_t r) { // as a ratio
        return r > rate ? static_cast<double>(r) / rate : static_cast<double>(rate) / r;
    };
    return *std::min_element(std::begin(limiter_rates), std::end(limiter_rates),
                             [&](uint32_t a, uint32_t b) { return distance(a) < distance(b); });
}

bool same_speakers(const korla_layout& a, const korla_layout& b) {
    if (a.count != b.count)
        return false;
    for (uint32_t i = 0; i < a.count; i++)
        if (!contains(b, find(a.speakers[i])->speaker))
            return false;
    return true;
}

bool is_copy(const korla_stream_config& config) {
    return same_speakers(config.in, config.out) && config.in_format == config.out_format && !config.matrix &&
           !(config.flags & KORLA_CONTROLLABLE);
}

korla_status check_config(const korla_stream_config& config, const Reason& reason) {
    if (config.size != sizeof config)
        return reason.give(KORLA_BAD_ARGUMENT, "config.size is %u; this library's records have %zu bytes", config.size,
                           sizeof config);
    if (config.rate == 0)
        return reason.give(KORLA_BAD_RATE, "the sample rate is 0");
    if (const korla_status status = check(config.in, "input", reason); status != KORLA_OK)
        return status;
    if (const korla_status status = check(config.out, "output", reason); status != KORLA_OK)
        return status;
    for (uint32_t format : {config.in_format, config.out_format})
        if (korla_format_bytes(format) == 0)
            return reason.give(KORLA_BAD_FORMAT, "no sample format has the code %u", format);
    if (config.mode > KORLA_SAME_LENGTH_32)
        return reason.give(KORLA_BAD_ARGUMENT, "no mode has the code %u", config.mode);
    if (config.flags & ~static_cast<uint32_t>(KORLA_CONTROLLABLE))
        return reason.give(KORLA_BAD_ARGUMENT, "unknown flags %#x", config.flags);
    return KORLA_OK;
}

// What stands where in a stream's memory, from its aligned start on.
struct Placement {
    size_t in, out, limiter, end;
    explicit Placement(const korla_stream_config& config) {
        const auto place = [this](size_t bytes) {
            const size_t at = (end + alignment - 1) / alignment * alignment;
            end = at + bytes;
            return at;
        };
        end = sizeof(korla_stream);
        if (is_copy(config)) {
            in = out = limiter = 0;
            return;
        }
        in = place(sizeof(float) * row_frames * config.in.count);
        out = place(sizeof(float) * row_frames * config.out.count);
        limiter = place(korvex_ht_kvlim_query_memory(config.out.count, nullptr, nullptr, tile_frames));
    }
    size_t bytes() const { return end + alignment - 1; }
};

downmixer::Arrangement arrangement(uint32_t planar, uint32_t channels) {
    return planar || channels == 1 ? downmixer::Arrangement::planar : downmixer::Arrangement::packed;
}

downmixer::SampleFormat engine_format(uint32_t format) {
    using downmixer::SampleFormat;
    switch (format) {
    case KORLA_S16: return SampleFormat::int16;
    case KORLA_S24: return SampleFormat::int24;
    case KORLA_S24_32: return SampleFormat::int24_in_32;
    case KORLA_S32: return SampleFormat::int32;
    case KORLA_F32: return SampleFormat::float32;
    default: return SampleFormat::float64;
    }
}

void find_sources(korla_stream& s) {
    const korla_layout &in = s.config.in, &out = s.config.out;
    for (uint32_t o = 0; o < out.count; o++)
        for (uint32_t i = 0; i < in.count; i++)
            if (in.speakers[i] == out.speakers[o])
                s.source[o] = static_cast<uint8_t>(i);
}

// 20 ms, in tiles.
uint32_t ramp_tiles(uint32_t rate) { return std::max(1u, rate / (50 * tile_frames)); }

} // namespace

void forget(korla_stream& s) {
    s.fresh = true;
    if (s.copies)
        return;
    s.gathered = 0;
    s.waiting = s.config.mode == KORLA_SAME_LENGTH ? tile_frames - 1 : 0;
    s.to_skip = s.config.mode == KORLA_PUSH ? tile_frames : 0;
    std::memset(s.out.samples, 0, sizeof(float) * row_frames * s.config.out.count);

    s.limiter = korvex_ht_kvlim_init(s.config.out.count, tile_frames, s.limiter_memory, nullptr);
    korvex_ht_kvlim_set_boost(s.limiter, limiter_boost, limiter_boost);
    korvex_ht_kvlim_set_sample_rate(s.limiter, nearest_limiter_rate(s.config.rate));
    korvex_ht_kvlim_set_num_channels(s.limiter, s.config.out.count);
    korvex_ht_kvlim_set_enable(s.limiter, 1);
    take_controls(s);
}

void take_controls(korla_stream& s) {
    s.changes_seen = s.controls.changes();
    const Controls controls = s.controls.all();
    Gains gains;
    apply_controls(gains, s.downmix, controls);
    s.mixer.set(gains, s.fresh ? 0 : ramp_tiles(s.config.rate));
    const float ceiling = controls.value[KORLA_CEILING_DB];
    const bool limits = controls.value[KORLA_LIMITER] != 0.0f;
    // Without a limit no level ever asks for a gain below 1; delay and make-up gain stay.
    korvex_ht_kvlim_set_peak(s.limiter, limits ? gain_minus_8_db * linear_of_db(ceiling) : INFINITY);
}

} // namespace korla::stream

using namespace korla::stream;

size_t korla_format_bytes(uint32_t format) {
    switch (format) {
    case KORLA_S16: return 2;
    case KORLA_S24: return 3;
    case KORLA_S24_32:
    case KORLA_S32:
    case KORLA_F32: return 4;
    case KORLA_F64: return 8;
    default: return 0;
    }
}

size_t korla_stream_memory(const korla_stream_config* config) {
    const Reason nowhere(nullptr, 0);
    Downmix downmix;
    if (!config || check_config(*config, nowhere) != KORLA_OK ||
        choose_downmix(config->in, config->out, config->matrix, downmix, nowhere) != KORLA_OK)
        return 0;
    return Placement(*config).bytes();
}

korla_status korla_stream_open(const korla_stream_config* config, void* memory, size_t bytes, korla_stream** stream,
                               char* reason_text, size_t reason_bytes) {
    const Reason reason(reason_text, reason_bytes);
    if (!config || !stream)
        return reason.give(KORLA_BAD_ARGUMENT, "a null pointer");
    if (const korla_status status = check_config(*config, reason); status != KORLA_OK)
        return status;
    Downmix downmix;
    if (const korla_status status = choose_downmix(config->in, config->out, config->matrix, downmix, reason);
        status != KORLA_OK)
        return status;

    const Placement at(*config);
    void* owned = nullptr;
    if (!memory) {
        memory = owned = std::malloc(at.bytes());
        if (!memory)
            return reason.give(KORLA_NO_MEMORY, "no memory for %zu bytes", at.bytes());
    } else if (bytes < at.bytes()) {
        return reason.give(KORLA_NO_MEMORY, "the memory has %zu bytes; %zu are needed", bytes, at.bytes());
    }

    char* base = krl::align_up<char>(memory, alignment);
    auto& s = *new (base) korla_stream{};
    s.owned = owned;
    s.config = *config;
    s.copies = is_copy(*config);
    s.config.matrix = nullptr;
    s.downmix = downmix;
    s.controls.start(default_controls(downmix));
    if (s.copies) {
        find_sources(s);
    } else {
        s.read = korla::downmixer::reader_of(engine_format(config->in_format),
                                             arrangement(config->in_planar, config->in.count));
        s.write = korla::downmixer::writer_of(engine_format(config->out_format),
                                              arrangement(config->out_planar, config->out.count));
        s.in = {reinterpret_cast<float*>(base + at.in), row_frames};
        s.out = {reinterpret_cast<float*>(base + at.out), row_frames};
        s.limiter_memory = base + at.limiter;
        s.mixer.start(downmix);
    }
    forget(s);
    *stream = &s;
    return KORLA_OK;
}

void korla_stream_close(korla_stream* stream) {
    if (stream)
        std::free(stream->owned);
}

korla_status korla_stream_reset(korla_stream* stream) {
    if (!stream)
        return KORLA_BAD_ARGUMENT;
    forget(*stream);
    SharedMeters& meters = stream->meters;
    for (Count* count : {&meters.frames_in, &meters.frames_out, &meters.silenced})
        count->restart();
    return KORLA_OK;
}

uint32_t korla_stream_latency(const korla_stream* stream) {
    if (!stream || stream->copies)
        return 0;
    return stream->config.mode == KORLA_SAME_LENGTH_32 ? tile_frames : 2 * tile_frames - 1;
}

korla_status korla_stream_set(korla_stream* stream, uint32_t control, float value) {
    if (!stream || control >= KORLA_CONTROL_COUNT || std::isnan(value))
        return KORLA_BAD_ARGUMENT;
    constexpr float loudest_db = 40.0f, lowest_ceiling_db = -60.0f;
    switch (control) {
    case KORLA_CEILING_DB:
        if (value > 0.0f || value < lowest_ceiling_db)
            return KORLA_BAD_ARGUMENT;
        break;
    case KORLA_LIMITER:
        if (value != 0.0f && value != 1.0f)
            return KORLA_BAD_ARGUMENT;
        break;
    default:
        if (value > loudest_db)
            return KORLA_BAD_ARGUMENT;
    }
    if (stream->copies)
        return KORLA_COPIES;
    stream->controls.set(control, value);
    return KORLA_OK;
}

korla_status korla_stream_get(const korla_stream* stream, uint32_t control, float* value) {
    if (!stream || control >= KORLA_CONTROL_COUNT || !value)
        return KORLA_BAD_ARGUMENT;
    *value = stream->controls.get(control);
    return KORLA_OK;
}

korla_status korla_stream_matrix(const korla_stream* stream, float* gains, uint32_t* source) {
    if (!stream || !gains)
        return KORLA_BAD_ARGUMENT;
    Gains applied;
    apply_controls(applied, stream->downmix, stream->controls.all());
    show_gains(gains, stream->downmix, applied);
    if (source)
        *source = stream->downmix.source;
    return KORLA_OK;
}

korla_status korla_stream_meters(korla_stream* stream, korla_meters* meters) {
    if (!stream || !meters || meters->size != sizeof *meters)
        return KORLA_BAD_ARGUMENT;
    SharedMeters& shared = stream->meters;
    for (uint32_t c = 0; c < KORLA_MAX_SPEAKERS; c++) {
        meters->input_peak[c] = shared.input_peak[c].take();
        meters->output_peak[c] = shared.output_peak[c].take();
    }
    meters->frames_out = shared.frames_out.get(); // counted after what went in, so read before it
    meters->frames_in = shared.frames_in.get();
    meters->silenced = shared.silenced.get();
    const float least_gain = shared.least_gain.take();
    meters->gain_reduction_db = least_gain < 1.0f ? -20.0f * std::log10(least_gain) : 0.0f;
    return KORLA_OK;
}
