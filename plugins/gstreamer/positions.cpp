#include "positions.h"

#include <cstdio>

namespace korla_gst {
namespace {

struct Position {
    GstAudioChannelPosition position;
    const char* speaker;
};
constexpr Position positions[] = {
    {GST_AUDIO_CHANNEL_POSITION_FRONT_LEFT, "FL"},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_RIGHT, "FR"},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_CENTER, "FC"},
    {GST_AUDIO_CHANNEL_POSITION_LFE1, "LFE"},
    {GST_AUDIO_CHANNEL_POSITION_REAR_LEFT, "BL"},
    {GST_AUDIO_CHANNEL_POSITION_REAR_RIGHT, "BR"},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER, "FLC"},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER, "FRC"},
    {GST_AUDIO_CHANNEL_POSITION_REAR_CENTER, "BC"},
    {GST_AUDIO_CHANNEL_POSITION_SIDE_LEFT, "SL"},
    {GST_AUDIO_CHANNEL_POSITION_SIDE_RIGHT, "SR"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_FRONT_LEFT, "TFL"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_FRONT_RIGHT, "TFR"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_FRONT_CENTER, "TFC"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_REAR_LEFT, "TBL"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_REAR_RIGHT, "TBR"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_SIDE_LEFT, "TSL"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_SIDE_RIGHT, "TSR"},
    {GST_AUDIO_CHANNEL_POSITION_TOP_REAR_CENTER, "TBC"},
    {GST_AUDIO_CHANNEL_POSITION_WIDE_LEFT, "WL"},
    {GST_AUDIO_CHANNEL_POSITION_WIDE_RIGHT, "WR"},
    {GST_AUDIO_CHANNEL_POSITION_MONO, "FC"},
};

// What a number of channels without positions is for; null where there are several customs, or none.
constexpr const char* customs[KORLA_MAX_SPEAKERS + 1] = {nullptr, "mono", "stereo", "3.0", "quad",  "5.0", "5.1",
                                                         "6.1",   "7.1",  nullptr,  nullptr, nullptr, "7.1.4"};

// The layout with its speakers in the order of the mask's bits.
void append_in_order(guint64 mask, korla_layout& layout) {
    for (int bit = 0; bit < 64; bit++)
        for (const Position& p : positions)
            if ((mask >> bit & 1) != 0 && p.position == bit)
                layout.speakers[layout.count++] = korla_speaker_by_name(p.speaker);
}

} // namespace

bool mask_of(const korla_layout& layout, guint64& mask, char* reason, size_t reason_bytes) {
    mask = 0;
    for (uint32_t c = 0; c < layout.count; c++) {
        bool found = false;
        for (const Position& p : positions)
            if (p.position >= 0 && korla_speaker_by_name(p.speaker) == layout.speakers[c])
                mask |= guint64{1} << p.position, found = true;
        if (!found) {
            std::snprintf(reason, reason_bytes, "GStreamer has no position for the speaker %s",
                          korla_speaker_name(layout.speakers[c]));
            return false;
        }
    }
    return true;
}

bool speakers_of(const GstAudioInfo& info, korla_layout& layout, char* reason, size_t reason_bytes) {
    layout = {};
    const int channels = GST_AUDIO_INFO_CHANNELS(&info);
    if (channels > KORLA_MAX_SPEAKERS) {
        std::snprintf(reason, reason_bytes, "%d channels; korla-stream has %d at most", channels, KORLA_MAX_SPEAKERS);
        return false;
    }
    if (GST_AUDIO_INFO_IS_UNPOSITIONED(&info) || info.position[0] == GST_AUDIO_CHANNEL_POSITION_NONE) {
        if (customs[channels] == nullptr) {
            std::snprintf(reason, reason_bytes, "%d channels without a channel-mask may be for any speakers", channels);
            return false;
        }
        korla_layout named = {};
        guint64 mask = 0;
        if (korla_layout_parse(customs[channels], &named, reason, reason_bytes) != KORLA_OK ||
            !mask_of(named, mask, reason, reason_bytes))
            return false;
        append_in_order(mask, layout);
        return true;
    }
    for (int c = 0; c < channels; c++) {
        for (const Position& p : positions)
            if (p.position == info.position[c])
                layout.speakers[c] = korla_speaker_by_name(p.speaker);
        if (layout.speakers[c] == 0) {
            gchar* name = gst_audio_channel_positions_to_string(&info.position[c], 1);
            std::snprintf(reason, reason_bytes, "channel %d has the position %s, which is no speaker of korla-stream", c + 1,
                          name);
            g_free(name);
            return false;
        }
    }
    layout.count = static_cast<uint32_t>(channels);
    return true;
}

} // namespace korla_gst
