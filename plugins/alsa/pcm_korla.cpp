// The ALSA filter `type korla`: a stream of same length between an application and a slave PCM.
//
//     pcm.downmix {
//         type korla
//         slave.pcm "plug:hw:0"
//         to "stereo"
//         dialogue 3
//     }
//
// All memory is allocated when parameters or a channel map are set; transfer only copies and mixes.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <korla/stream.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr unsigned chunk = 512; // frames that go through the buffers at once

struct Format {
    snd_pcm_format_t alsa;
    uint32_t korla;
};
constexpr Format formats[] = {{SND_PCM_FORMAT_S16_LE, KORLA_S16},    {SND_PCM_FORMAT_S24_3LE, KORLA_S24},
                              {SND_PCM_FORMAT_S24_LE, KORLA_S24_32}, {SND_PCM_FORMAT_S32_LE, KORLA_S32},
                              {SND_PCM_FORMAT_FLOAT_LE, KORLA_F32},  {SND_PCM_FORMAT_FLOAT64_LE, KORLA_F64}};

uint32_t korla_format(snd_pcm_format_t format) {
    for (const Format& f : formats)
        if (f.alsa == format)
            return f.korla;
    return 0;
}

// In the order in which ALSA has the channels of its own layouts; the rest follows.
struct Position {
    unsigned alsa;
    const char* speaker;
};
constexpr Position positions[] = {
    {SND_CHMAP_FL, "FL"},   {SND_CHMAP_FR, "FR"},   {SND_CHMAP_RL, "BL"},   {SND_CHMAP_RR, "BR"},   {SND_CHMAP_FC, "FC"},
    {SND_CHMAP_MONO, "FC"}, {SND_CHMAP_LFE, "LFE"}, {SND_CHMAP_SL, "SL"},   {SND_CHMAP_SR, "SR"},   {SND_CHMAP_RC, "BC"},
    {SND_CHMAP_FLC, "FLC"}, {SND_CHMAP_FRC, "FRC"}, {SND_CHMAP_FLW, "WL"},  {SND_CHMAP_FRW, "WR"},  {SND_CHMAP_FLH, "HL"},
    {SND_CHMAP_FRH, "HR"},  {SND_CHMAP_TFL, "TFL"}, {SND_CHMAP_TFR, "TFR"}, {SND_CHMAP_TFC, "TFC"}, {SND_CHMAP_TSL, "TSL"},
    {SND_CHMAP_TSR, "TSR"}, {SND_CHMAP_TRL, "TBL"}, {SND_CHMAP_TRR, "TBR"}, {SND_CHMAP_TRC, "TBC"}};

unsigned position_of(uint32_t speaker) {
    for (const Position& p : positions)
        if (korla_speaker_by_name(p.speaker) == speaker)
            return p.alsa;
    return SND_CHMAP_UNKNOWN;
}
uint32_t speaker_of(unsigned position) {
    for (const Position& p : positions)
        if (p.alsa == position)
            return korla_speaker_by_name(p.speaker);
    return 0;
}

// What so many channels are for that no map names: ALSA's own layouts, and 7.1.4. Null: anything.
const char* custom(unsigned channels) {
    constexpr const char* customs[] = {nullptr,
                                       "FC",
                                       "FL,FR",
                                       "FL,FR,LFE",
                                       "FL,FR,BL,BR",
                                       "FL,FR,BL,BR,FC",
                                       "FL,FR,BL,BR,FC,LFE",
                                       nullptr,
                                       "FL,FR,BL,BR,FC,LFE,SL,SR",
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       "FL,FR,BL,BR,FC,LFE,SL,SR,TFL,TFR,TBL,TBR"};
    return channels < std::size(customs) ? customs[channels] : nullptr;
}

// A list of speakers stands in its own order, a layout's name for its speakers in ALSA's order, in which the only pair of
// surrounds stands where the back speakers do.
int parse_layout(const char* option, const char* text, korla_layout& layout) {
    char reason[200] = "";
    if (korla_layout_parse(text, &layout, reason, sizeof reason) != KORLA_OK) {
        SNDERR("%s \"%s\": %s", option, text, reason);
        return -EINVAL;
    }
    if (std::strpbrk(text, ", ") != nullptr)
        return 0;
    const auto has = [&](const char* name) {
        return std::find(layout.speakers, layout.speakers + layout.count, korla_speaker_by_name(name)) !=
               layout.speakers + layout.count;
    };
    const bool sides_stand_behind = !has("BL");
    const auto rank = [&](uint32_t speaker) {
        unsigned position = position_of(speaker);
        if (sides_stand_behind && position == SND_CHMAP_SL)
            position = SND_CHMAP_RL;
        if (sides_stand_behind && position == SND_CHMAP_SR)
            position = SND_CHMAP_RR;
        return std::find_if(std::begin(positions), std::end(positions), [&](const Position& p) { return p.alsa == position; });
    };
    std::stable_sort(layout.speakers, layout.speakers + layout.count, [&](uint32_t a, uint32_t b) { return rank(a) < rank(b); });
    return 0;
}

struct Control {
    uint32_t control;
    const char* name;
};
constexpr Control controls[] = {{KORLA_DIALOGUE_DB, "dialogue"}, {KORLA_SURROUND_DB, "surround"}, {KORLA_HEIGHT_DB, "height"},
                                {KORLA_LFE_DB, "lfe"},           {KORLA_GAIN_DB, "gain"},         {KORLA_CEILING_DB, "ceiling"},
                                {KORLA_LIMITER, "limiter"}};
constexpr size_t control_count = std::size(controls);

struct Filter {
    snd_pcm_extplug_t ext = {};
    bool has_from = false;
    korla_layout from = {}, to = {};
    bool is_set[control_count] = {};
    float values[control_count] = {};

    korla_layout in = {}; // as the application has its channels now
    korla_stream* stream = nullptr;
    std::unique_ptr<char[]> memory; // of both sides, a chunk of each channel after another
    char* planes[2][KORLA_MAX_SPEAKERS];
    snd_pcm_channel_area_t areas[2][KORLA_MAX_SPEAKERS];

    ~Filter() { korla_stream_close(stream); }
};

Filter* filter_of(snd_pcm_extplug_t* ext) { return static_cast<Filter*>(ext->private_data); }

// Opens the stream for the parameters that are set, from `in`; what was open is replaced only by one that opens.
int open_stream(Filter* filter, const korla_layout& in) {
    const snd_pcm_extplug_t& ext = filter->ext;
    korla_stream_config config = {};
    config.size = sizeof config;
    config.rate = ext.rate;
    config.in = in, config.out = filter->to;
    config.in_format = korla_format(ext.format), config.out_format = korla_format(ext.slave_format);
    config.in_planar = config.out_planar = 1;
    config.mode = KORLA_SAME_LENGTH;
    config.flags = std::any_of(filter->is_set, filter->is_set + control_count, [](bool set) { return set; }) ? KORLA_CONTROLLABLE : 0;
    korla_stream* stream = nullptr;
    char reason[200] = "";
    const korla_status status = korla_stream_open(&config, nullptr, 0, &stream, reason, sizeof reason);
    if (status != KORLA_OK) {
        SNDERR("%s", *reason ? reason : korla_status_text(status));
        return status == KORLA_NO_MEMORY ? -ENOMEM : -EINVAL;
    }
    for (size_t i = 0; i < control_count; i++)
        if (filter->is_set[i])
            korla_stream_set(stream, controls[i].control, filter->values[i]);
    korla_stream_close(filter->stream);
    filter->stream = stream;
    filter->in = in;
    return 0;
}

// The input's speakers where no channel map says them.
int default_layout(const Filter* filter, unsigned channels, korla_layout& layout) {
    if (filter->has_from) {
        layout = filter->from;
        return 0;
    }
    if (custom(channels) == nullptr) {
        SNDERR("%u channels may be for any speakers; name them by 'from'", channels);
        return -EINVAL;
    }
    korla_layout_parse(custom(channels), &layout, nullptr, 0);
    return 0;
}

int hw_params(snd_pcm_extplug_t* ext, snd_pcm_hw_params_t*) {
    Filter* const filter = filter_of(ext);
    const size_t widths[2] = {korla_format_bytes(korla_format(ext->format)), korla_format_bytes(korla_format(ext->slave_format))};
    const unsigned channels[2] = {ext->channels, ext->slave_channels};
    korla_layout in = {};
    if (const int error = default_layout(filter, ext->channels, in))
        return error;
    filter->memory.reset(new (std::nothrow) char[chunk * (channels[0] * widths[0] + channels[1] * widths[1])]);
    if (!filter->memory)
        return -ENOMEM;
    char* place = filter->memory.get();
    for (int side : {0, 1})
        for (unsigned c = 0; c < channels[side]; c++, place += chunk * widths[side]) {
            filter->planes[side][c] = place;
            filter->areas[side][c] = {place, 0, static_cast<unsigned>(8 * widths[side])};
        }
    return open_stream(filter, in);
}

int init(snd_pcm_extplug_t* ext) {
    korla_stream_reset(filter_of(ext)->stream);
    return 0;
}

snd_pcm_sframes_t transfer(snd_pcm_extplug_t* ext, const snd_pcm_channel_area_t* to, snd_pcm_uframes_t to_offset,
                           const snd_pcm_channel_area_t* from, snd_pcm_uframes_t from_offset, snd_pcm_uframes_t size) {
    Filter* const filter = filter_of(ext);
    for (snd_pcm_uframes_t done = 0; done < size;) {
        const snd_pcm_uframes_t n = std::min<snd_pcm_uframes_t>(chunk, size - done);
        snd_pcm_areas_copy(filter->areas[0], 0, from, from_offset + done, ext->channels, n, ext->format);
        const auto* const* source = reinterpret_cast<const void* const*>(filter->planes[0]);
        auto* const* sink = reinterpret_cast<void* const*>(filter->planes[1]);
        if (korla_stream_process(filter->stream, source, n, sink, n, nullptr) != KORLA_OK)
            return -EIO;
        snd_pcm_areas_copy(to, to_offset + done, filter->areas[1], 0, ext->slave_channels, n, ext->slave_format);
        done += n;
    }
    return static_cast<snd_pcm_sframes_t>(size);
}

int close(snd_pcm_extplug_t* ext) {
    delete filter_of(ext);
    return 0;
}

// ---- channel maps ----------------------------------------------------------------------------------------------------

void write_positions(const korla_layout& layout, snd_pcm_chmap_t& map) {
    map.channels = layout.count;
    for (uint32_t c = 0; c < layout.count; c++)
        map.pos[c] = layout.count == 1 ? static_cast<unsigned>(SND_CHMAP_MONO) : position_of(layout.speakers[c]);
}

// What may be set: the configured speakers in any order, or those of every number of channels that has a custom.
snd_pcm_chmap_query_t** query_chmaps(snd_pcm_extplug_t* ext) {
    const Filter* const filter = filter_of(ext);
    auto** const maps = static_cast<snd_pcm_chmap_query_t**>(calloc(KORLA_MAX_SPEAKERS + 1, sizeof(snd_pcm_chmap_query_t*)));
    size_t count = 0;
    for (unsigned channels = 1; maps && channels <= KORLA_MAX_SPEAKERS; channels++) {
        korla_layout layout = {};
        if (filter->has_from ? filter->from.count != channels : custom(channels) == nullptr)
            continue;
        default_layout(filter, channels, layout);
        auto* const map = static_cast<snd_pcm_chmap_query_t*>(malloc(sizeof(snd_pcm_chmap_query_t) + channels * sizeof(unsigned)));
        if (!map) {
            snd_pcm_free_chmaps(maps);
            return nullptr;
        }
        map->type = SND_CHMAP_TYPE_VAR;
        write_positions(layout, map->map);
        maps[count++] = map;
    }
    return maps;
}

snd_pcm_chmap_t* get_chmap(snd_pcm_extplug_t* ext) {
    const Filter* const filter = filter_of(ext);
    if (filter->in.count == 0)
        return nullptr;
    auto* const map = static_cast<snd_pcm_chmap_t*>(malloc(sizeof(snd_pcm_chmap_t) + filter->in.count * sizeof(unsigned)));
    if (map)
        write_positions(filter->in, *map);
    return map;
}

int set_chmap(snd_pcm_extplug_t* ext, const snd_pcm_chmap_t* map) {
    Filter* const filter = filter_of(ext);
    if (map->channels != ext->channels)
        return -EINVAL;
    korla_layout in = {map->channels, {}};
    for (unsigned c = 0; c < map->channels; c++) {
        const unsigned position = map->pos[c] & SND_CHMAP_POSITION_MASK;
        in.speakers[c] = speaker_of(position);
        if (in.speakers[c] == 0) {
            const char* name = snd_pcm_chmap_name(static_cast<enum snd_pcm_chmap_position>(position));
            SNDERR("channel %u is for %s, which is no speaker of korla-stream", c + 1, name ? name : "an unknown position");
            return -EINVAL;
        }
    }
    return open_stream(filter, in);
}

constexpr snd_pcm_extplug_callback_t callbacks = [] {
    snd_pcm_extplug_callback_t c = {};
    c.transfer = transfer, c.close = close, c.hw_params = hw_params, c.init = init;
    c.query_chmaps = query_chmaps, c.get_chmap = get_chmap, c.set_chmap = set_chmap;
    return c;
}();

// ---- configuration ---------------------------------------------------------------------------------------------------

// A gain in dB, "off" for none; a switch for the limiter.
int parse_control(const Control& control, const snd_config_t* node, float& value) {
    const char* text = nullptr;
    double number = 0;
    if (control.control == KORLA_LIMITER) {
        const int on = snd_config_get_bool(node);
        value = static_cast<float>(on);
        return on < 0 ? -EINVAL : 0;
    }
    if (snd_config_get_string(node, &text) == 0 && std::strcmp(text, "off") == 0)
        number = -INFINITY;
    else if (snd_config_get_ireal(node, &number) < 0)
        return -EINVAL;
    const bool is_ceiling = control.control == KORLA_CEILING_DB;
    if (is_ceiling ? !(number >= -60 && number <= 0) : !(number <= 40))
        return -EINVAL;
    value = static_cast<float>(number);
    return 0;
}

int parse(snd_config_t* conf, Filter& filter, snd_config_t*& slave) {
    snd_config_iterator_t i, next;
    bool has_to = false;
    snd_config_for_each(i, next, conf) {
        snd_config_t* const node = snd_config_iterator_entry(i);
        const char *id = nullptr, *text = nullptr;
        if (snd_config_get_id(node, &id) < 0)
            continue;
        if (std::strcmp(id, "comment") == 0 || std::strcmp(id, "type") == 0 || std::strcmp(id, "hint") == 0)
            continue;
        if (std::strcmp(id, "slave") == 0) {
            slave = node;
            continue;
        }
        if (std::strcmp(id, "to") == 0 || std::strcmp(id, "from") == 0) {
            const bool is_to = id[0] == 't';
            char number[32]; // 5.1 is a number to the configuration
            double real = 0;
            if (snd_config_get_string(node, &text) < 0) {
                if (snd_config_get_ireal(node, &real) < 0) {
                    SNDERR("'%s' is a layout's name or a list of speakers", id);
                    return -EINVAL;
                }
                std::snprintf(number, sizeof number, "%.1f", real);
                text = number;
            }
            if (const int error = parse_layout(id, text, is_to ? filter.to : filter.from))
                return error;
            (is_to ? has_to : filter.has_from) = true;
            continue;
        }
        const auto* const control = std::find_if(std::begin(controls), std::end(controls),
                                                 [&](const Control& c) { return std::strcmp(c.name, id) == 0; });
        if (control == std::end(controls)) {
            SNDERR("Unknown field %s", id);
            return -EINVAL;
        }
        const auto k = static_cast<size_t>(control - controls);
        if (parse_control(*control, node, filter.values[k]) < 0) {
            SNDERR("'%s' is %s", id,
                   control->control == KORLA_LIMITER      ? "yes or no"
                   : control->control == KORLA_CEILING_DB ? "a level of -60 to 0 dB"
                                                          : "a gain in dB of 40 at the most, or \"off\"");
            return -EINVAL;
        }
        filter.is_set[k] = true;
    }
    if (!slave || !has_to) {
        SNDERR("No %s defined for the filter korla", slave ? "'to'" : "'slave'");
        return -EINVAL;
    }
    return 0;
}

int constrain(Filter& filter) {
    snd_pcm_extplug_t* const ext = &filter.ext;
    unsigned list[std::size(formats)];
    std::transform(std::begin(formats), std::end(formats), list, [](const Format& f) { return static_cast<unsigned>(f.alsa); });
    const auto count = static_cast<unsigned>(std::size(list));
    int error = snd_pcm_extplug_set_param_list(ext, SND_PCM_EXTPLUG_HW_FORMAT, count, list);
    if (error >= 0)
        error = snd_pcm_extplug_set_slave_param_list(ext, SND_PCM_EXTPLUG_HW_FORMAT, count, list);
    if (error >= 0) // both sides have the same format: a slave of another stands behind `plug`
        error = snd_pcm_extplug_set_param_link(ext, SND_PCM_EXTPLUG_HW_FORMAT, 1);
    if (error >= 0)
        error = filter.has_from
                    ? snd_pcm_extplug_set_param(ext, SND_PCM_EXTPLUG_HW_CHANNELS, filter.from.count)
                    : snd_pcm_extplug_set_param_minmax(ext, SND_PCM_EXTPLUG_HW_CHANNELS, 1, KORLA_MAX_SPEAKERS);
    if (error >= 0)
        error = snd_pcm_extplug_set_slave_param(ext, SND_PCM_EXTPLUG_HW_CHANNELS, filter.to.count);
    return error;
}

} // namespace

#pragma GCC visibility push(default) // alsa-lib looks for these two

extern "C" SND_PCM_PLUGIN_DEFINE_FUNC(korla) {
    if (stream != SND_PCM_STREAM_PLAYBACK) {
        SNDERR("the filter korla is for playback");
        return -EINVAL;
    }
    snd_config_t* slave = nullptr;
    auto filter = std::unique_ptr<Filter>(new (std::nothrow) Filter);
    if (!filter)
        return -ENOMEM;
    if (const int error = parse(conf, *filter, slave))
        return error;
    filter->ext.version = SND_PCM_EXTPLUG_VERSION;
    filter->ext.name = "Downmix by korla-stream";
    filter->ext.callback = &callbacks;
    filter->ext.private_data = filter.get();
    if (const int error = snd_pcm_extplug_create(&filter->ext, name, root, slave, stream, mode); error < 0)
        return error;
    Filter* const owned = filter.release(); // by the PCM, whose close deletes it
    if (const int error = constrain(*owned); error < 0) {
        snd_pcm_extplug_delete(&owned->ext);
        return error;
    }
    *pcmp = owned->ext.pcm;
    return 0;
}
SND_PCM_PLUGIN_SYMBOL(korla)

#pragma GCC visibility pop
