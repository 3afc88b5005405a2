// SECTION: element-korladownmix (docs/gstreamer.md)
//
// A GstBaseTransform that changes the number of frames a buffer holds, as resamplers do: what a stream in push mode has
// ready goes on, the rest follows with the next buffer or is drained. Output stands where the input stood, so a timestamp is
// that of the first input frame since the last break and the frames that have come out since.
#include "korladownmix.h"

#include <gst/audio/audio.h>
#include <gst/base/gstbasetransform.h>
#include <korla/stream.h>

#include <atomic>
#include <cmath>
#include <cstring>

#include "positions.h"

GST_DEBUG_CATEGORY_STATIC(korla_downmix_debug);
#define GST_CAT_DEFAULT korla_downmix_debug

namespace {

using namespace korla_gst;

// Best first: what a choice falls on when the input's own format is not to be had.
#define KORLA_GST_FORMATS "{ F32LE, S32LE, S24_32LE, S24LE, S16LE, F64LE }"
#define KORLA_GST_CAPS                                                                                                 \
    "audio/x-raw, format = (string) " KORLA_GST_FORMATS ", rate = (int) [ 1, max ], channels = (int) [ 1, 12 ], "      \
    "layout = (string) { interleaved, non-interleaved }"

uint32_t format_of(const GstAudioInfo& info) {
    switch (GST_AUDIO_INFO_FORMAT(&info)) {
    case GST_AUDIO_FORMAT_S16LE: return KORLA_S16;
    case GST_AUDIO_FORMAT_S24LE: return KORLA_S24;
    case GST_AUDIO_FORMAT_S24_32LE: return KORLA_S24_32;
    case GST_AUDIO_FORMAT_S32LE: return KORLA_S32;
    case GST_AUDIO_FORMAT_F32LE: return KORLA_F32;
    case GST_AUDIO_FORMAT_F64LE: return KORLA_F64;
    default: return 0;
    }
}

bool is_planar(const GstAudioInfo& info) { return GST_AUDIO_INFO_LAYOUT(&info) == GST_AUDIO_LAYOUT_NON_INTERLEAVED; }

// ---- properties ------------------------------------------------------------------------------------------------------

enum Property { no_property, layout_property, first_control_property, gain_reduction_property = 20 };

constexpr double off_db = -120.0; // a gain at the lower end of its range is none at all

struct Control {
    uint32_t control;
    const char *name, *nick, *blurb;
    double low, high, initial;
};
constexpr Control controls[] = {
    {KORLA_DIALOGUE_DB, "dialogue", "Dialogue", "Gain of the front centre in dB; -120 is off", off_db, 40.0, 0.0},
    {KORLA_SURROUND_DB, "surround", "Surround", "Gain of side and back speakers in dB; -120 is off", off_db, 40.0, 0.0},
    {KORLA_HEIGHT_DB, "height", "Height", "Gain of height and top speakers in dB; -120 is off", off_db, 40.0, 0.0},
    {KORLA_LFE_DB, "lfe", "LFE",
     "Gain of the LFE in dB; until it is set, 0 where the output has an LFE and off where it has none", off_db, 40.0,
     off_db},
    {KORLA_GAIN_DB, "gain", "Gain", "Gain of everything in dB, before the limiter", off_db, 40.0, 0.0},
    {KORLA_CEILING_DB, "ceiling", "Ceiling", "The level that peaks keep to, in dB of full scale", -60.0, 0.0, 0.0},
    {KORLA_LIMITER, "limiter", "Limiter", "Limit peaks; otherwise integer formats saturate", 0.0, 1.0, 1.0},
};
constexpr size_t control_count = std::size(controls);
static_assert(control_count == KORLA_CONTROL_COUNT && first_control_property + control_count < gain_reduction_property);

float value_for_stream(const Control& control, double value) {
    return control.low == off_db && value <= off_db ? -INFINITY : static_cast<float>(value);
}

} // namespace

// ---- the element -----------------------------------------------------------------------------------------------------

struct KorlaDownmix {
    GstBaseTransform parent;

    // Guarded by the object's lock: properties, and the stream's pointer while another thread looks through it.
    gchar* layout;
    double values[control_count];
    bool is_set[control_count];
    korla_stream* stream;

    std::atomic<bool> wants_controls; // something is set that a stream which copies cannot do

    // Of the streaming thread.
    GstAudioInfo in, out;
    bool is_controllable;
    GstClockTime base_time; // of the first frame since the last break
    guint64 base_offset, frames_in, frames_out;
    bool marks_discontinuity;
};
struct KorlaDownmixClass {
    GstBaseTransformClass parent_class;
};
G_DEFINE_TYPE(KorlaDownmix, korla_downmix, GST_TYPE_BASE_TRANSFORM)

namespace {

KorlaDownmix* self_of(gpointer object) { return reinterpret_cast<KorlaDownmix*>(object); }

void set_stream(KorlaDownmix* self, korla_stream* stream) {
    GST_OBJECT_LOCK(self);
    korla_stream* const old = self->stream;
    self->stream = stream;
    if (stream != nullptr)
        for (size_t i = 0; i < control_count; i++)
            if (self->is_set[i])
                korla_stream_set(stream, controls[i].control, value_for_stream(controls[i], self->values[i]));
    GST_OBJECT_UNLOCK(self);
    korla_stream_close(old);
}

void forget_the_past(KorlaDownmix* self) {
    if (self->stream != nullptr)
        korla_stream_reset(self->stream);
    self->base_time = GST_CLOCK_TIME_NONE;
    self->base_offset = GST_BUFFER_OFFSET_NONE;
    self->frames_in = self->frames_out = 0;
    self->marks_discontinuity = true;
}

GstClockTime time_of_frame(const KorlaDownmix* self, guint64 frame) {
    return self->base_time + gst_util_uint64_scale_int_round(frame, GST_SECOND, GST_AUDIO_INFO_RATE(&self->in));
}

// Stamps a buffer that holds the next `frames` frames of output.
void stamp(KorlaDownmix* self, GstBuffer* buffer, size_t frames) {
    const guint64 first = self->frames_out, last = first + frames;
    GST_BUFFER_PTS(buffer) = GST_BUFFER_DURATION(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_OFFSET(buffer) = GST_BUFFER_OFFSET_END(buffer) = GST_BUFFER_OFFSET_NONE;
    if (GST_CLOCK_TIME_IS_VALID(self->base_time)) {
        GST_BUFFER_PTS(buffer) = time_of_frame(self, first);
        GST_BUFFER_DURATION(buffer) = time_of_frame(self, last) - GST_BUFFER_PTS(buffer);
    }
    if (self->base_offset != GST_BUFFER_OFFSET_NONE) {
        GST_BUFFER_OFFSET(buffer) = self->base_offset + first;
        GST_BUFFER_OFFSET_END(buffer) = self->base_offset + last;
    }
    if (self->marks_discontinuity)
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    else
        GST_BUFFER_FLAG_UNSET(buffer, GST_BUFFER_FLAG_DISCONT);
    GST_BUFFER_FLAG_UNSET(buffer, GST_BUFFER_FLAG_GAP);
    self->marks_discontinuity = false;
    self->frames_out = last;
}

// The samples of a buffer as the stream takes them. A planar output buffer says so in a meta of its own.
class Samples {
public:
    Samples(const GstAudioInfo& info, GstBuffer* buffer, GstMapFlags flags) {
        mapped_ = gst_audio_buffer_map(&buffer_, &info, buffer, flags);
    }
    ~Samples() {
        if (mapped_)
            gst_audio_buffer_unmap(&buffer_);
    }
    Samples(const Samples&) = delete;
    Samples& operator=(const Samples&) = delete;
    explicit operator bool() const { return mapped_; }
    size_t frames() const { return GST_AUDIO_BUFFER_N_SAMPLES(&buffer_); }
    void* const* planes() const { return buffer_.planes; }
    const void* const* read_only() const { return buffer_.planes; }

private:
    GstAudioBuffer buffer_;
    bool mapped_;
};

void make_planar_if(const GstAudioInfo& info, GstBuffer* buffer, size_t frames) {
    if (is_planar(info))
        gst_buffer_add_audio_meta(buffer, &info, frames, nullptr);
}

// Pushes what has not come out yet: at a break, and at the end.
GstFlowReturn drain(KorlaDownmix* self) {
    auto* const transform = &self->parent;
    const size_t frames = self->stream != nullptr && !gst_base_transform_is_passthrough(transform)
                              ? korla_stream_pending(self->stream)
                              : 0;
    GstFlowReturn flow = GST_FLOW_OK;
    if (frames > 0) {
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, frames * GST_AUDIO_INFO_BPF(&self->out), nullptr);
        make_planar_if(self->out, buffer, frames);
        {
            const Samples out(self->out, buffer, GST_MAP_WRITE);
            korla_stream_drain(self->stream, out.planes(), frames, nullptr);
        }
        stamp(self, buffer, frames);
        flow = gst_pad_push(GST_BASE_TRANSFORM_SRC_PAD(transform), buffer);
    }
    forget_the_past(self);
    return flow;
}

// ---- negotiation -----------------------------------------------------------------------------------------------------

// The layout that the property asks for, if any.
bool wanted_layout(KorlaDownmix* self, korla_layout& layout) {
    GST_OBJECT_LOCK(self);
    const bool wanted = self->layout != nullptr && korla_layout_parse(self->layout, &layout, nullptr, 0) == KORLA_OK;
    GST_OBJECT_UNLOCK(self);
    return wanted;
}

// Anything to anything, at one rate; the property `layout` decides about the output's channels.
GstCaps* transform_caps(GstBaseTransform* transform, GstPadDirection direction, GstCaps* caps, GstCaps* filter) {
    korla_layout layout = {};
    guint64 mask = 0;
    const bool fixed_output = direction == GST_PAD_SINK && wanted_layout(self_of(transform), layout) &&
                              mask_of(layout, mask, nullptr, 0);
    GstCaps* result = gst_caps_new_empty();
    GstCaps* any = gst_caps_from_string(KORLA_GST_CAPS);
    for (guint i = 0; i < gst_caps_get_size(caps); i++) {
        GstStructure* structure = gst_structure_copy(gst_caps_get_structure(any, 0));
        if (const GValue* rate = gst_structure_get_value(gst_caps_get_structure(caps, i), "rate"))
            gst_structure_set_value(structure, "rate", rate);
        if (fixed_output) {
            gst_structure_set(structure, "channels", G_TYPE_INT, static_cast<gint>(layout.count), nullptr);
            if (layout.count > 1)
                gst_structure_set(structure, "channel-mask", GST_TYPE_BITMASK, mask, nullptr);
        }
        result = gst_caps_merge_structure(result, structure);
    }
    gst_caps_unref(any);
    if (filter != nullptr) {
        GstCaps* narrowed = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(result);
        result = narrowed;
    }
    return result;
}

// Of what the other side takes, what is nearest to this side: its format, its arrangement, its channels.
GstCaps* fixate_caps(GstBaseTransform*, GstPadDirection, GstCaps* caps, GstCaps* others) {
    const GstStructure* own = gst_caps_get_structure(caps, 0);
    GstCaps* result = gst_caps_truncate(gst_caps_make_writable(others));
    GstStructure* other = gst_caps_get_structure(result, 0);
    gint channels = 2;
    gst_structure_get_int(own, "channels", &channels);
    for (const char* field : {"format", "layout"})
        if (const char* text = gst_structure_get_string(own, field))
            gst_structure_fixate_field_string(other, field, text);
    gst_structure_fixate_field_nearest_int(other, "channels", channels);
    gint other_channels = 0;
    gst_structure_get_int(other, "channels", &other_channels);
    if (!gst_structure_has_field(other, "channel-mask") && other_channels > 1) {
        GstAudioInfo bare;
        korla_layout layout;
        guint64 mask = 0;
        gst_audio_info_init(&bare);
        gst_audio_info_set_format(&bare, GST_AUDIO_FORMAT_F32LE, 48000, other_channels, nullptr);
        bare.position[0] = GST_AUDIO_CHANNEL_POSITION_NONE;
        if (other_channels == channels && gst_structure_has_field(own, "channel-mask"))
            gst_structure_set_value(other, "channel-mask", gst_structure_get_value(own, "channel-mask"));
        else if (speakers_of(bare, layout, nullptr, 0) && mask_of(layout, mask, nullptr, 0))
            gst_structure_set(other, "channel-mask", GST_TYPE_BITMASK, mask, nullptr);
    }
    return gst_caps_fixate(result);
}

// Opens a stream from `in` to `out`. Where nothing is to be done buffers pass as they are.
bool open_stream(KorlaDownmix* self, const GstAudioInfo& in, const GstAudioInfo& out) {
    korla_stream_config config = {};
    char reason[200] = "";
    config.size = sizeof config;
    config.rate = static_cast<uint32_t>(GST_AUDIO_INFO_RATE(&in));
    config.in_format = format_of(in), config.out_format = format_of(out);
    config.in_planar = is_planar(in), config.out_planar = is_planar(out);
    self->is_controllable = self->wants_controls;
    config.flags = self->is_controllable ? KORLA_CONTROLLABLE : 0;
    korla_stream* stream = nullptr;
    if (!speakers_of(in, config.in, reason, sizeof reason) || !speakers_of(out, config.out, reason, sizeof reason) ||
        korla_stream_open(&config, nullptr, 0, &stream, reason, sizeof reason) != KORLA_OK) {
        GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("These channels cannot be mixed: %s.", reason), (nullptr));
        return false;
    }
    self->in = in, self->out = out;
    set_stream(self, stream);
    const bool same_frames = std::memcmp(&config.in, &config.out, sizeof config.in) == 0 &&
                             config.in_planar == config.out_planar && korla_stream_latency(stream) == 0;
    gst_base_transform_set_passthrough(&self->parent, same_frames);
    return true;
}

gboolean set_caps(GstBaseTransform* transform, GstCaps* in_caps, GstCaps* out_caps) {
    auto* const self = self_of(transform);
    GstAudioInfo in, out;
    if (!gst_audio_info_from_caps(&in, in_caps) || !gst_audio_info_from_caps(&out, out_caps))
        return FALSE;
    if (self->stream != nullptr) {
        if (gst_audio_info_is_equal(&in, &self->in) && gst_audio_info_is_equal(&out, &self->out))
            return TRUE;
        drain(self);
    }
    if (!open_stream(self, in, out))
        return FALSE;
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
    return TRUE;
}

gboolean get_unit_size(GstBaseTransform*, GstCaps* caps, gsize* size) {
    GstAudioInfo info;
    if (!gst_audio_info_from_caps(&info, caps))
        return FALSE;
    *size = GST_AUDIO_INFO_BPF(&info);
    return TRUE;
}

// What the next buffer makes; towards the input, where nobody knows, as many frames.
gboolean transform_size(GstBaseTransform* transform, GstPadDirection direction, GstCaps* caps, gsize size,
                        GstCaps* other_caps, gsize* other_size) {
    auto* const self = self_of(transform);
    gsize unit = 0, other_unit = 0;
    if (!get_unit_size(transform, caps, &unit) || !get_unit_size(transform, other_caps, &other_unit))
        return FALSE;
    const size_t frames = size / unit;
    const bool forward = direction == GST_PAD_SINK && self->stream != nullptr;
    *other_size = (forward ? korla_stream_ready(self->stream, frames) : frames) * other_unit;
    return TRUE;
}

// ---- streaming -------------------------------------------------------------------------------------------------------

void before_transform(GstBaseTransform* transform, GstBuffer* buffer) {
    const GstClockTime time = gst_segment_to_stream_time(&transform->segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
    if (GST_CLOCK_TIME_IS_VALID(time))
        gst_object_sync_values(GST_OBJECT(transform), time);
}

// Input that does not follow on: what is held back belongs to what came before.
bool is_break(const KorlaDownmix* self, GstBuffer* buffer) {
    if (GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT))
        return true;
    if (!GST_BUFFER_PTS_IS_VALID(buffer) || !GST_CLOCK_TIME_IS_VALID(self->base_time))
        return false;
    const GstClockTimeDiff off = GST_CLOCK_DIFF(time_of_frame(self, self->frames_in), GST_BUFFER_PTS(buffer));
    return ABS(off) > static_cast<GstClockTimeDiff>(GST_SECOND / 32); // timestamps of coarse clocks are no breaks
}

GstFlowReturn submit_input_buffer(GstBaseTransform* transform, gboolean is_discont, GstBuffer* buffer) {
    auto* const self = self_of(transform);
    GstFlowReturn flow = GST_FLOW_OK;
    if (self->stream != nullptr) {
        // A control that was set while buffers passed: from here on they are mixed.
        if (self->wants_controls && !self->is_controllable) {
            flow = drain(self);
            const GstAudioInfo in = self->in, out = self->out;
            if (!open_stream(self, in, out)) {
                gst_buffer_unref(buffer);
                return GST_FLOW_NOT_NEGOTIATED;
            }
            gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
        }
        if (is_break(self, buffer)) // is_discont also tells of output that was not ready
            flow = drain(self);
        if (flow != GST_FLOW_OK) {
            gst_buffer_unref(buffer);
            return flow;
        }
    }
    return GST_BASE_TRANSFORM_CLASS(korla_downmix_parent_class)->submit_input_buffer(transform, is_discont, buffer);
}

GstFlowReturn transform(GstBaseTransform* transform, GstBuffer* in_buffer, GstBuffer* out_buffer) {
    auto* const self = self_of(transform);
    if (!GST_CLOCK_TIME_IS_VALID(self->base_time) && self->frames_in == 0) {
        self->base_time = GST_BUFFER_PTS(in_buffer);
        self->base_offset = GST_BUFFER_OFFSET(in_buffer);
    }
    size_t produced = 0;
    {
        const Samples in(self->in, in_buffer, GST_MAP_READ);
        if (!in) {
            GST_ELEMENT_ERROR(self, STREAM, FAILED, ("A buffer cannot be read."), (nullptr));
            return GST_FLOW_ERROR;
        }
        const size_t frames = in.frames(), ready = korla_stream_ready(self->stream, frames);
        gst_buffer_set_size(out_buffer, static_cast<gssize>(ready * GST_AUDIO_INFO_BPF(&self->out)));
        if (ready == 0) {
            void* const nowhere[KORLA_MAX_SPEAKERS] = {};
            korla_stream_process(self->stream, in.read_only(), frames, nowhere, 0, nullptr);
        } else {
            make_planar_if(self->out, out_buffer, ready);
            const Samples out(self->out, out_buffer, GST_MAP_WRITE);
            if (!out) {
                GST_ELEMENT_ERROR(self, STREAM, FAILED, ("A buffer cannot be written."), (nullptr));
                return GST_FLOW_ERROR;
            }
            korla_stream_process(self->stream, in.read_only(), frames, out.planes(), ready, &produced);
        }
        self->frames_in += frames;
    }
    if (produced == 0)
        return GST_BASE_TRANSFORM_FLOW_DROPPED;
    stamp(self, out_buffer, produced);
    return GST_FLOW_OK;
}

// A buffer of which nothing is ready yet is no gap in the output, which the base class would mark as one.
GstFlowReturn generate_output(GstBaseTransform* transform, GstBuffer** buffer) {
    const GstFlowReturn flow =
        GST_BASE_TRANSFORM_CLASS(korla_downmix_parent_class)->generate_output(transform, buffer);
    if (flow != GST_BASE_TRANSFORM_FLOW_DROPPED)
        return flow;
    gst_buffer_replace(buffer, nullptr);
    return GST_FLOW_OK;
}

// The meta of planar audio is of one buffer's size and layout: it is made anew.
gboolean transform_meta(GstBaseTransform* transform, GstBuffer* out, GstMeta* meta, GstBuffer* in) {
    if (meta->info->api == GST_AUDIO_META_API_TYPE)
        return FALSE;
    return GST_BASE_TRANSFORM_CLASS(korla_downmix_parent_class)->transform_meta(transform, out, meta, in);
}

gboolean sink_event(GstBaseTransform* transform, GstEvent* event) {
    auto* const self = self_of(transform);
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_STOP: forget_the_past(self); break;
    case GST_EVENT_EOS:
    case GST_EVENT_SEGMENT:
    case GST_EVENT_GAP: drain(self); break;
    default: break;
    }
    return GST_BASE_TRANSFORM_CLASS(korla_downmix_parent_class)->sink_event(transform, event);
}

gboolean query(GstBaseTransform* transform, GstPadDirection direction, GstQuery* query) {
    auto* const self = self_of(transform);
    const auto answer = [&] {
        return GST_BASE_TRANSFORM_CLASS(korla_downmix_parent_class)->query(transform, direction, query);
    };
    if (direction != GST_PAD_SRC || GST_QUERY_TYPE(query) != GST_QUERY_LATENCY ||
        !gst_pad_peer_query(GST_BASE_TRANSFORM_SINK_PAD(transform), query))
        return answer();
    GST_OBJECT_LOCK(self);
    const guint64 own = self->stream == nullptr || GST_AUDIO_INFO_RATE(&self->in) == 0
                            ? 0
                            : gst_util_uint64_scale_ceil(korla_stream_latency(self->stream), GST_SECOND,
                                                         static_cast<guint64>(GST_AUDIO_INFO_RATE(&self->in)));
    GST_OBJECT_UNLOCK(self);
    gboolean live;
    GstClockTime least, most;
    gst_query_parse_latency(query, &live, &least, &most);
    gst_query_set_latency(query, live, least + own, GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
    return TRUE;
}

gboolean start(GstBaseTransform* transform) {
    forget_the_past(self_of(transform));
    return TRUE;
}

gboolean stop(GstBaseTransform* transform) {
    set_stream(self_of(transform), nullptr);
    return TRUE;
}

// ---- properties ------------------------------------------------------------------------------------------------------

void set_layout(KorlaDownmix* self, const char* text) {
    korla_layout layout;
    guint64 mask;
    char reason[200] = "";
    if (text != nullptr && (korla_layout_parse(text, &layout, reason, sizeof reason) != KORLA_OK ||
                            !mask_of(layout, mask, reason, sizeof reason))) {
        GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("The layout '%s' is not to be had: %s.", text, reason), (nullptr));
        return;
    }
    GST_OBJECT_LOCK(self);
    g_free(self->layout);
    self->layout = g_strdup(text);
    GST_OBJECT_UNLOCK(self);
    gst_base_transform_reconfigure_src(&self->parent);
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    auto* const self = self_of(object);
    if (id == layout_property) {
        set_layout(self, g_value_get_string(value));
        return;
    }
    const size_t i = id - first_control_property;
    if (i >= control_count) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    const Control& control = controls[i];
    const double number = control.control == KORLA_LIMITER ? g_value_get_boolean(value) : g_value_get_double(value);
    GST_OBJECT_LOCK(self);
    self->values[i] = number;
    self->is_set[i] = true;
    if (self->stream != nullptr)
        korla_stream_set(self->stream, control.control, value_for_stream(control, number));
    GST_OBJECT_UNLOCK(self);
    if (number != control.initial)
        self->wants_controls = true;
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    auto* const self = self_of(object);
    const size_t i = id - first_control_property;
    GST_OBJECT_LOCK(self);
    if (id == layout_property) {
        g_value_set_string(value, self->layout);
    } else if (id == gain_reduction_property) {
        korla_meters meters = {};
        meters.size = sizeof meters;
        if (self->stream != nullptr)
            korla_stream_meters(self->stream, &meters);
        g_value_set_double(value, std::fmin(meters.gain_reduction_db, -off_db));
    } else if (i < control_count) {
        if (controls[i].control == KORLA_LIMITER)
            g_value_set_boolean(value, self->values[i] != 0.0);
        else
            g_value_set_double(value, self->values[i]);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(self);
}

void finalize(GObject* object) {
    auto* const self = self_of(object);
    korla_stream_close(self->stream);
    g_free(self->layout);
    G_OBJECT_CLASS(korla_downmix_parent_class)->finalize(object);
}

} // namespace

static void korla_downmix_init(KorlaDownmix* self) {
    for (size_t i = 0; i < control_count; i++)
        self->values[i] = controls[i].initial;
    gst_audio_info_init(&self->in);
    gst_audio_info_init(&self->out);
    forget_the_past(self);
}

static void korla_downmix_class_init(KorlaDownmixClass* type) {
    auto* const object = G_OBJECT_CLASS(type);
    auto* const element = GST_ELEMENT_CLASS(type);
    auto* const base = GST_BASE_TRANSFORM_CLASS(type);
    GST_DEBUG_CATEGORY_INIT(korla_downmix_debug, "korladownmix", 0, "downmixing by korla-stream");

    object->set_property = set_property;
    object->get_property = get_property;
    object->finalize = finalize;
    constexpr auto text = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
    constexpr auto live = static_cast<GParamFlags>(text | GST_PARAM_CONTROLLABLE);
    g_object_class_install_property(
        object, layout_property,
        g_param_spec_string("layout", "Layout",
                            "Output: stereo, 5.1, 7.1.4, ... or a list of speakers (FL,FR,FC); without it, what "
                            "downstream asks for",
                            nullptr, text));
    for (size_t i = 0; i < control_count; i++) {
        const Control& c = controls[i];
        g_object_class_install_property(
            object, static_cast<guint>(first_control_property + i),
            c.control == KORLA_LIMITER ? g_param_spec_boolean(c.name, c.nick, c.blurb, TRUE, live)
                                       : g_param_spec_double(c.name, c.nick, c.blurb, c.low, c.high, c.initial, live));
    }
    g_object_class_install_property(
        object, gain_reduction_property,
        g_param_spec_double("gain-reduction", "Gain reduction",
                            "The greatest gain reduction of the limiter in dB since it was last read", 0.0, -off_db, 0.0,
                            static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));

    gst_element_class_set_static_metadata(
        element, "Downmixer", "Filter/Converter/Audio",
        "Mixes audio from any speakers to any speakers, through a look-ahead peak limiter", "The korladownmixer authors");
    GstCaps* caps = gst_caps_from_string(KORLA_GST_CAPS);
    gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
    gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);

    base->transform_caps = transform_caps;
    base->fixate_caps = fixate_caps;
    base->set_caps = set_caps;
    base->get_unit_size = get_unit_size;
    base->transform_size = transform_size;
    base->before_transform = before_transform;
    base->submit_input_buffer = submit_input_buffer;
    base->generate_output = generate_output;
    base->transform = transform;
    base->transform_meta = transform_meta;
    base->sink_event = sink_event;
    base->query = query;
    base->start = start;
    base->stop = stop;
}

static gboolean register_elements(GstPlugin* plugin) {
    return gst_element_register(plugin, "korladownmix", GST_RANK_NONE, korla_downmix_get_type());
}

#define PACKAGE "korladownmixer"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, korla, "Downmixing from any speakers to any speakers",
                  register_elements, KORLA_VERSION, GST_LICENSE_UNKNOWN, "korladownmixer", "korladownmixer")
